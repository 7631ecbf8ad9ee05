#include "QuenHost/CLS_LoopTask.h"
#include "QuenHost/CLS_TaskOwner.h"
#include "tests/kit/PoolTest.h"

#include <gmock/gmock.h>

namespace
{
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using SnapshotTest = CLS_PoolTest;

TEST_F(SnapshotTest, ShowsNothingOfAnIdlePool)
{
    const ST_PoolSnapshot stSnapshot = GetPool().TakeSnapshot();
    EXPECT_EQ(0, stSnapshot.m_iBusyWorkers + stSnapshot.m_iIdleWorkers + stSnapshot.m_iStartingWorkers);
    EXPECT_EQ(0U, stSnapshot.m_uiQueued);
    EXPECT_EQ(
        "workers: 0 busy, 0 idle, 0 starting; in the whole pool: 0\n"
        "queue: 0 tasks, the oldest waits for 0.000 s\n"
        "since the start: 0 submitted, 0 run, 0 cancelled, 0 failed, 0 loop runs, longest wait 0.000 s\n"
        "left out: tasks that were added without the host kit, and their workers' states\n",
        stSnapshot.ToText());
}

TEST_F(SnapshotTest, ShowsRunningTasksWithTheirThreadsAndWaitingTasks)
{
    CLS_Gate clsMayEnd;
    CLS_TaskOwner clsOwner(GetPool(), "stuck owner");
    KeepEveryWorkerBusy(clsOwner, clsMayEnd);
    ASSERT_TRUE(clsOwner.Submit([] {}, "waiting"));
    ASSERT_TRUE(clsOwner.Submit([] {}, "waiting"));
    ASSERT_TRUE(
        WaitUntil([&] { return GetPool().TakeSnapshot().m_nsOldestQueued >= std::chrono::milliseconds(2); }));
    const ST_PoolSnapshot stSnapshot = GetPool().TakeSnapshot();
    EXPECT_EQ(CLS_PoolHub::MOST_CARRIERS, stSnapshot.m_iBusyWorkers);
    EXPECT_EQ(0, stSnapshot.m_iIdleWorkers);
    ASSERT_TRUE(stSnapshot.m_iPoolWorkers.has_value());
    EXPECT_GE(*stSnapshot.m_iPoolWorkers, CLS_PoolHub::MOST_CARRIERS);
    EXPECT_EQ(2U, stSnapshot.m_uiQueued);
    ASSERT_EQ(static_cast<std::size_t>(CLS_PoolHub::MOST_CARRIERS), stSnapshot.m_vecRuns.size());
    const ST_RunInfo& stRun = stSnapshot.m_vecRuns.front();
    EXPECT_EQ("fill", stRun.m_strCallInfo);
    EXPECT_EQ("stuck owner", stRun.m_strOwner);
    EXPECT_THAT(stRun.m_strThread, MatchesRegex("zel-worker-[0-9]+"));
    EXPECT_NE(0U, stRun.m_uiThread);
    EXPECT_GE(stRun.m_nsRunning, stSnapshot.m_vecRuns.back().m_nsRunning);
    EXPECT_FALSE(stRun.m_bStopRequested);
    EXPECT_THAT(stSnapshot.ToText(), HasSubstr("running: \"fill\" of \"stuck owner\" for "));
    clsMayEnd.Open();
}

TEST_F(SnapshotTest, ShowsThatARunWasAskedToStop)
{
    CLS_Gate clsStarted;
    CLS_Gate clsMayEnd;
    CLS_TaskOwner clsOwner(GetPool(), "owner");
    ASSERT_TRUE(clsOwner.Submit(
        [&]
        {
            clsStarted.Open();
            EXPECT_TRUE(clsMayEnd.Wait());
        },
        "run"));
    ASSERT_TRUE(clsStarted.Wait());
    clsOwner.RemoveTasks(std::chrono::milliseconds(0));
    EXPECT_TRUE(GetPool().TakeSnapshot().m_vecRuns.front().m_bStopRequested);
    EXPECT_THAT(GetPool().TakeSnapshot().ToText(), HasSubstr(", asked to stop\n"));
    clsMayEnd.Open();
}

TEST_F(SnapshotTest, ShowsLoopTasksWithTheirNextStart)
{
    CLS_Counter clsRuns;
    CLS_Gate clsMayEnd;
    CLS_LoopTask clsHourly(
        GetPool(), [&] { clsRuns.Add(); }, 3600000, "hourly");
    const CLS_LoopTask clsStuck(
        GetPool(),
        [&]
        {
            clsRuns.Add();
            EXPECT_TRUE(clsMayEnd.Wait());
        },
        7, "stuck");
    ASSERT_TRUE(clsRuns.Wait(2));
    ASSERT_TRUE(WaitUntil([&] { return GetPool().TakeSnapshot().m_vecRuns.size() == 1; }));
    const ST_PoolSnapshot stSnapshot = GetPool().TakeSnapshot();
    ASSERT_EQ(2U, stSnapshot.m_vecLoops.size());
    EXPECT_EQ("hourly", stSnapshot.m_vecLoops.front().m_strCallInfo);
    EXPECT_EQ(std::chrono::hours(1), stSnapshot.m_vecLoops.front().m_msInterval);
    EXPECT_FALSE(stSnapshot.m_vecLoops.front().m_bRunning);
    EXPECT_GT(stSnapshot.m_vecLoops.front().m_nsUntilNext, std::chrono::minutes(55));
    EXPECT_LE(stSnapshot.m_vecLoops.front().m_nsUntilNext, std::chrono::hours(1));
    EXPECT_TRUE(stSnapshot.m_vecLoops.back().m_bRunning);
    EXPECT_EQ(std::chrono::nanoseconds(0), stSnapshot.m_vecLoops.back().m_nsUntilNext);
    EXPECT_THAT(stSnapshot.ToText(), HasSubstr("loop task: \"stuck\" every 7 ms, running\n"));
    EXPECT_EQ("stuck", stSnapshot.m_vecRuns.front().m_strCallInfo);
    clsMayEnd.Open();
    clsHourly.Remove();
    EXPECT_EQ(1U, GetPool().TakeSnapshot().m_vecLoops.size());
}

TEST_F(SnapshotTest, CountsForTheScopeAndForEachOwner)
{
    CLS_Gate clsMayEnd;
    CLS_TaskOwner clsFirst(GetPool(), "first");
    KeepEveryWorkerBusy(clsFirst, clsMayEnd);
    CLS_TaskOwner clsSecond(GetPool(), "second");
    ASSERT_TRUE(clsSecond.Submit([] {}, "cancelled"));
    clsSecond.RemoveTasks();
    CLS_Gate clsRan;
    ASSERT_TRUE(clsSecond.Submit([&] { clsRan.Open(); }, "run"));
    clsMayEnd.Open();
    ASSERT_TRUE(clsRan.Wait());
    constexpr std::uint64_t FILLERS = CLS_PoolHub::MOST_CARRIERS;
    ASSERT_TRUE(WaitUntil([&] { return GetPool().TakeSnapshot().m_stCounters.m_uiRun == FILLERS + 1; }));
    const ST_PoolCounters stAll = GetPool().TakeSnapshot().m_stCounters;
    EXPECT_EQ(FILLERS + 2, stAll.m_uiSubmitted);
    EXPECT_EQ(1U, stAll.m_uiCancelled);
    EXPECT_EQ(0U, stAll.m_uiFailed);
    const ST_PoolCounters stSecond = clsSecond.GetCounters();
    EXPECT_EQ(2U, stSecond.m_uiSubmitted);
    EXPECT_EQ(1U, stSecond.m_uiRun);
    EXPECT_EQ(1U, stSecond.m_uiCancelled);
    EXPECT_GT(stSecond.m_nsLongestWait.count(), 0);
    EXPECT_GE(stAll.m_nsLongestWait, stSecond.m_nsLongestWait);
}
} // namespace
