// W2: what the submission of an empty task costs.

#include "bench/support/CLS_Countdown.h"
#include "bench/support/Clocks.h"
#include "bench/workloads/Workloads.h"

#include <thread>

namespace
{
/// Submits an equal share of the tasks from each thread, and returns what CPU time that took them.
std::chrono::nanoseconds SubmitFromThreads(CLS_System& _clsSystem, std::size_t _uiThreads,
                                           std::size_t _uiShare, CLS_Countdown& _clsDone)
{
    std::vector<std::chrono::nanoseconds> vecCpu(_uiThreads);
    std::vector<std::thread> vecThreads;
    vecThreads.reserve(_uiThreads);
    for (std::chrono::nanoseconds& nsCpu : vecCpu)
    {
        vecThreads.emplace_back(
            [&_clsSystem, &_clsDone, &nsCpu, _uiShare]
            {
                const std::chrono::nanoseconds nsBefore = Clocks::GetThreadCpu();
                for (std::size_t i = 0; i < _uiShare; ++i)
                {
                    _clsSystem.Submit([&_clsDone] { _clsDone.CountDown(); }, &nsCpu);
                }
                nsCpu = Clocks::GetThreadCpu() - nsBefore;
            });
    }
    std::chrono::nanoseconds nsTotal(0);
    for (std::size_t i = 0; i < _uiThreads; ++i)
    {
        vecThreads[i].join();
        nsTotal += vecCpu[i];
    }
    return nsTotal;
}

void Measure(CLS_System& _clsSystem, ST_Result& _stResult, std::size_t _uiThreads, std::size_t _uiTasks)
{
    // Workers are there before the clock starts.
    CLS_Countdown clsWarm(_uiTasks);
    SubmitFromThreads(_clsSystem, _uiThreads, _uiTasks / _uiThreads, clsWarm);
    clsWarm.Wait();

    CLS_Countdown clsDone(_uiTasks);
    const std::chrono::nanoseconds nsBefore = Clocks::GetProcessCpu();
    const std::chrono::nanoseconds nsSubmitters =
        SubmitFromThreads(_clsSystem, _uiThreads, _uiTasks / _uiThreads, clsDone);
    clsDone.Wait();
    const auto dTasks = static_cast<double>(_uiTasks);
    _stResult.m_vecValues = {
        {"submitter_us", Clocks::ToMicroseconds(nsSubmitters) / dTasks},
        {"process_us", Clocks::ToMicroseconds(Clocks::GetProcessCpu() - nsBefore) / dTasks}};
}
} // namespace

void Workloads::AddSubmissionCost(Cases& _vecCases, bool _bQuick)
{
    const std::size_t uiTasks = _bQuick ? 100 : 5000;
    for (const std::size_t uiThreads : {std::size_t{1}, std::size_t{2}})
    {
        const std::string strCase = uiThreads == 1 ? "1 submitter" : "2 submitters";
        _vecCases.push_back({"W2", strCase, static_cast<double>(uiThreads),
                             [uiThreads, uiTasks](CLS_System& _clsSystem, ST_Result& _stResult)
                             { Measure(_clsSystem, _stResult, uiThreads, uiTasks); }});
    }
}
