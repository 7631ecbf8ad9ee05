#pragma once

#include "QuenPlugins/ZelTaskPool/CLS_RunGate.h"
#include "tests/support/ClassLayout.h"

#include <condition_variable>

/// The private side of CLS_RunGate, for tests that look inside. Only RunGateView.cpp writes the private
/// names.
namespace RunGateView
{
CLS_Mutex& GetLock(CLS_RunGate& _clsGate);
std::condition_variable& GetSignal(CLS_RunGate& _clsGate);
bool& GetRunningFlag(CLS_RunGate& _clsGate);
bool& GetClosedFlag(CLS_RunGate& _clsGate);

/// The members in the order of their declarations.
ClassLayout::Members ListMembers(const CLS_RunGate& _clsGate);
} // namespace RunGateView
