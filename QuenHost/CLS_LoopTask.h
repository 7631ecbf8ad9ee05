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
/// Destroy it before its scope and before what its callable uses: declare it as the last member. It can be
/// moved; a moved-from object has no task.
///
/// Threads: one at a time, even in the task itself. IsAdded and the removals: any, several at once.
///
/// Owns: the callable. It is destroyed once: on the thread of the removal, or, if a run outlasts the removal,
/// on the worker of that run.
class CLS_LoopTask
{
public:
    /// Runs _funTask, copied or moved, at once and then again and again.
    ///
    /// - _iInterval: milliseconds from the end of a run to the next run, plus up to about 10. 0 repeats the
    ///   task without a pause; a negative interval counts as 0.
    /// - _funTask takes the same arguments as the callable of CLS_TaskOwner::Submit.
    /// - _strCallInfo describes the task.
    /// - _funOnFailure is called when a run throws; the task goes on. Without it, failures go to the scope.
    ///
    /// If the callable is empty or the pool refuses it, there is no task: see IsAdded.
    ///
    /// Waits: for no task.
    ///
    /// Fails: with what copying the callable throws, and std::bad_alloc. Then there is no task.
    ///
    /// Memory may also run out in the pool after it took the task. Then IsAdded is true, but the task may
    /// never run. A snapshot shows it as due.
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

    /// Removes the task that this object had, with the wait of Remove. A self-move keeps the task.
    CLS_LoopTask& operator=(CLS_LoopTask&& _clsOther) noexcept
    {
        CLS_LoopTask clsOther(std::move(_clsOther));
        m_pHub.swap(clsOther.m_pHub);
        m_pLoop.swap(clsOther.m_pLoop);
        return *this;
    }

    /// Whether the task exists and has not been removed.
    ///
    /// Waits: for no task; a few steps for a lock.
    bool IsAdded() const { return m_pLoop && m_pHub->IsOpen(*m_pLoop); }

    /// Asks a run in progress to stop, waits for it, and destroys the callable.
    ///
    /// From this call on, no run starts. Returns whether the task has ended, and true if there was none.
    ///
    /// A task may remove itself. The call then does not wait for that run. The run destroys the callable when
    /// it ends, and a later removal waits for that.
    ///
    /// Waits: until the run in progress ends, at most 9 seconds. After that, the run goes on and is reported
    /// as a failure.
    bool Remove() { return !m_pLoop || m_pHub->RemoveLoop(*m_pLoop, CLS_PoolHub::REMOVAL_LIMIT); }

    /// Removes the task without waiting.
    ///
    /// A worker destroys the callable, or the run in progress does so when it ends. _pKept must keep alive
    /// all that the task uses. The worker or the run releases it, whichever holds it last.
    ///
    /// Waits: for no task; a few steps for a lock.
    ///
    /// Fails: never, even without memory. A destructor may call it.
    void RemoveLater(std::shared_ptr<const void> _pKept = nullptr) noexcept
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
    /// Null if there was no task. Removals do not change it, so several may run at once.
    std::shared_ptr<CLS_LoopCore> m_pLoop;
};
