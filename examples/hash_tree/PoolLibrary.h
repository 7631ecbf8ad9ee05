#pragma once

#include "QuenPlugins/ZelTaskPool/TaskPoolExports.h"

#include <string>

/// The pool library, opened at run time, and the seven functions it offers under their plain names.
///
/// What each function does is written in TaskPoolExports.h; that header is used for the types alone. The
/// library stays open until the process ends. Reading the members is safe from any thread.
class CLS_PoolLibrary
{
public:
    /// Opens the library and looks the functions up. A name without a slash is looked for beside the
    /// program first, then where the system looks for libraries. Throws std::runtime_error, with a text for
    /// the user, when the file cannot be opened or a function is missing.
    explicit CLS_PoolLibrary(const std::string& _strPath);

    /// The library's usual name on this platform.
    static const char* UsualName();

    decltype(&::AddTmpTask) m_funAddTmpTask = nullptr;
    decltype(&::RemoveTmpTask) m_funRemoveTmpTask = nullptr;
    decltype(&::AddLoopTask) m_funAddLoopTask = nullptr;
    decltype(&::RemoveTask) m_funRemoveTask = nullptr;
    decltype(&::KillTask) m_funKillTask = nullptr;
    decltype(&::KillTaskAll) m_funKillTaskAll = nullptr;
    decltype(&::UnInit) m_funUnInit = nullptr;
};
