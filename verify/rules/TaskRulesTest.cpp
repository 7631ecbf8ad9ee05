#include "verify/rules/TaskRules.h"

#include <gtest/gtest.h>

namespace
{
using std::chrono::nanoseconds;
using TaskRules::ST_TaskState;

constexpr nanoseconds NOW{1000};

/// A one-shot task that was queued once and has not run.
ST_TaskState MakeQueued()
{
    ST_TaskState stTask;
    stTask.m_iQueued = 1;
    return stTask;
}

/// A loop task that has run once, until shortly before NOW.
ST_TaskState MakeLoop()
{
    ST_TaskState stTask;
    stTask.m_bLoop = true;
    stTask.m_iBegun = 1;
    stTask.m_nsLastEnd = nanoseconds(900);
    stTask.m_nsInterval = nanoseconds(100);
    return stTask;
}

TEST(TaskRulesTest, QueuedTaskMayBegin)
{
    EXPECT_EQ(nullptr, TaskRules::CheckBegin(MakeQueued(), NOW));
}

TEST(TaskRulesTest, RemovedTaskMustNotBeginUnlessTheRemovalGaveUp)
{
    ST_TaskState stTask = MakeQueued();
    stTask.m_bRemoved = true;
    EXPECT_STREQ(TaskRules::BEGINS_REMOVED, TaskRules::CheckBegin(stTask, NOW));
    stTask.m_bOverran = true;
    EXPECT_EQ(nullptr, TaskRules::CheckBegin(stTask, NOW));
}

TEST(TaskRulesTest, TaskMustNotOverlapItselfUnlessItWasQueuedAgain)
{
    ST_TaskState stTask = MakeQueued();
    stTask.m_iQueued = 2;
    stTask.m_iBegun = 1;
    stTask.m_iRunning = 1;
    EXPECT_STREQ(TaskRules::OVERLAPS, TaskRules::CheckBegin(stTask, NOW));
    stTask.m_bMayOverlap = true;
    EXPECT_EQ(nullptr, TaskRules::CheckBegin(stTask, NOW));
}

TEST(TaskRulesTest, OneShotTaskRunsAsOftenAsItWasQueued)
{
    ST_TaskState stTask = MakeQueued();
    EXPECT_FALSE(TaskRules::HasRun(stTask));
    stTask.m_iBegun = 1;
    EXPECT_TRUE(TaskRules::HasRun(stTask));
    EXPECT_STREQ(TaskRules::RUNS_TOO_OFTEN, TaskRules::CheckBegin(stTask, NOW));
    stTask.m_iBegun = 2;
    EXPECT_FALSE(TaskRules::HasRun(stTask));
}

TEST(TaskRulesTest, LoopTaskRunsAnyNumberOfTimes)
{
    ST_TaskState stTask = MakeLoop();
    EXPECT_EQ(nullptr, TaskRules::CheckBegin(stTask, NOW));
    EXPECT_TRUE(TaskRules::HasRun(stTask));
    stTask.m_iQueued = 2; // runs at least
    EXPECT_FALSE(TaskRules::HasRun(stTask));
}

TEST(TaskRulesTest, LoopTaskMustNotBeginBeforeItsIntervalHasPassed)
{
    ST_TaskState stTask = MakeLoop();
    EXPECT_STREQ(TaskRules::BEGINS_EARLY, TaskRules::CheckBegin(stTask, NOW - nanoseconds(1)));
    stTask.m_nsInterval = {};
    EXPECT_EQ(nullptr, TaskRules::CheckBegin(stTask, NOW - nanoseconds(1)));
    stTask = MakeLoop();
    stTask.m_iBegun = 0;
    EXPECT_EQ(nullptr, TaskRules::CheckBegin(stTask, NOW - nanoseconds(1)));
}

TEST(TaskRulesTest, RemovedTaskMustNotRunUnlessTheRemovalGaveUp)
{
    ST_TaskState stTask = MakeQueued();
    EXPECT_EQ(nullptr, TaskRules::CheckRemoved(stTask));
    stTask.m_iRunning = 1;
    EXPECT_STREQ(TaskRules::STILL_RUNS, TaskRules::CheckRemoved(stTask));
    stTask.m_bOverran = true;
    EXPECT_EQ(nullptr, TaskRules::CheckRemoved(stTask));
}
} // namespace
