// W9: how late tasks start in a steady stream of tasks that block and compute a little.

#include "bench/support/Clocks.h"
#include "bench/support/Statistics.h"
#include "bench/workloads/Workloads.h"

#include <thread>

namespace
{
constexpr std::chrono::milliseconds PERIOD{1};
constexpr std::chrono::milliseconds BLOCKING{5};
constexpr std::chrono::microseconds COMPUTING{50};

Results Measure(CLS_System& _clsSystem, std::size_t _uiTasks)
{
    Workloads::WarmUp(_clsSystem);
    std::vector<double> vecDelays(_uiTasks);
    CLS_Countdown clsDone(_uiTasks);
    Clocks::TimePoint tpNext = Clocks::Now();
    for (double& dDelay : vecDelays)
    {
        std::this_thread::sleep_until(tpNext);
        tpNext += PERIOD;
        const auto funTask = [&dDelay, &clsDone, tpSubmission = Clocks::Now()]
        {
            dDelay = Clocks::ToMicroseconds(Clocks::Now() - tpSubmission);
            std::this_thread::sleep_for(BLOCKING);
            Clocks::UseCpu(COMPUTING);
            clsDone.CountDown();
        };
        _clsSystem.Submit(funTask, &_clsSystem);
    }
    clsDone.Wait();
    return {{"",
             0,
             {{"p50_us", Statistics::GetPercentile(vecDelays, 50)},
              {"p99_us", Statistics::GetPercentile(vecDelays, 99)}}}};
}
} // namespace

void Workloads::AddMixedLoad(Cases& _vecCases, bool _bQuick)
{
    const std::size_t uiTasks = _bQuick ? 100 : 5000;
    _vecCases.push_back({"W9", [uiTasks](CLS_System& _clsSystem) { return Measure(_clsSystem, uiTasks); }});
}
