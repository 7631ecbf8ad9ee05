// W7: what a pool without work costs, and how often it wakes up.

#include "bench/support/Clocks.h"
#include "bench/support/Counters.h"
#include "bench/workloads/Workloads.h"

#include <algorithm>
#include <thread>

namespace
{
constexpr unsigned MANY_WORKERS = 301;

/// Runs _uiWorkers tasks at once, so that the pool starts a worker for each.
void MakeWorkers(CLS_System& _clsSystem, unsigned _uiWorkers)
{
    CLS_Countdown clsStarted(_uiWorkers);
    CLS_Countdown clsDone(_uiWorkers);
    for (unsigned i = 0; i < _uiWorkers; ++i)
    {
        const auto funTask = [&clsStarted, &clsDone]
        {
            clsStarted.CountDown();
            clsStarted.Wait();
            clsDone.CountDown();
        };
        _clsSystem.Submit(funTask, &_clsSystem);
    }
    clsDone.Wait();
}

std::string Describe(unsigned _uiWorkers)
{
    if (_uiWorkers == 0)
    {
        return "fresh";
    }
    return std::to_string(_uiWorkers) + (_uiWorkers == 1 ? " worker" : " workers");
}

Results Measure(CLS_System& _clsSystem, unsigned _uiWorkers, std::chrono::milliseconds _msWindow)
{
    if (_uiWorkers > 0 && _clsSystem.GetThreadLimit() == CLS_System::NO_LIMIT)
    {
        return {{Describe(_uiWorkers), 0, {}, "keeps no threads"}};
    }
    if (_clsSystem.GetThreadLimit() < _uiWorkers)
    {
        return {{Describe(_uiWorkers), 0, {}, std::to_string(_clsSystem.GetThreadLimit()) + " at most"}};
    }
    if (_uiWorkers > 0)
    {
        MakeWorkers(_clsSystem, _uiWorkers);
    }
    // Give workers that are still starting or finishing time to fall asleep.
    std::this_thread::sleep_for(_msWindow / 20);
    const std::chrono::nanoseconds nsBefore = Clocks::GetProcessCpu();
    const std::uint64_t uiWaitsBefore = Counters::GetWaits();
    std::this_thread::sleep_for(_msWindow);
    // Each thread that wakes up waits again, so each wait is a wake-up. One is that of this thread.
    const std::uint64_t uiWakeUps = std::max<std::uint64_t>(Counters::GetWaits() - uiWaitsBefore, 1) - 1;
    const std::chrono::nanoseconds nsCpu = Clocks::GetProcessCpu() - nsBefore;
    return {{Describe(_uiWorkers),
             static_cast<double>(_uiWorkers),
             {{"cpu_ms", Clocks::ToMilliseconds(nsCpu)},
              {"wakeups_per_s", static_cast<double>(uiWakeUps) / Clocks::ToSeconds(_msWindow)}}}};
}
} // namespace

void Workloads::AddIdlePool(Cases& _vecCases, bool _bQuick)
{
    const std::chrono::milliseconds msWindow(_bQuick ? 100 : 10000);
    for (const unsigned uiWorkers : {0U, 1U, MANY_WORKERS})
    {
        _vecCases.push_back({"W7", [uiWorkers, msWindow](CLS_System& _clsSystem)
                             { return Measure(_clsSystem, uiWorkers, msWindow); }});
    }
}
