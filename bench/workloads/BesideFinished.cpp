// W12: the CPU time of an empty task alongside the records of finished ones, submitted by 1 or 8 threads.

#include "bench/support/Clocks.h"
#include "bench/support/Counters.h"
#include "bench/workloads/Workloads.h"

namespace
{
struct ST_Beside
{
    std::size_t m_uiFinished; ///< tasks that ran before, in addition to the warm-up
    std::size_t m_uiThreads;
    std::size_t m_uiTasks;
};

std::string Describe(const ST_Beside& _stBeside)
{
    return std::to_string(_stBeside.m_uiFinished) + " finished, " + std::to_string(_stBeside.m_uiThreads) +
           (_stBeside.m_uiThreads == 1 ? " submitter" : " submitters");
}

Results Measure(CLS_System& _clsSystem, const ST_Beside& _stBeside)
{
    Workloads::WarmUp(_clsSystem);
    Workloads::RunEmptyTasks(_clsSystem, _stBeside.m_uiFinished);
    CLS_Countdown clsDone(_stBeside.m_uiTasks);
    const std::uint64_t uiSwitchesBefore = Counters::GetSwitches();
    const std::optional<std::uint64_t> uiAllocationsBefore = Counters::GetAllocations();
    const std::chrono::nanoseconds nsBefore = Clocks::GetProcessCpu();
    Workloads::SubmitFromThreads(_clsSystem, _stBeside.m_uiThreads,
                                 _stBeside.m_uiTasks / _stBeside.m_uiThreads, clsDone);
    clsDone.Wait();
    const std::chrono::nanoseconds nsCpu = Clocks::GetProcessCpu() - nsBefore;
    const auto dTasks = static_cast<double>(_stBeside.m_uiTasks);
    ST_Result stResult{
        Describe(_stBeside),
        static_cast<double>(_stBeside.m_uiFinished + _stBeside.m_uiTasks),
        {{"process_us", Clocks::ToMicroseconds(nsCpu) / dTasks},
         {"switches", static_cast<double>(Counters::GetSwitches() - uiSwitchesBefore) / dTasks}}};
    if (const auto uiAllocations = Counters::GetAllocations())
    {
        stResult.m_vecValues.emplace_back(
            "allocations", static_cast<double>(*uiAllocations - uiAllocationsBefore.value_or(0)) / dTasks);
    }
    return {stResult};
}

void AddCase(Cases& _vecCases, const std::string& _strWorkload, const ST_Beside& _stBeside)
{
    _vecCases.push_back(
        {_strWorkload, [_stBeside](CLS_System& _clsSystem) { return Measure(_clsSystem, _stBeside); }});
}
} // namespace

void Workloads::AddBesideFinished(Cases& _vecCases, bool _bQuick)
{
    const std::size_t uiTasks = _bQuick ? 80 : 40000;
    const std::size_t uiFewer = _bQuick ? 100 : 122000;
    const std::size_t uiMany = _bQuick ? 200 : 1000000;
    AddCase(_vecCases, "W12", {uiFewer, 1, uiTasks});
    AddCase(_vecCases, "W12", {uiFewer, 8, uiTasks});
    AddCase(_vecCases, "W12", {uiMany, 1, uiTasks});
}

void Workloads::AddProfiles(Cases& _vecCases, bool _bQuick)
{
    const std::size_t uiTasks = _bQuick ? 80 : 160000;
    AddCase(_vecCases, "profile-1", {0, 1, uiTasks});
    AddCase(_vecCases, "profile-8", {0, 8, uiTasks});
}
