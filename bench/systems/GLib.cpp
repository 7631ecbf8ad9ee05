// GLib: GThreadPool, and timeout sources of a main loop for loop tasks.

#include "bench/workloads/CLS_System.h"

#include <atomic>
#include <glib.h>
#include <stdexcept>
#include <thread>
#include <vector>

namespace
{
using Task = std::function<void()>;

void RunAndFree(gpointer _pTask, gpointer /*_pNothing*/)
{
    const std::unique_ptr<Task> pTask(static_cast<Task*>(_pTask));
    (*pTask)();
}

class CLS_GLib : public CLS_System
{
public:
    explicit CLS_GLib(unsigned _uiThreads)
        : m_uiThreads(_uiThreads == 0 ? g_get_num_processors() : _uiThreads),
          m_pPool(g_thread_pool_new(RunAndFree, nullptr, static_cast<gint>(m_uiThreads), FALSE, nullptr))
    {
        if (m_pPool == nullptr)
        {
            throw std::runtime_error("no thread pool");
        }
    }

    ~CLS_GLib() override
    {
        // Waits until all tasks have run.
        g_thread_pool_free(m_pPool, FALSE, TRUE);
        if (m_pLoop != nullptr)
        {
            g_main_loop_unref(m_pLoop);
            g_main_context_unref(m_pContext);
        }
    }

    unsigned GetThreadLimit() const override { return m_uiThreads; }

    void Submit(const Task& _funTask, void* /*_pOwner*/) override
    {
        g_thread_pool_push(m_pPool, new Task(_funTask), nullptr);
    }

    bool HasLoops() const override { return true; }
    void AddLoop(const Task& _funTask, int _iInterval) override
    {
        if (m_pLoop == nullptr)
        {
            m_pContext = g_main_context_new();
            m_pLoop = g_main_loop_new(m_pContext, FALSE);
            m_clsLoopThread = std::thread([this] { g_main_loop_run(m_pLoop); });
        }
        m_vecLoops.push_back(
            std::make_unique<ST_GLibLoop>(ST_GLibLoop{*this, _funTask, static_cast<guint>(_iInterval)}));
        PushRun(*m_vecLoops.back());
    }
    void RemoveLoops() override
    {
        m_bEnding = true;
        g_main_loop_quit(m_pLoop);
        m_clsLoopThread.join();
        while (m_iRuns > 0)
        {
            std::this_thread::yield();
        }
    }

private:
    struct ST_GLibLoop
    {
        CLS_GLib& m_clsSystem;
        Task m_funTask;
        guint m_uiInterval;
    };

    static gboolean OnTimeout(gpointer _pLoop)
    {
        auto* const pLoop = static_cast<ST_GLibLoop*>(_pLoop);
        pLoop->m_clsSystem.PushRun(*pLoop);
        return G_SOURCE_REMOVE;
    }

    void PushRun(ST_GLibLoop& _stLoop)
    {
        ++m_iRuns;
        Submit([this, &_stLoop] { Run(_stLoop); }, nullptr);
    }

    void Run(ST_GLibLoop& _stLoop)
    {
        _stLoop.m_funTask();
        if (!m_bEnding)
        {
            GSource* const pSource = g_timeout_source_new(_stLoop.m_uiInterval);
            g_source_set_callback(pSource, OnTimeout, &_stLoop, nullptr);
            g_source_attach(pSource, m_pContext);
            g_source_unref(pSource);
        }
        --m_iRuns;
    }

    const unsigned m_uiThreads;
    GThreadPool* const m_pPool;
    GMainContext* m_pContext = nullptr;
    GMainLoop* m_pLoop = nullptr;
    std::thread m_clsLoopThread;
    std::atomic<bool> m_bEnding{false};
    std::atomic<int> m_iRuns{0}; ///< runs of loop tasks that were pushed and have not ended
    std::vector<std::unique_ptr<ST_GLibLoop>> m_vecLoops;
};
} // namespace

const char* System::GetName()
{
    return "GLib";
}

std::string System::Describe()
{
    return "GLib " + std::to_string(glib_major_version) + "." + std::to_string(glib_minor_version) +
           ", GThreadPool; it has no default, so one thread per core";
}

bool System::HasThreadSetting()
{
    return true;
}

std::unique_ptr<CLS_System> System::Make(const ST_Setup& _stSetup)
{
    return std::make_unique<CLS_GLib>(_stSetup.m_uiThreads);
}
