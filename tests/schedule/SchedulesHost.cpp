// Runs the pool under schedules that it chooses itself, and asserts at every step what must hold. See
// docs/schedules.md.

#include "tests/schedule/pool/Crashes.h"
#include "tests/schedule/pool/Runner.h"
#include "tests/schedule/pool/World.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <iostream>

namespace
{
constexpr std::size_t STEPS_SHOWN = 150;

struct ST_Options
{
    std::string m_strScenario;
    std::string m_strStrategy;
    std::uint64_t m_uiFirst = 1;
    std::uint64_t m_uiCount = 500;
    std::uint64_t m_uiExhaustive = 20000;
    int m_iMeasure = 0;
    bool m_bList = false;
    CLI::Option* m_pSeed = nullptr;
    std::uint64_t m_uiSeed = 0;
    CLI::Option* m_pDelays = nullptr;
    std::string m_strDelays;
};

/// Whether the schedule that the runner ran last repeats; after a failure prints all about it.
bool RunLastAgain(const ST_Scenario& _stScenario, const std::string& _strStrategy,
                  const CLS_Runner& _clsFirst)
{
    const ST_Outcome& stFirst = _clsFirst.GetExploration().GetOutcome();
    CLS_Runner clsAgain(_stScenario, _strStrategy, !stFirst.m_strFailure.empty());
    if (_strStrategy == "exhaustive")
    {
        clsAgain.RunDelays(_clsFirst.GetDelays());
    }
    else
    {
        clsAgain.Run(_clsFirst.GetExploration().GetSeed(), 1);
    }
    const ST_Outcome& stAgain = clsAgain.GetExploration().GetOutcome();
    const bool bSame = stAgain.m_uiHash == stFirst.m_uiHash && stAgain.m_strFailure == stFirst.m_strFailure;
    if (!stFirst.m_strFailure.empty())
    {
        std::cout << "FAILED " << clsAgain.Report(STEPS_SHOWN);
    }
    if (!bSame || !stFirst.m_strFailure.empty())
    {
        std::cout << (bSame ? "Repeat it: " : "It did not repeat: ") << "zel_schedules "
                  << _clsFirst.GetRepetition() << std::endl;
    }
    return bSame;
}

/// One line of the table. False when a schedule failed or did not repeat.
bool RunRow(const ST_Options& _stOptions, const ST_Scenario& _stScenario, const std::string& _strStrategy)
{
    const auto tpBegin = std::chrono::steady_clock::now();
    CLS_Runner clsRunner(_stScenario, _strStrategy);
    const bool bExhaustive = _strStrategy == "exhaustive";
    const bool bPassed =
        clsRunner.Run(_stOptions.m_uiFirst, bExhaustive ? _stOptions.m_uiExhaustive : _stOptions.m_uiCount);
    const std::chrono::duration<double> sTaken = std::chrono::steady_clock::now() - tpBegin;
    const CLS_Exploration& clsExploration = clsRunner.GetExploration();
    std::printf("| %s | %s | %llu%s | %llu | %.1f |\n", _stScenario.m_strName.c_str(), _strStrategy.c_str(),
                static_cast<unsigned long long>(clsExploration.CountSchedules()),
                clsExploration.IsComplete() ? " (all)" : "",
                static_cast<unsigned long long>(clsExploration.CountSteps()), sTaken.count());
    std::fflush(stdout);
    // An exhaustive search has turned to the next schedule unless it failed.
    const bool bRepeats = (bExhaustive && bPassed) || RunLastAgain(_stScenario, _strStrategy, clsRunner);
    return bRepeats && bPassed;
}

/// Prints how many schedules it took to find a fault, from several first seeds; ends with 0 where it was not
/// found.
void Measure(const ST_Options& _stOptions, const ST_Scenario& _stScenario, const std::string& _strStrategy)
{
    const int iBases = _strStrategy == "exhaustive" ? 1 : _stOptions.m_iMeasure;
    std::string strFailure;
    std::string strCounts;
    bool bPassed = false;
    for (int iBase = 0; iBase < iBases && !bPassed; ++iBase)
    {
        CLS_Runner clsRunner(_stScenario, _strStrategy);
        const auto uiFirst = _stOptions.m_uiFirst + static_cast<std::uint64_t>(iBase) * 1000000;
        bPassed = clsRunner.Run(uiFirst, _stOptions.m_uiCount);
        strCounts += " " + std::to_string(bPassed ? 0 : clsRunner.GetExploration().CountSchedules());
        strFailure = bPassed ? strFailure : clsRunner.GetExploration().GetOutcome().m_strFailure;
    }
    std::cout << _stScenario.m_strName << " " << _strStrategy << strCounts << " : " << strFailure
              << std::endl;
}

bool RunAgain(const ST_Options& _stOptions, const ST_Scenario& _stScenario)
{
    CLS_Runner clsRunner(_stScenario, _stOptions.m_strStrategy, true);
    const bool bPassed = *_stOptions.m_pDelays ? clsRunner.RunDelays(_stOptions.m_strDelays)
                                               : clsRunner.Run(_stOptions.m_uiSeed, 1);
    std::cout << clsRunner.Report(SIZE_MAX);
    return bPassed;
}

bool RunScenario(const ST_Options& _stOptions, const ST_Scenario& _stScenario)
{
    if (*_stOptions.m_pSeed || *_stOptions.m_pDelays)
    {
        return RunAgain(_stOptions, _stScenario);
    }
    bool bPassed = true;
    for (const std::string& strStrategy : CLS_Runner::GetStrategies())
    {
        const bool bMeant = CLS_Runner::IsMeant(_stScenario, strStrategy) &&
                            (_stOptions.m_strStrategy.empty() || strStrategy == _stOptions.m_strStrategy);
        if (bMeant && _stOptions.m_iMeasure > 0)
        {
            Measure(_stOptions, _stScenario, strStrategy);
        }
        else if (bMeant)
        {
            bPassed = RunRow(_stOptions, _stScenario, strStrategy) && bPassed;
        }
    }
    return bPassed;
}

void AddOptions(CLI::App& _clsApp, ST_Options& _stOptions)
{
    _clsApp.add_flag("--list", _stOptions.m_bList, "print the scenarios");
    _clsApp.add_option("--scenario", _stOptions.m_strScenario, "this one alone");
    _clsApp.add_option("--strategy", _stOptions.m_strStrategy, "this one alone")
        ->check(CLI::IsMember(CLS_Runner::GetStrategies()));
    _clsApp.add_option("--first", _stOptions.m_uiFirst, "the first seed");
    _clsApp.add_option("--seeds", _stOptions.m_uiCount, "how many, for each scenario and strategy");
    _clsApp.add_option("--exhaustive", _stOptions.m_uiExhaustive,
                       "how many schedules of an exhaustive search");
    _clsApp.add_option("--measure", _stOptions.m_iMeasure,
                       "print how many schedules it takes to fail, from so many first seeds");
    _stOptions.m_pSeed =
        _clsApp.add_option("--seed", _stOptions.m_uiSeed, "run this one and print its steps");
    _stOptions.m_pDelays = _clsApp.add_option(
        "--delays", _stOptions.m_strDelays, "run this schedule of an exhaustive search and print its steps");
}
} // namespace

int main(int _iCount, char** _ppTexts) // NOLINT(bugprone-exception-escape)
{
    ST_Options stOptions;
    CLI::App clsApp("Runs the pool under schedules that are chosen");
    AddOptions(clsApp, stOptions);
    CLI11_PARSE(clsApp, _iCount, _ppTexts);
    PrepareProcess();
    Crashes::TurnIntoFailures();
    bool bPassed = true;
    bool bFound = false;
    for (const ST_Scenario& stScenario : GetAllScenarios())
    {
        if (stOptions.m_bList)
        {
            std::cout << stScenario.m_strName << std::endl;
        }
        else if (stOptions.m_strScenario.empty() || stOptions.m_strScenario == stScenario.m_strName)
        {
            bFound = true;
            bPassed = RunScenario(stOptions, stScenario) && bPassed;
        }
    }
    if (!bFound && !stOptions.m_bList)
    {
        std::cerr << "There is no such scenario" << std::endl;
        return 2;
    }
    return bPassed ? 0 : 1;
}
