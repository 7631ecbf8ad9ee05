#pragma once

#include "QuenHost/CLS_PoolLibrary.h"
#include "QuenHost/PoolCall.h"

#include <utility>

/// The part of a program in which the pool is used: it ends the pool where it ends itself, and is the only
/// one that can unload the library, which it does after that.
///
/// Whatever uses the pool, such as CLS_TaskOwner and CLS_LoopTask, must be gone before: a call after the
/// pool's end builds a new pool that nobody ends, and after the unloading there is nothing left to call. So
/// make the scope before those, and what the tasks use before the scope.
///
/// Belongs to one thread, and not one of the pool's: not to be ended from within a task. No other thread may
/// be in a call of the pool when it ends. Moveable; a moved-from scope ends nothing.
class CLS_PoolScope
{
public:
    /// Takes over an open library. From a moved-from one, there is no pool to end.
    explicit CLS_PoolScope(CLS_PoolLibrary _clsLibrary) noexcept
        : m_clsLibrary(std::move(_clsLibrary)), m_bPool(m_clsLibrary.Functions().m_funKillTaskAll != nullptr)
    {
    }

    /// The same as End. The library stays loaded.
    ~CLS_PoolScope() { End(); }

    CLS_PoolScope(const CLS_PoolScope&) = delete;
    CLS_PoolScope& operator=(const CLS_PoolScope&) = delete;
    CLS_PoolScope& operator=(CLS_PoolScope&&) = delete;

    /// Takes over the pool, which it ends in place of _clsOther.
    CLS_PoolScope(CLS_PoolScope&& _clsOther) noexcept
        : m_clsLibrary(std::move(_clsOther.m_clsLibrary)), m_bPool(std::exchange(_clsOther.m_bPool, false))
    {
    }

    /// The pool's functions; none is null, unless this scope was moved from or has unloaded the library.
    const ST_PoolFunctions& Functions() const { return m_clsLibrary.Functions(); }

    /// Ends the pool, once. Waits, up to about 9 seconds a task, for what is running; a run that takes longer
    /// goes on by itself. Queued tasks are dropped, but what they captured stays with the library.
    void End() noexcept
    {
        if (std::exchange(m_bPool, false))
        {
            // Unlike UnInit alone, it leaves no thread behind when a step fails. It can only throw when the
            // host has ended the pool itself and no other can be built: then there is nothing to end.
            PoolCall::Guard(m_clsLibrary.Functions().m_funKillTaskAll);
        }
    }

    /// Ends the pool, then gives the library back to the loader, once. It stays loaded for as long as a run
    /// outlasts the end. What finished and dropped tasks captured is not destroyed.
    void Unload() noexcept
    {
        End();
        m_clsLibrary.Close();
    }

private:
    CLS_PoolLibrary m_clsLibrary;
    bool m_bPool; ///< the pool is still to be ended
};
