#include "tests/support/FailingThreads.h"
#include "tests/support/PoolView.h"
#include "tests/support/ShutdownClaimView.h"
#include "tests/support/ThreadCount.h"
#include "tests/unit/PoolFixture.h"

#include <chrono>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <memory>
#include <set>
#include <string>
#include <system_error>
#include <thread>

namespace
{
using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

using PoolStartUpTest = CLS_PoolFixture;

/// Whether the pool runs a task.
bool RunsATask(CLS_QuenTaskPool& _clsPool)
{
    CLS_Gate clsRan;
    int iOwner = 0;
    const bool bAdded = _clsPool.AddTmpTask([&] { clsRan.Open(); }, &iOwner, "call");
    return clsRan.Wait() && bAdded;
}

TEST_F(PoolStartUpTest, InstanceIsBuiltOnceAndKept)
{
    ASSERT_EQ(nullptr, CLS_QuenTaskPool::m_pInstance);
    CLS_QuenTaskPool* const pPool = CLS_QuenTaskPool::GetInstance();
    ASSERT_NE(nullptr, pPool);
    EXPECT_EQ(pPool, CLS_QuenTaskPool::m_pInstance);
    const CLS_FailingThreads clsRequests(0);
    EXPECT_EQ(pPool, CLS_QuenTaskPool::GetInstance());
    EXPECT_EQ(0, clsRequests.GetRequests());
}

TEST_F(PoolStartUpTest, StartsThreeThreadsAndNoWorker)
{
    const CLS_FailingThreads clsRequests(0);
    CLS_QuenTaskPool& clsPool = MakePool();
    EXPECT_EQ(3, clsRequests.GetRequests());
    const std::set<std::thread::id> setThreads{PoolView::GetDispatcher(clsPool)->get_id(),
                                               PoolView::GetLoopScheduler(clsPool)->get_id(),
                                               PoolView::GetWatchdog(clsPool)->get_id()};
    EXPECT_EQ(3U, setThreads.size());
    for (const std::thread::id idThread : setThreads)
    {
        EXPECT_TRUE(ShutdownClaimView::IsOwnThread(&clsPool, idThread));
    }
    EXPECT_EQ(0, clsPool.GetTaskThreadNum());
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
    EXPECT_TRUE(RunsATask(clsPool));
    EXPECT_EQ(4, clsRequests.GetRequests());
}

TEST_F(PoolStartUpTest, StartsDispatcherThenLoopSchedulerThenWatchdog)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    for (int iFailing = 1; iFailing <= 3; ++iFailing)
    {
        {
            const CLS_FailingThreads clsFailing(iFailing);
            EXPECT_THROW(PoolView::StartServiceThreads(clsPool), std::system_error);
        }
        EXPECT_EQ(iFailing > 1, PoolView::GetDispatcher(clsPool) != nullptr);
        EXPECT_EQ(iFailing > 2, PoolView::GetLoopScheduler(clsPool) != nullptr);
        EXPECT_EQ(nullptr, PoolView::GetWatchdog(clsPool));
        PoolView::EndServiceThreads(clsPool);
        PoolView::GetRunFlag(clsPool) = true;
    }
}

TEST_F(PoolStartUpTest, DispatcherAndWatchdogRunOnTheirThreads)
{
    const CLS_FastSleep clsFastSleep;
    CLS_QuenTaskPool& clsPool = MakePool();
    const std::thread::id idWatchdog = PoolView::GetWatchdog(clsPool)->get_id();
    EXPECT_TRUE(WaitUntil([&] { return !clsFastSleep.GetSleeps(idWatchdog).empty(); }));
    EXPECT_EQ(milliseconds(180), clsFastSleep.GetSleeps(idWatchdog).front().m_msAsked);

    // Let the dispatcher wait for a worker.
    const std::thread::id idDispatcher = PoolView::GetDispatcher(clsPool)->get_id();
    CLS_Gate clsRan;
    const std::string strTaskId = MakeTask([&] { clsRan.Open(); });
    {
        const CLS_FailingThreads clsFailing(1);
        clsPool.AddWaitingTasks(strTaskId);
        EXPECT_TRUE(clsRan.Wait());
    }
    EXPECT_EQ(milliseconds(100), clsFastSleep.GetSleeps(idDispatcher).front().m_msAsked);
    ASSERT_TRUE(WaitForIdle(clsPool, 1));
}

TEST_F(PoolStartUpTest, LoopSchedulerRunsOnItsThread)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    CLS_Counter clsRuns;
    std::string strTaskId;
    clsPool.AddLoopTask([&] { clsRuns.Add(); }, 0, strTaskId, "call");
    EXPECT_TRUE(clsRuns.Wait(3)); // the scheduler queues all runs but the first
    clsPool.RemoveTask(strTaskId, "call");
}

TEST_F(PoolStartUpTest, PoolAfterUnInitIsFreshAndRuns)
{
    CLS_QuenTaskPool& clsFirst = MakePool();
    ASSERT_TRUE(RunsATask(clsFirst));
    std::string strLoopId;
    clsFirst.AddLoopTask([] {}, 3600000, strLoopId, "call");
    clsFirst.UnInit();
    EXPECT_EQ(nullptr, CLS_QuenTaskPool::m_pInstance);
    LogRecorder::Clear();

    const CLS_FailingThreads clsRequests(0);
    CLS_QuenTaskPool& clsSecond = MakePool();
    EXPECT_EQ(3, clsRequests.GetRequests());
    EXPECT_EQ(&clsSecond, CLS_QuenTaskPool::m_pInstance);
    EXPECT_TRUE(PoolView::GetRunFlag(clsSecond));
    EXPECT_EQ(0, clsSecond.GetTaskThreadNum());
    EXPECT_THAT(PoolView::GetLoopIds(clsSecond), IsEmpty());
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
    EXPECT_TRUE(RunsATask(clsSecond));
    CLS_Counter clsRuns;
    std::string strTaskId;
    clsSecond.AddLoopTask([&] { clsRuns.Add(); }, 0, strTaskId, "call");
    EXPECT_TRUE(clsRuns.Wait(2));
    clsSecond.RemoveTask(strTaskId, "call");
    const CLS_FastSleep clsFastSleep;
    const std::thread::id idWatchdog = PoolView::GetWatchdog(clsSecond)->get_id();
    EXPECT_TRUE(WaitUntil([&] { return !clsFastSleep.GetSleeps(idWatchdog).empty(); }));
}

TEST_F(PoolStartUpTest, BodiesOfTheServiceThreadsReturnAtOnceWhenThePoolEnds)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    const std::string strQueued = MakeTask({});
    clsPool.AddWaitingTasks(strQueued);
    const std::string strLoop = MakeTask({}, 0);
    PoolView::GetLoopIds(clsPool).push_back(strLoop); // due
    PoolView::GetRunFlag(clsPool) = false;
    {
        const CLS_FastSleep clsFastSleep;
        clsPool.FunTaskingThread();
        clsPool.FunLoopThread();
        clsPool.FunTaskThreadWaitingOvertime();
        EXPECT_THAT(clsFastSleep.GetSleeps(), IsEmpty());
    }
    EXPECT_THAT(PoolView::GetWaitingIds(clsPool), ElementsAre(strQueued));
    EXPECT_EQ(0, clsPool.GetTaskThreadNum());
    EXPECT_EQ(TASK_STATUS_IDLE, CLS_Task::GetTask(strLoop).lock()->GetTaskStatus());
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

/// Tests in which the pool cannot be built because its n-th thread cannot start.
class PoolStartFailureTest : public CLS_PoolFixture, public ::testing::WithParamInterface<int>
{
};

TEST_P(PoolStartFailureTest, EndsStartedThreadsAndThrowsAndTheNextCallBuildsAPool)
{
    {
        const CLS_FailingThreads clsFailing(GetParam());
        EXPECT_THROW(CLS_QuenTaskPool::GetInstance(), std::system_error);
        EXPECT_EQ(GetParam(), clsFailing.GetRequests());
    }
    EXPECT_EQ(nullptr, CLS_QuenTaskPool::m_pInstance);
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());

    CLS_QuenTaskPool& clsPool = MakePool();
    EXPECT_TRUE(PoolView::GetRunFlag(clsPool));
    EXPECT_EQ(0, clsPool.GetTaskThreadNum());
    EXPECT_TRUE(RunsATask(clsPool));
    CLS_Counter clsRuns;
    std::string strTaskId;
    clsPool.AddLoopTask([&] { clsRuns.Add(); }, 0, strTaskId, "call");
    EXPECT_TRUE(clsRuns.Wait(2));
    clsPool.RemoveTask(strTaskId, "call");
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

TEST_P(PoolStartFailureTest, LeavesNoThreadBehind)
{
    // Some sanitizers start a thread of their own with the first.
    std::thread([] {}).join();
    int iBefore = 0;
    EXPECT_TRUE(WaitUntil(
        [&]
        {
            const int iLast = iBefore;
            iBefore = CountThreads();
            return iBefore == iLast;
        }));
    for (int i = 0; i < 5; ++i)
    {
        const CLS_FailingThreads clsFailing(GetParam());
        EXPECT_THROW(CLS_QuenTaskPool::GetInstance(), std::system_error);
    }
    EXPECT_TRUE(WaitForThreads(iBefore));
}

INSTANTIATE_TEST_SUITE_P(EachThread, PoolStartFailureTest, ::testing::Values(1, 2, 3));

TEST_F(PoolStartUpTest, DispatcherIsToldToEndUnderTheQueuesMutex)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    StartDispatcher(clsPool);
    CLS_Gate clsEnding;
    std::unique_lock<std::mutex> lock(PoolView::GetQueueLock(clsPool));
    std::thread thEnd(
        [&]
        {
            clsEnding.Open();
            PoolView::EndServiceThreads(clsPool);
        });
    EXPECT_TRUE(clsEnding.Wait());
    // Otherwise the dispatcher could test the flag just before the change and then miss the wake-up.
    EXPECT_FALSE(WaitUntil([&] { return !PoolView::GetRunFlag(clsPool); }, milliseconds(200)));
    lock.unlock();
    thEnd.join();
    EXPECT_FALSE(PoolView::GetRunFlag(clsPool));
    EXPECT_EQ(nullptr, PoolView::GetDispatcher(clsPool));
}

TEST_F(PoolStartUpTest, WaitingDispatcherEndsWithoutTheRestOfItsWait)
{
    constexpr int CYCLES = 40;
    const CLS_FastSleep clsFastSleep; // the watchdog's steps
    const auto tpStart = steady_clock::now();
    for (int i = 0; i < CYCLES; ++i)
    {
        CLS_QuenTaskPool& clsPool = MakePool();
        if (i % 2 == 0)
        {
            // The dispatcher has dispatched the task and waits again.
            EXPECT_TRUE(RunsATask(clsPool));
            ASSERT_TRUE(WaitForIdle(clsPool, 1));
        }
        clsPool.UnInit();
        ASSERT_EQ(nullptr, CLS_QuenTaskPool::m_pInstance);
    }
    EXPECT_LT(steady_clock::now() - tpStart, seconds(CYCLES) / 2);
}
} // namespace
