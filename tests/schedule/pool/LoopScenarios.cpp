#include "tests/schedule/pool/Scenarios.h"
#include "tests/schedule/pool/World.h"

namespace
{
/// Up to a second run and a little more, in steps of 5 ms.
void SleepForAWhile()
{
    std::this_thread::sleep_for(5ms * CLS_World::Choose(12));
}

void RemoveLoop(int _iInterval, std::chrono::milliseconds _msLength)
{
    CLS_World clsWorld;
    CLS_QuenTaskPool& clsPool = CLS_World::MakePool();
    ST_Job& stLoop = clsWorld.MakeJob("A", _msLength);
    const std::string strTaskId = clsWorld.SubmitLoop(clsPool, stLoop, _iInterval);
    SleepForAWhile();
    CLS_World::RemoveLoop(clsPool, strTaskId, stLoop, 600ms);
    std::this_thread::sleep_for(60ms);
    clsWorld.EndPool(clsPool);
    CLS_World::RequireNobodyLeft();
}

void LoopAgainstRemoval()
{
    RemoveLoop(20, 5ms);
}

void LoopWithoutInterval()
{
    RemoveLoop(0, 5ms);
}

/// The scheduler looks several times during a run.
void LoopWithLongRuns()
{
    RemoveLoop(0, 25ms);
}

/// The scheduler looks at the very moment that a run ends.
void LoopEndsWhenLookedAt()
{
    RemoveLoop(5, 10ms);
}

void LoopAgainstStop()
{
    CLS_World clsWorld;
    CLS_QuenTaskPool& clsPool = CLS_World::MakePool();
    ST_Job& stLoop = clsWorld.MakeJob("A", 5ms);
    const std::string strTaskId = clsWorld.SubmitLoop(clsPool, stLoop, 20);
    SleepForAWhile();
    CLS_World::Stop(clsPool, strTaskId, stLoop, 300ms);
    std::this_thread::sleep_for(60ms);
    clsWorld.EndPool(clsPool);
    CLS_World::RequireNobodyLeft();
}

/// Runs for a while; each run comes in time.
void LoopGoesOn()
{
    CLS_World clsWorld;
    CLS_QuenTaskPool& clsPool = CLS_World::MakePool();
    ST_Job& stLoop = clsWorld.MakeJob("A");
    clsWorld.SubmitLoop(clsPool, stLoop, 10);
    std::this_thread::sleep_for(105ms);
    // A run takes no time, and the scheduler looks every 10 ms.
    CLS_World::RequireTimely(stLoop.m_iEnded >= 10, "A runs too seldom: " + std::to_string(stLoop.m_iEnded));
    clsWorld.EndPool(clsPool);
    CLS_World::RequireNobodyLeft();
}
} // namespace

Scenarios GetLoopScenarios()
{
    return {{"loop-against-removal", LoopAgainstRemoval}, {"loop-without-interval", LoopWithoutInterval},
            {"loop-with-long-runs", LoopWithLongRuns},    {"loop-ends-when-looked-at", LoopEndsWhenLookedAt},
            {"loop-against-stop", LoopAgainstStop},       {"loop-goes-on", LoopGoesOn}};
}
