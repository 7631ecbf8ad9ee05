#pragma once

#include "verify/schedules/core/Scheduler.h"

#include <functional>

/// Runs a program under many schedules until one fails.
class CLS_Exploration
{
public:
    CLS_Exploration(CLS_Strategy& _clsStrategy, const ST_ScheduleOptions& _stOptions)
        : m_clsScheduler(_clsStrategy, _stOptions)
    {
    }

    /// Runs the schedules of _uiCount seeds, beginning with _uiFirst. False if one fails.
    ///
    /// GetOutcome returns the outcome of the last one.
    bool RunSeeds(std::uint64_t _uiFirst, std::uint64_t _uiCount, const std::function<void()>& _funBody);

    /// Runs at most _uiMost schedules of the strategy, which must be the one of the constructor.
    bool RunAll(CLS_ExhaustiveStrategy& _clsStrategy, std::uint64_t _uiMost,
                const std::function<void()>& _funBody);

    const ST_Outcome& GetOutcome() const { return m_stOutcome; }
    std::uint64_t GetSeed() const { return m_uiSeed; } ///< of the last schedule
    std::uint64_t CountSchedules() const { return m_uiSchedules; }
    std::uint64_t CountSteps() const { return m_uiSteps; }
    bool IsComplete() const { return m_bComplete; } ///< whether RunAll has run every schedule

private:
    bool RunOne(std::uint64_t _uiSeed, const std::function<void()>& _funBody);

    CLS_Scheduler m_clsScheduler;
    ST_Outcome m_stOutcome;
    std::uint64_t m_uiSeed = 0;
    std::uint64_t m_uiSchedules = 0;
    std::uint64_t m_uiSteps = 0;
    bool m_bComplete = false;
};

/// Fails the running schedule with this text if the condition does not hold.
void Require(bool _bSo, const std::string& _strOtherwise);
