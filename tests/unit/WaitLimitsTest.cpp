#include "QuenInclude/CLS_LoadTurn.h"
#include "tests/support/CutWaits.h"
#include "tests/support/FastSleep.h"
#include "tests/unit/ShutdownFixture.h"

#include <chrono>
#include <gtest/gtest.h>
#include <thread>

namespace
{
using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using std::chrono::seconds;

using WaitLimitsTest = CLS_ShutdownFixture;

/// Whether some wait is meant to last for as long as that, and none for longer.
bool ComesTo(const CLS_CutWaits& _clsWaits, nanoseconds _nsLimit)
{
    return WaitUntil([&] { return _clsWaits.GetLongest() > _nsLimit - milliseconds(1); }) &&
           _clsWaits.GetLongest() <= _nsLimit;
}

TEST_F(WaitLimitsTest, DispatcherLooksAtItsFlagEverySecond)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    const CLS_CutWaits clsWaits(clsPool.m_cvWaitingTasks);
    StartDispatcher(clsPool);
    EXPECT_TRUE(ComesTo(clsWaits, seconds(1)));
}

TEST_F(WaitLimitsTest, WorkerLooksAtItsFlagEveryThreeSeconds)
{
    CLS_TaskThread clsWorker;
    const CLS_CutWaits clsWaits(clsWorker.m_cvFunction);
    // The first wait may have begun already.
    EXPECT_TRUE(clsWorker.AddFunction([](CLS_TaskThread*) {}));
    EXPECT_TRUE(ComesTo(clsWaits, seconds(3)));
}

TEST_F(WaitLimitsTest, ThreadsWaitForTheirTurnAsLongAsItSays)
{
    CLS_LoadTurn clsTurn;
    const CLS_CutWaits clsWaits(clsTurn.m_cvTurn);
    ASSERT_TRUE(clsTurn.Take());
    std::thread thNext([&] { EXPECT_TRUE(CLS_LoadTurn::CLS_Scope(clsTurn).IsTaken()); });
    EXPECT_TRUE(ComesTo(clsWaits, milliseconds(1000)));
    clsTurn.Give();
    thNext.join();
}

TEST_F(WaitLimitsTest, GivingTheTurnBackEndsTheWaitOfTheNextThread)
{
    CLS_LoadTurn clsTurn;
    const CLS_CutWaits clsWaits(clsTurn.m_cvTurn);
    ASSERT_TRUE(clsTurn.Take());
    EXPECT_EQ(0, clsWaits.GetNotifications());
    clsTurn.Give();
    EXPECT_EQ(1, clsWaits.GetNotifications());
}

TEST_F(WaitLimitsTest, EndOfAPoolWaitsForARunAsLongAsItIsTold)
{
    CLS_RunGate clsGate;
    const CLS_CutWaits clsWaits(clsGate.m_cvGate);
    std::thread([&] { EXPECT_TRUE(clsGate.EnterRun()); }).join();
    EXPECT_FALSE(clsGate.Close(milliseconds(20)));
    EXPECT_TRUE(ComesTo(clsWaits, milliseconds(20)));
}

TEST_F(WaitLimitsTest, EndOfAPoolWaitsNineSecondsForARunThatNobodyCanStop)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    const HeldRun pRun = StartHeldRun(clsPool);
    CLS_TaskThread* const pThread = FindWorker(clsPool, pRun->m_strTaskId);
    ASSERT_NE(nullptr, pThread);
    CLS_Task::DeleteTask(pRun->m_strTaskId);
    {
        const CLS_CutWaits clsWaits(pThread->GetRunGate().m_cvGate);
        CLS_Side clsEnd([&] { clsPool.UnInit(); });
        // The time until the wait begins counts, too.
        EXPECT_TRUE(WaitUntil([&] { return clsWaits.GetLongest() > seconds(8); }));
        EXPECT_LE(clsWaits.GetLongest(), seconds(9));
        pRun->m_clsMayEnd.Open();
        EXPECT_TRUE(clsEnd.Wait());
    }
    EXPECT_EQ(nullptr, CLS_QuenTaskPool::m_pInstance);
}

TEST_F(WaitLimitsTest, EndOfAPoolDoesNotWaitOnceMoreForARunThatOutlastedItsStop)
{
    const int iThreads = CountThreads();
    CLS_QuenTaskPool& clsPool = MakePool();
    const HeldRun pRun = StartHeldRun(clsPool);
    CLS_TaskThread* const pThread = FindWorker(clsPool, pRun->m_strTaskId);
    ASSERT_NE(nullptr, pThread);
    {
        const CLS_FastSleep clsFastSleep;
        const CLS_CutWaits clsWaits(pThread->GetRunGate().m_cvGate);
        clsPool.UnInit();
        EXPECT_LE(clsWaits.GetLongest(), nanoseconds(0));
    }
    EndHeldRun(pRun);
    EXPECT_TRUE(WaitForThreads(iThreads));
}

TEST_F(WaitLimitsTest, AWorkerThatWasLeftBehindDestroysItself)
{
    const int iThreads = CountThreads();
    CLS_QuenTaskPool& clsPool = MakePool();
    const HeldRun pRun = StartHeldRun(clsPool);
    CLS_TaskThread* const pThread = FindWorker(clsPool, pRun->m_strTaskId);
    ASSERT_NE(nullptr, pThread);
    {
        const CLS_FastSleep clsFastSleep;
        clsPool.UnInit();
    }
    // Its destructor tells its thread to end.
    const CLS_CutWaits clsNotifications(pThread->m_cvFunction);
    EndHeldRun(pRun);
    EXPECT_TRUE(WaitForThreads(iThreads));
    EXPECT_EQ(1, clsNotifications.GetNotifications());
}
} // namespace
