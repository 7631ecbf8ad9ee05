#include "tests/support/PoolView.h"
#include "tests/support/WatchedLocks.h"
#include "tests/unit/PoolFixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

namespace
{
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::Gt;

using PoolLocksTest = CLS_PoolFixture;

TEST_F(PoolLocksTest, WatchSeesALockThatIsTakenUnderAnother)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    CLS_WatchedLocks clsWatch;
    clsWatch.Watch(PoolView::GetIdleLock(clsPool));
    clsWatch.Watch(PoolView::GetWorkerLock(clsPool));
    clsWatch.WatchInnermost(CLS_Task::m_smTaskDataLock);
    {
        const std::lock_guard<std::mutex> lock(PoolView::GetIdleLock(clsPool));
        CLS_Task::GetTask("");
        EXPECT_EQ(0, clsWatch.GetNested());
        EXPECT_EQ(0, clsPool.GetTaskThreadNum());
        EXPECT_EQ(1, clsWatch.GetNested());
    }
    EXPECT_EQ(0, clsPool.GetTaskThreadNum());
    EXPECT_EQ(1, clsWatch.GetNested());
    const std::shared_lock<std::shared_mutex> lock(CLS_Task::m_smTaskDataLock);
    EXPECT_EQ(0, clsPool.GetTaskThreadNum());
    EXPECT_EQ(2, clsWatch.GetNested());
}

TEST_F(PoolLocksTest, TakingTheQueueLocksAndUnlocksItsMutexOnce)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    clsPool.AddWaitingTasks(MakeTask([] {}));
    CLS_WatchedLocks clsWatch;
    clsWatch.Watch(PoolView::GetQueueLock(clsPool));
    EXPECT_EQ(1U, PoolView::TakeQueue(clsPool).size());
    EXPECT_THAT(clsWatch.GetTaken(), ElementsAre(1));
    EXPECT_EQ(0, clsWatch.GetUntaken());
}

TEST_F(PoolLocksTest, NoThreadHoldsTwoLocksOfThePool)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    CLS_WatchedLocks clsWatch;
    clsWatch.Watch(PoolView::GetQueueLock(clsPool));
    clsWatch.Watch(PoolView::GetLoopListLock(clsPool));
    clsWatch.Watch(PoolView::GetOwnerLock(clsPool));
    clsWatch.Watch(PoolView::GetIdleLock(clsPool));
    clsWatch.Watch(PoolView::GetWorkerLock(clsPool));
    clsWatch.WatchInnermost(CLS_Task::m_smTaskDataLock);

    int iOwner = 0;
    int iOther = 0;
    CLS_Counter clsRuns;
    CLS_Counter clsStarted;
    CLS_Gate clsFree;
    std::string strLoopId;
    clsPool.AddLoopTask([&] { clsRuns.Add(); }, 0, strLoopId, "call");
    const auto funTask = [&]
    {
        clsStarted.Add();
        EXPECT_TRUE(clsFree.Wait());
    };
    for (int i = 0; i < 8; ++i)
    {
        EXPECT_TRUE(clsPool.AddTmpTask(funTask, &iOwner, "call"));
    }
    EXPECT_TRUE(clsPool.AddTmpTask(funTask, &iOther, "call"));
    EXPECT_TRUE(clsRuns.Wait(3));
    EXPECT_TRUE(clsStarted.Wait(9));
    PoolView::ReportBusy(clsPool, 1);
    clsFree.Open();
    clsPool.StopTask(strLoopId);
    clsPool.RemoveTask(strLoopId, "call");
    clsPool.RemoveTmpTask(&iOwner, "call");
    EXPECT_TRUE(PoolView::WaitForAllIdle(clsPool));
    EXPECT_TRUE(clsPool.AddTmpTask(funTask, &iOwner, "call"));
    EXPECT_TRUE(clsStarted.Wait(10));
    EXPECT_TRUE(PoolView::WaitForAllIdle(clsPool));
    CLS_TaskThread::SetWaitingOvertime(0);
    PoolView::RunWatchdogPass(clsPool);
    EXPECT_EQ(0, clsPool.GetTaskThreadNum());
    clsPool.CreateTaskThread();
    clsPool.UnInit();
    EXPECT_EQ(0, clsWatch.GetNested());
    EXPECT_THAT(clsWatch.GetTaken(), Each(Gt(0)));
}
} // namespace
