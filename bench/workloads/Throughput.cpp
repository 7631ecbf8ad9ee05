// W4: empty tasks a second. W4b: how well computing tasks fill the cores.

#include "bench/support/CLS_Countdown.h"
#include "bench/support/Clocks.h"
#include "bench/workloads/Workloads.h"

#include <thread>

namespace
{
constexpr std::chrono::microseconds COMPUTING{100};

/// Submits so many tasks at once, and returns how long it took until all were done.
std::chrono::nanoseconds RunAtOnce(CLS_System& _clsSystem, std::size_t _uiTasks,
                                   std::chrono::microseconds _usComputing)
{
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

void MeasureEmpty(CLS_System& _clsSystem, ST_Result& _stResult, std::size_t _uiTasks)
{
    const std::uint64_t uiRetriesBefore = _clsSystem.GetRetries().value_or(0);
    const std::chrono::nanoseconds nsWall = RunAtOnce(_clsSystem, _uiTasks, {});
    _stResult.m_vecValues = {{"tasks_per_s", static_cast<double>(_uiTasks) / Clocks::ToSeconds(nsWall)}};
    if (const auto uiRetries = _clsSystem.GetRetries())
    {
        _stResult.m_vecValues.emplace_back("retries", static_cast<double>(*uiRetries - uiRetriesBefore));
    }
}

void MeasureComputing(CLS_System& _clsSystem, ST_Result& _stResult, std::size_t _uiTasks)
{
    const std::chrono::nanoseconds nsWall = RunAtOnce(_clsSystem, _uiTasks, COMPUTING);
    const double dUseful = Clocks::ToSeconds(COMPUTING) * static_cast<double>(_uiTasks);
    const double dThere = Clocks::ToSeconds(nsWall) * std::thread::hardware_concurrency();
    _stResult.m_vecValues = {{"used_percent", 100 * dUseful / dThere}};
}
} // namespace

void Workloads::AddThroughput(Cases& _vecCases, bool _bQuick)
{
    const std::size_t uiFewer = _bQuick ? 100 : 10000;
    for (const std::size_t uiTasks : {uiFewer, 10 * uiFewer})
    {
        _vecCases.push_back({"W4", std::to_string(uiTasks) + " tasks", static_cast<double>(uiTasks),
                             [uiTasks](CLS_System& _clsSystem, ST_Result& _stResult)
                             { MeasureEmpty(_clsSystem, _stResult, uiTasks); }});
    }
    const std::size_t uiComputing = _bQuick ? 100 : 5000;
    _vecCases.push_back({"W4b", "", 0, [uiComputing](CLS_System& _clsSystem, ST_Result& _stResult) {
                             MeasureComputing(_clsSystem, _stResult, uiComputing);
                         }});
}
