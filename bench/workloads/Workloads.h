#pragma once

#include "bench/workloads/CLS_System.h"

#include <functional>
#include <string>
#include <utility>
#include <vector>

/// What one measurement found, in order of appearance.
struct ST_Result
{
    std::vector<std::pair<std::string, double>> m_vecValues;
    std::string m_strNotOffered; ///< why there are none
};

/// One measurement: what is done to a fresh system.
struct ST_Case
{
    std::string m_strWorkload;
    std::string m_strCase; ///< what is special about this one, "" for the only case of a workload
    double m_dX;           ///< where it stands on the axis of a plot
    std::function<void(CLS_System&, ST_Result&)> m_funMeasure;
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
} // namespace Workloads
