#include "QuenPlugins/ZelTaskPool/CLS_Task.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/TaskFixture.h"
#include "tests/support/TaskView.h"
#include "tests/support/Waiting.h"

#include <atomic>
#include <cstdlib>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace
{
using ::testing::IsEmpty;

using TaskRegistryTest = CLS_TaskFixture;
using TaskRegistryDeathTest = CLS_TaskFixture;

TEST_F(TaskRegistryTest, CreatedTaskIsRegisteredUnderItsId)
{
    const std::shared_ptr<CLS_Task> pTask = CLS_Task::CreateTask([] {}, 20, "who");
    ASSERT_NE(nullptr, pTask);
    ASSERT_EQ(1U, CLS_Task::m_mapTaskData.size());
    const std::string strId = CLS_Task::m_mapTaskData.begin()->first;
    EXPECT_EQ(strId, pTask->GetId());
    EXPECT_EQ(pTask, CLS_Task::m_mapTaskData.begin()->second);
    EXPECT_EQ(pTask, CLS_Task::GetTask(strId).lock());
    EXPECT_EQ(2, pTask.use_count());

    EXPECT_EQ(20, pTask->GetLoopInterval());
    EXPECT_EQ(TASK_STATUS_IDLE, pTask->GetTaskStatus());
    EXPECT_TRUE(pTask->GetValid());
    EXPECT_EQ(MakeParamText(strId, "who"), pTask->ParamToString());
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

TEST_F(TaskRegistryTest, IdHasTheFormOfGeneratedIds)
{
    const std::shared_ptr<CLS_Task> pTask = CLS_Task::CreateTask([] {}, -1, "");
    EXPECT_THAT(pTask->GetId(), ::testing::ContainsRegex("^[0-9a-f]{8}-[0-9a-f]{4,8}-[0-9a-f]{8,16}-"
                                                         "[0-9a-f]{4}$"));
}

TEST_F(TaskRegistryTest, NegativeIntervalMakesAOneShotTaskAndZeroALoopTask)
{
    EXPECT_FALSE(CLS_Task::CreateTask([] {}, -1, "")->IsLoop());
    const std::shared_ptr<CLS_Task> pLoop = CLS_Task::CreateTask([] {}, 0, "");
    EXPECT_TRUE(pLoop->IsLoop());
    EXPECT_TRUE(pLoop->Running());
    EXPECT_TRUE(pLoop->IsUseRun());
}

TEST_F(TaskRegistryTest, EqualArgumentsMakeTwoTasks)
{
    const std::function<void()> funTask = [] {};
    const std::shared_ptr<CLS_Task> pFirst = CLS_Task::CreateTask(funTask, -1, "same");
    const std::shared_ptr<CLS_Task> pSecond = CLS_Task::CreateTask(funTask, -1, "same");
    EXPECT_NE(pFirst, pSecond);
    EXPECT_NE(pFirst->GetId(), pSecond->GetId());
    EXPECT_EQ(2U, CLS_Task::m_mapTaskData.size());
}

TEST_F(TaskRegistryTest, EmptyCallableIsAccepted)
{
    const std::shared_ptr<CLS_Task> pTask = CLS_Task::CreateTask(nullptr, -1, "");
    ASSERT_NE(nullptr, pTask);
    EXPECT_EQ(1U, CLS_Task::m_mapTaskData.size());
    EXPECT_TRUE(pTask->Running());
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

TEST_F(TaskRegistryTest, UnknownIdIsNotFoundAndNotEntered)
{
    CLS_Task::CreateTask([] {}, -1, "");
    EXPECT_TRUE(CLS_Task::GetTask("unknown").expired());
    EXPECT_TRUE(CLS_Task::GetTask("").expired());
    EXPECT_EQ(1U, CLS_Task::m_mapTaskData.size());
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

TEST_F(TaskRegistryTest, GetTaskHandsOutNoReferenceThatKeepsTheTask)
{
    const std::shared_ptr<CLS_Task> pTask = CLS_Task::CreateTask([] {}, -1, "");
    const std::weak_ptr<CLS_Task> pFound = CLS_Task::GetTask(pTask->GetId());
    EXPECT_EQ(2, pTask.use_count());
    EXPECT_EQ(pTask, pFound.lock());
}

TEST_F(TaskRegistryTest, KeptReferencesDoNotServeForATaskOfTheHost)
{
    EXPECT_EQ(0U, TaskView::GetEra(*CLS_Task::CreateTask([] {}, -1, "call")));
}

TEST_F(TaskRegistryTest, DeletedTaskIsNotFoundAndNoOtherIsTouched)
{
    std::shared_ptr<CLS_Task> pTask = CLS_Task::CreateTask([] {}, -1, "");
    const std::shared_ptr<CLS_Task> pOther = CLS_Task::CreateTask([] {}, -1, "");
    const std::string strId = pTask->GetId();
    const std::weak_ptr<CLS_Task> pFoundBefore = CLS_Task::GetTask(strId);
    CLS_Task::DeleteTask(strId);
    EXPECT_TRUE(CLS_Task::GetTask(strId).expired());
    EXPECT_EQ(1U, CLS_Task::m_mapTaskData.size());
    EXPECT_EQ(pOther, CLS_Task::GetTask(pOther->GetId()).lock());
    EXPECT_EQ(pTask, pFoundBefore.lock());
    EXPECT_TRUE(pTask->GetValid());

    pTask.reset();
    EXPECT_EQ(nullptr, pFoundBefore.lock());
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

TEST_F(TaskRegistryTest, DeletingAnUnknownIdDoesNothing)
{
    const std::shared_ptr<CLS_Task> pTask = CLS_Task::CreateTask([] {}, -1, "");
    CLS_Task::DeleteTask("unknown");
    CLS_Task::DeleteTask("");
    EXPECT_EQ(1U, CLS_Task::m_mapTaskData.size());
    CLS_Task::DeleteTask(pTask->GetId());
    CLS_Task::DeleteTask(pTask->GetId());
    EXPECT_THAT(CLS_Task::m_mapTaskData, IsEmpty());
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

TEST_F(TaskRegistryTest, TaskStaysRegisteredAfterItsRunAndAfterStop)
{
    const std::shared_ptr<CLS_Task> pTask = CLS_Task::CreateTask([] {}, -1, "");
    EXPECT_TRUE(pTask->Running());
    EXPECT_EQ(pTask, CLS_Task::GetTask(pTask->GetId()).lock());
    EXPECT_TRUE(pTask->Stop());
    EXPECT_EQ(pTask, CLS_Task::GetTask(pTask->GetId()).lock());
}

TEST_F(TaskRegistryTest, TaskThatIsDeletedWhileItRunsLivesUntilItsRunEnds)
{
    CLS_Gate clsStarted;
    CLS_Gate clsMayEnd;
    std::atomic<bool> bEnded{false};
    std::string strId;
    {
        const std::shared_ptr<CLS_Task> pTask = CLS_Task::CreateTask(
            [&, pHook = MakeEndHook([&] { bEnded = true; })]
            {
                clsStarted.Open();
                EXPECT_TRUE(clsMayEnd.Wait());
                EXPECT_FALSE(bEnded);
            },
            -1, "");
        strId = pTask->GetId();
    }
    std::thread thRunner(
        [&]
        {
            const std::shared_ptr<CLS_Task> pTask = CLS_Task::GetTask(strId).lock();
            ASSERT_NE(nullptr, pTask);
            EXPECT_TRUE(pTask->Running());
            EXPECT_FALSE(bEnded);
        });
    EXPECT_TRUE(clsStarted.Wait());
    CLS_Task::DeleteTask(strId);
    EXPECT_TRUE(CLS_Task::GetTask(strId).expired());
    EXPECT_FALSE(bEnded);
    clsMayEnd.Open();
    thRunner.join();
    EXPECT_TRUE(bEnded);
}

TEST_F(TaskRegistryTest, TwoThreadsCreateFindAndDeleteTasksAtOnce)
{
    constexpr int TASKS = 300;
    std::vector<std::string> vecIds[2];
    CLS_Gate clsStart;
    const auto funCreate = [&](std::vector<std::string>& _vecIds)
    {
        EXPECT_TRUE(clsStart.Wait());
        for (int i = 0; i < TASKS; ++i)
        {
            const std::shared_ptr<CLS_Task> pTask = CLS_Task::CreateTask([] {}, -1, "");
            _vecIds.push_back(pTask->GetId());
            EXPECT_EQ(pTask, CLS_Task::GetTask(_vecIds.back()).lock());
            if (i % 3 == 0)
            {
                CLS_Task::DeleteTask(_vecIds.back());
                _vecIds.pop_back();
            }
        }
    };
    std::thread thFirst(funCreate, std::ref(vecIds[0]));
    std::thread thSecond(funCreate, std::ref(vecIds[1]));
    clsStart.Open();
    thFirst.join();
    thSecond.join();

    std::set<std::string> setIds(vecIds[0].begin(), vecIds[0].end());
    setIds.insert(vecIds[1].begin(), vecIds[1].end());
    EXPECT_EQ(2U * 200U, setIds.size());
    EXPECT_EQ(setIds.size(), CLS_Task::m_mapTaskData.size());
    for (const std::string& strId : setIds)
    {
        EXPECT_FALSE(CLS_Task::GetTask(strId).expired());
    }
}

// Pins docs/limits.md, "Exit without a shutdown".
TEST_F(TaskRegistryDeathTest, RegistryOutlivesTheEndOfTheProcess)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            // A destroyed registry would destroy the task and wait for its run.
            CLS_Task::CreateTask([pHook = MakeEndHook([] { _exit(3); })] {}, -1, "")
                ->SetTaskStatus(TASK_STATUS_RUNNING);
            CLS_Gate clsLooking;
            std::thread(
                [&clsLooking]
                {
                    for (;;)
                    {
                        if (CLS_Task::GetTask("unknown").lock() != nullptr)
                        {
                            _exit(4);
                        }
                        clsLooking.Open();
                    }
                })
                .detach();
            EXPECT_TRUE(clsLooking.Wait());
            std::exit(0);
        },
        ::testing::ExitedWithCode(0), "");
}
} // namespace
