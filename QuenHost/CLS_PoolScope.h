#pragma once

#include "QuenHost/CLS_PoolLibrary.h"
#include "QuenHost/Core/CLS_LivingScope.h"
#include "QuenHost/Core/CLS_PoolHub.h"
#include "QuenHost/ST_PoolSnapshot.h"
#include "QuenHost/ST_ScopeOptions.h"

#include <memory>
#include <optional>
#include <utility>

/// The part of a program in which the pool is used. Owners and loop tasks are made from it, and the pool ends
/// where it ends. It alone can unload the library, which it does after that.
///
/// Make it after what the tasks use and before the owners and loop tasks. One of those that is made before,
/// or still lives at the end, is a mistake: with ZEL_HOST_CHECKS, which is on in debug builds, it ends the
/// process with a line on standard error. Otherwise there is the line; an owner takes nothing then, and its
/// waiting tasks are destroyed by the end of the scope.
///
/// Threads: its own, which is none of the pool's. TakeSnapshot: any.
/// Owns: the queue of the one-shot tasks, and the library.
class CLS_PoolScope
{
public:
    /// Takes over an open library. From a moved-from one, there is no pool: nothing is taken, and nothing is
    /// ended. std::bad_alloc passes.
    explicit CLS_PoolScope(CLS_PoolLibrary _clsLibrary, ST_ScopeOptions _stOptions = {})
        : m_clsLibrary(std::move(_clsLibrary)),
          m_bPool(m_clsLibrary.GetFunctions().m_funKillTaskAll != nullptr),
          m_pHub(m_bPool ? std::make_shared<CLS_PoolHub>(m_clsLibrary.GetFunctions(), std::move(_stOptions))
                         : nullptr)
    {
    }

    /// The same as End. The library stays loaded.
    ~CLS_PoolScope() { End(); }

    CLS_PoolScope(const CLS_PoolScope&) = delete;
    CLS_PoolScope& operator=(const CLS_PoolScope&) = delete;
    CLS_PoolScope& operator=(CLS_PoolScope&&) = delete;

    /// Takes over the pool, which it ends in place of _clsOther. Owners and loop tasks go on as they were.
    CLS_PoolScope(CLS_PoolScope&& _clsOther) noexcept
        : m_clsLibrary(std::move(_clsOther.m_clsLibrary)), m_bPool(std::exchange(_clsOther.m_bPool, false)),
          m_pHub(std::move(_clsOther.m_pHub))
    {
    }

    /// The pool's functions, for what the kit does not offer; none is null, unless this scope was moved from
    /// or has unloaded the library.
    const ST_PoolFunctions& GetFunctions() const { return m_clsLibrary.GetFunctions(); }

    /// What the scope's tasks are doing now. ST_PoolSnapshot::ToText makes lines for a bug report of it. Any
    /// thread, also while every worker is stuck; not during the end of the scope.
    ///
    /// Waits: for no task; a few steps for locks.
    ST_PoolSnapshot TakeSnapshot() const
    {
        ST_PoolSnapshot stSnapshot = m_pHub ? m_pHub->TakeSnapshot() : ST_PoolSnapshot();
        stSnapshot.m_iPoolWorkers = m_bPool ? m_clsLibrary.GetWorkers() : std::nullopt;
        return stSnapshot;
    }

    /// Ends the pool, once. What still waits is destroyed on this thread.
    ///
    /// Waits: up to about 9 seconds a task for what is running; a run that takes longer goes on by itself.
    void End() noexcept
    {
        if (std::exchange(m_bPool, false))
        {
            m_pHub->End();
            // Unlike UnInit alone, it leaves no thread behind when a step fails. It can only throw when the
            // host has ended the pool itself and no other can be built: then there is nothing to end.
            PoolCall::Guard(m_clsLibrary.GetFunctions().m_funKillTaskAll);
        }
    }

    /// Ends the pool, then gives the library back to the loader, once. It stays loaded for as long as a run
    /// outlasts the end.
    void Unload() noexcept
    {
        End();
        m_clsLibrary.Close();
    }

private:
    friend class CLS_TaskOwner;
    friend class CLS_LoopTask;

    /// The hub of a scope; null, and reported, when there is no such scope, or no pool behind it.
    static std::shared_ptr<CLS_PoolHub> FindHub(const CLS_PoolScope& _clsPool, const std::string& _strUser)
    {
        if (!CLS_LivingScope::Has(&_clsPool))
        {
            HostChecks::Report("\"" + _strUser + "\" is made outside of the life of its scope");
            return nullptr;
        }
        if (!_clsPool.m_bPool)
        {
            HostChecks::Report("\"" + _strUser + "\" is made from a scope without a pool");
            return nullptr;
        }
        return _clsPool.m_pHub;
    }

    const CLS_LivingScope m_clsLiving{this};
    CLS_PoolLibrary m_clsLibrary;
    bool m_bPool;                        ///< the pool is still to be ended
    std::shared_ptr<CLS_PoolHub> m_pHub; ///< null for a scope without a pool from the beginning
};
