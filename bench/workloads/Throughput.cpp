// W4: empty tasks per second. W4b: how well computing tasks use the cores.

#include "bench/support/CLS_Countdown.h"
#include "bench/support/Clocks.h"
#include "bench/workloads/Workloads.h"

#include <thread>

namespace
{
constexpr std::chrono::microseconds COMPUTING{100};

/// Submits the tasks at once and returns the time until all are done.
std::chrono::nanoseconds RunAtOnce(CLS_System& _clsSystem, std::size_t _uiTasks,
                                   std::chrono::microseconds _usComputing)
{
    Workloads::WarmUp(_clsSystem);
    CLS_Countdown clsDone(_uiTasks);
    const Clocks::TimePoint tpStart = Clocks::Now();
    for (std::size_t i = 0; i < _uiTasks; ++i)
    {
        const auto funTask = [&clsDone, _usComputing]
        {
            if (_usComputing.count() > 0)
            {
                Clocks::UseCpu(_usComputing);
            }
            clsDone.CountDown();
        };
        _clsSystem.Submit(funTask, &_clsSystem);
    }
    clsDone.Wait();
    return Clocks::Now() - tpStart;
}

Results MeasureEmpty(CLS_System& _clsSystem, std::size_t _uiTasks)
{
    const std::uint64_t uiRetriesBefore = _clsSystem.GetRetries().value_or(0);
    const std::chrono::nanoseconds nsWall = RunAtOnce(_clsSystem, _uiTasks, {});
    const auto dTasks = static_cast<double>(_uiTasks);
    ST_Result stResult{
        std::to_string(_uiTasks) + " tasks", dTasks, {{"tasks_per_s", dTasks / Clocks::ToSeconds(nsWall)}}};
    if (const auto uiRetries = _clsSystem.GetRetries())
    {
        stResult.m_vecValues.emplace_back("retries", static_cast<double>(*uiRetries - uiRetriesBefore));
    }
    return {stResult};
}

Results MeasureComputing(CLS_System& _clsSystem, std::size_t _uiTasks)
{
    const std::chrono::nanoseconds nsWall = RunAtOnce(_clsSystem, _uiTasks, COMPUTING);
    const double dUseful = Clocks::ToSeconds(COMPUTING) * static_cast<double>(_uiTasks);
    const double dThere = Clocks::ToSeconds(nsWall) * std::thread::hardware_concurrency();
    return {{"", 0, {{"used_percent", 100 * dUseful / dThere}}}};
}
} // namespace

void Workloads::AddThroughput(Cases& _vecCases, bool _bQuick)
{
    const std::size_t uiFewer = _bQuick ? 100 : 10000;
    for (const std::size_t uiTasks : {uiFewer, 10 * uiFewer})
    {
        _vecCases.push_back(
            {"W4", [uiTasks](CLS_System& _clsSystem) { return MeasureEmpty(_clsSystem, uiTasks); }});
    }
    const std::size_t uiComputing = _bQuick ? 100 : 5000;
    _vecCases.push_back(
        {"W4b", [uiComputing](CLS_System& _clsSystem) { return MeasureComputing(_clsSystem, uiComputing); }});
}
