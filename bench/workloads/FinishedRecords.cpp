// W11: what a submission and its run cost when many tasks have finished.

#include "bench/support/Clocks.h"
#include "bench/workloads/Workloads.h"

namespace
{
Results Measure(CLS_System& _clsSystem, const std::vector<std::size_t>& _vecPoints, std::size_t _uiTasks)
{
    Workloads::WarmUp(_clsSystem);
    Results vecResults;
    std::size_t uiFinished = 0;
    for (const std::size_t uiPoint : _vecPoints)
    {
        if (uiPoint > uiFinished)
        {
            Workloads::RunEmptyTasks(_clsSystem, uiPoint - uiFinished);
        }
        const std::chrono::nanoseconds nsBefore = Clocks::GetProcessCpu();
        const Clocks::TimePoint tpStart = Clocks::Now();
        Workloads::RunEmptyTasks(_clsSystem, _uiTasks);
        const std::chrono::nanoseconds nsWall = Clocks::Now() - tpStart;
        const std::chrono::nanoseconds nsCpu = Clocks::GetProcessCpu() - nsBefore;
        uiFinished = uiPoint + _uiTasks;
        const auto dTasks = static_cast<double>(_uiTasks);
        vecResults.push_back({std::to_string(uiPoint) + " finished",
                              static_cast<double>(uiPoint),
                              {{"cpu_us", Clocks::ToMicroseconds(nsCpu) / dTasks},
                               {"wall_us", Clocks::ToMicroseconds(nsWall) / dTasks}}});
    }
    return vecResults;
}
} // namespace

void Workloads::AddFinishedRecords(Cases& _vecCases, bool _bQuick)
{
    const std::vector<std::size_t> vecPoints =
        _bQuick ? std::vector<std::size_t>{0, 1000} : std::vector<std::size_t>{0, 10000, 100000, 1000000};
    const std::size_t uiTasks = _bQuick ? 200 : 5000;
    _vecCases.push_back({"W11", [vecPoints, uiTasks](CLS_System& _clsSystem)
                         { return Measure(_clsSystem, vecPoints, uiTasks); }});
}
