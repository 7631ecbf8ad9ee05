#include "QuenHost/TaskSweep.h"

#include "QuenPlugins/ZelTaskPool/CLS_QuenTaskPool.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/Waiting.h"

#include <array>
#include <atomic>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <thread>
#include <vector>

// This program is linked with the built library, as a host is. It sees only the exported members.

namespace
{
std::size_t CountRegistered()
{
    return TaskSweep::CollectIds([](const TaskSweep::TaskReference&) { return true; }).size();
}

/// Sweeps until nothing is registered. False at the limit: a worker releases a task shortly after its run.
[[nodiscard]] bool SweepToNothing()
{
    return WaitUntil(
        []
        {
            TaskSweep::DeleteFinished();
            return CountRegistered() == 0;
        });
}

/// Each test starts with an empty registry and leaves no pool and no tasks.
class TaskSweepTest : public ::testing::Test
{
protected:
    void TearDown() override
    {
        UnInit();
        TaskSweep::DeleteLeftBehind();
        EXPECT_EQ(0U, CountRegistered());
        LogRecorder::Clear();
    }

    static TaskSweep::TaskReference MakeTask(const std::function<void()>& _funTask = {}, int _iInterval = -1)
    {
        return CLS_Task::CreateTask(_funTask, _iInterval, "call");
    }

    static void Queue(const TaskSweep::TaskReference& _pTask)
    {
        CLS_QuenTaskPool::GetInstance()->AddWaitingTasks(_pTask->GetId());
    }

    /// Polls until the task is idle and only the caller and the registry hold it. False at the limit.
    [[nodiscard]] static bool WaitForEnd(const TaskSweep::TaskReference& _pTask)
    {
        return WaitUntil([&] { return !_pTask->IsRunning() && _pTask.use_count() == 2; });
    }

    CLS_Counter m_clsRuns;
};

TEST_F(TaskSweepTest, FinishedTasksAreDeletedWithTheirCaptures)
{
    const auto pCaptured = std::make_shared<int>(0);
    for (int i = 0; i < 3; ++i)
    {
        ASSERT_TRUE(AddTmpTask([this, pCaptured] { m_clsRuns.Add(); }, this, "captures"));
    }
    ASSERT_TRUE(m_clsRuns.Wait(3));
    EXPECT_EQ(3U, CountRegistered());

    EXPECT_TRUE(SweepToNothing());
    EXPECT_EQ(1, pCaptured.use_count());
}

TEST_F(TaskSweepTest, SweepReturnsTheNumberOfDeletedRecords)
{
    for (int i = 0; i < 5; ++i)
    {
        MakeTask();
    }
    EXPECT_EQ(5U, TaskSweep::DeleteFinished());
    EXPECT_EQ(0U, TaskSweep::DeleteFinished());
}

TEST_F(TaskSweepTest, TaskThatWasJustCreatedIsKept)
{
    TaskSweep::TaskReference pTask = MakeTask([this] { m_clsRuns.Add(); });
    EXPECT_EQ(0U, TaskSweep::DeleteFinished());

    Queue(pTask);
    pTask.reset();
    EXPECT_TRUE(m_clsRuns.Wait(1));
    EXPECT_TRUE(SweepToNothing());
}

TEST_F(TaskSweepTest, QueuedTaskIsKept)
{
    const std::string strTaskId = MakeTask([this] { m_clsRuns.Add(); })->GetId();
    CLS_Task::GetTask(strTaskId).lock()->SetTaskIsWaiting();
    EXPECT_EQ(0U, TaskSweep::DeleteFinished());

    CLS_QuenTaskPool::GetInstance()->AddWaitingTasks(strTaskId);
    EXPECT_TRUE(m_clsRuns.Wait(1));
    EXPECT_TRUE(SweepToNothing());
}

TEST_F(TaskSweepTest, RunningTaskIsKept)
{
    CLS_Gate clsStarted;
    CLS_Gate clsMayEnd;
    const auto funTask = [&]
    {
        clsStarted.Open();
        EXPECT_TRUE(clsMayEnd.Wait());
    };
    ASSERT_TRUE(AddTmpTask(funTask, this, "runs"));
    ASSERT_TRUE(clsStarted.Wait());

    EXPECT_EQ(0U, TaskSweep::DeleteFinished());
    clsMayEnd.Open();
    EXPECT_TRUE(SweepToNothing());
}

TEST_F(TaskSweepTest, FinishedTaskThatIsStillHeldIsKeptAndRunsAgain)
{
    TaskSweep::TaskReference pTask = MakeTask([this] { m_clsRuns.Add(); });
    for (int iRun = 1; iRun <= 2; ++iRun)
    {
        Queue(pTask);
        ASSERT_TRUE(m_clsRuns.Wait(iRun));
        ASSERT_TRUE(WaitForEnd(pTask));
        EXPECT_EQ(0U, TaskSweep::DeleteFinished());
    }
    pTask.reset();
    EXPECT_EQ(1U, TaskSweep::DeleteFinished());
}

TEST_F(TaskSweepTest, LoopTaskIsKeptBetweenItsRuns)
{
    for (const int iInterval : {3600000, 0, -2})
    {
        CLS_Counter clsRuns;
        std::string strTaskId;
        AddLoopTask([&clsRuns] { clsRuns.Add(); }, iInterval, strTaskId, "loop");
        ASSERT_TRUE(clsRuns.Wait(1));
        TaskSweep::TaskReference pTask = CLS_Task::GetTask(strTaskId).lock();
        ASSERT_TRUE(WaitUntil([&] { return !pTask->IsRunning(); })) << iInterval;
        pTask.reset();

        EXPECT_EQ(0U, TaskSweep::DeleteFinished()) << iInterval;
        RemoveTask(strTaskId, "loop");
        EXPECT_EQ(0U, CountRegistered()) << iInterval;
    }
}

TEST_F(TaskSweepTest, CapturedObjectsAreDestroyedOnTheSweepingThreadAndMayUseThePool)
{
    std::atomic<bool> bAdded{false};
    std::thread::id idDestroyer;
    const auto funEnd = [&](void*)
    {
        idDestroyer = std::this_thread::get_id();
        bAdded = AddTmpTask([this] { m_clsRuns.Add(); }, this, "added by a destructor");
    };
    MakeTask([pCaptured = std::shared_ptr<void>(this, funEnd)] {});

    EXPECT_EQ(1U, TaskSweep::DeleteFinished());
    EXPECT_EQ(std::this_thread::get_id(), idDestroyer);
    EXPECT_TRUE(bAdded);
    EXPECT_TRUE(m_clsRuns.Wait(1));
    EXPECT_TRUE(SweepToNothing());
}

TEST_F(TaskSweepTest, SweepBuildsNoPool)
{
    MakeTask();
    EXPECT_EQ(1U, TaskSweep::DeleteFinished());
    EXPECT_EQ(nullptr, CLS_QuenTaskPool::m_pInstance);
}

TEST_F(TaskSweepTest, TasksThatAnEndedPoolLeftBehindAreDeleted)
{
    std::string strTaskId;
    AddLoopTask([this] { m_clsRuns.Add(); }, 3600000, strTaskId, "loop");
    ASSERT_TRUE(m_clsRuns.Wait(1));
    UnInit();
    TaskSweep::TaskReference pQueued = MakeTask();
    pQueued->SetTaskIsWaiting();
    EXPECT_EQ(0U, TaskSweep::DeleteFinished());

    EXPECT_EQ(1U, TaskSweep::DeleteLeftBehind());
    EXPECT_EQ(1U, CountRegistered()) << "a task that is still held stays";
    pQueued.reset();
    EXPECT_EQ(1U, TaskSweep::DeleteLeftBehind());
}

TEST_F(TaskSweepTest, NoTaskIsLostWhileOthersSubmit)
{
    constexpr int SUBMITTERS = 3;
    constexpr int TASKS = 10000;
    std::atomic<int> iRuns{0};
    std::atomic<int> iSubmitting{SUBMITTERS};
    std::atomic<std::size_t> uiSwept{0};
    CLS_QuenTaskPool::GetInstance();

    const auto funSubmit = [&]
    {
        for (int i = 0; i < TASKS; ++i)
        {
            EXPECT_TRUE(AddTmpTask([&iRuns] { ++iRuns; }, &iRuns, "submitted"));
        }
        --iSubmitting;
    };
    const auto funSweep = [&]
    {
        while (iSubmitting > 0)
        {
            uiSwept += TaskSweep::DeleteFinished();
        }
    };
    std::vector<std::thread> vecThreads;
    vecThreads.reserve(SUBMITTERS + 2);
    for (int i = 0; i < SUBMITTERS; ++i)
    {
        vecThreads.emplace_back(funSubmit);
    }
    vecThreads.emplace_back(funSweep);
    vecThreads.emplace_back(funSweep);
    for (std::thread& thEach : vecThreads)
    {
        thEach.join();
    }

    EXPECT_TRUE(WaitUntil([&] { return iRuns == SUBMITTERS * TASKS; })) << iRuns << " tasks ran";
    EXPECT_LT(0U, uiSwept);
    EXPECT_TRUE(SweepToNothing());
    EXPECT_THAT(LogRecorder::Take(), ::testing::IsEmpty());
}
} // namespace
