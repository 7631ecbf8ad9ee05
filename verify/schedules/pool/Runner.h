#pragma once

#include "verify/schedules/core/Explore.h"
#include "verify/schedules/pool/Scenarios.h"
#include "verify/schedules/pool/Watch.h"

#include <memory>
#include <string>
#include <vector>

/// Runs one scenario under one strategy:
/// - random, pct2, pct3 and exhaustive;
/// - slow: random, and time may pass although threads could go on;
/// - exhaustive-late: exhaustive, and stores are late for as long as possible.
class CLS_Runner
{
public:
    static const std::vector<std::string>& GetStrategies();
    /// Whether the strategy makes sense for the scenario.
    static bool IsMeant(const ST_Scenario& _stScenario, const std::string& _strStrategy);
    static bool IsExhaustive(const std::string& _strStrategy);
    static constexpr int EXHAUSTIVE_DELAYS = 2;

    CLS_Runner(const ST_Scenario& _stScenario, const std::string& _strStrategy, bool _bTrace = false);

    /// Runs _uiCount schedules, or at most that many of an exhaustive search. False if one fails.
    bool Run(std::uint64_t _uiFirst, std::uint64_t _uiCount);

    /// Runs the schedule of an exhaustive search that has these delays.
    bool RunDelays(const std::string& _strDelays);

    const CLS_Exploration& GetExploration() const { return *m_pExploration; }

    /// A report of the last schedule: why it failed, where each thread was, and its last _uiMost steps, if
    /// they were kept.
    std::string Report(std::size_t _uiMost) const;

    std::string GetDelays() const { return m_pExhaustive == nullptr ? "" : m_pExhaustive->GetDelays(); }

    /// The options of this program that repeat the last schedule.
    std::string GetRepetition() const;

private:
    ST_ScheduleOptions MakeOptions(bool _bTrace);
    void MakeStrategy();
    std::size_t MeasureLength();

    const ST_Scenario m_stScenario;
    const std::string m_strStrategy;
    CLS_Watch m_clsWatch;
    std::unique_ptr<CLS_Strategy> m_pStrategy;
    CLS_ExhaustiveStrategy* m_pExhaustive = nullptr; ///< m_pStrategy if it is exhaustive; else null
    std::unique_ptr<CLS_Exploration> m_pExploration;
};
