#pragma once

#include "QuenPlugins/ZelTaskPool/TaskPoolExports.h"

/// The seven functions of an open pool library. TaskPoolExports.h says what each does, waits for and throws;
/// it is included for the types alone.
///
/// A value to be copied at will: it owns nothing, and is good for as long as the library is loaded. Any
/// thread may call through it, but for the end of the pool, which must not race anything.
struct ST_PoolFunctions
{
    decltype(&::AddTmpTask) m_funAddTmpTask = nullptr;       ///< runs a callable once, for an owner
    decltype(&::RemoveTmpTask) m_funRemoveTmpTask = nullptr; ///< cancels an owner's tasks; waits
    decltype(&::AddLoopTask) m_funAddLoopTask = nullptr;     ///< runs a callable again and again
    decltype(&::RemoveTask) m_funRemoveTask = nullptr;       ///< removes one task, by its id; waits
    decltype(&::KillTask) m_funKillTask = nullptr;           ///< the same as RemoveTask
    decltype(&::KillTaskAll) m_funKillTaskAll = nullptr;     ///< ends the pool in any case; waits
    decltype(&::UnInit) m_funUnInit = nullptr;               ///< ends the pool; waits
};
