#include "QuenPlugins/ZelTaskPool/CLS_LoopSchedule.h"
#include "tests/support/TaskFixture.h"
#include "tests/support/TaskView.h"
#include "tests/support/Waiting.h"

#include <chrono>
#include <gtest/gtest.h>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>

namespace
{
using std::chrono::hours;
using std::chrono::nanoseconds;
using std::chrono::steady_clock;

constexpr int HOUR = 3600000;

using CLS_LoopEntry = CLS_LoopSchedule::CLS_Entry;

using LoopScheduleTest = CLS_TaskFixture;

CLS_LoopEntry MakeEntry(std::string _strTaskId)
{
    return CLS_LoopEntry(std::move(_strTaskId));
}

/// Whether the entry answers while another thread holds the registry's lock.
bool AnswersWithoutTheRegistry(CLS_LoopEntry& _clsEntry)
{
    CLS_Gate clsAnswered;
    std::unique_lock<std::shared_mutex> lock(CLS_Task::m_smTaskDataLock);
    std::thread thPass(
        [&]
        {
            _clsEntry.IsDue(steady_clock::now());
            clsAnswered.Open();
        });
    const bool bAnswered = clsAnswered.Wait();
    lock.unlock();
    thPass.join();
    return bAnswered;
}

TEST_F(LoopScheduleTest, TakesItsIdAndCanBeMovedInAListThatGrows)
{
    std::string strTaskId = "an id that is kept on the heap, where it stays";
    const std::string strExpected = strTaskId;
    const void* const pLetters = strTaskId.data();
    const CLS_LoopEntry clsEntry(std::move(strTaskId));
    EXPECT_EQ(strExpected, clsEntry.GetTaskId());
    EXPECT_EQ(pLetters, clsEntry.GetTaskId().data());
    EXPECT_TRUE(std::is_nothrow_move_constructible_v<CLS_LoopEntry>);
}

TEST_F(LoopScheduleTest, TaskIsDueFromItsIntervalOn)
{
    const std::shared_ptr<CLS_Task> pTask = CLS_Task::CreateTask([] {}, HOUR, "");
    CLS_LoopEntry clsEntry = MakeEntry(pTask->GetId());
    EXPECT_FALSE(clsEntry.IsDue(steady_clock::now()));
    TaskView::GetLastRun(*pTask) = steady_clock::now() - hours(1);
    clsEntry.ForgetTime();
    EXPECT_TRUE(clsEntry.IsDue(steady_clock::now()));
    EXPECT_TRUE(clsEntry.IsDue(steady_clock::now())) << "the task has not run since";
}

TEST_F(LoopScheduleTest, TaskIsNotAskedBeforeItsKnownDueTime)
{
    const std::shared_ptr<CLS_Task> pTask = CLS_Task::CreateTask([] {}, HOUR, "");
    CLS_LoopEntry clsEntry = MakeEntry(pTask->GetId());
    EXPECT_FALSE(clsEntry.IsDue(steady_clock::now()));
    const steady_clock::time_point tpEarliest = TaskView::GetLastRun(*pTask).load() + hours(1);
    TaskView::GetLastRun(*pTask) = steady_clock::now() - hours(2);
    EXPECT_FALSE(clsEntry.IsDue(steady_clock::now()));
    EXPECT_FALSE(clsEntry.IsDue(tpEarliest - nanoseconds(1)));
    EXPECT_TRUE(clsEntry.IsDue(tpEarliest));
    EXPECT_TRUE(clsEntry.IsDue(steady_clock::now())) << "the due time has changed";
}

TEST_F(LoopScheduleTest, TaskIsAskedAgainWhenTheTimeIsForgotten)
{
    const std::shared_ptr<CLS_Task> pTask = CLS_Task::CreateTask([] {}, HOUR, "");
    CLS_LoopEntry clsEntry = MakeEntry(pTask->GetId());
    EXPECT_FALSE(clsEntry.IsDue(steady_clock::now()));
    pTask->SetLoopInterval(0);
    EXPECT_FALSE(clsEntry.IsDue(steady_clock::now()));
    clsEntry.ForgetTime();
    EXPECT_TRUE(clsEntry.IsDue(steady_clock::now()));
}

TEST_F(LoopScheduleTest, BusyOrInvalidTaskIsAskedEachTime)
{
    const std::shared_ptr<CLS_Task> pTask = CLS_Task::CreateTask([] {}, HOUR, "");
    TaskView::GetLastRun(*pTask) = steady_clock::now() - hours(2);
    CLS_LoopEntry clsEntry = MakeEntry(pTask->GetId());
    for (const n_TaskStatus iStatus : {TASK_STATUS_WAITING, TASK_STATUS_RUNNING})
    {
        pTask->SetTaskStatus(iStatus);
        EXPECT_FALSE(clsEntry.IsDue(steady_clock::now()));
        pTask->SetTaskStatus(TASK_STATUS_IDLE);
        EXPECT_TRUE(clsEntry.IsDue(steady_clock::now()));
    }
    pTask->SetValid(false);
    EXPECT_FALSE(clsEntry.IsDue(steady_clock::now()));
    pTask->SetValid(true);
    EXPECT_TRUE(clsEntry.IsDue(steady_clock::now()));
}

TEST_F(LoopScheduleTest, TaskThatIsNotRegisteredIsNotDueAndIsFoundLater)
{
    CLS_LoopEntry clsUnknown = MakeEntry("nobody's id");
    EXPECT_FALSE(clsUnknown.IsDue(steady_clock::now()));

    const std::string strTaskId = CLS_Task::CreateTask([] {}, 0, "")->GetId();
    CLS_LoopEntry clsEntry = MakeEntry(strTaskId);
    const auto clsTask = CLS_Task::m_mapTaskData.extract(strTaskId);
    EXPECT_FALSE(clsEntry.IsDue(steady_clock::now()));
    CLS_Task::m_mapTaskData[strTaskId] = clsTask.mapped();
    EXPECT_TRUE(clsEntry.IsDue(steady_clock::now()));
}

TEST_F(LoopScheduleTest, ReferenceDoesNotKeepTheTask)
{
    std::shared_ptr<CLS_Task> pTask = CLS_Task::CreateTask([] {}, 0, "");
    const std::weak_ptr<CLS_Task> pSeen = pTask;
    CLS_LoopEntry clsEntry = MakeEntry(pTask->GetId());
    EXPECT_TRUE(clsEntry.IsDue(steady_clock::now()));
    EXPECT_EQ(2, pTask.use_count());
    CLS_Task::DeleteTask(pTask->GetId());
    pTask.reset();
    EXPECT_TRUE(pSeen.expired());
    EXPECT_FALSE(clsEntry.IsDue(steady_clock::now()));
}

TEST_F(LoopScheduleTest, TaskThatIsKnownIsNotLookedUpAgain)
{
    const std::shared_ptr<CLS_Task> pTask = CLS_Task::CreateTask([] {}, 0, "");
    CLS_LoopEntry clsEntry = MakeEntry(pTask->GetId());
    EXPECT_TRUE(clsEntry.IsDue(steady_clock::now()));
    EXPECT_TRUE(AnswersWithoutTheRegistry(clsEntry));
    CLS_LoopEntry clsMoved = std::move(clsEntry);
    EXPECT_TRUE(AnswersWithoutTheRegistry(clsMoved));
    EXPECT_EQ(pTask->GetId(), clsMoved.GetTaskId());
}

TEST_F(LoopScheduleTest, LookUpSharesTheRegistrysLock)
{
    const std::shared_ptr<CLS_Task> pTask = CLS_Task::CreateTask([] {}, 0, "");
    CLS_LoopEntry clsEntry = MakeEntry(pTask->GetId());
    bool bDue = false;
    {
        const std::shared_lock<std::shared_mutex> lock(CLS_Task::m_smTaskDataLock);
        std::thread([&] { bDue = clsEntry.IsDue(steady_clock::now()); }).join();
    }
    EXPECT_TRUE(bDue);
}
} // namespace
