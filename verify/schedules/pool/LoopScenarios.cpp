#include "tests/support/PoolView.h"
#include "verify/schedules/pool/Marks.h"
#include "verify/schedules/pool/Scenarios.h"
#include "verify/schedules/pool/World.h"

namespace
{
/// Sleeps at most until shortly after the second run. The sleep ends at a poll of the scheduler or between
/// two polls.
void SleepForAWhile()
{
    std::this_thread::sleep_for(5ms * CLS_World::Choose(12) + 2ms * CLS_World::Choose(2));
    CLS_World::LetOthersRun();
}

void RemoveLoop(int _iInterval, std::chrono::milliseconds _msLength)
{
    CLS_World clsWorld;
    CLS_QuenTaskPool& clsPool = CLS_World::MakePool();
    ST_Job& stLoop = clsWorld.MakeJob("A", _msLength);
    const std::string strTaskId = clsWorld.SubmitLoop(clsPool, stLoop, _iInterval);
    SleepForAWhile();
    CLS_World::RemoveLoop(clsPool, strTaskId, stLoop);
    std::this_thread::sleep_for(60ms);
    clsWorld.EndPool(clsPool);
    CLS_World::RequireNoOtherThread();
}

void LoopAgainstRemoval()
{
    RemoveLoop(20, 5ms);
}

void LoopWithoutInterval()
{
    RemoveLoop(0, 5ms);
}

/// The scheduler polls several times during a run.
void LoopWithLongRuns()
{
    RemoveLoop(0, 25ms);
}

/// The scheduler polls at the moment when a run ends.
void LoopEndsWhenLookedAt()
{
    RemoveLoop(5, 10ms);
}

/// The first run removes its task, perhaps before the submission has listed it. The later of the two removes
/// the entry.
void LoopRemovedWhileItIsSubmitted()
{
    CLS_World clsWorld;
    CLS_QuenTaskPool& clsPool = CLS_World::MakePool();
    ST_Job& stLoop = clsWorld.MakeJob("A");
    bool bSubmitted = false;
    std::string strTaskId;
    stLoop.m_iInterval = 1000;
    stLoop.m_funWork = [&]
    {
        Marks::Reach(bSubmitted ? "the removal follows the submission"
                                : "the removal precedes the submission");
        clsPool.RemoveTask(strTaskId, "scenario");
    };
    clsPool.AddLoopTask(CLS_World::MakeCallable(stLoop), 1000, strTaskId, "A");
    bSubmitted = true;
    std::this_thread::sleep_for(CLS_World::ALL_LOOKS + 1s);
    Require(PoolView::GetLoopIds(clsPool).empty(), "the loop list keeps its id");
    clsWorld.EndPool(clsPool);
    CLS_World::RequireNoOtherThread();
}

void LoopAgainstStop()
{
    CLS_World clsWorld;
    CLS_QuenTaskPool& clsPool = CLS_World::MakePool();
    ST_Job& stLoop = clsWorld.MakeJob("A", 5ms);
    const std::string strTaskId = clsWorld.SubmitLoop(clsPool, stLoop, 20);
    SleepForAWhile();
    CLS_World::Stop(clsPool, strTaskId, stLoop);
    std::this_thread::sleep_for(60ms);
    clsWorld.EndPool(clsPool);
    CLS_World::RequireNoOtherThread();
}

/// Runs for a while. Each run begins in time.
void LoopGoesOn()
{
    CLS_World clsWorld;
    CLS_QuenTaskPool& clsPool = CLS_World::MakePool();
    ST_Job& stLoop = clsWorld.MakeJob("A");
    clsWorld.SubmitLoop(clsPool, stLoop, 10);
    std::this_thread::sleep_for(105ms);
    // A run takes no time, and the scheduler polls every 10 ms.
    CLS_World::RequireTimely(stLoop.m_iEnded >= 10, "A runs too seldom: " + std::to_string(stLoop.m_iEnded));
    clsWorld.EndPool(clsPool);
    CLS_World::RequireNoOtherThread();
}

/// The interval changes after the scheduler has noted when the next run is due.
void LoopWithChangedInterval()
{
    CLS_World clsWorld;
    CLS_QuenTaskPool& clsPool = CLS_World::MakePool();
    const bool bShorter = CLS_World::Choose(2) == 0;
    ST_Job& stLoop = clsWorld.MakeJob("A");
    const std::string strTaskId = clsWorld.SubmitLoop(clsPool, stLoop, bShorter ? 1000 : 15);
    std::this_thread::sleep_for(50ms);
    stLoop.m_bInTime = false;
    stLoop.m_iInterval = 15;
    const int iBefore = stLoop.m_iBegun;
    CLS_Task::GetTask(strTaskId).lock()->SetLoopInterval(bShorter ? 15 : 1000);
    // A run may be due now. The scheduler polls every 10 ms.
    std::this_thread::sleep_for(bShorter ? 11ms : 1ms);
    Require(!bShorter || stLoop.m_iBegun == iBefore + 1, "the shorter interval is ignored");
    const int iNow = stLoop.m_iBegun;
    stLoop.m_bInTime = true;
    std::this_thread::sleep_for(100ms);
    Require(bShorter == (stLoop.m_iBegun > iNow), "the longer interval is ignored");
    clsWorld.EndPool(clsPool);
    CLS_World::RequireNoOtherThread();
}
} // namespace

Scenarios GetLoopScenarios()
{
    const std::vector<std::string> vecMet{CLS_World::RUN_MET};
    return {{"loop-against-removal", LoopAgainstRemoval, {CLS_World::RUN_MET, CLS_World::RUN_FORESTALLED}},
            {"loop-without-interval", LoopWithoutInterval, vecMet},
            {"loop-with-long-runs", LoopWithLongRuns, vecMet},
            {"loop-ends-when-looked-at", LoopEndsWhenLookedAt, vecMet},
            {"loop-against-stop", LoopAgainstStop, {CLS_World::RUN_MET, CLS_World::RUN_FORESTALLED}},
            {"loop-removed-while-submitted",
             LoopRemovedWhileItIsSubmitted,
             {"the removal follows the submission", "the removal precedes the submission"},
             false,
             50ms,
             true},
            {"loop-with-changed-interval", LoopWithChangedInterval, {}, false, 0ms, true},
            {"loop-goes-on", LoopGoesOn}};
}
