// W10: how many submissions per second a system accepts from several threads.

#include "bench/support/Clocks.h"
#include "bench/workloads/Workloads.h"

namespace
{
Results Measure(CLS_System& _clsSystem, std::size_t _uiThreads, std::size_t _uiTasks)
{
    Workloads::WarmUp(_clsSystem);
    CLS_Countdown clsDone(_uiTasks);
    const Clocks::TimePoint tpStart = Clocks::Now();
    Workloads::SubmitFromThreads(_clsSystem, _uiThreads, _uiTasks / _uiThreads, clsDone);
    const double dSeconds = Clocks::ToSeconds(Clocks::Now() - tpStart);
    clsDone.Wait();
    const std::string strCase = std::to_string(_uiThreads) + (_uiThreads == 1 ? " submitter" : " submitters");
    return {{strCase,
             static_cast<double>(_uiThreads),
             {{"submissions_per_s", static_cast<double>(_uiTasks) / dSeconds}}}};
}
} // namespace

void Workloads::AddSubmitters(Cases& _vecCases, bool _bQuick)
{
    const std::size_t uiTasks = _bQuick ? 80 : 40000;
    for (const std::size_t uiThreads : {std::size_t{1}, std::size_t{2}, std::size_t{4}, std::size_t{8}})
    {
        _vecCases.push_back({"W10", [uiThreads, uiTasks](CLS_System& _clsSystem)
                             { return Measure(_clsSystem, uiThreads, uiTasks); }});
    }
}
