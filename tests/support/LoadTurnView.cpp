#include "tests/support/LoadTurnView.h"

namespace LoadTurnView
{
std::condition_variable& GetSignal(CLS_LoadTurn& _clsTurn)
{
    return _clsTurn.m_cvTurn;
}

std::thread::id& GetHolder(CLS_LoadTurn& _clsTurn)
{
    return _clsTurn.m_idHolder;
}

bool& GetOverdueFlag(CLS_LoadTurn& _clsTurn)
{
    return _clsTurn.m_bOverdue;
}

bool Take(CLS_LoadTurn& _clsTurn)
{
    return _clsTurn.Take();
}

void Give(CLS_LoadTurn& _clsTurn)
{
    _clsTurn.Give();
}
} // namespace LoadTurnView
