#include "tests/unit/ShutdownFixture.h"

namespace
{
struct ST_Cycles
{
    int m_iWorkers;
    int m_iCycles;
};

void PrintTo(const ST_Cycles& _stLoad, std::ostream* _pOut)
{
    *_pOut << _stLoad.m_iWorkers << " workers, " << _stLoad.m_iCycles << " cycles";
}

/// Tests that use and shut down a pool repeatedly, with the given number of workers.
class PoolShutdownThreadsTest : public CLS_ShutdownFixture, public ::testing::WithParamInterface<ST_Cycles>
{
protected:
    /// Runs one task per worker, all at once.
    static void UseAllWorkers()
    {
        CLS_QuenTaskPool& clsPool = MakePool();
        CLS_Counter clsRunning;
        CLS_Counter clsOver;
        CLS_Gate clsMayEnd;
        for (int i = 0; i < GetParam().m_iWorkers; ++i)
        {
            const auto funTask = [&]
            {
                clsRunning.Add();
                EXPECT_TRUE(clsMayEnd.Wait());
                clsOver.Add();
            };
            ASSERT_TRUE(clsPool.AddTmpTask(funTask, &clsRunning, "one of many"));
        }
        EXPECT_TRUE(clsRunning.Wait(GetParam().m_iWorkers));
        clsMayEnd.Open();
        EXPECT_TRUE(clsOver.Wait(GetParam().m_iWorkers));
        EXPECT_EQ(GetParam().m_iWorkers, clsPool.GetTaskThreadNum());
    }
};

TEST_P(PoolShutdownThreadsTest, LeavesNoThreadAfterCyclesOfUse)
{
    const int iBefore = CountThreads();
    const CLS_FastSleep clsFastSleep(SlowPollsDown); // skips the watchdog's step
    for (int i = 0; i < GetParam().m_iCycles; ++i)
    {
        UseAllWorkers();
        // Some workers still have to finish their last steps; others are idle.
        CLS_QuenTaskPool::m_pInstance->UnInit();
        EXPECT_TRUE(WaitForThreads(iBefore)) << CountThreads() << " instead of " << iBefore;
    }
}

TEST_P(PoolShutdownThreadsTest, LeavesNoThreadWhenAllWorkersAreIdle)
{
    const int iBefore = CountThreads();
    UseAllWorkers();
    CLS_QuenTaskPool& clsPool = *CLS_QuenTaskPool::m_pInstance;
    ASSERT_TRUE(WaitForIdle(clsPool, static_cast<std::size_t>(GetParam().m_iWorkers)));
    EXPECT_EQ(iBefore + 3 + GetParam().m_iWorkers, CountThreads());
    clsPool.KillTaskAll();
    EXPECT_TRUE(WaitForThreads(iBefore)) << CountThreads() << " instead of " << iBefore;
}

INSTANTIATE_TEST_SUITE_P(Loads, PoolShutdownThreadsTest,
                         ::testing::Values(ST_Cycles{1, 20}, ST_Cycles{8, 20}, ST_Cycles{64, 5},
                                           ST_Cycles{301, 2}),
                         [](const ::testing::TestParamInfo<ST_Cycles>& _stInfo)
                         { return std::to_string(_stInfo.param.m_iWorkers) + "Workers"; });
} // namespace
