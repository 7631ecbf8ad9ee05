#include "verify/schedules/core/Strategy.h"

#include <algorithm>
#include <sstream>

void CLS_ExhaustiveStrategy::Begin(std::uint64_t)
{
    m_uiChoice = 0;
    m_iDelaysLeft = m_iDelays;
}

int CLS_ExhaustiveStrategy::ChooseThread(const std::vector<int>& _vecReady, int _iCurrent)
{
    const int iCount = std::min(static_cast<int>(_vecReady.size()), m_iDelaysLeft + 1);
    if (m_uiChoice == m_vecPath.size())
    {
        m_vecPath.push_back({0, iCount});
    }
    m_vecPath[m_uiChoice].m_iCount = iCount;
    const int iTaken = m_vecPath[m_uiChoice++].m_iTaken;
    m_iDelaysLeft -= iTaken;
    const auto itTurn = std::lower_bound(_vecReady.begin(), _vecReady.end(), _iCurrent);
    const auto uiTurn = static_cast<std::size_t>(itTurn - _vecReady.begin() + iTaken);
    return _vecReady[uiTurn % _vecReady.size()];
}

bool CLS_ExhaustiveStrategy::GoOn()
{
    m_vecPath.resize(m_uiChoice);
    while (!m_vecPath.empty() && m_vecPath.back().m_iTaken + 1 >= m_vecPath.back().m_iCount)
    {
        m_vecPath.pop_back();
    }
    if (m_vecPath.empty())
    {
        return false;
    }
    ++m_vecPath.back().m_iTaken;
    return true;
}

std::string CLS_ExhaustiveStrategy::GetDelays() const
{
    std::string strDelays;
    for (std::size_t i = 0; i < m_vecPath.size(); ++i)
    {
        for (int iDelay = 0; iDelay < m_vecPath[i].m_iTaken; ++iDelay)
        {
            strDelays += (strDelays.empty() ? "" : ",") + std::to_string(i);
        }
    }
    return strDelays;
}

void CLS_ExhaustiveStrategy::SetDelays(const std::string& _strDelays)
{
    m_vecPath.clear();
    std::istringstream streamDelays(_strDelays);
    for (std::string strPlace; std::getline(streamDelays, strPlace, ',');)
    {
        const std::size_t uiPlace = std::stoul(strPlace);
        while (m_vecPath.size() <= uiPlace)
        {
            m_vecPath.push_back({0, 1});
        }
        ++m_vecPath[uiPlace].m_iTaken;
    }
}
