#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// The kinds of steps. At each step, another thread may run first.
enum n_Step : int
{
    STEP_BEGIN,
    STEP_LOCK,
    STEP_LOCK_SHARED,
    STEP_TRY_LOCK,
    STEP_UNLOCK,
    STEP_WAIT,
    STEP_WAKE,
    STEP_NOTIFY_ONE,
    STEP_NOTIFY_ALL,
    STEP_SLEEP,
    STEP_YIELD,
    STEP_CREATE,
    STEP_JOIN,
    STEP_DETACH,
    STEP_LOAD,
    STEP_STORE,
    STEP_CHANGE,
    STEP_FENCE
};

/// The text between the thread's name and the object.
const char* GetStepText(n_Step _iStep);

/// One step of a schedule, for readers.
struct ST_Step
{
    std::int64_t m_nsTime;
    std::string m_strThread;
    n_Step m_iStep;
    std::string m_strObject;
    const void* m_pObject; ///< named at the end of the schedule; null if m_strObject is final
};

std::string ToText(const ST_Step& _stStep);

/// The outcome of one schedule.
struct ST_Outcome
{
    std::string m_strFailure; ///< empty if the schedule did not fail
    /// Of a failed schedule: each thread that has not ended, with its step.
    std::vector<std::string> m_vecPositions;
    std::size_t m_uiSteps = 0;
    std::size_t m_uiBlocks = 0;      ///< blocks of memory that were not freed
    std::int64_t m_nsTime = 0;       ///< the virtual time that passed
    std::uint64_t m_uiHash = 0;      ///< of the times, threads, kinds and objects of all steps
    std::vector<ST_Step> m_vecTrace; ///< the steps, if m_bTrace was set
};
