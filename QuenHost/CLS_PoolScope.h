#pragma once

#include "QuenHost/CLS_PoolLibrary.h"
#include "QuenHost/Core/CLS_LivingScope.h"
#include "QuenHost/Core/CLS_PoolHub.h"
#include "QuenHost/ST_PoolSnapshot.h"
#include "QuenHost/ST_ScopeOptions.h"

#include <memory>
#include <optional>
#include <utility>

/// The part of a program in which the pool is used. Its end is the end of the pool.
///
/// Create it after what the tasks use, and before owners and loop tasks. It is a mistake to create an owner
/// or a loop task before its scope, or to destroy it after the scope. The kit then writes a line to standard
/// error.
/// - With ZEL_HOST_CHECKS, which is on in debug builds, the process ends.
/// - Without it, the owner takes no task, and the end of the scope destroys its waiting tasks.
///
/// Threads: the one that created it, but not in a task. TakeSnapshot: any.
///
/// Owns: the queue of one-shot tasks, and the library.
class CLS_PoolScope
{
public:
    /// Takes over an open library. With a moved-from one, there is no pool, and no task is taken.
    ///
    /// Fails: with std::bad_alloc.
    explicit CLS_PoolScope(CLS_PoolLibrary _clsLibrary, ST_ScopeOptions _stOptions = {})
        : m_clsLibrary(std::move(_clsLibrary)),
          m_bPool(m_clsLibrary.GetFunctions().m_funKillTaskAll != nullptr),
          m_pHub(m_bPool ? std::make_shared<CLS_PoolHub>(m_clsLibrary.GetFunctions(), std::move(_stOptions))
                         : nullptr)
    {
    }

    /// Ends the pool, as End. The library stays loaded.
    ~CLS_PoolScope() { End(); }

    CLS_PoolScope(const CLS_PoolScope&) = delete;
    CLS_PoolScope& operator=(const CLS_PoolScope&) = delete;
    CLS_PoolScope& operator=(CLS_PoolScope&&) = delete;

    /// Takes over the pool, and ends it in place of _clsOther. Owners and loop tasks do not change.
    CLS_PoolScope(CLS_PoolScope&& _clsOther) noexcept
        : m_clsLibrary(std::move(_clsOther.m_clsLibrary)), m_bPool(std::exchange(_clsOther.m_bPool, false)),
          m_pHub(std::move(_clsOther.m_pHub))
    {
    }

    /// The pool's functions, for what the kit does not offer.
    ///
    /// They are null after a move from this scope and after Unload.
    const ST_PoolFunctions& GetFunctions() const { return m_clsLibrary.GetFunctions(); }

    /// Shows what the scope's tasks are doing now. ST_PoolSnapshot::ToText prints it for a bug report.
    ///
    /// Threads: any, even while every worker is stuck, but not during the end of the scope.
    ///
    /// Waits: for no task; a few steps for locks.
    ST_PoolSnapshot TakeSnapshot() const
    {
        ST_PoolSnapshot stSnapshot = m_pHub ? m_pHub->TakeSnapshot() : ST_PoolSnapshot();
        stSnapshot.m_iPoolWorkers = m_bPool ? m_clsLibrary.GetWorkers() : std::nullopt;
        return stSnapshot;
    }

    /// Ends the pool, once. Waiting tasks are destroyed on this thread.
    ///
    /// Waits: for running tasks, up to about 9 seconds for each. A run that takes longer is left behind.
    void End() noexcept
    {
        if (std::exchange(m_bPool, false))
        {
            m_pHub->End();
            // Unlike UnInit, it leaves no thread behind if a step fails. It throws only if the host has ended
            // the pool itself and no new one can be built. Then there is nothing to end.
            PoolCall::Guard(m_clsLibrary.GetFunctions().m_funKillTaskAll);
        }
    }

    /// Ends the pool and closes the library, once. If a run outlasts the end, the library stays loaded for
    /// good.
    ///
    /// Waits: as End.
    void Unload() noexcept
    {
        End();
        m_clsLibrary.Close();
    }

private:
    friend class CLS_TaskOwner;
    friend class CLS_LoopTask;

    /// The hub of a scope. If there is no such scope, or no pool, reports that and returns null.
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
    bool m_bPool;                        ///< the pool has not ended
    std::shared_ptr<CLS_PoolHub> m_pHub; ///< null if there was never a pool
};
