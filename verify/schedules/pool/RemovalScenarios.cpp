#include "tests/support/PoolView.h"
#include "verify/schedules/pool/Marks.h"
#include "verify/schedules/pool/Scenarios.h"
#include "verify/schedules/pool/World.h"

namespace
{
/// Removes the owner's tasks anywhere between their queueing and their end.
void RemoveOwner()
{
    CLS_World clsWorld;
    CLS_QuenTaskPool& clsPool = CLS_World::MakePool();
    int iOwner = 0;
    ST_Job& stShort = clsWorld.MakeJob("A");
    ST_Job& stLong = clsWorld.MakeJob("B", 5ms);
    clsWorld.Submit(clsPool, stShort, &iOwner);
    clsWorld.Submit(clsPool, stLong, &iOwner);
    CLS_World::LetOthersRun();
    std::this_thread::sleep_for(2ms * CLS_World::Choose(4));
    CLS_World::RemoveOwner(clsPool, &iOwner, {&stShort, &stLong});
    ST_Job& stNext = clsWorld.MakeJob("C");
    clsWorld.Submit(clsPool, stNext, &iOwner);
    clsWorld.Settle();
    Require(stNext.m_iEnded == 1, "the owner's next task does not run");
    clsWorld.EndPool(clsPool);
    CLS_World::RequireNoOtherThread();
}

/// The second task has no worker when the removal begins, and gets one before the first has ended.
void RemoveOwnerOfMany()
{
    CLS_World clsWorld;
    CLS_QuenTaskPool& clsPool = CLS_World::MakePool();
    PoolView::GetWorkerLimit(clsPool) = 0;
    int iOwner = 0;
    ST_Job& stRunning = clsWorld.MakeJob("A", 350ms);
    ST_Job& stWaiting = clsWorld.MakeJob("B");
    stWaiting.m_bAtOnce = false;
    clsWorld.Submit(clsPool, stRunning, &iOwner);
    clsWorld.Submit(clsPool, stWaiting, &iOwner);
    std::this_thread::sleep_for(5ms);
    CLS_World::RemoveOwner(clsPool, &iOwner, {&stRunning, &stWaiting});
    std::this_thread::sleep_for(200ms);
    clsWorld.EndPool(clsPool);
    CLS_World::RequireNoOtherThread();
}

/// A task submits another one for its owner during its removal, while the removal polls.
void RemoveOwnerWhoseTaskSubmits()
{
    CLS_World clsWorld;
    CLS_QuenTaskPool& clsPool = CLS_World::MakePool();
    int iOwner = 0;
    ST_Job& stFirst = clsWorld.MakeJob("A", CLS_World::ONE_LOOK * CLS_World::Choose(2));
    ST_Job& stSecond = clsWorld.MakeJob("B");
    stFirst.m_funWork = [&]
    {
        CLS_World::LetOthersRun();
        clsWorld.Submit(clsPool, stSecond, &iOwner);
    };
    clsWorld.Submit(clsPool, stFirst, &iOwner);
    CLS_World::LetOthersRun();
    CLS_World::RemoveOwner(clsPool, &iOwner, {&stFirst, &stSecond});
    if (stSecond.m_iQueued > 0 && stSecond.m_iBegun == 0)
    {
        Marks::Reach("what the task submits is removed");
    }
    clsWorld.Settle();
    clsWorld.EndPool(clsPool);
    CLS_World::RequireNoOtherThread();
}

/// Each of the owner's tasks submits the next one when its run of 8 seconds ends. The removal waits 9 seconds
/// for the first one, and 9 seconds in all for the others.
void RemoveOwnerOfAChain()
{
    CLS_World clsWorld;
    CLS_QuenTaskPool& clsPool = CLS_World::MakePool();
    constexpr std::chrono::seconds LENGTH{8};
    int iOwner = 0;
    std::vector<ST_Job*> vecJobs;
    for (const char* const szName : {"A", "B", "C", "D", "E"})
    {
        vecJobs.push_back(&clsWorld.MakeJob(szName, LENGTH));
    }
    for (std::size_t i = 0; i + 1 < vecJobs.size(); ++i)
    {
        vecJobs[i]->m_funWork = [&, i] { clsWorld.Submit(clsPool, *vecJobs[i + 1], &iOwner); };
    }
    clsWorld.Submit(clsPool, *vecJobs.front(), &iOwner);
    std::this_thread::sleep_for(5ms);
    const auto nsBegin = CLS_World::GetTime();
    clsPool.RemoveTmpTask(&iOwner, "scenario");
    const auto nsTaken = CLS_World::GetTime() - nsBegin;
    CLS_World::RequireTimely(nsTaken <= LENGTH + CLS_World::ONE_LOOK + CLS_World::ALL_LOOKS + 5ms,
                             "the removal of a chain takes too long");
    Require(vecJobs[1]->m_iBegun == vecJobs[1]->m_iEnded, "B still runs");
    // The chain that the removal left behind goes on.
    std::this_thread::sleep_for(vecJobs.size() * (LENGTH + 1s));
    clsWorld.EndPool(clsPool);
    CLS_World::RequireNoOtherThread();
}

/// A stop meets the start of a run.
void StopAgainstStart()
{
    CLS_World clsWorld;
    CLS_QuenTaskPool& clsPool = CLS_World::MakePool();
    ST_Job& stJob = clsWorld.MakeJob("A", 1ms);
    stJob.m_iQueued = 1;
    const std::string strTaskId = CLS_Task::CreateTask(CLS_World::MakeCallable(stJob), -1, "A")->GetId();
    clsPool.AddWaitingTasks(strTaskId);
    CLS_World::LetOthersRun();
    CLS_World::LetOthersRun();
    CLS_World::Stop(clsPool, strTaskId, stJob);
    // A worker may be about to find that the task is not valid.
    clsWorld.EndPool(clsPool, CLS_World::IDLE_END + CLS_World::ONE_LOOK);
    CLS_World::RequireNoOtherThread();
}

/// Does the same without a pool, with only the two operations of the task.
void StopHandshake()
{
    CLS_World clsWorld;
    ST_Job& stJob = clsWorld.MakeJob("A", 1ms);
    stJob.m_iQueued = 1;
    const std::shared_ptr<CLS_Task> pTask = CLS_Task::CreateTask(CLS_World::MakeCallable(stJob), -1, "A");
    std::thread thrRunner([&pTask] { pTask->Running(); });
    Require(pTask->Stop(), "the stop times out");
    stJob.m_bRemoved = true;
    Require(stJob.m_iBegun == stJob.m_iEnded, "A still runs");
    Marks::Reach(stJob.m_iBegun > 0 ? CLS_World::RUN_MET : CLS_World::RUN_FORESTALLED);
    thrRunner.join();
    CLS_World::RequireNoOtherThread();
}

/// A loop task that removes itself waits for itself until the time limit, and never runs again.
void RemoveItself()
{
    CLS_World clsWorld;
    CLS_QuenTaskPool& clsPool = CLS_World::MakePool();
    ST_Job& stLoop = clsWorld.MakeJob("A");
    std::string strTaskId;
    stLoop.m_funWork = [&]
    {
        const auto nsBegin = CLS_World::GetTime();
        stLoop.m_nsLastBeginning = nsBegin;
        clsPool.RemoveTask(strTaskId, "scenario");
        CLS_World::RequireTimely(CLS_World::GetTime() - nsBegin == 9s,
                                 "the removal of itself does not take 9 seconds");
    };
    stLoop.m_iInterval = 5;
    clsPool.AddLoopTask(CLS_World::MakeCallable(stLoop), 5, strTaskId, "A");
    std::this_thread::sleep_for(10s);
    Require(stLoop.m_iBegun == 1 && stLoop.m_iEnded == 1, "A does not run once");
    Require(stLoop.m_bDestroyed, "the callable is not destroyed");
    clsWorld.EndPool(clsPool);
    CLS_World::RequireNoOtherThread();
}

/// The removal destroys a capture. Its destructor submits a task, and removes another owner.
void CapturedObjectCallsThePool()
{
    CLS_World clsWorld;
    CLS_QuenTaskPool& clsPool = CLS_World::MakePool();
    int iOwner = 0;
    int iOther = 0;
    ST_Job& stSubmitted = clsWorld.MakeJob("B");
    ST_Job& stOther = clsWorld.MakeJob("C", 1ms);
    bool bDestroyed = false;
    std::string strTaskId;
    {
        const std::shared_ptr<void> pCaptured(nullptr,
                                              [&](void*)
                                              {
                                                  bDestroyed = true;
                                                  clsWorld.Submit(clsPool, stSubmitted, &iOwner);
                                                  CLS_World::RemoveOwner(clsPool, &iOther, {&stOther});
                                              });
        clsWorld.Submit(clsPool, stOther, &iOther);
        clsPool.AddLoopTask([pCaptured] {}, 1000, strTaskId, "A");
    }
    clsPool.RemoveTask(strTaskId, "scenario");
    CLS_World::RequireTimely(bDestroyed, "what the callable captured outlives the removal");
    clsWorld.Settle();
    Require(stSubmitted.m_iEnded == 1, "the task that was submitted meanwhile does not run");
    clsWorld.EndPool(clsPool);
    CLS_World::RequireNoOtherThread();
}

/// The removal destroys a capture, whose destructor shuts the pool down. The removal still has more tasks to
/// remove.
void CapturedObjectEndsThePool()
{
    CLS_World clsWorld;
    CLS_QuenTaskPool& clsPool = CLS_World::MakePool();
    PoolView::GetWorkerLimit(clsPool) = 0;
    int iOwner = 0;
    int iOther = 0;
    bool bDestroyed = false;
    std::string strTaskId;
    clsWorld.Submit(clsPool, clsWorld.MakeJob("A", 20ms), &iOther);
    {
        const std::shared_ptr<void> pCaptured(nullptr,
                                              [&](void*)
                                              {
                                                  bDestroyed = true;
                                                  clsWorld.EndPool(clsPool,
                                                                   CLS_World::IDLE_END + CLS_World::ONE_LOOK);
                                              });
        if (CLS_World::Choose(2) == 0)
        {
            Require(clsPool.AddTmpTask([pCaptured] {}, &iOwner, "B"), "the pool refuses a task");
        }
        else
        {
            clsPool.AddLoopTask([pCaptured] {}, 1000, strTaskId, "B");
        }
    }
    ST_Job& stMore = clsWorld.MakeJob("C");
    stMore.m_bAtOnce = false;
    clsWorld.Submit(clsPool, stMore, &iOwner);
    if (strTaskId.empty())
    {
        clsPool.RemoveTmpTask(&iOwner, "scenario");
        Require(stMore.m_bDestroyed, "the callable of C outlives its removal");
    }
    else
    {
        clsPool.RemoveTask(strTaskId, "scenario");
    }
    Require(bDestroyed && CLS_QuenTaskPool::m_pInstance == nullptr, "the pool is left");
    CLS_World::RequireNoOtherThread();
}
} // namespace

Scenarios GetRemovalScenarios()
{
    const std::vector<std::string> vecBoth{CLS_World::RUN_MET, CLS_World::RUN_FORESTALLED};
    return {{"remove-owner", RemoveOwner, vecBoth, true},
            {"remove-owner-of-many", RemoveOwnerOfMany, vecBoth, false, 20ms, true},
            {"remove-owner-whose-task-submits",
             RemoveOwnerWhoseTaskSubmits,
             {CLS_World::RUN_MET, CLS_World::RUN_FORESTALLED, "what the task submits is removed"}},
            {"remove-owner-of-a-chain", RemoveOwnerOfAChain, {}, false, 50ms, true},
            {"stop-against-start", StopAgainstStart, vecBoth, true},
            {"stop-handshake", StopHandshake, vecBoth, true},
            {"remove-itself", RemoveItself, {}, false, 50ms, true},
            {"captured-object-calls", CapturedObjectCallsThePool, vecBoth},
            {"captured-object-ends-the-pool", CapturedObjectEndsThePool, {}, false, 0ms, true}};
}
