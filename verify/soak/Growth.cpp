#include "verify/soak/Growth.h"

#include <algorithm>

namespace
{
/// An error line if the two differ; else "".
std::string Compare(const std::string& _strWhat, std::int64_t _iIs, std::int64_t _iShould)
{
    if (_iIs == _iShould)
    {
        return "";
    }
    return _strWhat + ": " + std::to_string(_iIs) + " instead of " + std::to_string(_iShould) + "\n";
}

using Row = std::vector<ST_Figures>;

/// The lowest value of a quarter of the sets. Quarters are numbered from 0.
std::int64_t FindLowest(const Row& _vecFigures, std::size_t _uiQuarter, std::int64_t ST_Figures::*_pFigure)
{
    const std::size_t uiBegin = _vecFigures.size() * _uiQuarter / 4;
    const std::size_t uiEnd = _vecFigures.size() * (_uiQuarter + 1) / 4;
    std::int64_t iLowest = _vecFigures[uiBegin].*_pFigure;
    for (std::size_t i = uiBegin; i < uiEnd; ++i)
    {
        iLowest = std::min(iLowest, _vecFigures[i].*_pFigure);
    }
    return iLowest;
}

/// An error line if the figure has grown by more than the noise; else "".
std::string JudgeOne(const std::string& _strWhat, const Row& _vecFigures, std::int64_t ST_Figures::*_pFigure,
                     std::int64_t _iNoise)
{
    const std::int64_t iEarly = FindLowest(_vecFigures, 1, _pFigure);
    const std::int64_t iLate = FindLowest(_vecFigures, 3, _pFigure);
    if (iLate - iEarly <= _iNoise)
    {
        return "";
    }
    return _strWhat + " grows: from " + std::to_string(iEarly) + " to " + std::to_string(iLate) + "\n";
}
} // namespace

std::string CLS_Growth::Judge(const ST_Figures& _stFigures) const
{
    const ST_Figures& stIs = _stFigures;
    std::string strWrong =
        Compare("records", stIs.m_iRegistered, stIs.m_iKept) +
        Compare("live callables", stIs.m_iLiveCopies, stIs.m_iKept) +
        Compare("descriptors", stIs.m_iDescriptors, m_stBefore.m_iDescriptors) +
        Compare("threads", stIs.m_iThreads, m_stBefore.m_iThreads + SERVICE_THREADS + stIs.m_iWorkers);
    if (stIs.m_iWorkers > MOST_WORKERS)
    {
        strWrong += Compare("workers", stIs.m_iWorkers, MOST_WORKERS);
    }
    return strWrong;
}

std::string CLS_Growth::JudgeTrend(const std::vector<ST_Figures>& _vecFigures)
{
    if (_vecFigures.size() < FEWEST_FIGURES)
    {
        return "too few figures: " + std::to_string(_vecFigures.size()) + "\n";
    }
    return JudgeOne("heap", _vecFigures, &ST_Figures::m_iHeap, HEAP_NOISE) +
           JudgeOne("resident memory", _vecFigures, &ST_Figures::m_iResident, RESIDENT_NOISE);
}
