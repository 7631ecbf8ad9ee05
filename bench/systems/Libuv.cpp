// libuv: uv_queue_work, which only the loop's thread may call, and a uv_timer_t for each loop task.

#include "bench/workloads/CLS_System.h"

#include <cstdlib>
#include <future>
#include <map>
#include <mutex>
#include <set>
#include <stdexcept>
#include <thread>
#include <uv.h>
#include <vector>

namespace
{
constexpr unsigned DEFAULT_THREADS = 4;

class CLS_Libuv : public CLS_System
{
public:
    explicit CLS_Libuv(unsigned _uiThreads) : m_uiThreads(_uiThreads)
    {
        uv_loop_init(&m_uvLoop);
        uv_async_init(&m_uvLoop, &m_uvWake,
                      [](uv_async_t* _pWake) { static_cast<CLS_Libuv*>(_pWake->data)->TakeCalls(); });
        m_uvWake.data = this;
        m_clsThread = std::thread([this] { uv_run(&m_uvLoop, UV_RUN_DEFAULT); });
    }

    ~CLS_Libuv() override
    {
        CallInThread([this] { uv_close(reinterpret_cast<uv_handle_t*>(&m_uvWake), nullptr); });
        m_clsThread.join();
        uv_loop_close(&m_uvLoop);
    }

    unsigned GetThreadLimit() const override { return m_uiThreads; }

    void Submit(const std::function<void()>& _funTask, void* _pOwner) override
    {
        auto pWork = std::make_unique<ST_UvWork>();
        pWork->m_pSystem = this;
        pWork->m_funTask = _funTask;
        pWork->m_pOwner = _pOwner;
        {
            const std::lock_guard<std::mutex> lock(m_mtxCalls);
            m_vecSubmitted.push_back(std::move(pWork));
        }
        uv_async_send(&m_uvWake);
    }

    bool HasRemoval() const override { return true; }
    void Remove(void* _pOwner) override
    {
        CallInThread(
            [this, _pOwner]
            {
                for (ST_UvWork* const pWork : m_mapQueued[_pOwner])
                {
                    // This fails for running tasks.
                    uv_cancel(reinterpret_cast<uv_req_t*>(&pWork->m_uvWork));
                }
            });
    }

    bool HasLoops() const override { return true; }
    void AddLoop(const std::function<void()>& _funTask, int _iInterval) override
    {
        CallInThread(
            [this, &_funTask, _iInterval]
            {
                auto pLoop = std::make_unique<ST_UvLoop>();
                pLoop->m_pSystem = this;
                pLoop->m_funTask = _funTask;
                pLoop->m_uiInterval = static_cast<std::uint64_t>(_iInterval);
                uv_timer_init(&m_uvLoop, &pLoop->m_uvTimer);
                pLoop->m_uvTimer.data = pLoop.get();
                pLoop->m_uvWork.data = pLoop.get();
                QueueRun(*pLoop);
                m_vecLoops.push_back(std::move(pLoop));
            });
    }
    void RemoveLoops() override
    {
        CallInThread(
            [this]
            {
                m_bEnding = true;
                for (const auto& pLoop : m_vecLoops)
                {
                    uv_close(reinterpret_cast<uv_handle_t*>(&pLoop->m_uvTimer), nullptr);
                }
            });
        // Wait for the last runs.
        for (bool bRunning = true; bRunning;)
        {
            CallInThread([this, &bRunning] { bRunning = m_iRuns > 0; });
        }
    }

private:
    struct ST_UvWork
    {
        uv_work_t m_uvWork{};
        CLS_Libuv* m_pSystem = nullptr;
        std::function<void()> m_funTask;
        void* m_pOwner = nullptr;
    };

    struct ST_UvLoop
    {
        uv_timer_t m_uvTimer{};
        uv_work_t m_uvWork{};
        CLS_Libuv* m_pSystem = nullptr;
        std::function<void()> m_funTask;
        std::uint64_t m_uiInterval = 0;
    };

    /// Calls _funCall on the loop's thread and waits for its end.
    void CallInThread(const std::function<void()>& _funCall)
    {
        std::promise<void> clsDone;
        {
            const std::lock_guard<std::mutex> lock(m_mtxCalls);
            m_vecCalls.emplace_back(
                [&_funCall, &clsDone]
                {
                    _funCall();
                    clsDone.set_value();
                });
        }
        uv_async_send(&m_uvWake);
        clsDone.get_future().wait();
    }

    void TakeCalls()
    {
        std::vector<std::unique_ptr<ST_UvWork>> vecSubmitted;
        std::vector<std::function<void()>> vecCalls;
        {
            const std::lock_guard<std::mutex> lock(m_mtxCalls);
            vecSubmitted.swap(m_vecSubmitted);
            vecCalls.swap(m_vecCalls);
        }
        for (std::unique_ptr<ST_UvWork>& pWork : vecSubmitted)
        {
            QueueWork(pWork.release());
        }
        for (const std::function<void()>& funCall : vecCalls)
        {
            funCall();
        }
    }

    /// The callback of the work's end frees it.
    static void QueueWork(ST_UvWork* _pWork)
    {
        _pWork->m_uvWork.data = _pWork;
        _pWork->m_pSystem->m_mapQueued[_pWork->m_pOwner].insert(_pWork);
        uv_queue_work(
            &_pWork->m_pSystem->m_uvLoop, &_pWork->m_uvWork,
            [](uv_work_t* _pWorkBegun) { static_cast<ST_UvWork*>(_pWorkBegun->data)->m_funTask(); },
            [](uv_work_t* _pWorkEnded, int /*_iStatus*/)
            {
                const std::unique_ptr<ST_UvWork> pEnded(static_cast<ST_UvWork*>(_pWorkEnded->data));
                pEnded->m_pSystem->m_mapQueued[pEnded->m_pOwner].erase(pEnded.get());
            });
    }

    static void QueueRun(ST_UvLoop& _stLoop)
    {
        ++_stLoop.m_pSystem->m_iRuns;
        uv_queue_work(
            &_stLoop.m_pSystem->m_uvLoop, &_stLoop.m_uvWork,
            [](uv_work_t* _pRun) { static_cast<ST_UvLoop*>(_pRun->data)->m_funTask(); },
            [](uv_work_t* _pRun, int /*_iStatus*/) { OnRunEnd(*static_cast<ST_UvLoop*>(_pRun->data)); });
    }

    static void OnRunEnd(ST_UvLoop& _stLoop)
    {
        --_stLoop.m_pSystem->m_iRuns;
        if (!_stLoop.m_pSystem->m_bEnding)
        {
            // The timer counts from the time that the loop has cached.
            uv_update_time(&_stLoop.m_pSystem->m_uvLoop);
            uv_timer_start(
                &_stLoop.m_uvTimer,
                [](uv_timer_t* _pTimer) { QueueRun(*static_cast<ST_UvLoop*>(_pTimer->data)); },
                _stLoop.m_uiInterval, 0);
        }
    }

    const unsigned m_uiThreads;
    uv_loop_t m_uvLoop{};
    uv_async_t m_uvWake{};
    std::thread m_clsThread;

    std::mutex m_mtxCalls; ///< guards m_vecSubmitted and m_vecCalls
    std::vector<std::unique_ptr<ST_UvWork>> m_vecSubmitted;
    std::vector<std::function<void()>> m_vecCalls;

    // Only the loop's thread uses these.
    std::map<void*, std::set<ST_UvWork*>> m_mapQueued; ///< by owner: its queued and running tasks
    std::vector<std::unique_ptr<ST_UvLoop>> m_vecLoops;
    int m_iRuns = 0; ///< runs of loop tasks that were queued and have not ended
    bool m_bEnding = false;
};
} // namespace

const char* System::GetName()
{
    return "libuv";
}

std::string System::Describe()
{
    return std::string("libuv ") + uv_version_string() + ", uv_queue_work";
}

bool System::HasThreadSetting()
{
    return true;
}

std::unique_ptr<CLS_System> System::Make(const ST_Setup& _stSetup)
{
    const unsigned uiThreads = _stSetup.m_uiThreads == 0 ? DEFAULT_THREADS : _stSetup.m_uiThreads;
    // No other thread runs yet.
    setenv("UV_THREADPOOL_SIZE", std::to_string(uiThreads).c_str(), 1); // NOLINT(concurrency-mt-unsafe)
    return std::make_unique<CLS_Libuv>(uiThreads);
}
