#include "QuenPlugins/ZelTaskPool/CLS_Task.h"
#include "tests/support/ClassLayout.h"
#include "tests/support/FastSleep.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/RecordMatchers.h"
#include "tests/support/TaskFixture.h"
#include "tests/support/TaskView.h"
#include "tests/support/Waiting.h"

#include <atomic>
#include <chrono>
#include <climits>
#include <cstdint>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

namespace
{
using std::chrono::hours;
using std::chrono::milliseconds;
using std::chrono::steady_clock;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

using TaskTest = CLS_TaskFixture;
using TaskDeathTest = CLS_TaskFixture;

TEST_F(TaskTest, StatusesHaveTheirNumbers)
{
    EXPECT_TRUE((std::is_same_v<std::int32_t, std::underlying_type_t<n_TaskStatus>>));
    EXPECT_EQ(0, TASK_STATUS_IDLE);
    EXPECT_EQ(1, TASK_STATUS_WAITING);
    EXPECT_EQ(3, TASK_STATUS_RUNNING);
}

/// Whether threads can share a word without a lock and without extra space.
template <typename T_Word, typename T_Value>
bool IsSharedWord()
{
    return std::is_same_v<T_Word, std::atomic<T_Value>> && T_Word::is_always_lock_free &&
           sizeof(T_Word) == sizeof(T_Value);
}

TEST_F(TaskTest, SharedWordsAreAtomicsOfTheSameSize)
{
    EXPECT_TRUE((IsSharedWord<ClassLayout::MemberOf<TaskView::GetStatusWord>, n_TaskStatus>()));
    EXPECT_TRUE((IsSharedWord<ClassLayout::MemberOf<TaskView::GetIntervalWord>, std::int32_t>()));
    EXPECT_TRUE((IsSharedWord<ClassLayout::MemberOf<TaskView::GetLastRun>, steady_clock::time_point>()));
    EXPECT_TRUE((IsSharedWord<ClassLayout::MemberOf<TaskView::GetValidWord>, bool>()));
}

TEST_F(TaskTest, IsABasicObjectThatReplacesNoOperation)
{
    EXPECT_TRUE((std::is_convertible_v<CLS_Task*, CLS_Basic*>));
    // The type of a member pointer names the class that defines the member.
    EXPECT_TRUE((std::is_same_v<decltype(&CLS_Task::GetClassCode), const char* (CLS_Basic::*)()>));
    EXPECT_TRUE((std::is_same_v<decltype(&CLS_Task::GetModuleCode), const char* (CLS_Basic::*)()>));
    EXPECT_TRUE((std::is_same_v<decltype(&CLS_Task::GetId), std::string (CLS_Basic::*)()>));
    EXPECT_TRUE((std::is_same_v<decltype(&CLS_Task::ParamToString), std::string (CLS_Basic::*)()>));
    EXPECT_TRUE((std::is_same_v<decltype(&CLS_Task::SetId), decltype(&CLS_Basic::SetId)>));
    EXPECT_TRUE((std::is_same_v<decltype(&CLS_Task::RemoveParam), decltype(&CLS_Basic::RemoveParam)>));
    EXPECT_TRUE((std::is_same_v<decltype(&CLS_Task::SetCallBackResultFun),
                                decltype(&CLS_Basic::SetCallBackResultFun)>));
    EXPECT_TRUE((std::is_same_v<decltype(&CLS_Task::RmoveCallBackResultFun),
                                decltype(&CLS_Basic::RmoveCallBackResultFun)>));
    EXPECT_TRUE((std::is_same_v<decltype(&CLS_Task::RunCallBackFun), decltype(&CLS_Basic::RunCallBackFun)>));
    CLS_Task clsTask({}, -1, "");
    EXPECT_STREQ("8CLS_Task", clsTask.GetClassCode());
}

TEST_F(TaskTest, HasOneBaseAndItsMembersInTheirOrder)
{
    struct ST_Derived : CLS_Basic
    {
    };
    EXPECT_TRUE((ClassLayout::HaveAlikeBases<CLS_Task, ST_Derived>()));
    const CLS_Task clsTask({}, -1, "");
    EXPECT_TRUE(ClassLayout::AreInOrder(TaskView::ListMembers(clsTask)));
}

TEST_F(TaskTest, NewTaskIsIdleAndValidAndRanJustNow)
{
    const auto tpBefore = steady_clock::now();
    CLS_Task clsTask([] {}, 40, "call");
    const auto tpAfter = steady_clock::now();
    EXPECT_EQ(TASK_STATUS_IDLE, clsTask.GetTaskStatus());
    EXPECT_FALSE(clsTask.IsRunning());
    EXPECT_TRUE(clsTask.GetValid());
    EXPECT_EQ(40, clsTask.GetLoopInterval());
    EXPECT_GE(TaskView::GetLastRun(clsTask).load(), tpBefore);
    EXPECT_LE(TaskView::GetLastRun(clsTask).load(), tpAfter);
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

TEST_F(TaskTest, NewTaskKeepsTheCallInfoAsATextAndHasNoIdYet)
{
    CLS_Task clsTask([] {}, -1, "who called");
    const std::map<std::string, CLS_CVariant> mapParam = clsTask.Param();
    ASSERT_EQ(1U, mapParam.size());
    ASSERT_EQ(1U, mapParam.count("callinfo"));
    EXPECT_EQ(CVariantType_String, mapParam.at("callinfo").GetType());
    EXPECT_EQ("who called", mapParam.at("callinfo").ToString());
    EXPECT_EQ("[callinfo] : [who called]\n", clsTask.ParamToString());
}

TEST_F(TaskTest, EmptyCallInfoIsATextToo)
{
    CLS_Task clsTask({}, -1, "");
    EXPECT_EQ(CVariantType_String, clsTask.Param("callinfo").GetType());
    EXPECT_EQ("[callinfo] : []\n", clsTask.ParamToString());
}

TEST_F(TaskTest, TaskKeepsACopyOfTheCallableAndDestroysItAtItsEnd)
{
    const auto pCalls = std::make_shared<int>(0);
    {
        std::function<void()> funTask = [pCalls] { ++*pCalls; };
        CLS_Task clsTask(funTask, -1, "");
        funTask = nullptr;
        EXPECT_EQ(2, pCalls.use_count());
        EXPECT_TRUE(clsTask.Running());
        EXPECT_EQ(1, *pCalls);
        EXPECT_EQ(2, pCalls.use_count());
    }
    EXPECT_EQ(1, pCalls.use_count());
}

TEST_F(TaskTest, WaitingIsUndoneUnlessTheStatusHasChangedSince)
{
    CLS_Task clsTask({}, -1, "");
    clsTask.SetTaskIsWaiting();
    clsTask.UndoWaiting();
    EXPECT_EQ(TASK_STATUS_IDLE, clsTask.GetTaskStatus());
    clsTask.SetTaskStatus(TASK_STATUS_RUNNING);
    clsTask.UndoWaiting();
    EXPECT_EQ(TASK_STATUS_RUNNING, clsTask.GetTaskStatus());
}

TEST_F(TaskTest, SetTaskIsWaitingQueuesTheTask)
{
    CLS_Task clsTask([] {}, 0, "");
    clsTask.SetTaskIsWaiting();
    EXPECT_EQ(TASK_STATUS_WAITING, clsTask.GetTaskStatus());
    EXPECT_TRUE(clsTask.IsRunning());
}

TEST_F(TaskTest, EveryStatusButIdleCountsAsRunning)
{
    CLS_Task clsTask([] {}, 0, "");
    for (const std::int32_t iStatus : {0, 1, 2, 3})
    {
        clsTask.SetTaskStatus(static_cast<n_TaskStatus>(iStatus));
        EXPECT_EQ(iStatus, clsTask.GetTaskStatus());
        EXPECT_EQ(iStatus != 0, clsTask.IsRunning()) << iStatus;
    }
    clsTask.SetTaskStatus(TASK_STATUS_IDLE);
}

// Pins docs/limits.md, "A negative interval repeats like 0".
TEST_F(TaskTest, EveryIntervalFromZeroOnMakesALoopTask)
{
    CLS_Task clsTask([] {}, -1, "");
    EXPECT_FALSE(clsTask.IsLoop());
    for (const int iInterval : {INT_MIN, -2, -1, 0, 1, INT_MAX})
    {
        clsTask.SetLoopInterval(iInterval);
        EXPECT_EQ(iInterval, clsTask.GetLoopInterval());
        EXPECT_EQ(iInterval >= 0, clsTask.IsLoop()) << iInterval;
        CLS_Task clsOther({}, iInterval, "");
        EXPECT_EQ(iInterval, clsOther.GetLoopInterval());
        EXPECT_EQ(iInterval >= 0, clsOther.IsLoop()) << iInterval;
    }
}

TEST_F(TaskTest, SetValidChangesNothingButTheValidity)
{
    CLS_Task clsTask([] {}, 7, "");
    clsTask.SetValid(false);
    EXPECT_FALSE(clsTask.GetValid());
    EXPECT_EQ(TASK_STATUS_IDLE, clsTask.GetTaskStatus());
    EXPECT_EQ(7, clsTask.GetLoopInterval());
    clsTask.SetValid(true);
    EXPECT_TRUE(clsTask.GetValid());
}

TEST_F(TaskTest, IsDueFromTheIntervalOn)
{
    CLS_Task clsTask([] {}, 100000, "");
    TaskView::GetLastRun(clsTask) = steady_clock::now() - milliseconds(100000);
    EXPECT_TRUE(clsTask.IsUseRun());
    TaskView::GetLastRun(clsTask) = steady_clock::now() - milliseconds(100001);
    EXPECT_TRUE(clsTask.IsUseRun());
    TaskView::GetLastRun(clsTask) = steady_clock::now() - milliseconds(40000);
    EXPECT_FALSE(clsTask.IsUseRun());
    TaskView::GetLastRun(clsTask) = steady_clock::now();
    EXPECT_FALSE(clsTask.IsUseRun());
}

TEST_F(TaskTest, IsDueOnlyAfterItsFirstIntervalSinceItWasMade)
{
    CLS_Task clsTask([] {}, 3600000, "");
    EXPECT_FALSE(clsTask.IsUseRun());
    clsTask.SetLoopInterval(0);
    EXPECT_TRUE(clsTask.IsUseRun());
}

TEST_F(TaskTest, TimeOfTheLastRunMayBeInTheFuture)
{
    CLS_Task clsTask([] {}, 40000, "");
    TaskView::GetLastRun(clsTask) = steady_clock::now() + milliseconds(100000);
    EXPECT_TRUE(clsTask.IsUseRun());
    TaskView::GetLastRun(clsTask) = steady_clock::now() + milliseconds(30000);
    EXPECT_FALSE(clsTask.IsUseRun());
}

TEST_F(TaskTest, FractionsOfAMillisecondDoNotCount)
{
    CLS_Task clsTask([] {}, 100001, "");
    TaskView::GetLastRun(clsTask) = steady_clock::now() + std::chrono::microseconds(100000900);
    EXPECT_FALSE(clsTask.IsUseRun());
}

TEST_F(TaskTest, TimesBeyondTheRangeOfTheIntervalAreCompared)
{
    CLS_Task clsTask([] {}, INT_MAX, "");
    TaskView::GetLastRun(clsTask) =
        steady_clock::now() - hours(24 * 30); // more milliseconds than 31 bits hold
    EXPECT_TRUE(clsTask.IsUseRun());
    TaskView::GetLastRun(clsTask) = steady_clock::now() - hours(24 * 52); // more than 32 bits hold
    EXPECT_TRUE(clsTask.IsUseRun());
    TaskView::GetLastRun(clsTask) = steady_clock::now() - hours(24 * 20);
    EXPECT_FALSE(clsTask.IsUseRun());
}

TEST_F(TaskTest, IsAlwaysDueAtAnIntervalOfZeroOrLess)
{
    CLS_Task clsTask([] {}, 0, "");
    for (const int iInterval : {0, -1, INT_MIN})
    {
        clsTask.SetLoopInterval(iInterval);
        TaskView::GetLastRun(clsTask) = steady_clock::now();
        EXPECT_TRUE(clsTask.IsUseRun()) << iInterval;
    }
}

TEST_F(TaskTest, IsNotDueWhileQueuedOrExecuting)
{
    CLS_Task clsTask([] {}, 0, "");
    for (const std::int32_t iStatus : {1, 2, 3})
    {
        clsTask.SetTaskStatus(static_cast<n_TaskStatus>(iStatus));
        EXPECT_FALSE(clsTask.IsUseRun()) << iStatus;
    }
    clsTask.SetTaskStatus(TASK_STATUS_IDLE);
    EXPECT_TRUE(clsTask.IsUseRun());
}

TEST_F(TaskTest, IsNeverDueWhenNotValid)
{
    CLS_Task clsTask([] {}, 0, "");
    TaskView::GetLastRun(clsTask) = steady_clock::now() - hours(24);
    clsTask.SetValid(false);
    EXPECT_FALSE(clsTask.IsUseRun());
    clsTask.SetValid(true);
    EXPECT_TRUE(clsTask.IsUseRun());
    EXPECT_TRUE(clsTask.Stop());
    EXPECT_FALSE(clsTask.IsUseRun());
    TaskView::GetLastRun(clsTask) = steady_clock::now() + hours(24);
    EXPECT_FALSE(clsTask.IsUseRun());
}

TEST_F(TaskTest, DestructorWaitsForTheRunInProgress)
{
    CLS_Gate clsStarted;
    CLS_Gate clsMayEnd;
    std::atomic<bool> bCompleted{false};
    std::shared_ptr<CLS_Task> pTask = CLS_Task::CreateTask(
        [&]
        {
            clsStarted.Open();
            EXPECT_TRUE(clsMayEnd.Wait());
            bCompleted = true;
        },
        -1, "");
    CLS_Task::DeleteTask(pTask->GetId()); // the test has the last reference now
    std::thread thRunner([pRunning = pTask.get()] { EXPECT_TRUE(pRunning->Running()); });
    ASSERT_TRUE(clsStarted.Wait());

    int iSleeps = 0;
    const CLS_FastSleep clsFast(
        [&, pRunning = pTask.get()](const ST_Sleep&)
        {
            EXPECT_FALSE(pRunning->GetValid());
            EXPECT_FALSE(bCompleted);
            if (++iSleeps == 2)
            {
                clsMayEnd.Open();
                EXPECT_TRUE(WaitUntil([&] { return !pRunning->IsRunning(); }));
            }
        });
    pTask.reset();
    EXPECT_TRUE(bCompleted);
    EXPECT_EQ(2U, clsFast.GetSleeps(std::this_thread::get_id()).size());
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
    thRunner.join();
}

TEST_F(TaskTest, DestructorIgnoresARunThatOutlastsItsWait)
{
    const CLS_FastSleep clsFast;
    {
        CLS_Task clsTask([] {}, -1, "long");
        clsTask.SetTaskStatus(TASK_STATUS_RUNNING);
    }
    EXPECT_EQ(30U, clsFast.GetSleeps(std::this_thread::get_id()).size());
    const std::string strParam = "[callinfo] : [long]\n";
    EXPECT_THAT(LogRecorder::Take(),
                ElementsAre(IsTaskRecord(2, "Stop", "Stop Task waiting task info : [" + strParam + "] 11"),
                            IsTaskRecord(2, "Stop", "Stop Task waiting task info : [" + strParam + "] 21"),
                            IsTaskRecord(2, "Stop", "Stop Task waiting task info : [" + strParam + "] 31"),
                            IsTaskRecord(3, "Stop", "StopTask overtime task info : [" + strParam + "]")));
}

TEST_F(TaskDeathTest, ExceptionOutOfStopInTheDestructorEndsTheProcess)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            const CLS_FastSleep clsFast([](const ST_Sleep&) { throw std::runtime_error("from the sleep"); });
            CLS_Task clsTask([] {}, -1, "");
            clsTask.SetTaskStatus(TASK_STATUS_RUNNING);
        },
        ::testing::KilledBySignal(SIGABRT), "");
}

TEST_F(TaskTest, SeveralThreadsUseOneTaskAtOnce)
{
    constexpr int ROUNDS = 2000;
    std::atomic<int> iRuns{0};
    CLS_Task clsTask([&] { ++iRuns; }, 0, "");
    CLS_Gate clsStart;
    std::vector<std::thread> vecThreads;
    const auto funAdd = [&](const std::function<void(int)>& _funRound)
    {
        vecThreads.emplace_back(
            [&clsStart, _funRound]
            {
                EXPECT_TRUE(clsStart.Wait());
                for (int i = 0; i < ROUNDS; ++i)
                {
                    _funRound(i);
                }
            });
    };
    funAdd([&](int) { EXPECT_TRUE(clsTask.Running()); });
    funAdd([&](int _iRound) { clsTask.SetLoopInterval(_iRound); });
    funAdd(
        [&](int)
        {
            clsTask.IsUseRun();
            EXPECT_TRUE(clsTask.IsLoop());
            EXPECT_TRUE(clsTask.GetValid());
            EXPECT_LT(clsTask.GetLoopInterval(), ROUNDS);
            EXPECT_NE(TASK_STATUS_WAITING, clsTask.GetTaskStatus());
        });
    clsStart.Open();
    for (std::thread& thUser : vecThreads)
    {
        thUser.join();
    }
    EXPECT_EQ(ROUNDS, iRuns);
    EXPECT_EQ(ROUNDS - 1, clsTask.GetLoopInterval());
    EXPECT_FALSE(clsTask.IsRunning());
}

TEST_F(TaskTest, EarliestRunIsTheIntervalAfterTheLastOne)
{
    CLS_Task clsTask([] {}, 40, "");
    for (const int iInterval : {INT_MIN, -1, 0, 1, 100000, INT_MAX})
    {
        clsTask.SetLoopInterval(iInterval);
        EXPECT_EQ(TaskView::GetLastRun(clsTask).load() + milliseconds(iInterval), clsTask.GetEarliestRun());
    }
    TaskView::GetLastRun(clsTask) = steady_clock::now() - hours(2);
    EXPECT_EQ(TaskView::GetLastRun(clsTask).load() + milliseconds(INT_MAX), clsTask.GetEarliestRun());
}

TEST_F(TaskTest, EarliestRunMayBeAnyMomentWhileTheTaskIsBusyOrNotValid)
{
    CLS_Task clsTask([] {}, 3600000, "");
    const steady_clock::time_point tpEarliest = clsTask.GetEarliestRun();
    for (const std::int32_t iStatus : {1, 2, 3})
    {
        clsTask.SetTaskStatus(static_cast<n_TaskStatus>(iStatus));
        EXPECT_EQ(steady_clock::time_point::min(), clsTask.GetEarliestRun()) << iStatus;
    }
    clsTask.SetTaskStatus(TASK_STATUS_IDLE);
    EXPECT_EQ(tpEarliest, clsTask.GetEarliestRun());
    clsTask.SetValid(false);
    EXPECT_EQ(steady_clock::time_point::min(), clsTask.GetEarliestRun());
    clsTask.SetValid(true);
    EXPECT_EQ(tpEarliest, clsTask.GetEarliestRun());
}

TEST_F(TaskTest, EverySettingOfAnIntervalCounts)
{
    const std::uint64_t uiBefore = CLS_Task::GetIntervalChanges();
    CLS_Task clsFirst([] {}, 40, "");
    CLS_Task clsSecond([] {}, 40, "");
    EXPECT_EQ(uiBefore, CLS_Task::GetIntervalChanges());
    clsFirst.SetLoopInterval(50);
    EXPECT_EQ(uiBefore + 1, CLS_Task::GetIntervalChanges());
    clsSecond.SetLoopInterval(60);
    EXPECT_EQ(uiBefore + 2, CLS_Task::GetIntervalChanges());
    clsSecond.SetLoopInterval(60); // even an interval that changes nothing
    EXPECT_EQ(uiBefore + 3, CLS_Task::GetIntervalChanges());
    EXPECT_EQ(50, clsFirst.GetLoopInterval());
    EXPECT_EQ(60, clsSecond.GetLoopInterval());
}
} // namespace
