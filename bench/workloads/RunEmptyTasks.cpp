#include "bench/support/CLS_Countdown.h"
#include "bench/workloads/Workloads.h"

#include <algorithm>

void Workloads::RunEmptyTasks(CLS_System& _clsSystem, std::size_t _uiTasks)
{
    // Fewer than the pool's workers, so the pool never waits for one.
    constexpr std::size_t AT_ONCE = 200;
    for (std::size_t uiLeft = _uiTasks; uiLeft > 0;)
    {
        const std::size_t uiNow = std::min(uiLeft, AT_ONCE);
        CLS_Countdown clsDone(uiNow);
        for (std::size_t i = 0; i < uiNow; ++i)
        {
            _clsSystem.Submit([&clsDone] { clsDone.CountDown(); }, &_clsSystem);
        }
        clsDone.Wait();
        uiLeft -= uiNow;
    }
}

void Workloads::WarmUp(CLS_System& _clsSystem)
{
    RunEmptyTasks(_clsSystem, 1000);
}
