#include "verify/schedules/core/Strategy.h"

int CLS_RandomStrategy::ChooseThread(const std::vector<int>& _vecReady, int)
{
    return _vecReady[Draw(_vecReady.size())];
}

std::size_t CLS_RandomStrategy::Draw(std::size_t _uiCount)
{
    return m_rngDice() % _uiCount;
}
