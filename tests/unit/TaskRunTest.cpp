#include "QuenPlugins/ZelTaskPool/CLS_Task.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/RecordMatchers.h"
#include "tests/support/TaskFixture.h"
#include "tests/support/TaskView.h"
#include "tests/support/Waiting.h"

#include <atomic>
#include <chrono>
#include <climits>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>
#include <thread>

namespace
{
using std::chrono::hours;
using std::chrono::steady_clock;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

using TaskRunTest = CLS_TaskFixture;

/// Sets the time of the last run so far back that only a new run can refresh it.
void Outdate(CLS_Task& _clsTask)
{
    TaskView::GetLastRun(_clsTask) = steady_clock::now() - hours(1);
}

/// Expects an idle task whose last run ended between _tpEarliest and now.
void ExpectEnded(CLS_Task& _clsTask, steady_clock::time_point _tpEarliest)
{
    EXPECT_EQ(TASK_STATUS_IDLE, _clsTask.GetTaskStatus());
    EXPECT_GE(TaskView::GetLastRun(_clsTask).load(), _tpEarliest);
    EXPECT_LE(TaskView::GetLastRun(_clsTask).load(), steady_clock::now());
}

TEST_F(TaskRunTest, CallableRunsOnceOnTheCallingThread)
{
    int iCalls = 0;
    std::thread::id idRunner;
    CLS_Task clsTask(
        [&]
        {
            ++iCalls;
            idRunner = std::this_thread::get_id();
        },
        -1, "");
    EXPECT_TRUE(clsTask.Running());
    EXPECT_EQ(1, iCalls);
    EXPECT_EQ(std::this_thread::get_id(), idRunner);
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

TEST_F(TaskRunTest, TaskIsRunningDuringTheCallAndIdleAfterwards)
{
    n_TaskStatus nDuring = TASK_STATUS_IDLE;
    CLS_Task clsTask([&] { nDuring = clsTask.GetTaskStatus(); }, 0, "");
    for (const n_TaskStatus nBefore : {TASK_STATUS_IDLE, TASK_STATUS_WAITING})
    {
        clsTask.SetTaskStatus(nBefore);
        nDuring = TASK_STATUS_IDLE;
        EXPECT_TRUE(clsTask.Running());
        EXPECT_EQ(TASK_STATUS_RUNNING, nDuring);
        EXPECT_EQ(TASK_STATUS_IDLE, clsTask.GetTaskStatus());
        EXPECT_TRUE(clsTask.GetValid());
    }
}

TEST_F(TaskRunTest, TimeOfTheLastRunIsItsEnd)
{
    steady_clock::time_point tpDuring;
    steady_clock::time_point tpCallEnd;
    CLS_Task clsTask(
        [&]
        {
            tpDuring = TaskView::GetLastRun(clsTask);
            tpCallEnd = steady_clock::now();
        },
        0, "");
    Outdate(clsTask);
    const steady_clock::time_point tpBefore = TaskView::GetLastRun(clsTask);
    EXPECT_TRUE(clsTask.Running());
    EXPECT_EQ(tpBefore, tpDuring);
    ExpectEnded(clsTask, tpCallEnd);
}

TEST_F(TaskRunTest, IntervalDoesNotMatter)
{
    int iCalls = 0;
    CLS_Task clsTask([&] { ++iCalls; }, -1, "");
    for (const int iInterval : {-1, 0, INT_MAX})
    {
        clsTask.SetLoopInterval(iInterval);
        iCalls = 0;
        EXPECT_TRUE(clsTask.Running());
        EXPECT_EQ(1, iCalls) << iInterval;
        EXPECT_EQ(iInterval, clsTask.GetLoopInterval());
    }
}

TEST_F(TaskRunTest, InvalidTaskOnlyTogglesStatusAndTime)
{
    int iCalls = 0;
    CLS_Task clsTask([&] { ++iCalls; }, 0, "");
    clsTask.SetTaskIsWaiting();
    clsTask.SetValid(false);
    Outdate(clsTask);
    const auto tpBefore = steady_clock::now();
    EXPECT_TRUE(clsTask.Running());
    EXPECT_EQ(0, iCalls);
    ExpectEnded(clsTask, tpBefore);
    EXPECT_FALSE(clsTask.GetValid());
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());

    clsTask.SetValid(true);
    EXPECT_TRUE(clsTask.Running());
    EXPECT_EQ(1, iCalls);
}

TEST_F(TaskRunTest, QueuedTaskThatWasStoppedIsNotCalled)
{
    int iCalls = 0;
    CLS_Task clsTask([&] { ++iCalls; }, 0, "");
    clsTask.SetTaskIsWaiting();
    EXPECT_TRUE(clsTask.Stop());
    EXPECT_EQ(TASK_STATUS_WAITING, clsTask.GetTaskStatus());
    Outdate(clsTask);
    const auto tpBefore = steady_clock::now();
    EXPECT_TRUE(clsTask.Running());
    EXPECT_EQ(0, iCalls);
    ExpectEnded(clsTask, tpBefore);
}

TEST_F(TaskRunTest, EmptyCallableIsSkipped)
{
    CLS_Task clsTask({}, 0, "");
    Outdate(clsTask);
    const auto tpBefore = steady_clock::now();
    EXPECT_TRUE(clsTask.Running());
    ExpectEnded(clsTask, tpBefore);
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

// Pins docs/limits.md, "Odd texts".
TEST_F(TaskRunTest, StandardExceptionIsRecordedWithItsText)
{
    steady_clock::time_point tpThrown;
    const std::shared_ptr<CLS_Task> pTask = CLS_Task::CreateTask(
        [&]
        {
            tpThrown = steady_clock::now();
            throw std::runtime_error("what happened");
        },
        0, "who called");
    Outdate(*pTask);
    EXPECT_TRUE(pTask->Running());
    EXPECT_THAT(LogRecorder::Take(),
                ElementsAre(IsTaskRecord(3, "Running",
                                         "run function error :what happened param :" +
                                             MakeParamText(pTask->GetId(), "who called"))));
    ExpectEnded(*pTask, tpThrown);
    EXPECT_TRUE(pTask->GetValid());
    EXPECT_EQ(pTask, CLS_Task::GetTask(pTask->GetId()).lock());
}

TEST_F(TaskRunTest, AnyOtherExceptionIsRecordedWithoutText)
{
    steady_clock::time_point tpThrown;
    const std::shared_ptr<CLS_Task> pTask = CLS_Task::CreateTask(
        [&]
        {
            tpThrown = steady_clock::now();
            throw 42;
        },
        0, "who called");
    Outdate(*pTask);
    EXPECT_TRUE(pTask->Running());
    EXPECT_THAT(LogRecorder::Take(),
                ElementsAre(IsTaskRecord(
                    3, "Running", "run function error " + MakeParamText(pTask->GetId(), "who called"))));
    ExpectEnded(*pTask, tpThrown);
}

TEST_F(TaskRunTest, EveryFailingRunLeavesOneRecord)
{
    int iCalls = 0;
    const std::shared_ptr<CLS_Task> pTask = CLS_Task::CreateTask(
        [&]
        {
            if (++iCalls != 2)
            {
                throw std::runtime_error(std::to_string(iCalls));
            }
        },
        0, "");
    for (int i = 0; i < 3; ++i)
    {
        EXPECT_TRUE(pTask->Running());
    }
    const std::string strParam = MakeParamText(pTask->GetId(), "");
    EXPECT_THAT(LogRecorder::Take(),
                ElementsAre(IsTaskRecord(3, "Running", "run function error :1 param :" + strParam),
                            IsTaskRecord(3, "Running", "run function error :3 param :" + strParam)));
}

TEST_F(TaskRunTest, RecordIsWrittenWhileTheTaskStillRuns)
{
    CLS_Task clsTask([] { throw 1; }, 0, "");
    n_TaskStatus nDuring = TASK_STATUS_IDLE;
    LogRecorder::SetHook([&](const LogRecorder::ST_Record&) { nDuring = clsTask.GetTaskStatus(); });
    EXPECT_TRUE(clsTask.Running());
    EXPECT_EQ(TASK_STATUS_RUNNING, nDuring);
}

TEST_F(TaskRunTest, ResultCallbacksAreNotCalled)
{
    int iResults = 0;
    const auto funResult = [&](const std::string&, const std::map<std::string, CLS_CVariant>&,
                               const std::string&, void*) { ++iResults; };
    CLS_Task clsTask([] {}, 0, "");
    CLS_Task clsFailing([] { throw 1; }, 0, "");
    clsTask.SetCallBackResultFun(funResult, nullptr);
    clsFailing.SetCallBackResultFun(funResult, nullptr);
    EXPECT_TRUE(clsTask.Running());
    EXPECT_TRUE(clsFailing.Running());
    EXPECT_EQ(0, iResults);
}

/// A task whose parameters cannot be printed at first.
class CLS_CountedTextTask : public CLS_Task
{
public:
    using CLS_Task::CLS_Task;

    std::string ParamToString() override
    {
        ++m_iCalls;
        if (m_iCalls <= m_iFailing)
        {
            m_funThrow();
        }
        return CLS_Task::ParamToString();
    }

    std::function<void()> m_funThrow = [] { throw std::runtime_error("no text"); };
    int m_iFailing = 1;
    int m_iCalls = 0;
};

TEST_F(TaskRunTest, StandardExceptionWhileRecordingIsRecordedByTheOuterHandler)
{
    for (const bool bStandard : {true, false})
    {
        CLS_CountedTextTask clsTask([&] { bStandard ? throw std::runtime_error("from the task") : throw 1; },
                                    0, "who");
        Outdate(clsTask);
        const auto tpBefore = steady_clock::now();
        EXPECT_TRUE(clsTask.Running());
        EXPECT_EQ(2, clsTask.m_iCalls);
        EXPECT_THAT(
            LogRecorder::Take(),
            ElementsAre(IsTaskRecord(3, "Running", "Running error :no text param :[callinfo] : [who]\n")));
        ExpectEnded(clsTask, tpBefore);
    }
}

TEST_F(TaskRunTest, AnyOtherExceptionWhileRecordingIsRecordedByTheOuterHandler)
{
    for (const bool bStandard : {true, false})
    {
        CLS_CountedTextTask clsTask([&] { bStandard ? throw std::runtime_error("from the task") : throw 1; },
                                    0, "who");
        clsTask.m_funThrow = [] { throw 7; };
        Outdate(clsTask);
        const auto tpBefore = steady_clock::now();
        EXPECT_TRUE(clsTask.Running());
        EXPECT_EQ(2, clsTask.m_iCalls);
        EXPECT_THAT(LogRecorder::Take(),
                    ElementsAre(IsTaskRecord(3, "Running", "Running error [callinfo] : [who]\n")));
        ExpectEnded(clsTask, tpBefore);
    }
}

TEST_F(TaskRunTest, TaskIsIdleEvenWhenTheOuterHandlerFails)
{
    CLS_CountedTextTask clsTask([] { throw 1; }, 0, "");
    clsTask.m_iFailing = INT_MAX;
    for (const bool bStandard : {true, false})
    {
        clsTask.m_funThrow = [bStandard] { bStandard ? throw std::runtime_error("no text") : throw 7; };
        Outdate(clsTask);
        const auto tpBefore = steady_clock::now();
        EXPECT_ANY_THROW(clsTask.Running());
        ExpectEnded(clsTask, tpBefore);
    }
    EXPECT_EQ(4, clsTask.m_iCalls);
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

TEST_F(TaskRunTest, ThreadThatSeesTheTaskIdleSeesTheTimeOfItsRun)
{
    constexpr int RUNS = 3000;
    std::atomic<int> iStarted{0};
    std::atomic<int> iWatched{0};
    std::atomic<steady_clock::time_point> tpCallEnd{};
    CLS_Task clsTask(
        [&]
        {
            const int iRun = ++iStarted;
            while (iWatched < 2 * iRun - 1)
            {
                std::this_thread::yield();
            }
            tpCallEnd = steady_clock::now();
        },
        0, "");
    std::thread thRunner(
        [&]
        {
            for (int iRun = 1; iRun <= RUNS; ++iRun)
            {
                EXPECT_TRUE(clsTask.Running());
                while (iWatched < 2 * iRun)
                {
                    std::this_thread::yield();
                }
            }
        });
    int iTooEarly = 0;
    for (int iRun = 1; iRun <= RUNS; ++iRun)
    {
        while (iStarted < iRun)
        {
            std::this_thread::yield();
        }
        iWatched = 2 * iRun - 1; // the callable may return
        while (clsTask.GetTaskStatus() != TASK_STATUS_IDLE)
        {
        }
        const steady_clock::time_point tpSeen = TaskView::GetLastRun(clsTask);
        iTooEarly += tpSeen < tpCallEnd.load() ? 1 : 0;
        iWatched = 2 * iRun; // the next run may begin
    }
    thRunner.join();
    EXPECT_EQ(0, iTooEarly);
}
} // namespace
