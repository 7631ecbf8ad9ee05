#include "QuenPlugins/ZelTaskPool/CLS_Task.h"
#include "tests/support/FastSleep.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/RecordMatchers.h"
#include "tests/support/TaskFixture.h"
#include "tests/support/Waiting.h"

#include <atomic>
#include <chrono>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>
#include <thread>
#include <vector>

namespace
{
using std::chrono::milliseconds;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

using TaskStopTest = CLS_TaskFixture;

constexpr milliseconds POLL{300};

/// The length of each sleep that the calling thread requested.
std::vector<milliseconds> GetOwnSleeps(const CLS_FastSleep& _clsFast)
{
    std::vector<milliseconds> vecLengths;
    for (const ST_Sleep& stSleep : _clsFast.GetSleeps(std::this_thread::get_id()))
    {
        vecLengths.push_back(stSleep.m_msAsked);
    }
    return vecLengths;
}

auto IsProgress(const std::string& _strParam, int _iNumber)
{
    return IsTaskRecord(2, "Stop",
                        "Stop Task waiting task info : [" + _strParam + "] " + std::to_string(_iNumber));
}

auto IsOvertime(const std::string& _strParam)
{
    return IsTaskRecord(3, "Stop", "StopTask overtime task info : [" + _strParam + "]");
}

TEST_F(TaskStopTest, ReturnsTrueWithoutSleepingOnATaskThatDoesNotExecute)
{
    const CLS_FastSleep clsFast;
    for (const n_TaskStatus nStatus : {TASK_STATUS_IDLE, TASK_STATUS_WAITING})
    {
        CLS_Task clsTask([] {}, 0, "");
        clsTask.SetTaskStatus(nStatus);
        EXPECT_TRUE(clsTask.Stop());
        EXPECT_FALSE(clsTask.GetValid());
        EXPECT_EQ(nStatus, clsTask.GetTaskStatus());
        EXPECT_TRUE(clsTask.Stop());
        EXPECT_FALSE(clsTask.GetValid());
    }
    EXPECT_THAT(clsFast.GetSleeps(), IsEmpty());
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

TEST_F(TaskStopTest, WaitsFromStatusTwoOn)
{
    CLS_Task clsTask([] {}, 0, "");
    clsTask.SetTaskStatus(static_cast<n_TaskStatus>(2));
    {
        const CLS_FastSleep clsFast([&](const ST_Sleep&) { clsTask.SetTaskStatus(TASK_STATUS_WAITING); });
        EXPECT_TRUE(clsTask.Stop());
        EXPECT_THAT(GetOwnSleeps(clsFast), ElementsAre(POLL));
    }
    EXPECT_EQ(TASK_STATUS_WAITING, clsTask.GetTaskStatus());
}

TEST_F(TaskStopTest, TaskIsInvalidDuringTheWholeWait)
{
    CLS_Task clsTask([] {}, 0, "");
    clsTask.SetTaskStatus(TASK_STATUS_RUNNING);
    int iValid = 0;
    {
        const CLS_FastSleep clsFast(
            [&](const ST_Sleep&)
            {
                iValid += clsTask.GetValid() ? 1 : 0;
                EXPECT_EQ(TASK_STATUS_RUNNING, clsTask.GetTaskStatus());
            });
        EXPECT_FALSE(clsTask.Stop());
    }
    EXPECT_EQ(0, iValid);
    EXPECT_FALSE(clsTask.GetValid());
    EXPECT_EQ(TASK_STATUS_RUNNING, clsTask.GetTaskStatus());
    clsTask.SetTaskStatus(TASK_STATUS_IDLE);
}

/// A run that ends during one of Stop's sleeps, and the result that Stop returns.
struct ST_StopCase
{
    int m_iEndsInSleep; ///< counted from 1; above 30, the run does not end
    std::size_t m_uiSleeps;
    bool m_bStopped;
    std::vector<int> m_vecNumbers; ///< the numbers at the end of the progress log records
};

void PrintTo(const ST_StopCase& _stCase, std::ostream* _pOut)
{
    *_pOut << "ends in sleep " << _stCase.m_iEndsInSleep;
}

class TaskStopWaitTest : public CLS_TaskFixture, public ::testing::WithParamInterface<ST_StopCase>
{
};

// Pins docs/limits.md, "A wait for a run ends after 9 s".
// Pins docs/limits.md, "A run that ends late counts as too long".
// Pins docs/limits.md, "Odd texts".
TEST_P(TaskStopWaitTest, SleepsRecordsAndReturns)
{
    const ST_StopCase& stCase = GetParam();
    const std::shared_ptr<CLS_Task> pTask = CLS_Task::CreateTask([] {}, -1, "who called");
    pTask->SetTaskStatus(TASK_STATUS_RUNNING);
    {
        int iSleeps = 0;
        const CLS_FastSleep clsFast(
            [&](const ST_Sleep&)
            {
                if (++iSleeps == stCase.m_iEndsInSleep)
                {
                    pTask->SetTaskStatus(TASK_STATUS_IDLE);
                }
            });
        EXPECT_EQ(stCase.m_bStopped, pTask->Stop());
        EXPECT_EQ(std::vector<milliseconds>(stCase.m_uiSleeps, POLL), GetOwnSleeps(clsFast));
    }
    const std::string strParam = MakeParamText(pTask->GetId(), "who called");
    std::vector<::testing::Matcher<const LogRecorder::ST_Record&>> vecExpected;
    for (const int iNumber : stCase.m_vecNumbers)
    {
        vecExpected.push_back(IsProgress(strParam, iNumber));
    }
    if (!stCase.m_bStopped)
    {
        vecExpected.push_back(IsOvertime(strParam));
    }
    EXPECT_THAT(LogRecorder::Take(), ElementsAreArray(vecExpected));
    EXPECT_FALSE(pTask->GetValid());
    pTask->SetTaskStatus(TASK_STATUS_IDLE);
}

const ST_StopCase STOP_CASES[] = {
    {1, 1, true, {}},
    {2, 2, true, {}},
    {9, 9, true, {}},
    {10, 10, true, {11}},
    {11, 11, true, {11}},
    {20, 20, true, {11, 21}},
    {29, 29, true, {11, 21}},
    {30, 30, false, {11, 21, 31}}, // ends in the last sleep, after which Stop does not poll again
    {31, 30, false, {11, 21, 31}}, // does not end
};
INSTANTIATE_TEST_SUITE_P(EndsInSleep, TaskStopWaitTest, ::testing::ValuesIn(STOP_CASES),
                         [](const auto& _stInfo) { return std::to_string(_stInfo.param.m_iEndsInSleep); });

TEST_F(TaskStopTest, RunOfOneSecondIsSeenToEndAfterFourSleeps)
{
    CLS_Task clsTask([] {}, -1, "");
    clsTask.SetTaskStatus(TASK_STATUS_RUNNING);
    milliseconds msPassed{0};
    const CLS_FastSleep clsFast(
        [&](const ST_Sleep& _stSleep)
        {
            msPassed += _stSleep.m_msAsked;
            if (msPassed >= milliseconds(1000))
            {
                clsTask.SetTaskStatus(TASK_STATUS_IDLE);
            }
        });
    EXPECT_TRUE(clsTask.Stop());
    EXPECT_THAT(GetOwnSleeps(clsFast), ElementsAre(POLL, POLL, POLL, POLL));
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

TEST_F(TaskStopTest, ProgressIsLoggedAfterItsSleep)
{
    CLS_Task clsTask([] {}, -1, "");
    clsTask.SetTaskStatus(TASK_STATUS_RUNNING);
    std::vector<std::size_t> vecSleeps;
    const CLS_FastSleep clsFast;
    LogRecorder::SetHook([&](const LogRecorder::ST_Record&)
                         { vecSleeps.push_back(clsFast.GetSleeps().size()); });
    EXPECT_FALSE(clsTask.Stop());
    EXPECT_THAT(vecSleeps, ElementsAre(10U, 20U, 30U, 30U));
    clsTask.SetTaskStatus(TASK_STATUS_IDLE);
}

TEST_F(TaskStopTest, WaitsForARunInProgressAndDoesNotDisturbIt)
{
    CLS_Gate clsStarted;
    CLS_Gate clsMayEnd;
    std::atomic<bool> bCompleted{false};
    CLS_Task clsTask(
        [&]
        {
            clsStarted.Open();
            EXPECT_TRUE(clsMayEnd.Wait());
            bCompleted = true;
        },
        0, "");
    std::thread thRunner([&] { EXPECT_TRUE(clsTask.Running()); });
    EXPECT_TRUE(clsStarted.Wait());
    {
        int iSleeps = 0;
        const CLS_FastSleep clsFast(
            [&](const ST_Sleep&)
            {
                if (++iSleeps == 3)
                {
                    clsMayEnd.Open();
                    EXPECT_TRUE(WaitUntil([&] { return !clsTask.IsRunning(); }));
                }
            });
        EXPECT_TRUE(clsTask.Stop());
        EXPECT_THAT(GetOwnSleeps(clsFast), ElementsAre(POLL, POLL, POLL));
    }
    EXPECT_TRUE(bCompleted);
    thRunner.join();
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

TEST_F(TaskStopTest, OvertimeLeavesTheRunAlone)
{
    CLS_Gate clsStarted;
    CLS_Gate clsMayEnd;
    std::atomic<int> iCompleted{0};
    const std::shared_ptr<CLS_Task> pTask = CLS_Task::CreateTask(
        [&]
        {
            clsStarted.Open();
            EXPECT_TRUE(clsMayEnd.Wait());
            ++iCompleted;
        },
        0, "long");
    std::thread thRunner([&] { EXPECT_TRUE(pTask->Running()); });
    EXPECT_TRUE(clsStarted.Wait());
    {
        const CLS_FastSleep clsFast;
        EXPECT_FALSE(pTask->Stop());
        EXPECT_EQ(30U, GetOwnSleeps(clsFast).size());
    }
    EXPECT_EQ(TASK_STATUS_RUNNING, pTask->GetTaskStatus());
    const std::string strParam = MakeParamText(pTask->GetId(), "long");
    EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsProgress(strParam, 11), IsProgress(strParam, 21),
                                                 IsProgress(strParam, 31), IsOvertime(strParam)));
    clsMayEnd.Open();
    thRunner.join();
    EXPECT_EQ(1, iCompleted);
    EXPECT_TRUE(pTask->Running());
    EXPECT_EQ(1, iCompleted);
}

// Pins docs/limits.md, "A task that removes itself".
TEST_F(TaskStopTest, TaskThatStopsItselfTimesOut)
{
    const CLS_FastSleep clsFast;
    bool bStopped = true;
    CLS_Task clsTask([&] { bStopped = clsTask.Stop(); }, 0, "self");
    EXPECT_TRUE(clsTask.Running());
    EXPECT_FALSE(bStopped);
    EXPECT_EQ(std::vector<milliseconds>(30, POLL), GetOwnSleeps(clsFast));
    EXPECT_EQ(TASK_STATUS_IDLE, clsTask.GetTaskStatus());
    const std::string strParam = "[callinfo] : [self]\n";
    EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsProgress(strParam, 11), IsProgress(strParam, 21),
                                                 IsProgress(strParam, 31), IsOvertime(strParam)));
}

/// A task whose parameters cannot be printed.
class CLS_TextlessTask : public CLS_Task
{
public:
    using CLS_Task::CLS_Task;
    std::string ParamToString() override { throw std::runtime_error("no text"); }
};

TEST_F(TaskStopTest, ExceptionOfTheTextPassesAndLeavesNoRecord)
{
    const CLS_FastSleep clsFast;
    CLS_TextlessTask clsTask([] {}, 0, "");
    clsTask.SetTaskStatus(TASK_STATUS_RUNNING);
    EXPECT_THROW(clsTask.Stop(), std::runtime_error);
    EXPECT_EQ(10U, GetOwnSleeps(clsFast).size());
    EXPECT_FALSE(clsTask.GetValid());
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
    clsTask.SetTaskStatus(TASK_STATUS_IDLE);
}

TEST_F(TaskStopTest, CallableNeverStartsAfterStopHasReturned)
{
    constexpr int ROUNDS = 20000;
    const CLS_FastSleep clsFast;
    const auto tpEnd = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    std::atomic<bool> bStarted{false};
    CLS_Task clsTask([&] { bStarted = true; }, 0, "");
    std::atomic<int> iRound{0};
    std::atomic<int> iRan{0};
    std::atomic<bool> bEnd{false};
    std::thread thRunner(
        [&]
        {
            for (int i = 1; !bEnd; ++i)
            {
                while (iRound < i && !bEnd)
                {
                }
                if (!bEnd)
                {
                    EXPECT_TRUE(clsTask.Running());
                    iRan = i;
                }
            }
        });
    int iTooLate = 0;
    for (int i = 1; i <= ROUNDS && std::chrono::steady_clock::now() < tpEnd; ++i)
    {
        bStarted = false;
        clsTask.SetValid(true);
        iRound = i;
        for (volatile int iDelay = i % 64; iDelay > 0; iDelay = iDelay - 1)
        {
        }
        const bool bStopped = clsTask.Stop();
        const bool bStartedBefore = bStarted;
        while (iRan < i)
        {
            std::this_thread::yield();
        }
        iTooLate += bStopped && !bStartedBefore && bStarted ? 1 : 0;
    }
    bEnd = true;
    thRunner.join();
    EXPECT_EQ(0, iTooLate);
}
TEST_F(TaskStopTest, StopUntilGivesUpAtItsLimit)
{
    CLS_Task clsTask([] {}, -1, "late");
    clsTask.SetTaskStatus(TASK_STATUS_RUNNING);
    EXPECT_FALSE(clsTask.StopUntil(std::chrono::steady_clock::now()));
    EXPECT_FALSE(clsTask.GetValid());
    EXPECT_THAT(LogRecorder::Take(),
                ElementsAre(IsTaskRecord(3, "Stop",
                                         "StopTask overtime task info : [" + clsTask.ParamToString() + "]")));
    clsTask.SetTaskStatus(TASK_STATUS_IDLE);
    EXPECT_TRUE(clsTask.StopUntil(std::chrono::steady_clock::now()));
}

} // namespace
