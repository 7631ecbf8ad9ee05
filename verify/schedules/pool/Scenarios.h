#pragma once

#include "verify/schedules/core/Scheduler.h"

#include <chrono>
#include <string>
#include <vector>

/// A small program that uses the pool and asserts what must hold.
struct ST_Scenario
{
    std::string m_strName;
    void (*m_funBody)();
    std::vector<std::string> m_vecMarks{};         ///< what its schedules must reach in total
    bool m_bSmall = false;                         ///< small enough for an exhaustive search
    std::chrono::nanoseconds m_nsShortestSleep{0}; ///< of its threads; shortens waits of minutes
    bool m_bTimed = false;                         ///< depends on exact times: not for slow threads
};

using Scenarios = std::vector<ST_Scenario>;

// The scenarios by subject.
Scenarios GetSubmissionScenarios();
Scenarios GetRemovalScenarios();
Scenarios GetRegistryScenarios();
Scenarios GetLoopScenarios();
Scenarios GetWorkerScenarios();
Scenarios GetGateScenarios();
Scenarios GetEndScenarios();
Scenarios GetEndRaceScenarios();
Scenarios GetLogScenarios();
Scenarios GetKitScenarios();

Scenarios GetAllScenarios();
