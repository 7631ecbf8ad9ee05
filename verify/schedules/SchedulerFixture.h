#pragma once

#include "verify/schedules/core/Explore.h"

#include <gtest/gtest.h>
#include <string>

/// Base of the tests of the scheduler: explores small programs.
class CLS_SchedulerFixture : public ::testing::Test
{
protected:
    using Body = std::function<void()>;

    /// The first failure among _uiSeeds random schedules; "" if all pass.
    std::string RunRandom(const Body& _funBody, std::uint64_t _uiSeeds = 2000)
    {
        CLS_RandomStrategy clsStrategy;
        return RunSeeds(clsStrategy, _funBody, _uiSeeds);
    }

    std::string RunPriorities(int _iDepth, const Body& _funBody, std::uint64_t _uiSeeds = 2000)
    {
        CLS_PriorityStrategy clsStrategy(_iDepth, 30);
        return RunSeeds(clsStrategy, _funBody, _uiSeeds);
    }

    /// The first failure among all schedules with at most _iDelays delays.
    std::string RunAll(int _iDelays, const Body& _funBody)
    {
        CLS_ExhaustiveStrategy clsStrategy(_iDelays);
        CLS_Exploration clsExploration(clsStrategy, m_stOptions);
        clsExploration.RunAll(clsStrategy, 1000000, _funBody);
        Note(clsExploration);
        return m_stOutcome.m_strFailure;
    }

    /// The outcome of one schedule.
    ST_Outcome RunSeed(std::uint64_t _uiSeed, const Body& _funBody)
    {
        CLS_RandomStrategy clsStrategy;
        CLS_Exploration clsExploration(clsStrategy, m_stOptions);
        clsExploration.RunSeeds(_uiSeed, 1, _funBody);
        return clsExploration.GetOutcome();
    }

    ST_ScheduleOptions m_stOptions;
    ST_Outcome m_stOutcome;          ///< of the last schedule
    std::uint64_t m_uiSeed = 0;      ///< its seed
    std::uint64_t m_uiSchedules = 0; ///< the number of schedules that were run

private:
    std::string RunSeeds(CLS_Strategy& _clsStrategy, const Body& _funBody, std::uint64_t _uiSeeds)
    {
        CLS_Exploration clsExploration(_clsStrategy, m_stOptions);
        clsExploration.RunSeeds(1, _uiSeeds, _funBody);
        Note(clsExploration);
        return m_stOutcome.m_strFailure;
    }

    void Note(const CLS_Exploration& _clsExploration)
    {
        m_stOutcome = _clsExploration.GetOutcome();
        m_uiSeed = _clsExploration.GetSeed();
        m_uiSchedules = _clsExploration.CountSchedules();
    }
};
