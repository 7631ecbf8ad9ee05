// The program of one system: runs workloads and prints a line of JSON for each result.

#include "bench/workloads/Workloads.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <nlohmann/json.hpp>
#include <sys/wait.h>
#include <unistd.h>

namespace
{
using Json = nlohmann::ordered_json;

struct ST_BenchOptions
{
    std::vector<std::string> m_vecWorkloads;
    bool m_bQuick = false;
    bool m_bDescribe = false;
    ST_Setup m_stSetup;
};

Cases MakeCases(bool _bQuick)
{
    Cases vecCases;
    Workloads::AddBlockingTasks(vecCases, _bQuick);
    Workloads::AddSubmissionCost(vecCases, _bQuick);
    Workloads::AddStartDelay(vecCases, _bQuick);
    Workloads::AddThroughput(vecCases, _bQuick);
    Workloads::AddRemoval(vecCases, _bQuick);
    Workloads::AddLoopTasks(vecCases, _bQuick);
    Workloads::AddIdlePool(vecCases, _bQuick);
    Workloads::AddMemory(vecCases, _bQuick);
    Workloads::AddMixedLoad(vecCases, _bQuick);
    Workloads::AddSubmitters(vecCases, _bQuick);
    Workloads::AddFinishedRecords(vecCases, _bQuick);
    Workloads::AddBesideFinished(vecCases, _bQuick);
    Workloads::AddProfiles(vecCases, _bQuick);
    return vecCases;
}

/// The name in results: "Qt" for the default, "Qt/301" with a number of threads.
std::string GetSystemName(const ST_Setup& _stSetup)
{
    const std::string strName = System::GetName();
    return _stSetup.m_uiThreads == 0 ? strName : strName + "/" + std::to_string(_stSetup.m_uiThreads);
}

void PrintLine(const Json& _clsLine)
{
    std::cout << _clsLine.dump() << std::endl;
}

void Describe(const ST_Setup& _stSetup)
{
    const unsigned uiThreads = System::Make(_stSetup)->GetThreadLimit();
    PrintLine({{"system", GetSystemName(_stSetup)},
               {"describe", System::Describe()},
               {"takes_threads", System::HasThreadSetting()},
               {"threads", uiThreads == CLS_System::NO_LIMIT ? Json() : Json(uiThreads)}});
}

void PrintResult(const ST_Result& _stResult, const std::string& _strWorkload, const ST_Setup& _stSetup)
{
    Json clsLine{{"system", GetSystemName(_stSetup)},
                 {"workload", _strWorkload},
                 {"case", _stResult.m_strCase},
                 {"x", _stResult.m_dX}};
    if (!_stResult.m_strNotOffered.empty())
    {
        clsLine["not_offered"] = _stResult.m_strNotOffered;
    }
    Json clsValues = Json::object();
    for (const auto& [strName, dValue] : _stResult.m_vecValues)
    {
        clsValues[strName] = dValue;
    }
    clsLine["values"] = clsValues;
    PrintLine(clsLine);
}

void RunCase(const ST_Case& _stCase, const ST_Setup& _stSetup)
{
    const std::unique_ptr<CLS_System> pSystem = System::Make(_stSetup);
    for (const ST_Result& stResult : _stCase.m_funMeasure(*pSystem))
    {
        PrintResult(stResult, _stCase.m_strWorkload, _stSetup);
    }
}

int RunCaseHere(const ST_Case& _stCase, const ST_Setup& _stSetup)
{
    try
    {
        RunCase(_stCase, _stSetup);
        return EXIT_SUCCESS;
    }
    catch (const std::exception& clsError)
    {
        std::cerr << GetSystemName(_stSetup) << " " << _stCase.m_strWorkload << ": " << clsError.what()
                  << std::endl;
        return EXIT_FAILURE;
    }
}

/// Runs the case in a process of its own, so that no case affects the next.
bool RunCaseApart(const ST_Case& _stCase, const ST_Setup& _stSetup)
{
    const pid_t iChild = fork();
    if (iChild == 0)
    {
        std::_Exit(RunCaseHere(_stCase, _stSetup));
    }
    int iStatus = 0;
    if (iChild < 0 || waitpid(iChild, &iStatus, 0) != iChild)
    {
        std::cerr << "cannot start a process" << std::endl;
        return false;
    }
    return WIFEXITED(iStatus) && WEXITSTATUS(iStatus) == EXIT_SUCCESS;
}

bool IsAsked(const ST_BenchOptions& _stOptions, const std::string& _strWorkload)
{
    const std::vector<std::string>& vecAsked = _stOptions.m_vecWorkloads;
    return vecAsked.empty() || std::find(vecAsked.begin(), vecAsked.end(), _strWorkload) != vecAsked.end();
}

bool RunAll(const ST_BenchOptions& _stOptions)
{
    bool bAllRan = true;
    for (const ST_Case& stCase : MakeCases(_stOptions.m_bQuick))
    {
        if (IsAsked(_stOptions, stCase.m_strWorkload))
        {
            bAllRan = RunCaseApart(stCase, _stOptions.m_stSetup) && bAllRan;
        }
    }
    return bAllRan;
}

void DescribeOptions(CLI::App& _clsApp, ST_BenchOptions& _stOptions)
{
    _clsApp.add_option("workload", _stOptions.m_vecWorkloads, "W1, W2, ...; all if none is given");
    _clsApp.add_flag("--quick", _stOptions.m_bQuick, "Show that everything works; the numbers mean nothing");
    _clsApp.add_flag("--describe", _stOptions.m_bDescribe, "Only print the version and the configuration");
    _clsApp.add_option("--threads", _stOptions.m_stSetup.m_uiThreads,
                       "Number of threads, for systems with such a setting");
    _clsApp.add_option("--library", _stOptions.m_stSetup.m_strLibrary, "The pool library to open");
}

int Run(int _iArguments, char** _ppArguments)
{
    CLI::App clsApp(std::string("Measures ") + System::GetName());
    ST_BenchOptions stOptions;
    DescribeOptions(clsApp, stOptions);
    CLI11_PARSE(clsApp, _iArguments, _ppArguments);
    if (stOptions.m_bDescribe)
    {
        Describe(stOptions.m_stSetup);
        return EXIT_SUCCESS;
    }
    return RunAll(stOptions) ? EXIT_SUCCESS : EXIT_FAILURE;
}
} // namespace

int main(int _iArguments, char** _ppArguments)
{
    try
    {
        return Run(_iArguments, _ppArguments);
    }
    catch (const std::exception& clsError)
    {
        std::cerr << clsError.what() << std::endl;
        return EXIT_FAILURE;
    }
}
