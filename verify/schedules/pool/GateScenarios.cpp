#include "QuenPlugins/ZelTaskPool/CLS_RunGate.h"
#include "verify/schedules/pool/Marks.h"
#include "verify/schedules/pool/Scenarios.h"
#include "verify/schedules/pool/World.h"

#include <algorithm>

namespace
{
constexpr int JOBS = 2;

constexpr const char* REFUSED = "a job is refused";
constexpr const char* AWAITED = "the gate waits for the worker";
constexpr const char* ABANDONED = "the worker is abandoned";

/// A worker and its gate, without a pool. A flag says when the worker must no longer use the pool.
struct ST_Passage
{
    CLS_RunGate m_clsGate;
    std::chrono::milliseconds m_msForeign{0}; ///< how long foreign code takes
    bool m_bClosed = false;                   ///< no foreign code may begin
    bool m_bPoolGone = false;
};

void RunForeignCode(const ST_Passage& _stPassage)
{
    Require(!_stPassage.m_bClosed, "foreign code begins behind a closed gate");
    std::this_thread::sleep_for(_stPassage.m_msForeign);
}

void UsePool(const ST_Passage& _stPassage)
{
    Require(!_stPassage.m_bPoolGone, "the pool is used after its end");
}

/// Runs one job. False if the worker must end.
bool PassGate(ST_Passage& _stPassage)
{
    const CLS_RunGate::CLS_JobScope clsScope(_stPassage.m_clsGate);
    if (!clsScope.IsBegun())
    {
        Marks::Reach(REFUSED);
        return false;
    }
    RunForeignCode(_stPassage);
    const CLS_RunGate::CLS_PoolVisit clsVisit(_stPassage.m_clsGate);
    if (!clsVisit.IsInside())
    {
        return false;
    }
    UsePool(_stPassage);
    if (!_stPassage.m_clsGate.EnterRun())
    {
        return false;
    }
    RunForeignCode(_stPassage);
    if (!_stPassage.m_clsGate.LeaveRun())
    {
        return false;
    }
    UsePool(_stPassage);
    return true;
}

/// Closes the gate at any moment during two jobs. The call waits as long as foreign code takes, but no longer
/// than its limit.
void CloseAgainstJobs()
{
    ST_Passage stPassage;
    stPassage.m_msForeign = 1ms * ((CLS_World::Choose(3) + 1) % 3);
    const auto msLimit = CLS_World::Choose(2) == 0 ? 1000ms : 1ms;
    std::thread thrWorker(
        [&stPassage]
        {
            for (int i = 0; i < JOBS && PassGate(stPassage); ++i)
            {
            }
        });
    CLS_World::LetOthersRun();
    std::this_thread::sleep_for(1ms * CLS_World::Choose(4));
    const auto nsBegin = CLS_World::GetTime();
    const bool bOver = stPassage.m_clsGate.Close(std::chrono::steady_clock::now() + msLimit);
    const auto nsTaken = CLS_World::GetTime() - nsBegin;
    stPassage.m_bClosed = bOver;
    stPassage.m_bPoolGone = true;
    CLS_World::RequireTimely(bOver || nsTaken == msLimit, "the gate gives up early");
    CLS_World::RequireTimely(nsTaken <= std::min(stPassage.m_msForeign, msLimit), "the gate closes late");
    if (nsTaken > 0ns)
    {
        Marks::Reach(AWAITED);
    }
    if (!bOver)
    {
        Marks::Reach(ABANDONED);
    }
    thrWorker.join();
}
} // namespace

Scenarios GetGateScenarios()
{
    return {{"close-against-jobs", CloseAgainstJobs, {REFUSED, AWAITED, ABANDONED}, true}};
}
