#include "tests/support/FailingThreads.h"
#include "tests/support/PoolView.h"
#include "tests/support/RecordMatchers.h"
#include "tests/unit/PoolFixture.h"

#include <gmock/gmock.h>

namespace
{
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr int TASKS = 6;

/// Tests in which the pool needs several workers at once and cannot make the n-th.
class PoolWorkerFaultsTest : public CLS_PoolFixture, public ::testing::WithParamInterface<int>
{
};

TEST_P(PoolWorkerFaultsTest, DispatcherTriesAgainAndEveryTaskRunsOnce)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    CLS_Counter clsStarted;
    CLS_Gate clsMayEnd;
    {
        const CLS_FailingThreads clsFailing(GetParam());
        for (int i = 0; i < TASKS; ++i)
        {
            ASSERT_TRUE(clsPool.AddTmpTask(
                [&]
                {
                    clsStarted.Add();
                    EXPECT_TRUE(clsMayEnd.Wait());
                },
                &clsStarted, "call"));
        }
        // The tasks run at the same time, so each has its own worker.
        EXPECT_TRUE(clsStarted.Wait(TASKS));
        EXPECT_EQ(TASKS + 1, clsFailing.GetRequests());
    }
    EXPECT_EQ(TASKS, clsPool.GetTaskThreadNum());
    EXPECT_THAT(LogRecorder::Take(),
                ElementsAre(IsPoolRecord(3, "CreateTaskThread", "create task thread error")));
    clsMayEnd.Open();
    ASSERT_TRUE(WaitForIdle(clsPool, TASKS));
    EXPECT_THAT(GetIdleOrder(clsPool), ElementsAre(0, 1, 2, 3, 4, 5));
    EXPECT_EQ(TASKS, clsStarted.Get());
    EXPECT_THAT(PoolView::GetQueue(clsPool), IsEmpty());
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(EachWorker, PoolWorkerFaultsTest, ::testing::Range(1, TASKS + 1));
} // namespace
