// The dispatch queues of macOS: a global concurrent queue, and a timer source for each loop task.

#include "bench/workloads/CLS_System.h"

#include <algorithm>
#include <atomic>
#include <dispatch/dispatch.h>
#include <thread>
#include <vector>
#ifdef __APPLE__
#include <sys/sysctl.h>
#endif

namespace
{
using Task = std::function<void()>;

void RunAndFree(void* _pTask)
{
    const std::unique_ptr<Task> pTask(static_cast<Task*>(_pTask));
    (*pTask)();
}

/// How many tasks that block run at once. There is no setting.
unsigned FindThreadLimit()
{
#ifdef __APPLE__
    int iThreads = 0;
    std::size_t uiSize = sizeof iThreads;
    if (sysctlbyname("kern.wq_max_constrained_threads", &iThreads, &uiSize, nullptr, 0) == 0 && iThreads > 0)
    {
        return static_cast<unsigned>(iThreads);
    }
#endif
    // The build for Linux adds threads for those that block, up to about twice the cores.
    return 2 * std::max(1U, std::thread::hardware_concurrency());
}

class CLS_Dispatch : public CLS_System
{
public:
    CLS_Dispatch() : m_pGroup(dispatch_group_create()) {}

    ~CLS_Dispatch() override
    {
        dispatch_group_wait(m_pGroup, DISPATCH_TIME_FOREVER);
        dispatch_release(m_pGroup);
    }

    unsigned GetThreadLimit() const override { return FindThreadLimit(); }

    void Submit(const Task& _funTask, void* /*_pOwner*/) override
    {
        dispatch_group_async_f(m_pGroup, m_pQueue, new Task(_funTask), RunAndFree);
    }

    bool HasLoops() const override { return true; }
    void AddLoop(const Task& _funTask, int _iInterval) override
    {
        auto pLoop = std::make_unique<ST_DispatchLoop>();
        pLoop->m_funTask = _funTask;
        pLoop->m_iInterval = _iInterval * static_cast<std::int64_t>(NSEC_PER_MSEC);
        pLoop->m_pTimer = dispatch_source_create(DISPATCH_SOURCE_TYPE_TIMER, 0, 0, m_pQueue);
        dispatch_set_context(pLoop->m_pTimer, pLoop.get());
        dispatch_source_set_event_handler_f(pLoop->m_pTimer, RunLoop);
        dispatch_source_set_cancel_handler_f(pLoop->m_pTimer, NoteEnd);
        SetTimer(*pLoop, 0);
        dispatch_resume(pLoop->m_pTimer);
        m_vecLoops.push_back(std::move(pLoop));
    }
    void RemoveLoops() override
    {
        for (const auto& pLoop : m_vecLoops)
        {
            dispatch_source_cancel(pLoop->m_pTimer);
        }
        for (const auto& pLoop : m_vecLoops)
        {
            // The handler of a cancellation runs when no run is under way.
            while (!pLoop->m_bEnded)
            {
                std::this_thread::yield();
            }
            dispatch_release(pLoop->m_pTimer);
        }
        m_vecLoops.clear();
    }

private:
    struct ST_DispatchLoop
    {
        Task m_funTask;
        std::int64_t m_iInterval = 0; ///< nanoseconds
        dispatch_source_t m_pTimer = nullptr;
        std::atomic<bool> m_bEnded{false};
    };

    /// The timer fires once, _iDelay nanoseconds from now.
    static void SetTimer(const ST_DispatchLoop& _stLoop, std::int64_t _iDelay)
    {
        dispatch_source_set_timer(_stLoop.m_pTimer, dispatch_time(DISPATCH_TIME_NOW, _iDelay),
                                  DISPATCH_TIME_FOREVER, 0);
    }

    static void RunLoop(void* _pLoop)
    {
        const auto& stLoop = *static_cast<ST_DispatchLoop*>(_pLoop);
        stLoop.m_funTask();
        SetTimer(stLoop, stLoop.m_iInterval);
    }

    static void NoteEnd(void* _pLoop) { static_cast<ST_DispatchLoop*>(_pLoop)->m_bEnded = true; }

    const dispatch_queue_t m_pQueue = dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_DEFAULT, 0);
    const dispatch_group_t m_pGroup;
    std::vector<std::unique_ptr<ST_DispatchLoop>> m_vecLoops;
};
} // namespace

const char* System::GetName()
{
    return "dispatch";
}

std::string System::Describe()
{
    return "the dispatch queues of macOS: a global concurrent queue";
}

bool System::HasThreadSetting()
{
    return false;
}

std::unique_ptr<CLS_System> System::Make(const ST_Setup& /*_stSetup*/)
{
    return std::make_unique<CLS_Dispatch>();
}
