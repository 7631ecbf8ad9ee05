#pragma once

#include "QuenPlugins/ZelTaskPool/CLS_ShutdownClaim.h"

#include <chrono>
#include <optional>
#include <thread>

/// The private side of CLS_ShutdownClaim, for tests that look inside. Only ShutdownClaimView.cpp writes the
/// private names.
namespace ShutdownClaimView
{

/// Whether the pool was added and not removed.
bool IsKnown(const CLS_QuenTaskPool* _pPool);
/// When the step in progress has taken too long.
std::chrono::steady_clock::time_point GetStepLimit(const CLS_QuenTaskPool* _pPool);
void SetStepLimit(const CLS_QuenTaskPool* _pPool, std::chrono::steady_clock::time_point _tpLimit);
/// Whether the thread is one of the pool's own.
bool IsOwnThread(const CLS_QuenTaskPool* _pPool, std::thread::id _idThread);
/// Starts with no pool. The memory of the old ones no longer exists.
void ForgetAll();
} // namespace ShutdownClaimView
