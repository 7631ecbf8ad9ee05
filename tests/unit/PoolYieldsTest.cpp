// The conditions under which the dispatcher yields, and the number of yields.

#include "tests/support/PoolView.h"
#include "tests/support/WatchedYields.h"
#include "tests/support/WorkerView.h"
#include "tests/unit/PoolFixture.h"

#include <atomic>
#include <gtest/gtest.h>
#include <mutex>
#include <string>
#include <thread>

namespace
{
using PoolYieldsTest = CLS_PoolFixture;

TEST_F(PoolYieldsTest, DispatcherYieldsAFewTimesAfterABatchAndHoldsNothingMeanwhile)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    PoolView::AddIdleWorker(clsPool, clsPool.CreateTaskThread());
    for (int i = 1; i <= 2; ++i)
    {
        clsPool.AddWaitingTasks(MakeTask([] {}));
        const CLS_WatchedYields clsYields(
            [&]
            {
                EXPECT_TRUE(PoolView::GetQueue(clsPool).empty());
                EXPECT_TRUE(PoolView::AreLocksFree(clsPool));
            });
        PoolView::RunDispatchPass(clsPool);
        EXPECT_EQ(MOST_YIELDS_BEFORE_SLEEP, clsYields.GetYields()) << "pass " << i;
        ASSERT_TRUE(WaitForIdle(clsPool, 1));
    }
}

TEST_F(PoolYieldsTest, DispatcherStopsYieldingOnceATaskIsQueued)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    PoolView::AddIdleWorker(clsPool, clsPool.CreateTaskThread());
    const std::string strNext = MakeTask([] {});
    clsPool.AddWaitingTasks(MakeTask([] {}));
    const CLS_WatchedYields clsYields(
        [&]
        {
            if (clsYields.GetYields() == 2)
            {
                clsPool.AddWaitingTasks(strNext);
            }
        });
    PoolView::RunDispatchPass(clsPool);
    EXPECT_EQ(2, clsYields.GetYields());
}

TEST_F(PoolYieldsTest, DispatcherDoesNotYieldOnceThePoolHasEnded)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    PoolView::GetRunFlag(clsPool) = false;
    const CLS_WatchedYields clsYields;
    clsPool.AddWaitingTasks(MakeTask([] {}));
    PoolView::RunDispatchPass(clsPool);
    {
        const std::lock_guard<std::mutex> lock(PoolView::GetQueueLock(clsPool));
        PoolView::PushOverflowId(clsPool, "id");
    }
    PoolView::RunDispatchPass(clsPool);
    EXPECT_EQ(0, clsYields.GetYields());
}

TEST_F(PoolYieldsTest, DispatcherSaysWhetherMoreTasksOfTheBatchWait)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    for (const std::size_t uiUndispatched : {3U, 2U, 1U})
    {
        EXPECT_TRUE(PoolView::DispatchTask(clsPool, MakeTask([] {}), uiUndispatched));
        EXPECT_EQ(uiUndispatched > 1, PoolView::GetBatchHint(clsPool)) << uiUndispatched;
    }
}

TEST_F(PoolYieldsTest, NoTaskWaitsBehindTheLastOfABatchWithOverflow)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    clsPool.AddWaitingTasks(MakeTask([] {}));
    const std::string strFirst = MakeTask([] {});
    const std::string strSecond = MakeTask([] {});
    {
        const std::lock_guard<std::mutex> lock(PoolView::GetQueueLock(clsPool));
        PoolView::PushOverflowId(clsPool, strFirst);
        PoolView::PushOverflowId(clsPool, strSecond);
    }
    PoolView::RunDispatchPass(clsPool);
    EXPECT_FALSE(PoolView::GetBatchHint(clsPool));
}

TEST_F(PoolYieldsTest, WorkerHasABacklogAfterARunWhileTasksWaitInTheBatchOrTheQueue)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    CLS_TaskThread* const pWorker = clsPool.CreateTaskThread();
    const auto funRun = [&]
    {
        std::string strTaskId = MakeTask([] {});
        PoolView::BindTask(clsPool, pWorker, strTaskId);
        clsPool.FunRunTask(pWorker);
        return WorkerView::HasBacklog(*pWorker);
    };
    EXPECT_FALSE(funRun());
    PoolView::GetBatchHint(clsPool) = true;
    EXPECT_TRUE(funRun());
    PoolView::GetBatchHint(clsPool) = false;
    EXPECT_FALSE(funRun());
    clsPool.AddWaitingTasks(MakeTask([] {}));
    EXPECT_TRUE(funRun());
    PoolView::TakeQueue(clsPool);
    EXPECT_FALSE(funRun());
}

TEST_F(PoolYieldsTest, IdleDispatcherDoesNotYield)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    int iIdleYields = 0;
    const CLS_WatchedYields clsYields([&] { iIdleYields += PoolView::GetRunFlag(clsPool) ? 1 : 0; });
    std::thread thHost(
        [&]
        {
            for (int i = 0; i < 20; ++i)
            {
                const std::lock_guard<std::mutex> lock(PoolView::GetQueueLock(clsPool));
                PoolView::GetQueueSignal(clsPool).notify_one();
            }
            const std::lock_guard<std::mutex> lock(PoolView::GetQueueLock(clsPool));
            PoolView::GetRunFlag(clsPool) = false;
            PoolView::GetQueueSignal(clsPool).notify_one();
        });
    clsPool.FunTaskingThread();
    thHost.join();
    EXPECT_EQ(0, iIdleYields);
}
} // namespace
