#pragma once

#include "QuenInclude/CLS_LoadTurn.h"

#include <condition_variable>
#include <thread>

/// The private side of CLS_LoadTurn, for tests that look inside. Only LoadTurnView.cpp writes the private
/// names.
namespace LoadTurnView
{
std::condition_variable& GetSignal(CLS_LoadTurn& _clsTurn);
std::thread::id& GetHolder(CLS_LoadTurn& _clsTurn);
bool& GetOverdueFlag(CLS_LoadTurn& _clsTurn);

bool Take(CLS_LoadTurn& _clsTurn);
void Give(CLS_LoadTurn& _clsTurn);
} // namespace LoadTurnView
