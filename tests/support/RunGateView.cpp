#include "tests/support/RunGateView.h"

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

bool& GetRunningFlag(CLS_RunGate& _clsGate)
{
    return _clsGate.m_bRunning;
}

bool& GetClosedFlag(CLS_RunGate& _clsGate)
{
    return _clsGate.m_bClosed;
}

ClassLayout::Members ListMembers(const CLS_RunGate& _clsGate)
{
    return {ClassLayout::Describe("m_mtxGate", _clsGate.m_mtxGate),
            ClassLayout::Describe("m_cvGate", _clsGate.m_cvGate)};
}
} // namespace RunGateView
