#include "tests/support/RunGateView.h"

#include <utility>

namespace RunGateView
{
CLS_Mutex& GetLock(CLS_RunGate& _clsGate)
{
    return _clsGate.m_mtxGate;
}

std::condition_variable& GetSignal(CLS_RunGate& _clsGate)
{
    return _clsGate.m_cvGate;
}

bool IsRunning(const CLS_RunGate& _clsGate)
{
    return (_clsGate.m_uiState & CLS_RunGate::RUNNING) != 0;
}

bool IsClosed(const CLS_RunGate& _clsGate)
{
    return (_clsGate.m_uiState & CLS_RunGate::CLOSED) != 0;
}

std::string DescribeState(const CLS_RunGate& _clsGate)
{
    const std::pair<unsigned, const char*> arrNames[] = {{CLS_RunGate::IN_JOB, "job"},
                                                         {CLS_RunGate::IN_POOL, "pool"},
                                                         {CLS_RunGate::RUNNING, "run"},
                                                         {CLS_RunGate::CLOSED, "closed"},
                                                         {CLS_RunGate::ABANDONED, "abandoned"}};
    std::string strState;
    for (const auto& [uiBit, szName] : arrNames)
    {
        if ((_clsGate.m_uiState & uiBit) != 0)
        {
            strState.append(strState.empty() ? "" : " ").append(szName);
        }
    }
    return strState;
}

ClassLayout::Members ListMembers(const CLS_RunGate& _clsGate)
{
    return {ClassLayout::Describe("m_mtxGate", _clsGate.m_mtxGate),
            ClassLayout::Describe("m_cvGate", _clsGate.m_cvGate)};
}
} // namespace RunGateView
