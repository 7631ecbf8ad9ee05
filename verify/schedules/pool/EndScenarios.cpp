#include "tests/support/PoolView.h"
#include "verify/schedules/pool/Marks.h"
#include "verify/schedules/pool/Scenarios.h"
#include "verify/schedules/pool/World.h"

namespace
{
constexpr std::chrono::nanoseconds ONE_LOOK = CLS_World::ONE_LOOK;
constexpr std::chrono::nanoseconds ALL_LOOKS = CLS_World::ALL_LOOKS;

/// Creates a new pool, runs a task in it, and shuts it down.
void UseNewPool(CLS_World& _clsWorld, const std::vector<ST_Job*>& _vecOverrun = {})
{
    CLS_QuenTaskPool& clsPool = CLS_World::MakePool();
    int iOwner = 0;
    ST_Job& stJob = _clsWorld.MakeJob("N");
    _clsWorld.Submit(clsPool, stJob, &iOwner);
    _clsWorld.Settle();
    Require(stJob.m_iEnded == 1, "the new pool runs nothing");
    _clsWorld.EndPool(clsPool, CLS_World::IDLE_END, _vecOverrun);
}

constexpr const char* LEFT_BEHIND = "a run is abandoned";
constexpr const char* AWAITED = "the gate waits for a run";

/// Marks how a shutdown that had to wait for the run has ended.
void MarkGate(const ST_Job& _stJob)
{
    Marks::Reach(_stJob.m_iBegun > _stJob.m_iEnded ? LEFT_BEHIND : AWAITED);
}

/// Shuts down while the first task is anywhere between its queueing and its end.
void EndWithOneTask()
{
    CLS_World clsWorld;
    CLS_QuenTaskPool& clsPool = CLS_World::MakePool();
    int iOwner = 0;
    ST_Job& stJob = clsWorld.MakeJob("A", CLS_World::ChooseLength());
    clsWorld.Submit(clsPool, stJob, &iOwner);
    clsWorld.EndPool(clsPool, CLS_World::IDLE_END + 3 * ONE_LOOK);
    if (stJob.m_iBegun == 0)
    {
        Marks::Reach("the task is dropped");
    }
    CLS_World::RequireNoOtherThread();
}

/// Shuts down with running, bound and queued tasks, and a loop task. One task uses the pool, which may be
/// shutting down.
void EndAtEveryMoment()
{
    CLS_World clsWorld;
    CLS_QuenTaskPool& clsPool = CLS_World::MakePool();
    PoolView::GetWorkerLimit(clsPool) = 1;
    int iOwner = 0;
    int iOther = 0;
    ST_Job& stLoop = clsWorld.MakeJob("L", 2ms);
    stLoop.m_bInTime = false;
    ST_Job& stA = clsWorld.MakeJob("A", CLS_World::ChooseLength());
    ST_Job& stB = clsWorld.MakeJob("B", CLS_World::ChooseLength());
    ST_Job& stC = clsWorld.MakeJob("C");
    ST_Job& stLate = clsWorld.MakeJob("D");
    const bool bRemoves = CLS_World::Choose(2) == 1;
    bool bEnding = false;
    stA.m_funWork = [&]
    {
        if (bRemoves)
        {
            CLS_World::RemoveOwner(clsPool, &iOther, {&stB});
        }
        else
        {
            clsWorld.Submit(clsPool, stLate, &iOwner);
        }
        if (bEnding)
        {
            Marks::Reach(bRemoves ? "a task removes while the end waits"
                                  : "a task submits while the end waits");
        }
    };
    for (ST_Job* const pJob : {&stA, &stB, &stC, &stLate})
    {
        pJob->m_bAtOnce = false;
    }
    clsWorld.SubmitLoop(clsPool, stLoop, 5);
    clsWorld.Submit(clsPool, stB, &iOther);
    clsWorld.Submit(clsPool, stA, &iOwner);
    clsWorld.Submit(clsPool, stC, &iOwner);
    std::this_thread::sleep_for(5ms * CLS_World::Choose(4));
    bEnding = true;
    clsWorld.EndPool(clsPool, CLS_World::IDLE_END + 6 * ONE_LOOK);
    if (stC.m_iBegun == 0)
    {
        Marks::Reach("a task is dropped");
    }
    UseNewPool(clsWorld);
    CLS_World::RequireNoOtherThread();
}

/// A run outlasts the shutdown. Meanwhile, a new pool works.
void EndWithOverrun()
{
    CLS_World clsWorld;
    CLS_QuenTaskPool& clsPool = CLS_World::MakePool();
    PoolView::GetWorkerLimit(clsPool) = 0;
    int iOwner = 0;
    ST_Job& stOverrun = clsWorld.MakeJob("A", 10s);
    ST_Job& stWaiting = clsWorld.MakeJob("B");
    stWaiting.m_bAtOnce = false;
    clsWorld.Submit(clsPool, stOverrun, &iOwner);
    clsWorld.Submit(clsPool, stWaiting, &iOwner);
    clsWorld.EndPool(clsPool, CLS_World::IDLE_END + ALL_LOOKS, {&stOverrun});
    MarkGate(stOverrun);
    UseNewPool(clsWorld, {&stOverrun});
    std::this_thread::sleep_for(2s);
    CLS_World::RequireNoOtherThread();
    Require(stOverrun.m_iBegun == stOverrun.m_iEnded, "A does not end");
}

/// The removal of the running task timed out. No call can stop it now, so the shutdown waits for the run
/// itself.
void EndWithRemovedTask(std::chrono::nanoseconds _nsLength, bool _bOverrun)
{
    CLS_World clsWorld;
    CLS_QuenTaskPool& clsPool = CLS_World::MakePool();
    int iOwner = 0;
    ST_Job& stJob = clsWorld.MakeJob("A", _nsLength);
    clsWorld.Submit(clsPool, stJob, &iOwner);
    std::this_thread::sleep_for(50ms);
    clsPool.RemoveTmpTask(&iOwner, "scenario");
    CLS_World::RequireTimely(CLS_World::GetTime() == 50ms + ALL_LOOKS, "the removal does not take 9 seconds");
    std::vector<ST_Job*> vecOverrun;
    if (_bOverrun)
    {
        vecOverrun.push_back(&stJob);
    }
    clsWorld.EndPool(clsPool, CLS_World::IDLE_END + ALL_LOOKS, vecOverrun);
    MarkGate(stJob);
    UseNewPool(clsWorld, vecOverrun);
    std::this_thread::sleep_for(5s);
    CLS_World::RequireNoOtherThread();
}

void EndWaitsForRemovedTask()
{
    EndWithRemovedTask(12s, false);
}

/// The run ends at the same time as the wait.
void EndAbandonsRemovedTask()
{
    // The service threads end with the watchdog's 51st step. The wait begins then.
    EndWithRemovedTask(51 * 180ms + ALL_LOOKS, true);
}
} // namespace

Scenarios GetEndScenarios()
{
    return {{"end-with-one-task", EndWithOneTask, {CLS_World::RUN_MET, "the task is dropped"}, true},
            {"end-at-every-moment",
             EndAtEveryMoment,
             {CLS_World::RUN_MET, "a task removes while the end waits", "a task submits while the end waits",
              "a task is dropped"}},
            {"end-with-overrun", EndWithOverrun, {LEFT_BEHIND}, false, 50ms},
            {"end-waits-for-removed", EndWaitsForRemovedTask, {AWAITED}, false, 50ms},
            {"end-abandons-removed", EndAbandonsRemovedTask, {AWAITED, LEFT_BEHIND}, false, 50ms}};
}

Scenarios GetAllScenarios()
{
    Scenarios vecAll;
    for (const Scenarios& vecSome :
         {GetSubmissionScenarios(), GetRemovalScenarios(), GetRegistryScenarios(), GetLoopScenarios(),
          GetWorkerScenarios(), GetGateScenarios(), GetEndScenarios(), GetEndRaceScenarios(),
          GetLogScenarios(), GetKitScenarios()})
    {
        vecAll.insert(vecAll.end(), vecSome.begin(), vecSome.end());
    }
    return vecAll;
}
