#include "tests/support/LogBindingView.h"

namespace LogBindingView
{
CLS_LoadTurn& GetTurn(CLS_LogBinding& _clsBinding)
{
    return _clsBinding.m_clsTurn;
}

std::thread::id& GetHandOverThread(CLS_LogBinding& _clsBinding)
{
    return _clsBinding.m_idHandsOver;
}

std::size_t CountKept(const CLS_LogBinding& _clsBinding)
{
    return _clsBinding.m_lstKept.size();
}

std::size_t CountHandedOver(const CLS_LogBinding& _clsBinding)
{
    return _clsBinding.m_lstHandedOver.size();
}

bool BindIfFree(CLS_LogBinding& _clsBinding)
{
    return _clsBinding.BindIfFree() != nullptr;
}
} // namespace LogBindingView
