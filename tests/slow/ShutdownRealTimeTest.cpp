#include "tests/support/PoolView.h"
#include "tests/unit/ShutdownFixture.h"

namespace
{
using ::testing::ElementsAre;

/// Tests the time limits of the shutdown with the real clock.
class ShutdownRealTimeTest : public CLS_ShutdownFixture
{
protected:
    static constexpr std::chrono::seconds BOUND{9};
    /// Two consecutive bounds would take several seconds longer.
    static constexpr std::chrono::seconds ONE_BOUND_AT_MOST{15};

    /// Removes the task of a run from the registry while it runs.
    static void RemoveDuringRun(const HeldRun& _pRun) { CLS_Task::DeleteTask(_pRun->m_strTaskId); }

    /// Shuts the pool down and returns how long it took.
    static std::chrono::nanoseconds EndPool()
    {
        const auto tpStart = std::chrono::steady_clock::now();
        CLS_QuenTaskPool::m_pInstance->UnInit();
        EXPECT_EQ(nullptr, CLS_QuenTaskPool::m_pInstance);
        return std::chrono::steady_clock::now() - tpStart;
    }

    void SetUp() override
    {
        CLS_ShutdownFixture::SetUp();
        m_iThreads = CountThreads();
    }

    int m_iThreads = 0;
};

// Pins docs/limits.md, "A run may outlast the pool".
TEST_F(ShutdownRealTimeTest, ReturnsAfterTheBoundAndLetsTheRunEndLater)
{
    const HeldRun pRun = StartHeldRun(MakePool());
    const std::chrono::nanoseconds nsTaken = EndPool();
    EXPECT_GE(nsTaken, BOUND);
    EXPECT_LT(nsTaken, ONE_BOUND_AT_MOST);
    EXPECT_FALSE(pRun->m_clsOver.IsOpen());
    EXPECT_THAT(LogRecorder::Take(),
                ElementsAre(IsBegin(), IsStart(), IsWaiting(pRun, 11), IsWaiting(pRun, 21),
                            IsWaiting(pRun, 31), IsOvertime(pRun), IsEnd()));
    EXPECT_TRUE(WaitForThreads(m_iThreads + 1));
    EndHeldRun(pRun);
    EXPECT_TRUE(WaitForThreads(m_iThreads));
}

// Pins docs/limits.md, "A shutdown waits once more for removed tasks".
TEST_F(ShutdownRealTimeTest, AbandonsAHostsJobOnAWorkerAfterTheBound)
{
    CLS_Gate clsMayEnd;
    CLS_Counter clsJobs;
    for (int i = 0; i < 2; ++i)
    {
        MakePool().CreateTaskThread()->AddFunction(
            [&](CLS_TaskThread*)
            {
                clsJobs.Add();
                EXPECT_TRUE(clsMayEnd.Wait());
            });
    }
    ASSERT_TRUE(clsJobs.Wait(2));
    const std::chrono::nanoseconds nsTaken = EndPool();
    EXPECT_GE(nsTaken, BOUND);
    EXPECT_LT(nsTaken, ONE_BOUND_AT_MOST);
    EXPECT_TRUE(WaitForThreads(m_iThreads + 2));
    clsMayEnd.Open();
    EXPECT_TRUE(WaitForThreads(m_iThreads)); // each worker frees itself and ends its thread
    EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsBegin(), IsStart(), IsEnd()));
}

// Pins docs/limits.md, "A shutdown waits once more for removed tasks".
TEST_F(ShutdownRealTimeTest, WaitsOnceForAllRunsWhoseTasksWereRemoved)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    const HeldRun pFirst = StartHeldRun(clsPool);
    const HeldRun pSecond = StartHeldRun(clsPool);
    RemoveDuringRun(pFirst);
    RemoveDuringRun(pSecond);
    const std::chrono::nanoseconds nsTaken = EndPool();
    EXPECT_GE(nsTaken, BOUND);
    EXPECT_LT(nsTaken, ONE_BOUND_AT_MOST);
    EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsBegin(), IsStart(), IsEnd()));

    // The new pool has the same address if the memory is reused.
    CLS_QuenTaskPool& clsNew = MakePool();
    RunShortTask(clsNew);
    const std::map<CLS_TaskThread*, std::string> mapBefore = CopyWorkers(clsNew);
    EXPECT_TRUE(WaitForThreads(m_iThreads + 2 + 3 + 1));
    pFirst->m_clsMayEnd.Open();
    pSecond->m_clsMayEnd.Open();
    EXPECT_TRUE(WaitForThreads(m_iThreads + 3 + 1));
    EXPECT_TRUE(pFirst->m_clsOver.IsOpen());
    EXPECT_TRUE(pSecond->m_clsOver.IsOpen());
    EXPECT_EQ(mapBefore, CopyWorkers(clsNew));
    EXPECT_THAT(GetIdleOrder(clsNew), ElementsAre(0));
    EXPECT_THAT(PoolView::GetTaskOwners(clsNew), ::testing::IsEmpty());
}

TEST_F(ShutdownRealTimeTest, WaitsForARemovedRunThatEndsWithinTheBound)
{
    const HeldRun pRun = StartHeldRun(MakePool());
    CLS_TaskThread* const pThread = FindWorker(*CLS_QuenTaskPool::m_pInstance, pRun->m_strTaskId);
    ASSERT_NE(nullptr, pThread);
    RemoveDuringRun(pRun);
    CLS_Side clsHelper(
        [&]
        {
            EXPECT_TRUE(WaitUntil([&] { return IsGateClosed(*pThread); }));
            std::this_thread::sleep_for(std::chrono::seconds(1));
            pRun->m_clsMayEnd.Open();
        });
    const std::chrono::nanoseconds nsTaken = EndPool();
    EXPECT_TRUE(pRun->m_clsOver.IsOpen());
    EXPECT_GE(nsTaken, std::chrono::seconds(1));
    EXPECT_LT(nsTaken, BOUND);
    EXPECT_TRUE(clsHelper.Wait());
}
} // namespace
