// W6: what many loop tasks cost, and how late they run.

#include "bench/support/Clocks.h"
#include "bench/support/Statistics.h"
#include "bench/workloads/Workloads.h"

#include <atomic>
#include <thread>

namespace
{
struct ST_LoopLoad
{
    std::size_t m_uiLoops;
    std::chrono::milliseconds m_msInterval;
    std::size_t m_uiFinished; ///< one-shot tasks that ran before
    std::chrono::milliseconds m_msWindow;
};

/// Collects delays of runs while it is switched on.
///
/// Threads: any number may call Note; each call writes a place of its own.
class CLS_Delays
{
public:
    explicit CLS_Delays(std::size_t _uiMost) : m_vecDelays(_uiMost) {}

    void SetNoting(bool _bNoting) { m_bNoting = _bNoting; }

    void Note(double _dDelay)
    {
        if (m_bNoting)
        {
            const std::size_t uiPlace = m_uiCount.fetch_add(1);
            if (uiPlace < m_vecDelays.size())
            {
                m_vecDelays[uiPlace] = _dDelay;
            }
        }
    }

    /// Returns the delays. No thread may call Note afterwards.
    std::vector<double> Take()
    {
        m_vecDelays.resize(std::min(m_uiCount.load(), m_vecDelays.size()));
        return std::move(m_vecDelays);
    }

private:
    std::atomic<bool> m_bNoting{false};
    std::atomic<std::size_t> m_uiCount{0};
    std::vector<double> m_vecDelays;
};

std::string Describe(const ST_LoopLoad& _stLoad)
{
    std::string strText =
        std::to_string(_stLoad.m_uiLoops) + " of " + std::to_string(_stLoad.m_msInterval.count()) + " ms";
    if (_stLoad.m_uiFinished > 0)
    {
        strText += " with " + std::to_string(_stLoad.m_uiFinished) + " finished";
    }
    return strText;
}

/// Adds the loop tasks. Each keeps the end of its last run in _vecEnds.
void AddLoops(CLS_System& _clsSystem, const ST_LoopLoad& _stLoad, std::vector<Clocks::TimePoint>& _vecEnds,
              CLS_Delays& _clsDelays, CLS_Countdown& _clsFirstRuns)
{
    for (Clocks::TimePoint& tpEnd : _vecEnds)
    {
        const auto funTask = [&tpEnd, &_clsDelays, &_clsFirstRuns, msInterval = _stLoad.m_msInterval]
        {
            const Clocks::TimePoint tpStart = Clocks::Now();
            if (tpEnd == Clocks::TimePoint())
            {
                _clsFirstRuns.CountDown();
            }
            else
            {
                _clsDelays.Note(Clocks::ToMilliseconds(tpStart - tpEnd - msInterval));
            }
            tpEnd = Clocks::Now();
        };
        _clsSystem.AddLoop(funTask, static_cast<int>(_stLoad.m_msInterval.count()));
    }
}

Results Measure(CLS_System& _clsSystem, const ST_LoopLoad& _stLoad)
{
    if (!_clsSystem.HasLoops())
    {
        return {{Describe(_stLoad), 0, {}, "no timers"}};
    }
    Workloads::RunEmptyTasks(_clsSystem, _stLoad.m_uiFinished);

    // Room for twice the runs that can be due. What tasks capture must outlast them.
    const auto uiRuns = static_cast<std::size_t>(_stLoad.m_msWindow / _stLoad.m_msInterval + 1);
    CLS_Delays clsDelays(2 * uiRuns * _stLoad.m_uiLoops);
    std::vector<Clocks::TimePoint> vecEnds(_stLoad.m_uiLoops);
    CLS_Countdown clsFirstRuns(_stLoad.m_uiLoops);
    AddLoops(_clsSystem, _stLoad, vecEnds, clsDelays, clsFirstRuns);
    clsFirstRuns.Wait();
    std::this_thread::sleep_for(2 * _stLoad.m_msInterval);

    clsDelays.SetNoting(true);
    const Clocks::TimePoint tpStart = Clocks::Now();
    const std::chrono::nanoseconds nsBefore = Clocks::GetProcessCpu();
    std::this_thread::sleep_for(_stLoad.m_msWindow);
    const std::chrono::nanoseconds nsCpu = Clocks::GetProcessCpu() - nsBefore;
    const std::chrono::nanoseconds nsWall = Clocks::Now() - tpStart;
    clsDelays.SetNoting(false);
    _clsSystem.RemoveLoops();

    const std::vector<double> vecDelays = clsDelays.Take();
    const double dDue = static_cast<double>(_stLoad.m_uiLoops) * Clocks::ToSeconds(nsWall) /
                        Clocks::ToSeconds(_stLoad.m_msInterval);
    ST_Result stResult{Describe(_stLoad),
                       0,
                       {{"cpu_percent", 100 * Clocks::ToSeconds(nsCpu) / Clocks::ToSeconds(nsWall)},
                        {"runs_percent", 100 * static_cast<double>(vecDelays.size()) / dDue}}};
    if (!vecDelays.empty())
    {
        stResult.m_vecValues.emplace_back("mean_ms", Statistics::GetMean(vecDelays));
        stResult.m_vecValues.emplace_back("p99_ms", Statistics::GetPercentile(vecDelays, 99));
    }
    return {stResult};
}
} // namespace

void Workloads::AddLoopTasks(Cases& _vecCases, bool _bQuick)
{
    using std::chrono::milliseconds;
    const std::vector<ST_LoopLoad> vecLoads =
        _bQuick ? std::vector<ST_LoopLoad>{{20, milliseconds(10), 0, milliseconds(100)},
                                           {200, milliseconds(50), 0, milliseconds(100)},
                                           {200, milliseconds(50), 200, milliseconds(100)}}
                : std::vector<ST_LoopLoad>{{1000, milliseconds(100), 0, milliseconds(10000)},
                                           {10000, milliseconds(1000), 0, milliseconds(10000)},
                                           {10000, milliseconds(1000), 200000, milliseconds(10000)}};
    for (const ST_LoopLoad& stLoad : vecLoads)
    {
        _vecCases.push_back({"W6", [stLoad](CLS_System& _clsSystem) { return Measure(_clsSystem, stLoad); }});
    }
}
