#pragma once

#include "bench/support/CLS_Countdown.h"
#include "bench/workloads/CLS_System.h"

#include <chrono>
#include <functional>
#include <string>
#include <utility>
#include <vector>

/// What was found.
struct ST_Result
{
    std::string m_strCase; ///< what is special about this one, "" for the only result of a workload
    double m_dX;           ///< where it stands on the axis of a plot
    std::vector<std::pair<std::string, double>> m_vecValues;
    std::string m_strNotOffered{}; ///< why there are no values
};

using Results = std::vector<ST_Result>;

/// What is done to a fresh system.
struct ST_Case
{
    std::string m_strWorkload;
    std::function<Results(CLS_System&)> m_funMeasure;
};

using Cases = std::vector<ST_Case>;

/// One function a source. Quick cases show that everything works, and their numbers mean nothing.
namespace Workloads
{
void AddBlockingTasks(Cases& _vecCases, bool _bQuick);   ///< W1
void AddSubmissionCost(Cases& _vecCases, bool _bQuick);  ///< W2
void AddStartDelay(Cases& _vecCases, bool _bQuick);      ///< W3
void AddThroughput(Cases& _vecCases, bool _bQuick);      ///< W4, W4b
void AddRemoval(Cases& _vecCases, bool _bQuick);         ///< W5
void AddLoopTasks(Cases& _vecCases, bool _bQuick);       ///< W6
void AddIdlePool(Cases& _vecCases, bool _bQuick);        ///< W7
void AddMemory(Cases& _vecCases, bool _bQuick);          ///< W8
void AddMixedLoad(Cases& _vecCases, bool _bQuick);       ///< W9
void AddSubmitters(Cases& _vecCases, bool _bQuick);      ///< W10
void AddFinishedRecords(Cases& _vecCases, bool _bQuick); ///< W11

/// Runs so many empty tasks and waits for them, a few at a time, so that no queue grows.
void RunEmptyTasks(CLS_System& _clsSystem, std::size_t _uiTasks);

/// Has workers made before the clock starts.
void WarmUp(CLS_System& _clsSystem);

/// Submits as many empty tasks from each of so many threads, and returns when all are accepted, with the CPU
/// time of the threads. Tasks count _clsDone down.
std::chrono::nanoseconds SubmitFromThreads(CLS_System& _clsSystem, std::size_t _uiThreads,
                                           std::size_t _uiTasksEach, CLS_Countdown& _clsDone);
} // namespace Workloads
