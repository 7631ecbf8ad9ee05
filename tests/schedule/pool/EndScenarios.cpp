#include "tests/schedule/pool/Scenarios.h"
#include "tests/schedule/pool/World.h"

namespace
{
/// How long Stop looks for a run that is over soon, and for one that is not.
constexpr std::chrono::nanoseconds ONE_LOOK = 300ms;
constexpr std::chrono::nanoseconds ALL_LOOKS = CLS_World::ALL_LOOKS;

/// A new pool works, and ends.
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

/// While the first task is anywhere between its queueing and its end.
void EndWithOneTask()
{
    CLS_World clsWorld;
    CLS_QuenTaskPool& clsPool = CLS_World::MakePool();
    int iOwner = 0;
    clsWorld.Submit(clsPool, clsWorld.MakeJob("A"), &iOwner);
    clsWorld.EndPool(clsPool, CLS_World::IDLE_END + ONE_LOOK);
    CLS_World::RequireNobodyLeft();
}

/// With tasks that run, are bound and are queued, and a loop task.
void EndAtEveryMoment()
{
    CLS_World clsWorld;
    CLS_QuenTaskPool& clsPool = CLS_World::MakePool();
    clsPool.m_iMaxThread = 1;
    int iOwner = 0;
    ST_Job& stLoop = clsWorld.MakeJob("L", 2ms);
    stLoop.m_bInTime = false;
    clsWorld.SubmitLoop(clsPool, stLoop, 5);
    for (const char* const szName : {"A", "B", "C"})
    {
        ST_Job& stJob = clsWorld.MakeJob(szName, szName[0] == 'B' ? 7ms : 0ms);
        stJob.m_bAtOnce = false;
        clsWorld.Submit(clsPool, stJob, &iOwner);
    }
    std::this_thread::sleep_for(5ms * CLS_World::Choose(4));
    clsWorld.EndPool(clsPool, CLS_World::IDLE_END + 2 * ONE_LOOK);
    UseNewPool(clsWorld);
    CLS_World::RequireNobodyLeft();
}

/// A run outlasts the end; a new pool is there meanwhile.
void EndWithOverrun()
{
    CLS_World clsWorld;
    CLS_QuenTaskPool& clsPool = CLS_World::MakePool();
    clsPool.m_iMaxThread = 0;
    int iOwner = 0;
    ST_Job& stOverrun = clsWorld.MakeJob("A", 10s);
    ST_Job& stWaiting = clsWorld.MakeJob("B");
    stWaiting.m_bAtOnce = false;
    clsWorld.Submit(clsPool, stOverrun, &iOwner);
    clsWorld.Submit(clsPool, stWaiting, &iOwner);
    clsWorld.EndPool(clsPool, CLS_World::IDLE_END + ALL_LOOKS, {&stOverrun});
    UseNewPool(clsWorld, {&stOverrun});
    std::this_thread::sleep_for(2s);
    CLS_World::RequireNobodyLeft();
    Require(stOverrun.m_iBegun == stOverrun.m_iEnded, "A does not end");
}

/// The running task was removed, in vain: nobody can stop it any more, and the end waits for the run itself.
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
    UseNewPool(clsWorld, vecOverrun);
    std::this_thread::sleep_for(5s);
    CLS_World::RequireNobodyLeft();
}

void EndWaitsForRemovedTask()
{
    EndWithRemovedTask(12s, false);
}

/// The run ends in the very moment in which the wait does.
void EndAbandonsRemovedTask()
{
    // The services end when the watchdog's 51st step does, and the wait begins then.
    EndWithRemovedTask(51 * 180ms + ALL_LOOKS, true);
}
} // namespace

Scenarios GetEndScenarios()
{
    return {{"end-with-one-task", EndWithOneTask, true},
            {"end-at-every-moment", EndAtEveryMoment},
            {"end-with-overrun", EndWithOverrun, false, 50ms},
            {"end-waits-for-removed", EndWaitsForRemovedTask, false, 50ms},
            {"end-abandons-removed", EndAbandonsRemovedTask, false, 50ms}};
}

Scenarios GetAllScenarios()
{
    Scenarios vecAll;
    for (const Scenarios& vecSome : {GetSubmissionScenarios(), GetRemovalScenarios(), GetLoopScenarios(),
                                     GetWorkerScenarios(), GetEndScenarios()})
    {
        vecAll.insert(vecAll.end(), vecSome.begin(), vecSome.end());
    }
    return vecAll;
}
