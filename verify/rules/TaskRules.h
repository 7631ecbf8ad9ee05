#pragma once

#include <chrono>

/// Rules for runs. The schedules, the stress program and the fuzzer of the pool share them. Each keeps its
/// own data about its tasks, and passes an ST_TaskState.
///
/// The text of a rule says what the task does wrong. It follows the task's name. These are pure functions,
/// for any thread.
namespace TaskRules
{
/// What is known about one task.
struct ST_TaskState
{
    bool m_bLoop = false;
    int m_iQueued = 0;  ///< how often the host queued it; for a loop task, the least number of runs
    int m_iBegun = 0;   ///< runs so far
    int m_iRunning = 0; ///< runs in progress
    std::chrono::nanoseconds m_nsLastEnd{};  ///< when the last run ended
    std::chrono::nanoseconds m_nsInterval{}; ///< of a loop task; zero if unknown
    bool m_bRemoved = false;                 ///< a removal or a stop of the task has returned
    bool m_bOverran = false;                 ///< that call may have given up waiting for a run
    bool m_bMayOverlap = false;              ///< the host queued it again although it was queued or running
};

constexpr const char* BEGINS_REMOVED = "begins after its removal has returned";
constexpr const char* OVERLAPS = "overlaps itself";
constexpr const char* RUNS_TOO_OFTEN = "runs more often than it was queued";
constexpr const char* BEGINS_EARLY = "begins early";
constexpr const char* STILL_RUNS = "still runs";

/// The rule that the task breaks if a run begins now; null if the run is allowed.
const char* CheckBegin(const ST_TaskState& _stTask, std::chrono::nanoseconds _nsNow);

/// The rule that the task breaks when its removal, its stop or the shutdown returns; null if it breaks none.
const char* CheckRemoved(const ST_TaskState& _stTask);

/// Whether the task, which was not removed, has had all its runs.
bool HasRun(const ST_TaskState& _stTask);
} // namespace TaskRules
