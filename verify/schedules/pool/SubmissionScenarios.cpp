#include "verify/schedules/pool/Marks.h"
#include "verify/schedules/pool/Scenarios.h"
#include "verify/schedules/pool/World.h"

namespace
{
void SubmitAndRun()
{
    CLS_World clsWorld;
    CLS_QuenTaskPool& clsPool = CLS_World::MakePool();
    int iOwner = 0;
    clsWorld.Submit(clsPool, clsWorld.MakeJob("A"), &iOwner);
    clsWorld.RequireAllRan();
    clsWorld.Submit(clsPool, clsWorld.MakeJob("B"), &iOwner);
    clsWorld.RequireAllRan();
    CLS_World::RequireTimely(clsPool.GetTaskThreadNum() == 1, "the idle worker is not reused");
    clsWorld.EndPool(clsPool);
    CLS_World::RequireNoOtherThread();
}

void TwoSubmitters()
{
    CLS_World clsWorld;
    CLS_QuenTaskPool& clsPool = CLS_World::MakePool();
    const auto funSubmit = [&clsWorld, &clsPool](ST_Job& _stFirst, ST_Job& _stSecond, int& _iOwner)
    {
        clsWorld.Submit(clsPool, _stFirst, &_iOwner);
        clsWorld.Submit(clsPool, _stSecond, &_iOwner);
    };
    int iOwner = 0;
    int iOther = 0;
    ST_Job& stC = clsWorld.MakeJob("C", 2ms);
    ST_Job& stD = clsWorld.MakeJob("D");
    std::thread thrOther([&] { funSubmit(stC, stD, iOther); });
    funSubmit(clsWorld.MakeJob("A", 2ms), clsWorld.MakeJob("B"), iOwner);
    thrOther.join();
    clsWorld.RequireAllRan();
    Require(clsPool.GetTaskThreadNum() <= 4, "more workers than tasks");
    funSubmit(clsWorld.MakeJob("E"), clsWorld.MakeJob("F"), iOwner);
    clsWorld.RequireAllRan();
    clsWorld.EndPool(clsPool);
    CLS_World::RequireNoOtherThread();
}

/// The same id is queued twice. It runs twice, perhaps at the same time.
void QueuedTwice()
{
    CLS_World clsWorld;
    CLS_QuenTaskPool& clsPool = CLS_World::MakePool();
    ST_Job& stJob = clsWorld.MakeJob("A", 1ms);
    stJob.m_bMayOverlap = true;
    stJob.m_iQueued = 2;
    const std::string strTaskId = CLS_Task::CreateTask(CLS_World::MakeCallable(stJob), -1, "A")->GetId();
    std::thread thrOther([&] { clsPool.AddWaitingTasks(strTaskId); });
    clsPool.AddWaitingTasks(strTaskId);
    thrOther.join();
    clsWorld.RequireAllRan();
    if (clsPool.GetTaskThreadNum() == 2)
    {
        Marks::Reach("both runs at once");
    }
    clsWorld.EndPool(clsPool);
    CLS_World::RequireNoOtherThread();
}
} // namespace

Scenarios GetSubmissionScenarios()
{
    return {{"submit-and-run", SubmitAndRun, {}, true},
            {"two-submitters", TwoSubmitters},
            {"queued-twice", QueuedTwice, {"both runs at once"}, true}};
}
