#include "verify/schedules/core/Explore.h"

bool CLS_Exploration::RunOne(std::uint64_t _uiSeed, const std::function<void()>& _funBody)
{
    m_uiSeed = _uiSeed;
    m_stOutcome = m_clsScheduler.Run(_uiSeed, _funBody);
    ++m_uiSchedules;
    m_uiSteps += m_stOutcome.m_uiSteps;
    return m_stOutcome.m_strFailure.empty();
}

bool CLS_Exploration::RunSeeds(std::uint64_t _uiFirst, std::uint64_t _uiCount,
                               const std::function<void()>& _funBody)
{
    for (std::uint64_t uiSeed = _uiFirst; uiSeed < _uiFirst + _uiCount; ++uiSeed)
    {
        if (!RunOne(uiSeed, _funBody))
        {
            return false;
        }
    }
    return true;
}

bool CLS_Exploration::RunAll(CLS_ExhaustiveStrategy& _clsStrategy, std::uint64_t _uiMost,
                             const std::function<void()>& _funBody)
{
    for (std::uint64_t uiSchedule = 0; uiSchedule < _uiMost; ++uiSchedule)
    {
        if (!RunOne(uiSchedule, _funBody))
        {
            return false;
        }
        if (!_clsStrategy.GoOn())
        {
            m_bComplete = true;
            return true;
        }
    }
    return true;
}

void Require(bool _bSo, const std::string& _strOtherwise)
{
    CLS_Scheduler* const pScheduler = CLS_Scheduler::GetActive();
    if (!_bSo && pScheduler != nullptr)
    {
        const CLS_Scheduler::CLS_Inside clsInside;
        pScheduler->Fail(_strOtherwise);
    }
}
