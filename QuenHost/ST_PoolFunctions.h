#pragma once

#include "QuenPlugins/ZelTaskPool/TaskPoolExports.h"

/// The seven functions of an open pool library.
///
/// TaskPoolExports.h is their manual. It is included only for the types. The pointers are valid while the
/// library is loaded.
///
/// Threads: any. A call that ends the pool must not race any other call.
///
/// Owns: nothing. Copy it freely.
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
