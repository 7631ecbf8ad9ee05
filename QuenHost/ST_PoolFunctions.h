#pragma once

#include "QuenPlugins/ZelTaskPool/TaskPoolExports.h"

/// The seven functions of an open pool library. TaskPoolExports.h says what each does, waits for and throws;
/// it is included for the types alone.
///
/// A value to be copied at will: it owns nothing, and is good for as long as the library is loaded. Any
/// thread may call through it, but for the end of the pool, which must not race anything.
struct ST_PoolFunctions
{
    decltype(&::AddTmpTask) m_funAddTmpTask = nullptr;
    decltype(&::RemoveTmpTask) m_funRemoveTmpTask = nullptr;
    decltype(&::AddLoopTask) m_funAddLoopTask = nullptr;
    decltype(&::RemoveTask) m_funRemoveTask = nullptr;
    decltype(&::KillTask) m_funKillTask = nullptr;
    decltype(&::KillTaskAll) m_funKillTaskAll = nullptr;
    decltype(&::UnInit) m_funUnInit = nullptr;
};
