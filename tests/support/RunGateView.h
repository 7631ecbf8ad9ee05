#pragma once

#include "QuenPlugins/ZelTaskPool/CLS_RunGate.h"
#include "tests/support/ClassLayout.h"

#include <condition_variable>
#include <string>

/// The private side of CLS_RunGate, for tests that look inside. Only RunGateView.cpp writes the private
/// names.
namespace RunGateView
{
CLS_Mutex& GetLock(CLS_RunGate& _clsGate);
std::condition_variable& GetSignal(CLS_RunGate& _clsGate);
/// Whether a task is running.
bool IsRunning(const CLS_RunGate& _clsGate);
/// Whether Close has begun.
bool IsClosed(const CLS_RunGate& _clsGate);
/// The parts of the state, such as "job pool run closed abandoned".
std::string DescribeState(const CLS_RunGate& _clsGate);

/// The members in the order of their declarations.
ClassLayout::Members ListMembers(const CLS_RunGate& _clsGate);
} // namespace RunGateView
