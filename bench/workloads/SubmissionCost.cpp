// W2: the CPU time that the submission of an empty task costs.

#include "bench/support/Clocks.h"
#include "bench/workloads/Workloads.h"

namespace
{
Results Measure(CLS_System& _clsSystem, std::size_t _uiThreads, std::size_t _uiTasks)
{
    const std::size_t uiEach = _uiTasks / _uiThreads;
    // A first round starts the workers that the measured round needs.
    CLS_Countdown clsWarm(_uiTasks);
    Workloads::SubmitFromThreads(_clsSystem, _uiThreads, uiEach, clsWarm);
    clsWarm.Wait();

    CLS_Countdown clsDone(_uiTasks);
    const std::chrono::nanoseconds nsBefore = Clocks::GetProcessCpu();
    const std::chrono::nanoseconds nsSubmitters =
        Workloads::SubmitFromThreads(_clsSystem, _uiThreads, uiEach, clsDone);
    clsDone.Wait();
    const std::chrono::nanoseconds nsProcess = Clocks::GetProcessCpu() - nsBefore;
    const auto dTasks = static_cast<double>(_uiTasks);
    return {{_uiThreads == 1 ? "1 submitter" : "2 submitters",
             static_cast<double>(_uiThreads),
             {{"submitter_us", Clocks::ToMicroseconds(nsSubmitters) / dTasks},
              {"process_us", Clocks::ToMicroseconds(nsProcess) / dTasks}}}};
}
} // namespace

void Workloads::AddSubmissionCost(Cases& _vecCases, bool _bQuick)
{
    const std::size_t uiTasks = _bQuick ? 100 : 5000;
    for (const std::size_t uiThreads : {std::size_t{1}, std::size_t{2}})
    {
        _vecCases.push_back({"W2", [uiThreads, uiTasks](CLS_System& _clsSystem)
                             { return Measure(_clsSystem, uiThreads, uiTasks); }});
    }
}
