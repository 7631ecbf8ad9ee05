#include "verify/schedules/core/Strategy.h"

#include <algorithm>

void CLS_PriorityStrategy::Begin(std::uint64_t _uiSeed)
{
    m_rngDice.seed(_uiSeed);
    m_uiStep = 0;
    m_vecPriority.clear();
    m_vecDrops.clear();
    for (int i = 1; i < m_iDepth; ++i)
    {
        m_vecDrops.push_back(Draw(m_uiLength));
    }
}

void CLS_PriorityStrategy::AddThread()
{
    m_vecPriority.push_back(static_cast<std::int64_t>(m_rngDice() >> 2U));
}

int CLS_PriorityStrategy::ChooseThread(const std::vector<int>& _vecReady, int _iCurrent)
{
    const auto itDrop = std::find(m_vecDrops.begin(), m_vecDrops.end(), m_uiStep++);
    if (itDrop != m_vecDrops.end())
    {
        // The priority falls below all others. A drop later in the list falls lower.
        m_vecPriority[static_cast<std::size_t>(_iCurrent)] = -1 - (itDrop - m_vecDrops.begin());
    }
    return *std::max_element(_vecReady.begin(), _vecReady.end(),
                             [this](int _iLeft, int _iRight)
                             {
                                 return m_vecPriority[static_cast<std::size_t>(_iLeft)] <
                                        m_vecPriority[static_cast<std::size_t>(_iRight)];
                             });
}

std::size_t CLS_PriorityStrategy::Draw(std::size_t _uiCount)
{
    return m_rngDice() % _uiCount;
}
