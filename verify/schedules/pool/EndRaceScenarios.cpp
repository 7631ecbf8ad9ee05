#include "verify/schedules/pool/Marks.h"
#include "verify/schedules/pool/Scenarios.h"
#include "verify/schedules/pool/World.h"

#include <algorithm>

// Two threads shut the pool down, each in one of the two ways.

namespace
{
using End = void (CLS_QuenTaskPool::*)();
constexpr End UN_INIT = &CLS_QuenTaskPool::UnInit;
constexpr End KILL_ALL = &CLS_QuenTaskPool::KillTaskAll;

constexpr const char* CALLS_MEET = "a call meets another one";

/// The number of polls, one every 10 ms. They last longer than a shutdown by a task, which waits for its own
/// run.
constexpr int POLLS = 2000;
constexpr int SLOW_POLLS = 20000;

auto CountBeginnings()
{
    const auto& vecRecords = CLS_World::GetRecords();
    return std::count_if(vecRecords.begin(), vecRecords.end(),
                         [](const CLS_World::ST_LogLine& _stRecord)
                         { return _stRecord.m_strText == "----- TaskPool UnInit begin -----"; });
}

/// The calls of one scenario.
class CLS_RacingCalls
{
public:
    explicit CLS_RacingCalls(CLS_QuenTaskPool& _clsPool) : m_clsPool(_clsPool) {}

    /// Calls on a thread outside of the pool. No pool is left when the call returns.
    void CallAsHost(End _funEnd)
    {
        Call(_funEnd);
        CLS_World::RequireTimely(CLS_QuenTaskPool::m_pInstance == nullptr,
                                 "a host's call returns before the pool has ended");
    }

    /// Calls on one of the pool's own threads. The call waits for its own run. If another thread shuts the
    /// pool down, the call does not wait.
    void CallAsTask(End _funEnd)
    {
        const bool bTooLate = CountBeginnings() > 0;
        const auto nsBegin = CLS_World::GetTime();
        Call(_funEnd);
        CLS_World::RequireTimely(!bTooLate || CLS_World::GetTime() == nsBegin, "a task's call waits");
    }

    /// Waits until all calls have returned.
    void WaitForAll(int _iCalls) const
    {
        const int iPolls = CLS_World::IsTimely() ? POLLS : SLOW_POLLS;
        for (int i = 0; i < iPolls && !HaveAllReturned(_iCalls); ++i)
        {
            std::this_thread::sleep_for(10ms);
        }
        Require(HaveAllReturned(_iCalls), "a call does not return");
        // An abandoned worker still has its last steps to take.
        std::this_thread::sleep_for(5ms);
        Require(CLS_QuenTaskPool::m_pInstance == nullptr, "the pool survives its end");
        Require(CountBeginnings() == 1, "the pool is ended twice");
    }

private:
    /// If threads may be slow, the shutdown may drop a task before it begins. Its call is then never made.
    bool HaveAllReturned(int _iCalls) const
    {
        return m_iReturned == _iCalls || (!CLS_World::IsTimely() && m_iReturned == m_iCalled &&
                                          CLS_QuenTaskPool::m_pInstance == nullptr);
    }

    void Call(End _funEnd)
    {
        if (++m_iCalled > m_iReturned + 1)
        {
            Marks::Reach(CALLS_MEET);
        }
        (m_clsPool.*_funEnd)();
        ++m_iReturned;
    }

    CLS_QuenTaskPool& m_clsPool; ///< perhaps destroyed; only its address is used
    std::atomic<int> m_iCalled{0};
    std::atomic<int> m_iReturned{0};
};

template <End funFirst, End funSecond>
void EndByTwoHosts()
{
    CLS_World clsWorld;
    CLS_QuenTaskPool& clsPool = CLS_World::MakePool();
    CLS_RacingCalls clsCalls(clsPool);
    int iOwner = 0;
    ST_Job& stJob = clsWorld.MakeJob("A", CLS_World::ChooseLength());
    stJob.m_bAtOnce = false;
    clsWorld.Submit(clsPool, stJob, &iOwner);
    const auto funRequireOver = [&stJob]
    {
        CLS_World::RequireTimely(stJob.m_iBegun == stJob.m_iEnded,
                                 "A still runs when a host's call has returned");
    };
    std::thread thrOther(
        [&]
        {
            clsCalls.CallAsHost(funFirst);
            funRequireOver();
        });
    CLS_World::LetOthersRun();
    clsCalls.CallAsHost(funSecond);
    funRequireOver();
    thrOther.join();
    clsCalls.WaitForAll(2);
    CLS_World::RequireNoOtherThread();
}

template <End funHost, End funTask>
void EndByHostAndTask()
{
    CLS_World clsWorld;
    CLS_QuenTaskPool& clsPool = CLS_World::MakePool();
    CLS_RacingCalls clsCalls(clsPool);
    int iOwner = 0;
    ST_Job& stJob = clsWorld.MakeJob("A", 40ms);
    stJob.m_funWork = [&] { clsCalls.CallAsTask(funTask); };
    clsWorld.Submit(clsPool, stJob, &iOwner);
    std::this_thread::sleep_for(20ms * (1 + CLS_World::Choose(3)));
    CLS_World::LetOthersRun();
    clsCalls.CallAsHost(funHost);
    clsCalls.WaitForAll(2);
    CLS_World::RequireNoOtherThread();
}

template <End funFirst, End funSecond>
void EndByTwoTasks()
{
    CLS_World clsWorld;
    CLS_QuenTaskPool& clsPool = CLS_World::MakePool();
    CLS_RacingCalls clsCalls(clsPool);
    int iOwner = 0;
    ST_Job& stFirst = clsWorld.MakeJob("A", 5ms);
    ST_Job& stSecond = clsWorld.MakeJob("B", 5ms);
    stFirst.m_funWork = [&] { clsCalls.CallAsTask(funFirst); };
    stSecond.m_funWork = [&] { clsCalls.CallAsTask(funSecond); };
    clsWorld.Submit(clsPool, stFirst, &iOwner);
    clsWorld.Submit(clsPool, stSecond, &iOwner);
    clsCalls.WaitForAll(2);
    CLS_World::RequireNoOtherThread();
}

ST_Scenario MakeScenario(const char* _szName, void (*_funBody)())
{
    return {_szName, _funBody, {CALLS_MEET}, false, 20ms};
}
} // namespace

Scenarios GetEndRaceScenarios()
{
    return {MakeScenario("end-by-two-hosts", EndByTwoHosts<UN_INIT, UN_INIT>),
            MakeScenario("end-by-two-hosts-uninit-kill", EndByTwoHosts<UN_INIT, KILL_ALL>),
            MakeScenario("end-by-two-hosts-kill", EndByTwoHosts<KILL_ALL, KILL_ALL>),
            MakeScenario("end-by-host-and-task", EndByHostAndTask<UN_INIT, UN_INIT>),
            MakeScenario("end-by-host-and-task-uninit-kill", EndByHostAndTask<UN_INIT, KILL_ALL>),
            MakeScenario("end-by-host-and-task-kill-uninit", EndByHostAndTask<KILL_ALL, UN_INIT>),
            MakeScenario("end-by-host-and-task-kill", EndByHostAndTask<KILL_ALL, KILL_ALL>),
            MakeScenario("end-by-two-tasks", EndByTwoTasks<UN_INIT, UN_INIT>),
            MakeScenario("end-by-two-tasks-uninit-kill", EndByTwoTasks<UN_INIT, KILL_ALL>),
            MakeScenario("end-by-two-tasks-kill", EndByTwoTasks<KILL_ALL, KILL_ALL>)};
}
