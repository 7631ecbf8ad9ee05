#include "QuenPlugins/ZelTaskPool/CLS_Task.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/RecordMatchers.h"
#include "tests/support/TaskFixture.h"
#include "tests/support/Waiting.h"

#include <atomic>
#include <chrono>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <thread>

namespace
{
using std::chrono::milliseconds;
using std::chrono::steady_clock;
using ::testing::ElementsAre;

using StopRealTimeTest = CLS_TaskFixture;

/// Expects that Stop times out on a run that lasts longer than its bound.
void StopLongRun(const std::shared_ptr<CLS_Task>& _pTask, CLS_Gate& _clsMayEnd)
{
    std::thread thRunner([&] { EXPECT_TRUE(_pTask->Running()); });
    EXPECT_TRUE(WaitUntil([&] { return _pTask->IsRunning(); }));
    const auto tpStart = steady_clock::now();
    EXPECT_FALSE(_pTask->Stop());
    EXPECT_GE(steady_clock::now() - tpStart, milliseconds(9000));
    EXPECT_TRUE(_pTask->IsRunning());
    _clsMayEnd.Open();
    thRunner.join();
}

/// Expects that Stop sees the end of a run that lasts another second after the task becomes invalid.
void StopRunOfOneSecond()
{
    std::atomic<bool> bEnded{false};
    CLS_Task clsTask(
        [&]
        {
            EXPECT_TRUE(WaitUntil([&] { return !clsTask.GetValid(); }));
            std::this_thread::sleep_for(milliseconds(1000));
            bEnded = true;
        },
        0, "short");
    std::thread thRunner([&] { EXPECT_TRUE(clsTask.Running()); });
    EXPECT_TRUE(WaitUntil([&] { return clsTask.IsRunning(); }));
    const auto tpStart = steady_clock::now();
    EXPECT_TRUE(clsTask.Stop());
    const auto nsTaken = steady_clock::now() - tpStart;
    EXPECT_TRUE(bEnded);
    EXPECT_GE(nsTaken, milliseconds(1000));
    EXPECT_LT(nsTaken, milliseconds(9000));
    thRunner.join();
}

// Pins docs/limits.md, "A wait for a run ends after 9 s".
TEST_F(StopRealTimeTest, WaitsForARunOfOneSecondAndGivesUpALongerOneAfterNine)
{
    CLS_Gate clsMayEnd;
    const std::shared_ptr<CLS_Task> pLong =
        CLS_Task::CreateTask([&] { EXPECT_TRUE(clsMayEnd.Wait()); }, 0, "long");
    std::thread thLong([&] { StopLongRun(pLong, clsMayEnd); });
    StopRunOfOneSecond();
    thLong.join();

    const std::string strParam = MakeParamText(pLong->GetId(), "long");
    EXPECT_THAT(LogRecorder::Take(),
                ElementsAre(IsTaskRecord(2, "Stop", "Stop Task waiting task info : [" + strParam + "] 11"),
                            IsTaskRecord(2, "Stop", "Stop Task waiting task info : [" + strParam + "] 21"),
                            IsTaskRecord(2, "Stop", "Stop Task waiting task info : [" + strParam + "] 31"),
                            IsTaskRecord(3, "Stop", "StopTask overtime task info : [" + strParam + "]")));
}
} // namespace
