#include "tests/support/FailingThreads.h"
#include "tests/support/PoolView.h"
#include "tests/support/RecordMatchers.h"
#include "tests/support/WorkerView.h"
#include "tests/unit/PoolFixture.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace
{
using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::Field;
using ::testing::IsEmpty;
using ::testing::SizeIs;

using PoolDispatchTest = CLS_PoolFixture;

n_TaskStatus GetStatus(const std::string& _strTaskId)
{
    return CLS_Task::GetTask(_strTaskId).lock()->GetTaskStatus();
}

/// A thread-safe list of texts.
class CLS_Texts
{
public:
    void Add(const std::string& _strText)
    {
        const std::lock_guard<std::mutex> lock(m_mtxTexts);
        m_vecTexts.push_back(_strText);
    }

    std::vector<std::string> Get()
    {
        const std::lock_guard<std::mutex> lock(m_mtxTexts);
        return m_vecTexts;
    }

private:
    std::mutex m_mtxTexts; ///< guards m_vecTexts
    std::vector<std::string> m_vecTexts;
};

TEST_F(PoolDispatchTest, QueuedTasksAreWaitingInOrder)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    const std::string strFirst = MakeTask({});
    const std::string strSecond = MakeTask({});
    const std::string strThird = MakeTask({});
    for (const std::string& strTaskId : {strThird, strFirst, strSecond})
    {
        EXPECT_EQ(TASK_STATUS_IDLE, GetStatus(strTaskId));
        clsPool.AddWaitingTasks(strTaskId);
        EXPECT_EQ(TASK_STATUS_WAITING, GetStatus(strTaskId));
    }
    EXPECT_THAT(PoolView::GetWaitingIds(clsPool), ElementsAre(strThird, strFirst, strSecond));
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

TEST_F(PoolDispatchTest, UnknownAndRemovedTasksAreNotQueued)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    const std::string strTaskId = MakeTask({});
    CLS_Task::DeleteTask(strTaskId);
    clsPool.AddWaitingTasks(strTaskId);
    clsPool.AddWaitingTasks("unknown");
    clsPool.AddWaitingTasks("");
    EXPECT_THAT(PoolView::GetWaitingIds(clsPool), IsEmpty());
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

TEST_F(PoolDispatchTest, TaskIsWaitingBeforeTheQueueIsLocked)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    const std::string strTaskId = MakeTask({});
    std::unique_lock<std::mutex> lock(PoolView::GetQueueLock(clsPool));
    std::thread thProducer([&] { clsPool.AddWaitingTasks(strTaskId); });
    EXPECT_TRUE(WaitUntil([&] { return GetStatus(strTaskId) == TASK_STATUS_WAITING; }));
    EXPECT_THAT(PoolView::GetWaitingIds(clsPool), IsEmpty());
    lock.unlock();
    thProducer.join();
    EXPECT_THAT(PoolView::GetWaitingIds(clsPool), ElementsAre(strTaskId));
}

TEST_F(PoolDispatchTest, WholeQueueIsTakenAtOnce)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    const std::vector<std::string> vecTaskIds{MakeTask({}), MakeTask({}), MakeTask({})};
    for (const std::string& strTaskId : vecTaskIds)
    {
        clsPool.AddWaitingTasks(strTaskId);
    }
    EXPECT_EQ(vecTaskIds, PoolView::TakeQueue(clsPool));
    EXPECT_TRUE(PoolView::GetOverflowIds(clsPool).empty());
    EXPECT_THAT(PoolView::GetWaitingIds(clsPool), IsEmpty());
}

TEST_F(PoolDispatchTest, MemoryOfTheQueueIsReusedUnlessItIsLarge)
{
    constexpr std::size_t KEPT_TASKS = 1024;
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    const std::shared_ptr<void> pBatch = PoolView::MakeBatch();
    for (const std::size_t uiTasks : {KEPT_TASKS, KEPT_TASKS + 1})
    {
        PoolView::SetQueue(clsPool, std::vector<std::string>(uiTasks, "unknown"));
        EXPECT_EQ(uiTasks, PoolView::TakeQueue(clsPool, pBatch).size());
        PoolView::SetQueue(clsPool, {"unknown"});
        EXPECT_EQ(1U, PoolView::TakeQueue(clsPool, pBatch).size());
        // The queue now uses the memory of the first batch.
        const std::size_t uiExpected = uiTasks > KEPT_TASKS ? 0 : uiTasks;
        EXPECT_EQ(uiExpected, PoolView::GetWaitingIds(clsPool).capacity());
        EXPECT_EQ(uiExpected, PoolView::GetWaitingRecords(clsPool).capacity());
        EXPECT_THAT(PoolView::GetWaitingIds(clsPool), IsEmpty());
        EXPECT_THAT(PoolView::GetWaitingRecords(clsPool), IsEmpty());
        PoolView::SetQueue(clsPool, {"unknown"});
        PoolView::TakeQueue(clsPool, pBatch);
    }
}

TEST_F(PoolDispatchTest, EachQueuedIdHasAReference)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    for (int i = 0; i < 20; ++i)
    {
        clsPool.AddWaitingTasks(MakeTask({}));
    }
    ASSERT_EQ(20U, PoolView::GetWaitingRecords(clsPool).size());
    for (std::size_t i = 0; i < 20; ++i)
    {
        const std::string& strTaskId = PoolView::GetWaitingIds(clsPool).at(i);
        EXPECT_EQ(PoolView::GetTask(strTaskId), PoolView::GetWaitingRecords(clsPool)[i].lock());
    }
}

TEST_F(PoolDispatchTest, OnePassHandsOutEverythingInOrder)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    PoolView::GetWorkerLimit(clsPool) = 0; // one worker, so that the runs have an order
    CLS_Texts clsRuns;
    for (const char* const szName : {"first", "second", "third"})
    {
        clsPool.AddWaitingTasks(MakeTask([&clsRuns, szName] { clsRuns.Add(szName); }));
    }
    PoolView::RunDispatchPass(clsPool);
    ASSERT_TRUE(WaitForIdle(clsPool, 1));
    EXPECT_THAT(clsRuns.Get(), ElementsAre("first", "second", "third"));
    EXPECT_EQ(1, clsPool.GetTaskThreadNum());
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

TEST_F(PoolDispatchTest, OneWakeUpTakesThreeIds)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    CLS_Texts clsRuns;
    CLS_Gate clsFree;
    std::vector<std::string> vecTaskIds;
    for (const char* const szName : {"first", "second", "third"})
    {
        vecTaskIds.push_back(MakeTask(
            [&clsRuns, &clsFree, szName]
            {
                clsRuns.Add(szName);
                EXPECT_TRUE(clsFree.Wait());
            }));
    }
    PoolView::SetQueue(clsPool, vecTaskIds);
    EXPECT_TRUE(WaitUntil([&] { return clsRuns.Get().size() == 3; }));
    // The workers were made one after the other, so they are bound in queue order.
    std::vector<std::string> vecBound(3);
    for (const auto& [pThread, strTaskId] : PoolView::CopyWorkers(clsPool))
    {
        vecBound.at(static_cast<std::size_t>(pThread->GetOrderId())) = strTaskId;
    }
    EXPECT_EQ(vecTaskIds, vecBound);
    clsFree.Open();
    EXPECT_TRUE(WaitForIdle(clsPool, 3));
}

TEST_F(PoolDispatchTest, WaitingDispatcherIsWokenByEachTask)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    constexpr int ROUNDS = 40;
    CLS_Counter clsRuns;
    const auto tpStart = steady_clock::now();
    for (int i = 1; i <= ROUNDS; ++i)
    {
        clsPool.AddWaitingTasks(MakeTask([&] { clsRuns.Add(); }));
        ASSERT_TRUE(clsRuns.Wait(i));
        ASSERT_TRUE(WaitForIdle(clsPool, 1));
    }
    // Without the notification, each round would wait for the rest of the dispatcher's second.
    EXPECT_LT(steady_clock::now() - tpStart, seconds(20));
}

// Pins docs/limits.md, "An id that is queued twice runs twice".
TEST_F(PoolDispatchTest, IdQueuedTwiceRunsTwice)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    CLS_Counter clsRuns;
    const std::string strTaskId = MakeTask([&] { clsRuns.Add(); });
    clsPool.AddWaitingTasks(strTaskId);
    clsPool.AddWaitingTasks(strTaskId);
    EXPECT_THAT(PoolView::GetWaitingIds(clsPool), ElementsAre(strTaskId, strTaskId));
    PoolView::GetWorkerLimit(clsPool) = 0;
    PoolView::RunDispatchPass(clsPool);
    ASSERT_TRUE(WaitForIdle(clsPool, 1));
    EXPECT_EQ(2, clsRuns.Get());
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

TEST_F(PoolDispatchTest, QueueIsFreeDuringABatchAndNewTasksAreLeftToTheNextPass)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    CLS_TaskThread* const pThread = clsPool.CreateTaskThread();
    PoolView::GetWorkerLimit(clsPool) = -1;
    CLS_Counter clsRuns;
    const std::string strFirst = MakeTask([&] { clsRuns.Add(); });
    const std::string strLater = MakeTask([&] { clsRuns.Add(); });
    clsPool.AddWaitingTasks(strFirst);
    const CLS_FastSleep clsFastSleep(
        [&](const ST_Sleep&)
        {
            // The dispatcher waits for a worker in the middle of its batch.
            EXPECT_THAT(PoolView::GetQueue(clsPool), IsEmpty());
            clsPool.AddWaitingTasks(strLater);
            PoolView::AddIdleWorker(clsPool, pThread);
        });
    PoolView::RunDispatchPass(clsPool);
    EXPECT_THAT(PoolView::GetQueue(clsPool), ElementsAre(strLater));
    ASSERT_TRUE(WaitForIdle(clsPool, 1));
    EXPECT_EQ(1, clsRuns.Get());
    PoolView::RunDispatchPass(clsPool);
    ASSERT_TRUE(clsRuns.Wait(2));
    ASSERT_TRUE(WaitForIdle(clsPool, 1));
    EXPECT_THAT(clsFastSleep.GetSleeps(), SizeIs(1));
}

TEST_F(PoolDispatchTest, TaskIsBoundBeforeItsJobIsHandedOver)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    CLS_TaskThread* const pThread = clsPool.CreateTaskThread();
    PoolView::AddIdleWorker(clsPool, pThread);
    const std::string strTaskId = MakeTask({});
    clsPool.AddWaitingTasks(strTaskId);
    std::unique_lock<std::mutex> lock(WorkerView::GetJobLock(*pThread)); // no job can be handed over
    std::thread thDispatcher([&] { PoolView::RunDispatchPass(clsPool); });
    EXPECT_TRUE(WaitUntil([&] { return PoolView::ReadBoundTask(clsPool, pThread) == strTaskId; }));
    EXPECT_FALSE(WorkerView::GetJob(*pThread));
    EXPECT_EQ(TASK_STATUS_WAITING, GetStatus(strTaskId));
    EXPECT_THAT(GetIdleOrder(clsPool), IsEmpty());
    lock.unlock();
    thDispatcher.join();
    EXPECT_TRUE(WaitForIdle(clsPool, 1));
    EXPECT_EQ(TASK_STATUS_IDLE, GetStatus(strTaskId));
}

// Pins docs/limits.md, "A full pool retries every 100 ms".
TEST_F(PoolDispatchTest, DispatcherAsksForAWorkerAgainAfterEachHundredMilliseconds)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    CLS_TaskThread* const pThread = clsPool.CreateTaskThread();
    PoolView::GetWorkerLimit(clsPool) = -1;
    clsPool.AddWaitingTasks(MakeTask({}));
    int iSleeps = 0;
    const CLS_FastSleep clsFastSleep(
        [&](const ST_Sleep&)
        {
            if (++iSleeps == 5)
            {
                PoolView::AddIdleWorker(clsPool, pThread);
            }
        });
    PoolView::RunDispatchPass(clsPool);
    const auto vecSleeps = clsFastSleep.GetSleeps(std::this_thread::get_id());
    EXPECT_THAT(vecSleeps, SizeIs(5));
    EXPECT_THAT(vecSleeps, Each(Field("asked", &ST_Sleep::m_msAsked, milliseconds(100))));
    EXPECT_TRUE(WaitForIdle(clsPool, 1));
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

TEST_F(PoolDispatchTest, DispatcherTriesUntilAWorkerCanBeMade)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    StartDispatcher(clsPool);
    CLS_Gate clsRan;
    const std::string strTaskId = MakeTask([&] { clsRan.Open(); });
    {
        int iFailures = 1;
        std::optional<CLS_FailingThreads> clsFailing(std::in_place, 1);
        const CLS_FastSleep clsFastSleep(
            [&](const ST_Sleep&)
            {
                clsFailing.reset();
                if (++iFailures <= 3)
                {
                    clsFailing.emplace(1);
                }
            });
        clsPool.AddWaitingTasks(strTaskId);
        ASSERT_TRUE(clsRan.Wait());
        EXPECT_EQ(4, iFailures);
        EXPECT_THAT(clsFastSleep.GetSleeps(), SizeIs(3));
    }
    ASSERT_TRUE(WaitForIdle(clsPool, 1));
    const auto clsFailure = IsPoolRecord(3, "CreateTaskThread", "create task thread error");
    EXPECT_THAT(LogRecorder::Take(), ElementsAre(clsFailure, clsFailure, clsFailure));
    EXPECT_THAT(GetIdleOrder(clsPool), ElementsAre(0));
}

TEST_F(PoolDispatchTest, WorkerThatIsNotRegisteredIsLoggedAndStillGetsItsJob)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    const std::unique_ptr<CLS_TaskThread> pThread(clsPool.CreateTaskThread());
    pThread->SetOrderId(17);
    PoolView::UnregisterWorker(clsPool, pThread.get());
    PoolView::AddIdleWorker(clsPool, pThread.get());
    CLS_Counter clsRuns;
    const std::string strTaskId = MakeTask([&] { clsRuns.Add(); });
    clsPool.AddWaitingTasks(strTaskId);
    PoolView::RunDispatchPass(clsPool);
    ASSERT_TRUE(WaitForIdle(clsPool, 1));
    EXPECT_THAT(LogRecorder::Take(),
                ElementsAre(IsPoolRecord(3, "FunTaskingThread", "thread is not in m_mapThreadTask - 17"),
                            IsPoolRecord(3, "FunRunTask", "task run error - 17 ")));
    EXPECT_EQ(0, clsRuns.Get());
    EXPECT_EQ(TASK_STATUS_WAITING, GetStatus(strTaskId));
    EXPECT_EQ(0, clsPool.GetTaskThreadNum());
    EXPECT_EQ(pThread.get(), clsPool.GetTaskThread());
}

TEST_F(PoolDispatchTest, DispatcherDoesNotLookAtTheTask)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    CLS_Counter clsRuns;
    const std::string strTaskId = MakeTask([&] { clsRuns.Add(); });
    clsPool.AddWaitingTasks(strTaskId);
    const std::shared_ptr<CLS_Task> pTask = CLS_Task::GetTask(strTaskId).lock();
    pTask->SetValid(false);
    pTask->SetTaskStatus(TASK_STATUS_IDLE);
    PoolView::RunDispatchPass(clsPool);
    // The dispatcher dispatches the task like any other. The worker then skips it.
    ASSERT_TRUE(WaitForIdle(clsPool, 1));
    EXPECT_EQ(0, clsRuns.Get());
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

TEST_F(PoolDispatchTest, ShutdownDropsTheRestWhileADispatcherAsksForAWorker)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    CLS_TaskThread* const pThread = clsPool.CreateTaskThread();
    PoolView::GetWorkerLimit(clsPool) = -1;
    CLS_Counter clsRuns;
    const std::string strFirst = MakeTask([&] { clsRuns.Add(); });
    const std::string strSecond = MakeTask([&] { clsRuns.Add(); });
    clsPool.AddWaitingTasks(strFirst);
    clsPool.AddWaitingTasks(strSecond);
    {
        const CLS_FastSleep clsFastSleep(
            [&](const ST_Sleep&)
            {
                PoolView::GetRunFlag(clsPool) = false;
                PoolView::AddIdleWorker(clsPool, pThread); // too late
            });
        clsPool.FunTaskingThread();
        EXPECT_THAT(clsFastSleep.GetSleeps(), SizeIs(1));
    }
    EXPECT_EQ(0, clsRuns.Get());
    EXPECT_EQ(TASK_STATUS_WAITING, GetStatus(strFirst));
    EXPECT_EQ(TASK_STATUS_WAITING, GetStatus(strSecond));
    EXPECT_THAT(PoolView::GetWaitingIds(clsPool), IsEmpty());
    EXPECT_EQ("", PoolView::GetWorkers(clsPool)[pThread]);
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

TEST_F(PoolDispatchTest, ShutdownDropsTheRestBeforeTheNextId)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    const std::unique_ptr<CLS_TaskThread> pUnregistered(clsPool.CreateTaskThread());
    PoolView::UnregisterWorker(clsPool, pUnregistered.get());
    PoolView::AddIdleWorker(clsPool, pUnregistered.get());
    CLS_Counter clsRuns;
    const std::string strFirst = MakeTask([&] { clsRuns.Add(); });
    const std::string strSecond = MakeTask([&] { clsRuns.Add(); });
    clsPool.AddWaitingTasks(strFirst);
    clsPool.AddWaitingTasks(strSecond);
    // The dispatcher logs the first id after it gets a worker and before it hands over the job.
    LogRecorder::SetHook([&](const LogRecorder::ST_Record&) { PoolView::GetRunFlag(clsPool) = false; });
    clsPool.FunTaskingThread();
    LogRecorder::SetHook({});
    ASSERT_TRUE(WaitUntil([] { return LogRecorder::Peek().size() == 2; }));
    EXPECT_THAT(LogRecorder::Take(),
                ElementsAre(IsPoolRecord(3, "FunTaskingThread", "thread is not in m_mapThreadTask - 0"),
                            IsPoolRecord(3, "FunRunTask", "task run error - 0 ")));
    EXPECT_EQ(0, clsRuns.Get());
    EXPECT_EQ(0, clsPool.GetTaskThreadNum()); // no worker was made for the second id
    EXPECT_EQ(TASK_STATUS_WAITING, GetStatus(strSecond));
    EXPECT_THAT(PoolView::GetWaitingIds(clsPool), IsEmpty());
    EXPECT_TRUE(pUnregistered->Exit());
    EXPECT_THAT(GetIdleOrder(clsPool), IsEmpty());
}
} // namespace
