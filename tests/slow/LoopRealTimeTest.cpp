#include "tests/unit/PoolFixture.h"

#include <atomic>
#include <chrono>
#include <vector>

namespace
{
using std::chrono::milliseconds;
using std::chrono::steady_clock;

using LoopRealTimeTest = CLS_PoolFixture;

// Pins docs/limits.md, "Loop tasks are polled every 10 ms".
TEST_F(LoopRealTimeTest, IntervalIsKeptFromTheEndOfEachRunToTheNextStart)
{
    constexpr milliseconds INTERVAL{1000};
    constexpr milliseconds LENGTH{300};
    constexpr int RUNS = 4;
    CLS_QuenTaskPool& clsPool = MakePool();
    std::vector<steady_clock::time_point> vecStarts; // written by one run at a time
    CLS_Counter clsRuns;
    std::string strTaskId;
    const steady_clock::time_point tpSubmission = steady_clock::now();
    clsPool.AddLoopTask(
        [&]
        {
            vecStarts.push_back(steady_clock::now());
            std::this_thread::sleep_for(LENGTH);
            clsRuns.Add();
        },
        INTERVAL.count(), strTaskId, "");
    EXPECT_TRUE(clsRuns.Wait(RUNS));
    clsPool.UnInit();
    ASSERT_GE(vecStarts.size(), static_cast<std::size_t>(RUNS));
    EXPECT_GE(vecStarts[0], tpSubmission);
    for (std::size_t i = 1; i < vecStarts.size(); ++i)
    {
        EXPECT_GE(vecStarts[i] - vecStarts[i - 1], INTERVAL + LENGTH) << "run " << i;
    }
}

TEST_F(LoopRealTimeTest, ShortIntervalIsKeptWhileOtherTasksKeepThePoolBusy)
{
    constexpr milliseconds INTERVAL{37};
    CLS_QuenTaskPool& clsPool = MakePool();
    std::vector<steady_clock::time_point> vecStarts;
    std::vector<steady_clock::time_point> vecEnds;
    CLS_Counter clsRuns;
    std::vector<std::string> vecIds(8);
    for (std::string& strTaskId : vecIds)
    {
        clsPool.AddLoopTask([] {}, 0, strTaskId, "");
    }
    std::string strMeasured;
    clsPool.AddLoopTask(
        [&]
        {
            vecStarts.push_back(steady_clock::now());
            std::this_thread::sleep_for(milliseconds(5));
            vecEnds.push_back(steady_clock::now());
            clsRuns.Add();
        },
        INTERVAL.count(), strMeasured, "");
    EXPECT_TRUE(clsRuns.Wait(40));
    clsPool.UnInit();
    for (std::size_t i = 1; i < vecStarts.size(); ++i)
    {
        // The pool rounds elapsed times down to whole milliseconds, so a run is never early.
        EXPECT_GE(vecStarts[i] - vecEnds[i - 1], INTERVAL) << "run " << i;
    }
}

TEST_F(LoopRealTimeTest, TaskNeverOverlapsItself)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    std::atomic<int> iInside{0};
    std::atomic<int> iOverlaps{0};
    CLS_Counter clsRuns;
    for (const int iInterval : {0, -1})
    {
        iInside = 0;
        std::string strTaskId;
        const int iRunsBefore = clsRuns.Get();
        clsPool.AddLoopTask(
            [&]
            {
                iOverlaps += ++iInside == 1 ? 0 : 1;
                std::this_thread::sleep_for(milliseconds(15)); // longer than the scheduler's poll
                --iInside;
                clsRuns.Add();
            },
            iInterval, strTaskId, "");
        EXPECT_TRUE(clsRuns.Wait(iRunsBefore + 40));
        clsPool.RemoveTask(strTaskId, "");
    }
    EXPECT_EQ(0, iOverlaps);
}
} // namespace
