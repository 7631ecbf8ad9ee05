#include "verify/schedules/pool/Runner.h"

#include "verify/schedules/pool/Names.h"
#include "verify/schedules/pool/World.h"

#include <algorithm>

bool CLS_Runner::IsMeant(const ST_Scenario& _stScenario, const std::string& _strStrategy)
{
    return IsExhaustive(_strStrategy) ? _stScenario.m_bSmall
           : _strStrategy == "slow"   ? !_stScenario.m_bTimed
                                      : true;
}

bool CLS_Runner::IsExhaustive(const std::string& _strStrategy)
{
    return _strStrategy == "exhaustive" || _strStrategy == "exhaustive-late";
}

const std::vector<std::string>& CLS_Runner::GetStrategies()
{
    static const std::vector<std::string> s_vecStrategies{"random", "slow",       "pct2",
                                                          "pct3",   "exhaustive", "exhaustive-late"};
    return s_vecStrategies;
}

CLS_Runner::CLS_Runner(const ST_Scenario& _stScenario, const std::string& _strStrategy, bool _bTrace)
    : m_stScenario(_stScenario), m_strStrategy(_strStrategy)
{
    MakeStrategy();
    m_pExploration = std::make_unique<CLS_Exploration>(*m_pStrategy, MakeOptions(_bTrace));
}

ST_ScheduleOptions CLS_Runner::MakeOptions(bool _bTrace)
{
    ST_ScheduleOptions stOptions;
    stOptions.m_uiSpuriousOneIn = 50;
    stOptions.m_uiEarlyOneIn = m_strStrategy == "slow" ? 40 : 0;
    // The search draws no random numbers. Stores become visible at once, or as late as possible.
    stOptions.m_bLateStores = m_strStrategy != "exhaustive";
    stOptions.m_nsShortestSleep = m_stScenario.m_nsShortestSleep.count();
    stOptions.m_bRequireNoBlocks = true;
    stOptions.m_bTrace = _bTrace;
    stOptions.m_funBegin = [this]
    {
        ForgetPool();
        m_clsWatch = {};
    };
    stOptions.m_funObserver = [this, _bTrace](CLS_Scheduler& _clsScheduler)
    {
        if (_bTrace)
        {
            Names::Learn();
        }
        m_clsWatch.Look(_clsScheduler);
    };
    stOptions.m_funNameThread = Names::NameThread;
    stOptions.m_funNameObject = Names::NameObject;
    return stOptions;
}

void CLS_Runner::MakeStrategy()
{
    if (m_strStrategy == "random" || m_strStrategy == "slow")
    {
        m_pStrategy = std::make_unique<CLS_RandomStrategy>();
    }
    else if (IsExhaustive(m_strStrategy))
    {
        auto pExhaustive = std::make_unique<CLS_ExhaustiveStrategy>(EXHAUSTIVE_DELAYS);
        m_pExhaustive = pExhaustive.get();
        m_pStrategy = std::move(pExhaustive);
    }
    else
    {
        m_pStrategy =
            std::make_unique<CLS_PriorityStrategy>(m_strStrategy == "pct3" ? 3 : 2, MeasureLength());
    }
}

/// The length of the longest of some random schedules. Several are needed, because the scenario's choices
/// change the length.
std::size_t CLS_Runner::MeasureLength()
{
    constexpr std::uint64_t MOST_SCHEDULES = 20;
    constexpr std::uint64_t MOST_STEPS = 100000;
    CLS_RandomStrategy clsRandom;
    CLS_Exploration clsExploration(clsRandom, MakeOptions(false));
    std::size_t uiLength = 2;
    for (std::uint64_t uiSeed = 1; uiSeed <= MOST_SCHEDULES && clsExploration.CountSteps() < MOST_STEPS;
         ++uiSeed)
    {
        clsExploration.RunSeeds(uiSeed, 1, m_stScenario.m_funBody);
        uiLength = std::max(uiLength, clsExploration.GetOutcome().m_uiSteps);
    }
    return uiLength;
}

bool CLS_Runner::Run(std::uint64_t _uiFirst, std::uint64_t _uiCount)
{
    return m_pExhaustive != nullptr ? m_pExploration->RunAll(*m_pExhaustive, _uiCount, m_stScenario.m_funBody)
                                    : m_pExploration->RunSeeds(_uiFirst, _uiCount, m_stScenario.m_funBody);
}

bool CLS_Runner::RunDelays(const std::string& _strDelays)
{
    m_pExhaustive->SetDelays(_strDelays);
    return Run(0, 1);
}

std::string CLS_Runner::GetRepetition() const
{
    const std::string strSchedule = m_pExhaustive != nullptr
                                        ? "--delays '" + m_pExhaustive->GetDelays() + "'"
                                        : "--seed " + std::to_string(m_pExploration->GetSeed());
    return "--scenario " + m_stScenario.m_strName + " --strategy " + m_strStrategy + " " + strSchedule;
}

std::string CLS_Runner::Report(std::size_t _uiMost) const
{
    const ST_Outcome& stOutcome = m_pExploration->GetOutcome();
    std::string strReport = m_stScenario.m_strName + ", " + m_strStrategy + ": " +
                            (stOutcome.m_strFailure.empty() ? "passed" : stOutcome.m_strFailure) + "\n";
    for (const std::string& strPosition : stOutcome.m_vecPositions)
    {
        strReport += "  " + strPosition + "\n";
    }
    const std::size_t uiSteps = stOutcome.m_vecTrace.size();
    for (std::size_t i = uiSteps - std::min(_uiMost, uiSteps); i < uiSteps; ++i)
    {
        strReport += ToText(stOutcome.m_vecTrace[i]) + "\n";
    }
    return strReport;
}
