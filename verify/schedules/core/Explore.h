#pragma once

#include "verify/schedules/core/Scheduler.h"

#include <functional>

/// Runs one program under many schedules, until one fails.
class CLS_Exploration
{
public:
    CLS_Exploration(CLS_Strategy& _clsStrategy, const ST_ScheduleOptions& _stOptions)
        : m_clsScheduler(_clsStrategy, _stOptions)
    {
    }

    /// Schedules of the seeds from _uiFirst on, _uiCount at most. True when none failed; else, and after the
    /// last one, GetOutcome tells how it ended.
    bool RunSeeds(std::uint64_t _uiFirst, std::uint64_t _uiCount, const std::function<void()>& _funBody);

    /// Schedules of the strategy that was given, which must be this one, _uiMost at most.
    bool RunAll(CLS_ExhaustiveStrategy& _clsStrategy, std::uint64_t _uiMost,
                const std::function<void()>& _funBody);

    const ST_Outcome& GetOutcome() const { return m_stOutcome; }
    std::uint64_t GetSeed() const { return m_uiSeed; } ///< of the last schedule
    std::uint64_t CountSchedules() const { return m_uiSchedules; }
    std::uint64_t CountSteps() const { return m_uiSteps; }
    bool IsComplete() const { return m_bComplete; } ///< whether RunAll ran all that there are

private:
    bool RunOne(std::uint64_t _uiSeed, const std::function<void()>& _funBody);

    CLS_Scheduler m_clsScheduler;
    ST_Outcome m_stOutcome;
    std::uint64_t m_uiSeed = 0;
    std::uint64_t m_uiSchedules = 0;
    std::uint64_t m_uiSteps = 0;
    bool m_bComplete = false;
};

/// For the program under a schedule: ends the schedule with this text unless it is so.
void Require(bool _bSo, const std::string& _strOtherwise);
