#pragma once

#include "bench/support/CLS_Countdown.h"
#include "bench/workloads/CLS_System.h"

#include <chrono>
#include <functional>
#include <string>
#include <utility>
#include <vector>

/// What a workload measured.
struct ST_Result
{
    std::string m_strCase; ///< the variant; "" for the only result of a workload
    double m_dX;           ///< the size of the variant, for comparisons between cases
    std::vector<std::pair<std::string, double>> m_vecValues;
    std::string m_strNotOffered{}; ///< why there are no values
};

using Results = std::vector<ST_Result>;

/// One workload, or one variant of it, on a fresh system.
struct ST_Case
{
    std::string m_strWorkload;
    std::function<Results(CLS_System&)> m_funMeasure;
};

using Cases = std::vector<ST_Case>;

/// The workloads, one source file for each. Quick cases only show that everything works; their numbers mean
/// nothing.
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
void AddBesideFinished(Cases& _vecCases, bool _bQuick);  ///< W12
void AddProfiles(Cases& _vecCases, bool _bQuick);        ///< what profile_tasks.py runs

/// Runs empty tasks and waits for them, a few at a time, so that no queue grows.
void RunEmptyTasks(CLS_System& _clsSystem, std::size_t _uiTasks);

/// Makes the pool start its workers before the measurement.
void WarmUp(CLS_System& _clsSystem);

/// Submits _uiTasksEach empty tasks from each thread and returns the CPU time of these threads. Each task
/// counts _clsDone down.
///
/// Waits: until all tasks are accepted.
std::chrono::nanoseconds SubmitFromThreads(CLS_System& _clsSystem, std::size_t _uiThreads,
                                           std::size_t _uiTasksEach, CLS_Countdown& _clsDone);
} // namespace Workloads
