// W3: the time from the submission to the start of a task while all workers sleep.

#include "bench/support/CLS_Countdown.h"
#include "bench/support/Clocks.h"
#include "bench/support/Statistics.h"
#include "bench/workloads/Workloads.h"

#include <thread>

namespace
{
/// Long enough for every thread to fall asleep.
constexpr std::chrono::milliseconds PAUSE{1};
constexpr std::size_t WARM_UPS = 20;

double MeasureOnce(CLS_System& _clsSystem)
{
    std::this_thread::sleep_for(PAUSE);
    CLS_Countdown clsDone(1);
    Clocks::TimePoint tpStart;
    const Clocks::TimePoint tpSubmission = Clocks::Now();
    const auto funTask = [&clsDone, &tpStart]
    {
        tpStart = Clocks::Now();
        clsDone.CountDown();
    };
    _clsSystem.Submit(funTask, &_clsSystem);
    clsDone.Wait();
    return Clocks::ToMicroseconds(tpStart - tpSubmission);
}

Results Measure(CLS_System& _clsSystem, std::size_t _uiSamples)
{
    for (std::size_t i = 0; i < WARM_UPS; ++i)
    {
        MeasureOnce(_clsSystem);
    }
    std::vector<double> vecDelays;
    for (std::size_t i = 0; i < _uiSamples; ++i)
    {
        vecDelays.push_back(MeasureOnce(_clsSystem));
    }
    return {{"",
             0,
             {{"p50_us", Statistics::GetPercentile(vecDelays, 50)},
              {"p99_us", Statistics::GetPercentile(vecDelays, 99)}}}};
}
} // namespace

void Workloads::AddStartDelay(Cases& _vecCases, bool _bQuick)
{
    const std::size_t uiSamples = _bQuick ? 20 : 3000;
    _vecCases.push_back(
        {"W3", [uiSamples](CLS_System& _clsSystem) { return Measure(_clsSystem, uiSamples); }});
}
