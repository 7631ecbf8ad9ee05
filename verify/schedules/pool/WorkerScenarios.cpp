#include "tests/support/PoolView.h"
#include "verify/schedules/pool/Marks.h"
#include "verify/schedules/pool/Scenarios.h"
#include "verify/schedules/pool/World.h"

#include <algorithm>

namespace
{
/// Asserts that a pass of the watchdog takes no time.
void RunPass(CLS_QuenTaskPool& _clsPool)
{
    const auto nsBegin = CLS_World::GetTime();
    PoolView::RunWatchdogPass(_clsPool);
    CLS_World::RequireTimely(CLS_World::GetTime() == nsBegin, "a pass of the watchdog takes time");
}

/// Every idle worker has been idle for too long, and the watchdog makes passes at any moment.
void RetireAgainstHandOver()
{
    CLS_World clsWorld;
    CLS_QuenTaskPool& clsPool = CLS_World::MakePool();
    CLS_TaskThread::SetWaitingOvertime(0);
    int iOwner = 0;
    std::thread thrRetirer(
        [&clsPool]
        {
            for (int i = 0; i < 3; ++i)
            {
                RunPass(clsPool);
                std::this_thread::sleep_for(1ms);
            }
        });
    for (const char* const szName : {"A", "B", "C", "D"})
    {
        clsWorld.Submit(clsPool, clsWorld.MakeJob(szName), &iOwner);
        std::this_thread::sleep_for(1ms);
    }
    thrRetirer.join();
    clsWorld.RequireAllRan();
    RunPass(clsPool);
    CLS_World::RequireTimely(clsPool.GetTaskThreadNum() == 0, "an idle worker is left");
    clsWorld.EndPool(clsPool);
    CLS_World::RequireNoOtherThread();
}

/// The dispatcher asks for the only worker while it retires. The task begins on it or on a new one, at once
/// or with the next attempt. The next attempt is needed if the worker was neither idle nor gone.
void RetireAgainstNextAttempt()
{
    CLS_World clsWorld;
    CLS_QuenTaskPool& clsPool = CLS_World::MakePool();
    PoolView::GetWorkerLimit(clsPool) = 0;
    CLS_TaskThread::SetWaitingOvertime(0);
    int iOwner = 0;
    clsWorld.Submit(clsPool, clsWorld.MakeJob("A", 50ms), &iOwner);
    ST_Job& stWaiting = clsWorld.MakeJob("B", 1ms);
    stWaiting.m_bAtOnce = false;
    clsWorld.Submit(clsPool, stWaiting, &iOwner);
    std::this_thread::sleep_for(100ms);
    RunPass(clsPool);
    std::this_thread::sleep_for(150ms);
    Require(stWaiting.m_nsBegun == 100ms || stWaiting.m_nsBegun == 200ms, "B begins at another time");
    Marks::Reach(stWaiting.m_nsBegun == 100ms ? "the attempt gets a worker"
                                              : "the next attempt gets a worker");
    clsWorld.RequireAllRan();
    clsWorld.EndPool(clsPool);
    CLS_World::RequireNoOtherThread();
}

/// Runs the watchdog's thread. Its second pass, after 360 seconds, retires the worker that was always idle.
/// It keeps the one that had a task.
void WatchdogRetires()
{
    CLS_World clsWorld;
    CLS_QuenTaskPool& clsPool = CLS_World::MakePool();
    int iOwner = 0;
    clsWorld.Submit(clsPool, clsWorld.MakeJob("A", 180ms), &iOwner);
    clsWorld.Submit(clsPool, clsWorld.MakeJob("B", 180ms), &iOwner);
    std::this_thread::sleep_for(100s);
    clsWorld.Submit(clsPool, clsWorld.MakeJob("C"), &iOwner);
    std::this_thread::sleep_for(259s);
    Require(clsPool.GetTaskThreadNum() == 2, "a worker retires early");
    std::this_thread::sleep_for(2s);
    Require(clsPool.GetTaskThreadNum() == 1, "not one worker retires");
    clsWorld.RequireAllRan();
    clsWorld.EndPool(clsPool);
    CLS_World::RequireNoOtherThread();
}

/// The pool has two workers, by design one more than the limit. The third task begins when the dispatcher
/// tries again.
void WorkerLimit()
{
    CLS_World clsWorld;
    CLS_QuenTaskPool& clsPool = CLS_World::MakePool();
    PoolView::GetWorkerLimit(clsPool) = 1;
    int iOwner = 0;
    clsWorld.Submit(clsPool, clsWorld.MakeJob("A", 30ms), &iOwner);
    clsWorld.Submit(clsPool, clsWorld.MakeJob("B", 30ms), &iOwner);
    ST_Job& stThird = clsWorld.MakeJob("C");
    stThird.m_bAtOnce = false;
    clsWorld.Submit(clsPool, stThird, &iOwner);
    std::this_thread::sleep_for(150ms);
    Require(stThird.m_nsBegun == 100ms, "C begins after " + std::to_string(stThird.m_nsBegun / 1us) + " us");
    clsWorld.RequireAllRan();
    Require(clsPool.GetTaskThreadNum() == 2, "not one worker more than the limit");
    clsWorld.EndPool(clsPool);
    CLS_World::RequireNoOtherThread();
}

/// The first of ninety attempts is immediate. The ninetieth, with the report, follows after 8.9 seconds.
void BusyReport()
{
    CLS_World clsWorld;
    CLS_QuenTaskPool& clsPool = CLS_World::MakePool();
    PoolView::GetWorkerLimit(clsPool) = 0;
    int iOwner = 0;
    clsWorld.Submit(clsPool, clsWorld.MakeJob("A", 9250ms), &iOwner);
    ST_Job& stWaiting = clsWorld.MakeJob("B");
    stWaiting.m_bAtOnce = false;
    clsWorld.Submit(clsPool, stWaiting, &iOwner);
    std::this_thread::sleep_for(10s);
    const std::string strReport = "waiting task count [1] CurrentThreadCount [1] MaxThread [0]";
    std::vector<std::chrono::nanoseconds> vecReports;
    for (const CLS_World::ST_LogLine& stRecord : CLS_World::GetRecords())
    {
        if (stRecord.m_strText == strReport)
        {
            vecReports.push_back(stRecord.m_nsTime);
        }
    }
    Require(vecReports.size() == 1, "not one report");
    Require(vecReports.front() == 8900ms, "the report comes at another time");
    Require(stWaiting.m_nsBegun == 9300ms, "B begins at another time");
    clsWorld.RequireAllRan();
    clsWorld.EndPool(clsPool);
    CLS_World::RequireNoOtherThread();
}
} // namespace

Scenarios GetWorkerScenarios()
{
    return {{"retire-against-hand-over", RetireAgainstHandOver},
            {"retire-against-next-attempt",
             RetireAgainstNextAttempt,
             {"the attempt gets a worker", "the next attempt gets a worker"},
             false,
             0ms,
             true},
            {"watchdog-retires", WatchdogRetires, {}, false, 180ms, true},
            {"worker-limit", WorkerLimit, {}, false, 0ms, true},
            {"busy-report", BusyReport, {}, false, 50ms, true}};
}
