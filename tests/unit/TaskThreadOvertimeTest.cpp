#include "QuenPlugins/ZelTaskPool/CLS_TaskThread.h"
#include "tests/support/ThreadFixture.h"
#include "tests/support/Waiting.h"
#include "tests/support/WorkerView.h"

#include <atomic>
#include <chrono>
#include <climits>
#include <functional>
#include <gtest/gtest.h>
#include <thread>
#include <type_traits>
#include <vector>

namespace
{
using std::chrono::hours;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

using TaskThreadOvertimeTest = CLS_ThreadFixture;

/// Sets the time of the worker's last activity, relative to now.
void SetActivity(CLS_TaskThread& _clsWorker, std::chrono::nanoseconds _nsFromNow)
{
    WorkerView::GetLastActive(_clsWorker) = steady_clock::now() + _nsFromNow;
}

TEST_F(TaskThreadOvertimeTest, SharedWordsAreAtomicsOfTheSameSize)
{
    EXPECT_TRUE((std::is_same_v<std::atomic<bool>, ClassLayout::MemberOf<WorkerView::GetRunFlag>>));
    EXPECT_TRUE((std::is_same_v<std::atomic<std::int32_t>, ClassLayout::MemberOf<WorkerView::GetOrderWord>>));
    EXPECT_TRUE((std::is_same_v<std::atomic<std::int32_t>, decltype(CLS_TaskThread::m_iWaitingOvertime)>));
    using TimeWord = ClassLayout::MemberOf<WorkerView::GetLastActive>;
    EXPECT_TRUE((std::is_same_v<std::atomic<steady_clock::time_point>, TimeWord>));
    EXPECT_TRUE(TimeWord::is_always_lock_free);
    EXPECT_EQ(sizeof(steady_clock::time_point), sizeof(TimeWord));
    EXPECT_FALSE(std::is_polymorphic_v<CLS_TaskThread>);
}

// Pins docs/limits.md, "Idle workers retire after 5 minutes".
TEST_F(TaskThreadOvertimeTest, ThresholdIsFiveMinutesAndMayBeChanged)
{
    EXPECT_EQ(300000, CLS_TaskThread::GetWaitingOvertime());
    for (const int iMilliseconds : {1, 0, -1, INT_MAX, INT_MIN})
    {
        CLS_TaskThread::SetWaitingOvertime(iMilliseconds);
        EXPECT_EQ(iMilliseconds, CLS_TaskThread::GetWaitingOvertime());
        EXPECT_EQ(iMilliseconds, CLS_TaskThread::m_iWaitingOvertime.load());
    }
}

TEST_F(TaskThreadOvertimeTest, NewWorkerIsOvertimeFromFiveMinutesOn)
{
    CLS_TaskThread clsWorker;
    EXPECT_EQ(300000, CLS_TaskThread::GetWaitingOvertime());
    EXPECT_FALSE(clsWorker.IsWaitingOvertime());
    SetActivity(clsWorker, -milliseconds(300000));
    EXPECT_TRUE(clsWorker.IsWaitingOvertime());
    SetActivity(clsWorker, -milliseconds(240000));
    EXPECT_FALSE(clsWorker.IsWaitingOvertime());
}

TEST_F(TaskThreadOvertimeTest, ThresholdIsReadEachTimeAndByEveryWorker)
{
    CLS_TaskThread clsFirst;
    CLS_TaskThread clsSecond;
    SetActivity(clsFirst, -milliseconds(240000));
    SetActivity(clsSecond, -milliseconds(240000));
    CLS_TaskThread::SetWaitingOvertime(240000);
    EXPECT_TRUE(clsFirst.IsWaitingOvertime());
    EXPECT_TRUE(clsSecond.IsWaitingOvertime());
    CLS_TaskThread::SetWaitingOvertime(300000);
    EXPECT_FALSE(clsFirst.IsWaitingOvertime());
    EXPECT_FALSE(clsSecond.IsWaitingOvertime());
}

TEST_F(TaskThreadOvertimeTest, EveryWorkerIsOvertimeAtAThresholdOfZeroOrLess)
{
    CLS_TaskThread clsWorker;
    for (const int iMilliseconds : {0, -1, INT_MIN})
    {
        CLS_TaskThread::SetWaitingOvertime(iMilliseconds);
        SetActivity(clsWorker, milliseconds(0));
        EXPECT_TRUE(clsWorker.IsWaitingOvertime()) << iMilliseconds;
    }
}

TEST_F(TaskThreadOvertimeTest, TimeOfActivityMayBeInTheFuture)
{
    CLS_TaskThread clsWorker;
    SetActivity(clsWorker, milliseconds(360000));
    EXPECT_TRUE(clsWorker.IsWaitingOvertime());
    SetActivity(clsWorker, milliseconds(240000));
    EXPECT_FALSE(clsWorker.IsWaitingOvertime());
}

TEST_F(TaskThreadOvertimeTest, FractionsOfAMillisecondDoNotCount)
{
    CLS_TaskThread clsWorker;
    SetActivity(clsWorker, std::chrono::microseconds(299999900));
    EXPECT_FALSE(clsWorker.IsWaitingOvertime());
}

TEST_F(TaskThreadOvertimeTest, TimesBeyondTheRangeOfTheThresholdAreCompared)
{
    CLS_TaskThread clsWorker;
    CLS_TaskThread::SetWaitingOvertime(INT_MAX);
    SetActivity(clsWorker, -hours(24 * 30)); // more milliseconds than 31 bits hold
    EXPECT_TRUE(clsWorker.IsWaitingOvertime());
    SetActivity(clsWorker, -hours(24 * 52)); // more than 32 bits hold
    EXPECT_TRUE(clsWorker.IsWaitingOvertime());
    SetActivity(clsWorker, -hours(24 * 20));
    EXPECT_FALSE(clsWorker.IsWaitingOvertime());
}

TEST_F(TaskThreadOvertimeTest, BusyWorkerIsJudgedByTheEndOfItsPreviousJob)
{
    CLS_TaskThread clsWorker;
    CLS_Gate clsStarted;
    CLS_Gate clsMayEnd;
    SetActivity(clsWorker, -hours(1));
    EXPECT_TRUE(clsWorker.AddFunction(
        [&](CLS_TaskThread*)
        {
            clsStarted.Open();
            EXPECT_TRUE(clsMayEnd.Wait());
        }));
    ASSERT_TRUE(clsStarted.Wait());
    EXPECT_TRUE(clsWorker.IsWaitingOvertime());
    clsMayEnd.Open();
    EXPECT_TRUE(WaitUntil([&] { return !clsWorker.IsWaitingOvertime(); }));
}

TEST_F(TaskThreadOvertimeTest, IdleWakeUpsAndTheEndDoNotRefreshTheTime)
{
    CLS_TaskThread clsWorker;
    const steady_clock::time_point tpMarker = steady_clock::now() - hours(1);
    WorkerView::GetLastActive(clsWorker) = tpMarker;
    for (int i = 0; i < 20; ++i)
    {
        {
            const std::lock_guard<std::mutex> lock(WorkerView::GetJobLock(clsWorker));
            WorkerView::GetJobSignal(clsWorker).notify_one();
        }
        std::this_thread::sleep_for(milliseconds(1));
        EXPECT_EQ(tpMarker, WorkerView::GetLastActive(clsWorker).load());
    }
    EXPECT_TRUE(clsWorker.Exit());
    EXPECT_EQ(tpMarker, WorkerView::GetLastActive(clsWorker).load());
}

TEST_F(TaskThreadOvertimeTest, SeveralThreadsUseOneWorkerAtOnce)
{
    constexpr int ROUNDS = 1000;
    CLS_TaskThread clsWorker;
    std::atomic<int> iRuns{0};
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
    funAdd(
        [&](int)
        {
            const int iBefore = iRuns;
            EXPECT_TRUE(clsWorker.AddFunction([&](CLS_TaskThread*) { ++iRuns; }));
            EXPECT_TRUE(WaitUntil([&] { return iRuns > iBefore; }));
        });
    funAdd([&](int _iRound) { clsWorker.SetOrderId(_iRound); });
    funAdd([&](int _iRound) { CLS_TaskThread::SetWaitingOvertime(300000 + _iRound); });
    funAdd(
        [&](int)
        {
            EXPECT_FALSE(clsWorker.IsWaitingOvertime());
            EXPECT_LT(clsWorker.GetOrderId(), ROUNDS);
            EXPECT_GE(CLS_TaskThread::GetWaitingOvertime(), 300000);
        });
    clsStart.Open();
    for (std::thread& thUser : vecThreads)
    {
        thUser.join();
    }
    EXPECT_TRUE(clsWorker.Exit());
    EXPECT_EQ(ROUNDS, iRuns);
    EXPECT_EQ(ROUNDS - 1, clsWorker.GetOrderId());
}
} // namespace
