// Runs the pool under controlled schedules, and checks the rules at every step. See docs/verification.md.

#include "verify/schedules/pool/Crashes.h"
#include "verify/schedules/pool/Marks.h"
#include "verify/schedules/pool/Runner.h"
#include "verify/schedules/pool/World.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <iostream>
#include <regex>

namespace
{
constexpr std::size_t STEPS_SHOWN = 150;

/// This number of seeds reaches everything that a scenario is meant to reach.
constexpr std::uint64_t SEEDS_TO_REACH_ALL = 500;

struct ST_Options
{
    std::string m_strScenario;
    std::string m_strStrategy;
    std::uint64_t m_uiFirst = 1;
    std::uint64_t m_uiCount = 500;
    std::uint64_t m_uiExhaustive = 100000; ///< enough for each scenario that is searched exhaustively
    int m_iMeasure = 0;
    bool m_bList = false;
    CLI::Option* m_pSeed = nullptr;
    std::uint64_t m_uiSeed = 0;
    CLI::Option* m_pDelays = nullptr;
    std::string m_strDelays;
};

/// Whether the last schedule of the runner repeats. After a failure, prints the report.
bool RunLastAgain(const ST_Scenario& _stScenario, const std::string& _strStrategy,
                  const CLS_Runner& _clsFirst)
{
    const ST_Outcome& stFirst = _clsFirst.GetExploration().GetOutcome();
    CLS_Runner clsAgain(_stScenario, _strStrategy, !stFirst.m_strFailure.empty());
    if (CLS_Runner::IsExhaustive(_strStrategy))
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

/// Prints one line of the table. False if a schedule failed or did not repeat.
bool RunRow(const ST_Options& _stOptions, const ST_Scenario& _stScenario, const std::string& _strStrategy)
{
    const auto tpBegin = std::chrono::steady_clock::now();
    CLS_Runner clsRunner(_stScenario, _strStrategy);
    const bool bExhaustive = CLS_Runner::IsExhaustive(_strStrategy);
    const bool bPassed =
        clsRunner.Run(_stOptions.m_uiFirst, bExhaustive ? _stOptions.m_uiExhaustive : _stOptions.m_uiCount);
    const std::chrono::duration<double> sTaken = std::chrono::steady_clock::now() - tpBegin;
    const CLS_Exploration& clsExploration = clsRunner.GetExploration();
    std::printf("| %s | %s | %llu%s | %llu | %.1f |\n", _stScenario.m_strName.c_str(), _strStrategy.c_str(),
                static_cast<unsigned long long>(clsExploration.CountSchedules()),
                clsExploration.IsComplete() ? " (all)" : "",
                static_cast<unsigned long long>(clsExploration.CountSteps()), sTaken.count());
    std::fflush(stdout);
    // An exhaustive search that passes has already moved to the next schedule.
    const bool bRepeats = (bExhaustive && bPassed) || RunLastAgain(_stScenario, _strStrategy, clsRunner);
    return bRepeats && bPassed;
}

/// Prints how many schedules it took to find a fault, from several first seeds. If one does not find it,
/// prints 0 and stops.
void Measure(const ST_Options& _stOptions, const ST_Scenario& _stScenario, const std::string& _strStrategy)
{
    const int iBases = CLS_Runner::IsExhaustive(_strStrategy) ? 1 : _stOptions.m_iMeasure;
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

/// Whether the schedules have reached everything that the scenario is meant to reach. Prints what is missing.
bool HasReachedAll(const ST_Options& _stOptions, const ST_Scenario& _stScenario)
{
    if (_stOptions.m_iMeasure > 0 || !_stOptions.m_strStrategy.empty() ||
        _stOptions.m_uiCount < SEEDS_TO_REACH_ALL)
    {
        return true;
    }
    const std::vector<std::string> vecMissing = Marks::FindMissing(_stScenario.m_vecMarks);
    for (const std::string& strMark : vecMissing)
    {
        std::cout << "FAILED " << _stScenario.m_strName << ": never reached: " << strMark << std::endl;
    }
    return vecMissing.empty();
}

bool RunScenario(const ST_Options& _stOptions, const ST_Scenario& _stScenario)
{
    Marks::Forget();
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
    return HasReachedAll(_stOptions, _stScenario) && bPassed;
}

std::vector<std::string> GetScenarioNames()
{
    std::vector<std::string> vecNames;
    for (const ST_Scenario& stScenario : GetAllScenarios())
    {
        vecNames.push_back(stScenario.m_strName);
    }
    return vecNames;
}

constexpr const char* NUMBER = "[0-9]{1,18}";
constexpr const char* COUNT = "[1-9][0-9]{0,17}";
constexpr const char* DELAYS = "([0-9]{1,6}(,[0-9]{1,6})*)?";

/// Accepts only texts of this form.
CLI::Validator Match(const char* _szForm, const std::string& _strName)
{
    return CLI::Validator(
        [regForm = std::regex(_szForm), _strName](const std::string& _strText)
        { return std::regex_match(_strText, regForm) ? "" : _strText + " is not a " + _strName; },
        "");
}

void AddOptions(CLI::App& _clsApp, ST_Options& _stOptions)
{
    _clsApp.add_flag("--list", _stOptions.m_bList, "print the scenarios");
    _clsApp.add_option("--scenario", _stOptions.m_strScenario, "this one alone")
        ->check(CLI::IsMember(GetScenarioNames()));
    _clsApp.add_option("--strategy", _stOptions.m_strStrategy, "this one alone")
        ->check(CLI::IsMember(CLS_Runner::GetStrategies()));
    _clsApp.add_option("--first", _stOptions.m_uiFirst, "the first seed")->check(Match(NUMBER, "number"));
    _clsApp.add_option("--seeds", _stOptions.m_uiCount, "how many, for each scenario and strategy")
        ->check(Match(COUNT, "count"));
    _clsApp
        .add_option("--exhaustive", _stOptions.m_uiExhaustive,
                    "how many schedules of an exhaustive search, at most")
        ->check(Match(COUNT, "count"));
    _clsApp
        .add_option("--measure", _stOptions.m_iMeasure,
                    "print how many schedules it takes to fail, from this many first seeds")
        ->check(Match(COUNT, "count"));
}

/// Adds the options that repeat one schedule.
void AddRepetition(CLI::App& _clsApp, ST_Options& _stOptions)
{
    _stOptions.m_pSeed =
        _clsApp.add_option("--seed", _stOptions.m_uiSeed, "run this one and print its steps")
            ->check(Match(NUMBER, "number"));
    _stOptions.m_pDelays = _clsApp
                               .add_option("--delays", _stOptions.m_strDelays,
                                           "run this schedule of an exhaustive search and print its steps")
                               ->check(Match(DELAYS, "list of steps"));
    for (CLI::Option* const pOne : {_stOptions.m_pSeed, _stOptions.m_pDelays})
    {
        pOne->needs("--scenario")->needs("--strategy")->excludes("--measure")->excludes("--list");
    }
    _stOptions.m_pSeed->excludes(_stOptions.m_pDelays);
}

/// The error in a combination of options; "" if there is none.
std::string CheckTogether(const ST_Options& _stOptions)
{
    const bool bExhaustive = CLS_Runner::IsExhaustive(_stOptions.m_strStrategy);
    if (*_stOptions.m_pSeed && bExhaustive)
    {
        return "--seed does not apply to " + _stOptions.m_strStrategy;
    }
    if (*_stOptions.m_pDelays && !bExhaustive)
    {
        return "--delays does not apply to " + _stOptions.m_strStrategy;
    }
    for (const ST_Scenario& stScenario : GetAllScenarios())
    {
        if (stScenario.m_strName == _stOptions.m_strScenario && !_stOptions.m_strStrategy.empty() &&
            !CLS_Runner::IsMeant(stScenario, _stOptions.m_strStrategy))
        {
            return _stOptions.m_strStrategy + " does not apply to " + _stOptions.m_strScenario;
        }
    }
    return "";
}

/// Runs the requested scenarios. False if a schedule failed.
bool RunScenarios(const ST_Options& _stOptions)
{
    PrepareProcess();
    Crashes::TurnIntoFailures();
    bool bPassed = true;
    for (const ST_Scenario& stScenario : GetAllScenarios())
    {
        if (_stOptions.m_strScenario.empty() || _stOptions.m_strScenario == stScenario.m_strName)
        {
            bPassed = RunScenario(_stOptions, stScenario) && bPassed;
        }
    }
    return bPassed;
}
} // namespace

int main(int _iCount, char** _ppTexts) // NOLINT(bugprone-exception-escape)
{
    ST_Options stOptions;
    CLI::App clsApp("Runs the pool under controlled schedules");
    AddOptions(clsApp, stOptions);
    AddRepetition(clsApp, stOptions);
    std::string strWrong;
    try
    {
        clsApp.parse(_iCount, _ppTexts);
        strWrong = CheckTogether(stOptions);
    }
    catch (const CLI::ParseError& exError)
    {
        if (exError.get_exit_code() == 0)
        {
            return clsApp.exit(exError); // for --help
        }
        strWrong = exError.what();
    }
    if (!strWrong.empty())
    {
        std::cerr << strWrong << std::endl;
        return 2;
    }
    if (stOptions.m_bList)
    {
        for (const std::string& strName : GetScenarioNames())
        {
            std::cout << strName << std::endl;
        }
        return 0;
    }
    return RunScenarios(stOptions) ? 0 : 1;
}
