#include "QuenInclude/CLS_LoadTurn.h"
#include "tests/support/CutWaits.h"
#include "tests/support/FastSleep.h"
#include "tests/support/LoadTurnView.h"
#include "tests/support/PoolView.h"
#include "tests/support/RunGateView.h"
#include "tests/support/WorkerView.h"
#include "tests/unit/ShutdownFixture.h"

#include <chrono>
#include <gtest/gtest.h>
#include <thread>

namespace
{
using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using std::chrono::seconds;

class WaitLimitsTest : public CLS_ShutdownFixture
{
protected:
    /// A pool with one worker that runs until the test releases it.
    void StartRun()
    {
        m_iThreads = CountThreads();
        CLS_QuenTaskPool& clsPool = MakePool();
        m_pRun = StartHeldRun(clsPool);
        m_pThread = FindWorker(clsPool, m_pRun->m_strTaskId);
        ASSERT_NE(nullptr, m_pThread);
    }

    void EndRun()
    {
        EndHeldRun(m_pRun);
        EXPECT_TRUE(WaitForThreads(m_iThreads));
    }

    HeldRun m_pRun;
    CLS_TaskThread* m_pThread = nullptr;

private:
    int m_iThreads = 0;
};

/// Whether the longest wait reaches the limit without exceeding it.
bool ReachesLimit(const CLS_CutWaits& _clsWaits, nanoseconds _nsLimit)
{
    return WaitUntil([&] { return _clsWaits.GetLongest() > _nsLimit - milliseconds(1); }) &&
           _clsWaits.GetLongest() <= _nsLimit;
}

TEST_F(WaitLimitsTest, DispatcherChecksItsFlagEverySecond)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    const CLS_CutWaits clsWaits(PoolView::GetQueueSignal(clsPool));
    StartDispatcher(clsPool);
    EXPECT_TRUE(ReachesLimit(clsWaits, seconds(1)));
}

TEST_F(WaitLimitsTest, WorkerChecksItsFlagEveryThreeSeconds)
{
    CLS_TaskThread clsWorker;
    const CLS_CutWaits clsWaits(WorkerView::GetJobSignal(clsWorker));
    // The first wait may have begun already.
    EXPECT_TRUE(clsWorker.AddFunction([](CLS_TaskThread*) {}));
    EXPECT_TRUE(ReachesLimit(clsWaits, seconds(3)));
}

// Pins docs/limits.md, "Opening a library waits 1 s".
TEST_F(WaitLimitsTest, ThreadsWaitForTheirTurnUpToItsLimit)
{
    CLS_LoadTurn clsTurn;
    const CLS_CutWaits clsWaits(LoadTurnView::GetSignal(clsTurn));
    ASSERT_TRUE(LoadTurnView::Take(clsTurn));
    std::thread thNext([&] { EXPECT_TRUE(CLS_LoadTurn::CLS_Scope(clsTurn).IsTaken()); });
    EXPECT_TRUE(ReachesLimit(clsWaits, milliseconds(1000)));
    LoadTurnView::Give(clsTurn);
    thNext.join();
}

TEST_F(WaitLimitsTest, GivingTheTurnBackEndsTheWaitOfTheNextThread)
{
    CLS_LoadTurn clsTurn;
    const CLS_CutWaits clsWaits(LoadTurnView::GetSignal(clsTurn));
    ASSERT_TRUE(LoadTurnView::Take(clsTurn));
    EXPECT_EQ(0, clsWaits.GetNotifications());
    LoadTurnView::Give(clsTurn);
    EXPECT_EQ(1, clsWaits.GetNotifications());
}

TEST_F(WaitLimitsTest, ShutdownChecksAWorkerThatUsesThePoolTenTimesASecond)
{
    CLS_RunGate clsGate;
    const CLS_CutWaits clsWaits(RunGateView::GetSignal(clsGate));
    CLS_Gate clsInside;
    CLS_Gate clsMayLeave;
    std::thread thWorker(
        [&]
        {
            const CLS_RunGate::CLS_JobScope clsJob(clsGate);
            const CLS_RunGate::CLS_PoolVisit clsPool(clsGate);
            clsInside.Open();
            EXPECT_TRUE(clsMayLeave.Wait());
        });
    EXPECT_TRUE(clsInside.Wait());
    // The job's last steps decide whether it counts as over or as abandoned.
    std::thread thShutdown([&] { static_cast<void>(clsGate.Close(std::chrono::steady_clock::now())); });
    EXPECT_TRUE(ReachesLimit(clsWaits, milliseconds(100)));
    clsMayLeave.Open();
    thWorker.join();
    thShutdown.join();
}

TEST_F(WaitLimitsTest, ShutdownWaitsForARunUpToTheGivenLimit)
{
    CLS_RunGate clsGate;
    const CLS_CutWaits clsWaits(RunGateView::GetSignal(clsGate));
    std::thread([&] { EXPECT_TRUE(clsGate.EnterRun()); }).join();
    EXPECT_FALSE(clsGate.Close(std::chrono::steady_clock::now() + milliseconds(20)));
    EXPECT_TRUE(ReachesLimit(clsWaits, milliseconds(20)));
}

TEST_F(WaitLimitsTest, ShutdownWaitsNineSecondsForARunThatCannotBeStopped)
{
    ASSERT_NO_FATAL_FAILURE(StartRun());
    CLS_Task::DeleteTask(m_pRun->m_strTaskId);
    {
        const CLS_CutWaits clsWaits(RunGateView::GetSignal(m_pThread->GetRunGate()));
        CLS_Side clsEnd([] { CLS_QuenTaskPool::m_pInstance->UnInit(); });
        // The time until the wait begins also counts.
        EXPECT_TRUE(WaitUntil([&] { return clsWaits.GetLongest() > seconds(8); }));
        EXPECT_LE(clsWaits.GetLongest(), seconds(9));
        m_pRun->m_clsMayEnd.Open();
        EXPECT_TRUE(clsEnd.Wait());
    }
    EXPECT_EQ(nullptr, CLS_QuenTaskPool::m_pInstance);
}

TEST_F(WaitLimitsTest, ShutdownWaitsNineSecondsForAHostsJobOnAWorker)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    CLS_TaskThread* const pThread = clsPool.CreateTaskThread();
    CLS_Gate clsBegun;
    CLS_Gate clsMayEnd;
    pThread->AddFunction(
        [&](CLS_TaskThread*)
        {
            clsBegun.Open();
            EXPECT_TRUE(clsMayEnd.Wait());
        });
    ASSERT_TRUE(clsBegun.Wait());
    {
        const CLS_CutWaits clsWaits(RunGateView::GetSignal(pThread->GetRunGate()));
        CLS_Side clsEnd([&clsPool] { clsPool.UnInit(); });
        EXPECT_TRUE(WaitUntil([&] { return clsWaits.GetLongest() > seconds(8); }));
        EXPECT_LE(clsWaits.GetLongest(), seconds(9));
        clsMayEnd.Open();
        EXPECT_TRUE(clsEnd.Wait());
    }
    EXPECT_EQ(nullptr, CLS_QuenTaskPool::m_pInstance);
}

TEST_F(WaitLimitsTest, ShutdownDoesNotWaitAgainForARunThatOutlastedItsStop)
{
    ASSERT_NO_FATAL_FAILURE(StartRun());
    {
        const CLS_FastSleep clsFastSleep;
        const CLS_CutWaits clsWaits(RunGateView::GetSignal(m_pThread->GetRunGate()));
        CLS_QuenTaskPool::m_pInstance->UnInit();
        EXPECT_LE(clsWaits.GetLongest(), nanoseconds(0));
    }
    EndRun();
}

TEST_F(WaitLimitsTest, AnAbandonedWorkerDestroysItself)
{
    ASSERT_NO_FATAL_FAILURE(StartRun());
    {
        const CLS_FastSleep clsFastSleep;
        CLS_QuenTaskPool::m_pInstance->UnInit();
    }
    // Its destructor tells its thread to end.
    const CLS_CutWaits clsNotifications(WorkerView::GetJobSignal(*m_pThread));
    EndRun();
    EXPECT_EQ(1, clsNotifications.GetNotifications());
}
} // namespace
