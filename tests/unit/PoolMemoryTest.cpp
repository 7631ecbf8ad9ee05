// The pool's behaviour when memory runs out during an operation.

#include "tests/support/FailingMemory.h"
#include "tests/support/PoolView.h"
#include "tests/support/RecordMatchers.h"
#include "tests/support/WorkerView.h"
#include "tests/unit/PoolFixture.h"

#include <array>
#include <chrono>
#include <gmock/gmock.h>
#include <new>

namespace
{
using std::chrono::hours;
using std::chrono::milliseconds;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::IsSubsetOf;
using ::testing::Pair;

class PoolMemoryTest : public CLS_PoolFixture
{
protected:
    void TearDown() override
    {
        FailingMemory::Stop();
        CLS_PoolFixture::TearDown();
    }

    std::array<int, 2> m_arrOwners{}; ///< their addresses serve as owners
};

TEST_F(PoolMemoryTest, SubmissionThatFailsIsRecordedAndNotHalfNoted)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    void* const pOwner = &m_arrOwners[0];
    ASSERT_TRUE(clsPool.AddTmpTask([] {}, pOwner, "who calls"));
    const std::string strBefore = PoolView::GetQueue(clsPool).at(0);
    PoolView::ReserveQueue(clsPool, 100); // a submission succeeds when only the queue cannot grow
    int iFailures = 0;
    int iQueued = 0;
    for (void* const pSubmitter : {pOwner, static_cast<void*>(&m_arrOwners[1])})
    {
        for (int iAllocation = 0;; ++iAllocation)
        {
            const std::size_t uiQueued = PoolView::GetQueue(clsPool).size();
            const std::function<void()> funTask = [] {};
            const std::string strCallInfo = "who calls";
            FailingMemory::FailAt(iAllocation + 1);
            const bool bAdded = clsPool.AddTmpTask(funTask, pSubmitter, strCallInfo);
            FailingMemory::Stop();
            if (bAdded)
            {
                break;
            }
            ++iFailures;
            iQueued += static_cast<int>(PoolView::GetQueue(clsPool).size() - uiQueued);
            ASSERT_THAT(LogRecorder::Take(),
                        ElementsAre(IsPoolRecord(3, "AddTmpTask", "AddTmpTask error [who calls]")));
            ASSERT_THAT(PoolView::GetOwned(clsPool), ElementsAre(Pair(pOwner, ElementsAre(strBefore))));
            ASSERT_THAT(PoolView::GetOwners(clsPool), ElementsAre(Pair(strBefore, pOwner)));
            ASSERT_THAT(PoolView::GetCursorOwners(clsPool), ElementsAre(pOwner));
        }
        clsPool.RemoveTmpTask(PoolView::GetQueue(clsPool).back());
        EXPECT_THAT(LogRecorder::Take(), IsEmpty());
    }
    EXPECT_GT(iFailures, 10);
    EXPECT_GE(iQueued, 4) << "no allocation failed in the bookkeeping, which follows the queueing";
}

TEST_F(PoolMemoryTest, SubmissionOfALoopTaskThatFailsIsRecordedAndNotListed)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    PoolView::ReserveQueue(clsPool, 100); // a submission succeeds when only the queue cannot grow
    int iBeforeId = 0;
    int iAfterId = 0;
    for (int iAllocation = 0;; ++iAllocation)
    {
        std::string strTaskId = "before";
        const std::function<void()> funTask = [] {};
        const std::string strCallInfo = "who calls";
        FailingMemory::FailAt(iAllocation + 1);
        clsPool.AddLoopTask(funTask, 0, strTaskId, strCallInfo);
        FailingMemory::Stop();
        if (PoolView::GetLoopTasks(clsPool).size() == 1)
        {
            break;
        }
        ASSERT_THAT(LogRecorder::Take(),
                    ElementsAre(IsPoolRecord(3, "AddLoopTask", "AddLoopTask error [who calls]")));
        if (strTaskId == "before")
        {
            ++iBeforeId;
            EXPECT_EQ(0, iAfterId) << "the caller's text was lost";
        }
        else
        {
            ++iAfterId;
            EXPECT_TRUE(PoolView::IsRegistered(strTaskId));
        }
    }
    EXPECT_GT(iBeforeId, 5);
    EXPECT_GT(iAfterId, 1);
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

TEST_F(PoolMemoryTest, OwnersRemovalNeedsNoMemory)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    void* const pOwner = &m_arrOwners[0];
    for (int i = 0; i < 5; ++i)
    {
        ASSERT_TRUE(clsPool.AddTmpTask([] {}, pOwner, ""));
    }
    const std::string strCallInfo = "who calls";
    FailingMemory::FailAt(1);
    clsPool.RemoveTmpTask(pOwner, strCallInfo);
    FailingMemory::Stop();
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
    EXPECT_THAT(PoolView::GetRegistered(), IsEmpty());
}

TEST_F(PoolMemoryTest, LoopPassThatFailsIsRecordedAndTheNextOneStartsWithoutASleep)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    const std::string strTaskId = MakeTask([] {}, 0);
    PoolView::AddToLoopTasks(clsPool, strTaskId);
    {
        const CLS_FastSleep clsFast([&](const ST_Sleep&) { PoolView::GetRunFlag(clsPool) = false; },
                                    milliseconds(2));
        int iFailures = 1;
        LogRecorder::SetHook(
            [&](const LogRecorder::ST_Record&)
            {
                EXPECT_THAT(clsFast.GetSleeps(), IsEmpty());
                EXPECT_THAT(PoolView::GetQueue(clsPool), IsEmpty());
                FailingMemory::FailAt(iFailures++ < 3 ? 1 : 0);
            });
        FailingMemory::FailAt(1); // the list of entries
        clsPool.FunLoopThread();
        LogRecorder::SetHook({});
        ASSERT_EQ(1U, clsFast.GetSleeps().size());
        EXPECT_EQ(milliseconds(10), clsFast.GetSleeps()[0].m_msAsked);
    }
    const auto isFailure = IsPoolRecord(3, "FunLoopThread", "*** auto Loop handler fail ***");
    EXPECT_THAT(LogRecorder::Take(), ElementsAre(isFailure, isFailure, isFailure));
    EXPECT_THAT(PoolView::GetQueue(clsPool), ElementsAre(strTaskId));
}

TEST_F(PoolMemoryTest, LoopTaskThatCouldNotBeQueuedIsQueuedByTheNextPass)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    const std::string strTaskId = MakeTask([] {}, 0);
    PoolView::AddToLoopTasks(clsPool, strTaskId);
    // The list and its new entry take two allocations. The third is the queue's.
    FailingMemory::FailAt(FailingMemory::REACHES_ALL ? 3 : 2);
    EXPECT_THROW(PoolView::RunLoopPass(clsPool), std::bad_alloc);
    FailingMemory::Stop();
    EXPECT_THAT(PoolView::GetQueue(clsPool), IsEmpty());
    EXPECT_EQ(TASK_STATUS_IDLE, PoolView::GetTask(strTaskId)->GetTaskStatus());
    PoolView::RunLoopPass(clsPool);
    EXPECT_THAT(PoolView::GetQueue(clsPool), ElementsAre(strTaskId));
}

TEST_F(PoolMemoryTest, NextLoopPassMakesUpForAFailedOne)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    const std::string strBusy = MakeTask([] {}, 0);
    const std::string strDue = MakeTask([] {}, 0);
    PoolView::GetTask(strBusy)->SetTaskStatus(TASK_STATUS_WAITING);
    PoolView::AddToLoopTasks(clsPool, strBusy);
    PoolView::RunLoopPass(clsPool);
    int iFailures = 0;
    for (bool bFailed = true; bFailed; ++iFailures)
    {
        PoolView::SetLoopTasks(clsPool, {strBusy, strDue});
        FailingMemory::FailAt(iFailures + 1);
        bFailed = false;
        try
        {
            PoolView::RunLoopPass(clsPool);
        }
        catch (const std::bad_alloc&)
        {
            bFailed = true;
        }
        FailingMemory::Stop();
        if (bFailed)
        {
            EXPECT_THAT(PoolView::GetQueue(clsPool), IsEmpty());
            PoolView::RunLoopPass(clsPool);
        }
        EXPECT_THAT(PoolView::GetQueue(clsPool), ElementsAre(strDue));
        PoolView::GetTask(strDue)->SetTaskStatus(TASK_STATUS_IDLE);
        PoolView::ClearQueue(clsPool);
    }
    EXPECT_GE(iFailures, 3) << "the list, its new entry and the queue should each have failed";
}

TEST_F(PoolMemoryTest, QueueingWithoutMemoryLeavesARunningTaskAsItIs)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    const std::string strTaskId = MakeTask([] {});
    PoolView::GetTask(strTaskId)->SetTaskStatus(TASK_STATUS_RUNNING);
    FailingMemory::FailAt(1);
    EXPECT_THROW(clsPool.AddWaitingTasks(strTaskId), std::bad_alloc);
    FailingMemory::Stop();
    EXPECT_EQ(TASK_STATUS_RUNNING, PoolView::GetTask(strTaskId)->GetTaskStatus());
    EXPECT_THAT(PoolView::GetQueue(clsPool), IsEmpty());
    PoolView::GetTask(strTaskId)->SetTaskStatus(TASK_STATUS_IDLE);
}

TEST_F(PoolMemoryTest, QueueingWithoutMemoryCannotLeaveATaskRunningForEver)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    const std::string strTaskId = MakeTask([] {});
    const std::shared_ptr<CLS_Task> pTask = PoolView::GetTask(strTaskId);
    pTask->SetTaskStatus(TASK_STATUS_RUNNING);
    CLS_Gate clsMayQueue;
    std::thread thQueuer(
        [&]
        {
            EXPECT_TRUE(clsMayQueue.Wait());
            try
            {
                clsPool.AddWaitingTasks(strTaskId);
            }
            catch (const std::bad_alloc&)
            {
                // The queue could not grow.
            }
        });
    {
        // The queueing marks the task during its run. The run then ends, and another thread queues the task.
        const std::lock_guard<std::mutex> lock(PoolView::GetQueueLock(clsPool));
        clsMayQueue.Open();
        EXPECT_TRUE(WaitUntil([&] { return pTask->GetTaskStatus() == TASK_STATUS_WAITING; }));
        pTask->SetTaskStatus(TASK_STATUS_IDLE);
        pTask->SetTaskIsWaiting();
        FailingMemory::FailAt(1, thQueuer.get_id());
    }
    thQueuer.join();
    EXPECT_TRUE(FailingMemory::Stop());
    EXPECT_EQ(TASK_STATUS_WAITING, pTask->GetTaskStatus());
}

TEST_F(PoolMemoryTest, QueueThatCannotGrowTakesTasksInOrder)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    std::vector<int> vecRuns;
    std::vector<std::string> vecTaskIds;
    for (int i = 0; i < 4; ++i)
    {
        vecTaskIds.push_back(MakeTask([&vecRuns, i] { vecRuns.push_back(i); }));
    }
    PoolView::GetWorkerLimit(clsPool) = 0;
    for (const std::string& strTaskId : vecTaskIds)
    {
        // Follows the entry's two allocations, or one where the text's allocation cannot be made to fail.
        FailingMemory::FailAt(FailingMemory::REACHES_ALL ? 3 : 2);
        clsPool.AddWaitingTasks(strTaskId);
        FailingMemory::Stop();
    }
    EXPECT_EQ(vecTaskIds, PoolView::GetQueue(clsPool));
    EXPECT_THAT(PoolView::GetWaitingIds(clsPool), IsEmpty());
    EXPECT_EQ(TASK_STATUS_WAITING, PoolView::GetTask(vecTaskIds.back())->GetTaskStatus());
    StartDispatcher(clsPool);
    const auto funAllIdle = [&]
    {
        return std::all_of(vecTaskIds.begin(), vecTaskIds.end(),
                           [](const std::string& _strTaskId)
                           { return PoolView::GetTask(_strTaskId)->GetTaskStatus() == TASK_STATUS_IDLE; });
    };
    EXPECT_TRUE(WaitUntil(funAllIdle));
    EXPECT_THAT(vecRuns, ElementsAre(0, 1, 2, 3));
}

TEST_F(PoolMemoryTest, QueueGrowsByAnIdAndItsReferenceOrByNeither)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    const std::string strTaskId = MakeTask([] {});
    // The entry's two allocations come first, or one where the text's allocation cannot be made to fail. The
    // memory of the ids and of the references follows.
    const int iFirst = FailingMemory::REACHES_ALL ? 3 : 2;
    for (const int iAllocation : {iFirst, iFirst + 1})
    {
        for (std::size_t uiBefore : {0U, 1U, 3U, 7U})
        {
            PoolView::SetQueue(clsPool, std::vector<std::string>(uiBefore, strTaskId));
            PoolView::GetWaitingIds(clsPool).shrink_to_fit();
            PoolView::GetWaitingRecords(clsPool).shrink_to_fit();
            FailingMemory::FailAt(iAllocation);
            clsPool.AddWaitingTasks(strTaskId);
            EXPECT_TRUE(FailingMemory::Stop());
            clsPool.AddWaitingTasks(strTaskId); // memory is available again, but another task is queued first
            EXPECT_EQ(uiBefore, PoolView::GetWaitingIds(clsPool).size());
            EXPECT_EQ(uiBefore, PoolView::GetWaitingRecords(clsPool).size());
            EXPECT_EQ(uiBefore + 2, PoolView::TakeQueue(clsPool).size());
            clsPool.AddWaitingTasks(strTaskId);
            EXPECT_EQ(1U, PoolView::GetWaitingIds(clsPool).size());
            EXPECT_EQ(1U, PoolView::GetWaitingRecords(clsPool).size());
        }
    }
}

TEST_F(PoolMemoryTest, WorkerThatCannotCopyTheIdStillRunsItsTask)
{
    if (!FailingMemory::REACHES_ALL)
    {
        GTEST_SKIP() << FailingMemory::WHY_NOT;
    }
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    CLS_TaskThread* const pThread = clsPool.CreateTaskThread();
    int iRuns = 0;
    std::string strTaskId = MakeTask([&] { ++iRuns; });
    PoolView::AddOwnedTask(clsPool, strTaskId, &m_arrOwners[0]);
    PoolView::BindTask(clsPool, pThread, strTaskId);
    FailingMemory::FailAt(1);
    clsPool.FunRunTask(pThread);
    EXPECT_TRUE(FailingMemory::Stop());
    EXPECT_EQ(1, iRuns);
    EXPECT_THAT(PoolView::GetOwned(clsPool), IsEmpty());
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
    EXPECT_EQ(pThread, PoolView::TakeIdleWorker(clsPool));
}

TEST_F(PoolMemoryTest, NoLoopPassFollowsAFailureAfterThePoolsEnd)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    PoolView::AddToLoopTasks(clsPool, MakeTask([] {}, 0));
    LogRecorder::SetHook([&](const LogRecorder::ST_Record&) { PoolView::GetRunFlag(clsPool) = false; });
    FailingMemory::FailAt(1);
    clsPool.FunLoopThread();
    LogRecorder::SetHook({});
    EXPECT_THAT(LogRecorder::Take(),
                ElementsAre(IsPoolRecord(3, "FunLoopThread", "*** auto Loop handler fail ***")));
    EXPECT_THAT(PoolView::GetQueue(clsPool), IsEmpty());
}

TEST_F(PoolMemoryTest, WatchdogsPassThatFailsIsRecordedAndTheNextOneComesAfterThreeMinutes)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    CLS_TaskThread* const pThread = clsPool.CreateTaskThread();
    WorkerView::GetLastActive(*pThread) = std::chrono::steady_clock::now() - hours(1);
    PoolView::AddIdleWorker(clsPool, pThread);
    std::vector<std::size_t> vecSleeps;
    {
        const CLS_FastSleep clsFast;
        LogRecorder::SetHook(
            [&](const LogRecorder::ST_Record& _stRecord)
            {
                vecSleeps.push_back(clsFast.GetSleeps().size());
                if (vecSleeps.size() == 1)
                {
                    FailingMemory::FailAt(1); // the list of the workers to be retired
                }
                PoolView::GetRunFlag(clsPool) = _stRecord.m_iLevel != 0;
            });
        clsPool.FunTaskThreadWaitingOvertime();
        LogRecorder::SetHook({});
    }
    constexpr const char* FUNCTION = "FunTaskThreadWaitingOvertime";
    EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsPoolRecord(1, FUNCTION, "delete pThread **************"),
                                                 IsPoolRecord(3, FUNCTION, "*** auto delete handler fail"),
                                                 IsPoolRecord(1, FUNCTION, "delete pThread **************"),
                                                 IsPoolRecord(0, FUNCTION, "delete pThread - 0")));
    EXPECT_THAT(vecSleeps, ElementsAre(1000U, 1000U, 2000U, 2000U));
    EXPECT_EQ(0, clsPool.GetTaskThreadNum());
}

TEST_F(PoolMemoryTest, TasksBehindAQueueThatCannotGrowAreTakenOnce)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    const auto pBatch = PoolView::MakeBatch();
    {
        const std::lock_guard<std::mutex> lock(PoolView::GetQueueLock(clsPool));
        PoolView::PushOverflowId(clsPool, "first");
    }
    EXPECT_THAT(PoolView::TakeQueue(clsPool, pBatch), ElementsAre("first"));
    const std::string strTaskId = MakeTask([] {});
    clsPool.AddWaitingTasks(strTaskId);
    EXPECT_THAT(PoolView::TakeQueue(clsPool, pBatch), ElementsAre(strTaskId));
    EXPECT_THAT(PoolView::GetQueue(clsPool), IsEmpty());
}

TEST_F(PoolMemoryTest, TasksBehindAQueueThatCannotGrowAreDroppedAtShutdown)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    const std::string strTaskId = MakeTask([] { ADD_FAILURE(); });
    {
        const std::lock_guard<std::mutex> lock(PoolView::GetQueueLock(clsPool));
        PoolView::PushOverflowId(clsPool, strTaskId);
    }
    PoolView::GetRunFlag(clsPool) = false;
    PoolView::RunDispatchPass(clsPool);
    EXPECT_THAT(PoolView::GetQueue(clsPool), IsEmpty());
    EXPECT_EQ(0, clsPool.GetTaskThreadNum());
}

} // namespace
