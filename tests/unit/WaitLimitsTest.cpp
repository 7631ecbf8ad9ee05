#include "QuenInclude/CLS_LoadTurn.h"
#include "tests/support/CutWaits.h"
#include "tests/unit/PoolFixture.h"

#include <chrono>
#include <gtest/gtest.h>
#include <thread>

namespace
{
using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using std::chrono::seconds;

using WaitLimitsTest = CLS_PoolFixture;

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

TEST_F(WaitLimitsTest, EndOfAPoolWaitsForARunAsLongAsItIsTold)
{
    CLS_RunGate clsGate;
    const CLS_CutWaits clsWaits(clsGate.m_cvGate);
    std::thread([&] { EXPECT_TRUE(clsGate.EnterRun()); }).join();
    EXPECT_FALSE(clsGate.Close(milliseconds(20)));
    EXPECT_TRUE(ComesTo(clsWaits, milliseconds(20)));
}
} // namespace
