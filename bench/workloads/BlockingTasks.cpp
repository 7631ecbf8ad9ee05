// W1: how long many tasks that block take, submitted at once.

#include "bench/support/CLS_Countdown.h"
#include "bench/support/Clocks.h"
#include "bench/workloads/Workloads.h"

#include <thread>

namespace
{
constexpr std::size_t TASKS = 300;

Results Measure(CLS_System& _clsSystem, std::chrono::milliseconds _msBlock)
{
    CLS_Countdown clsDone(TASKS);
    const Clocks::TimePoint tpStart = Clocks::Now();
    for (std::size_t i = 0; i < TASKS; ++i)
    {
        const auto funTask = [&clsDone, _msBlock]
        {
            std::this_thread::sleep_for(_msBlock);
            clsDone.CountDown();
        };
        _clsSystem.Submit(funTask, &_clsSystem);
    }
    clsDone.Wait();
    return {{"", 0, {{"wall_ms", Clocks::ToMilliseconds(Clocks::Now() - tpStart)}}}};
}
} // namespace

void Workloads::AddBlockingTasks(Cases& _vecCases, bool _bQuick)
{
    const std::chrono::milliseconds msBlock(_bQuick ? 1 : 100);
    _vecCases.push_back({"W1", [msBlock](CLS_System& _clsSystem) { return Measure(_clsSystem, msBlock); }});
}
