// W8: the memory that a pool keeps for finished one-shot tasks.

#include "bench/workloads/Workloads.h"
#include "verify/soak/Figures.h"

namespace
{
Results Measure(CLS_System& _clsSystem, const std::vector<std::size_t>& _vecPoints)
{
    Workloads::WarmUp(_clsSystem);
    const std::int64_t iHeapBefore = Figures::GetHeap();
    const std::int64_t iResidentBefore = Figures::GetResident();
    Results vecResults;
    std::size_t uiFinished = 0;
    for (const std::size_t uiPoint : _vecPoints)
    {
        Workloads::RunEmptyTasks(_clsSystem, uiPoint - uiFinished);
        uiFinished = uiPoint;
        const auto dHeap = static_cast<double>(Figures::GetHeap() - iHeapBefore);
        const auto dResident = static_cast<double>(Figures::GetResident() - iResidentBefore);
        const auto dTasks = static_cast<double>(uiPoint);
        vecResults.push_back({std::to_string(uiPoint) + " finished",
                              dTasks,
                              {{"bytes_per_task", dHeap / dTasks},
                               {"heap_mb", dHeap / 1e6},
                               {"resident_mb", dResident / 1e6}}});
    }
    return vecResults;
}
} // namespace

void Workloads::AddMemory(Cases& _vecCases, bool _bQuick)
{
    const std::vector<std::size_t> vecPoints =
        _bQuick ? std::vector<std::size_t>{500, 1000}
                : std::vector<std::size_t>{100000, 250000, 500000, 1000000};
    _vecCases.push_back(
        {"W8", [vecPoints](CLS_System& _clsSystem) { return Measure(_clsSystem, vecPoints); }});
}
