#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// What a thread does at a point at which another one may go first.
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

/// The word between the thread and the object.
const char* GetStepText(n_Step _iStep);

/// One step of a schedule, readable.
struct ST_Step
{
    std::int64_t m_nsTime;
    std::string m_strThread;
    n_Step m_iStep;
    std::string m_strObject;
    const void* m_pObject; ///< named when the schedule is over; null for what has its text already
};

std::string ToText(const ST_Step& _stStep);

/// What came out of one schedule.
struct ST_Outcome
{
    std::string m_strFailure; ///< empty when all went well
    /// Of a failed schedule: each thread that has not ended, and the step that it is at.
    std::vector<std::string> m_vecPositions;
    std::size_t m_uiSteps = 0;
    std::size_t m_uiBlocks = 0;      ///< of memory that was not freed
    std::int64_t m_nsTime = 0;       ///< virtual time that passed
    std::uint64_t m_uiHash = 0;      ///< of all steps' moments, threads, kinds and objects
    std::vector<ST_Step> m_vecTrace; ///< the steps, when they were asked for
};
