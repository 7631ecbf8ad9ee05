#pragma once

#include "QuenHost/CLS_PoolScope.h"
#include "QuenHost/CLS_StopToken.h"
#include "QuenHost/ST_TaskFailure.h"

#include <chrono>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>

/// A task that runs again and again until this object is destroyed. Its runs never overlap.
///
/// It goes before its scope, and before what its callable uses: as a member it comes last.
///
/// Threads: one at a time, which may be a run of its own task. IsAdded and the removals: any, several at
/// once.
///
/// Owns: the callable. It is destroyed exactly once: by the removal, on its thread; or by the run that
/// outlasts the removal, on the worker. Moveable; a moved-from object has no task.
class CLS_LoopTask
{
public:
    /// Runs _funTask, copied or moved, at once, and again _iInterval milliseconds after each run ended, plus
    /// up to about 10. With 0 it is repeated without a pause; a negative interval counts as 0. The callable
    /// takes the same arguments as that of CLS_TaskOwner::Submit. _strCallInfo says what it is.
    /// _funOnFailure hears when a run throws, after which the task goes on; without one, failures go to the
    /// scope. When the callable is empty or the pool does not take it, there is no task: see IsAdded.
    ///
    /// Waits: for no task.
    /// Fails: what copying the callable throws, and std::bad_alloc; there is no task then. When memory runs
    /// out in the pool after it took the task, IsAdded is true, the task may never run, and a snapshot shows
    /// it as due.
    template <typename T_Callable>
    CLS_LoopTask(const CLS_PoolScope& _clsPool, T_Callable&& _funTask, int _iInterval,
                 std::string _strCallInfo, F_FailureHandler _funOnFailure = {})
        : m_pHub(CLS_PoolScope::FindHub(_clsPool, _strCallInfo))
    {
        using Callable = std::decay_t<T_Callable>;
        if (m_pHub && !HostCall::IsEmpty<Callable>(_funTask))
        {
            Add(std::make_unique<CLS_CallableTask<Callable>>(std::in_place,
                                                             std::forward<T_Callable>(_funTask)),
                _iInterval,
                std::make_shared<CLS_TaskGroup>(std::move(_strCallInfo), std::move(_funOnFailure)));
        }
    }

    /// The same as Remove.
    ~CLS_LoopTask() { Remove(); }

    CLS_LoopTask(const CLS_LoopTask&) = delete;
    CLS_LoopTask& operator=(const CLS_LoopTask&) = delete;

    /// Takes over the task; _clsOther has none then.
    CLS_LoopTask(CLS_LoopTask&& _clsOther) noexcept = default;

    /// Removes the task that this object had, with Remove's wait. An object that is moved to itself keeps its
    /// task.
    CLS_LoopTask& operator=(CLS_LoopTask&& _clsOther) noexcept
    {
        CLS_LoopTask clsOther(std::move(_clsOther));
        m_pHub.swap(clsOther.m_pHub);
        m_pLoop.swap(clsOther.m_pLoop);
        return *this;
    }

    /// Whether there is a task to be removed.
    ///
    /// Waits: for no task; a few steps for a lock.
    bool IsAdded() const { return m_pLoop && m_pHub->IsOpen(*m_pLoop); }

    /// Asks a run in progress to stop, waits for it, and destroys the callable. No run starts meanwhile or
    /// later. Returns whether the task has ended, true when there was none. In a run of the task itself, that
    /// run is not waited for, and destroys the callable at its end; a later removal waits for both.
    ///
    /// Waits: as long as the run in progress, but no longer than 9 seconds; then the run is reported as a
    /// failure, and goes on.
    bool Remove() { return !m_pLoop || m_pHub->RemoveLoop(*m_pLoop, CLS_PoolHub::REMOVAL_LIMIT); }

    /// The same without waiting: a worker destroys the callable, or the run in progress does at its end.
    /// Everything that the task uses must hang on _pKept, which is let go there, too.
    ///
    /// Waits: for no task; a few steps for a lock.
    /// Fails: std::bad_alloc passes; nothing was removed then.
    void RemoveLater(std::shared_ptr<const void> _pKept = nullptr)
    {
        if (m_pLoop)
        {
            m_pHub->RemoveLoopLater(*m_pLoop, std::move(_pKept));
        }
    }

private:
    void Add(std::unique_ptr<CLS_QueuedTask> _pTask, int _iInterval, std::shared_ptr<CLS_TaskGroup> _pGroup)
    {
        _pTask->m_pGroup = _pGroup;
        _pTask->m_pStop = _pGroup->m_pStop;
        _pTask->m_strCallInfo = _pGroup->m_strName;
        const std::chrono::milliseconds msInterval(_iInterval < 0 ? 0 : _iInterval);
        // Set before the first run, which may remove the task.
        m_pLoop = std::make_shared<CLS_LoopCore>(std::move(_pGroup), std::move(_pTask), msInterval);
        if (!m_pHub->AddLoop(m_pLoop))
        {
            m_pLoop.reset();
        }
    }

    std::shared_ptr<CLS_PoolHub> m_pHub; ///< null when there was no scope
    /// Null when there was no task. Removals leave it alone, so that they may race, and wait for each other.
    std::shared_ptr<CLS_LoopCore> m_pLoop;
};
