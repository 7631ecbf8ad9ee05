#pragma once

#include "QuenHost/CLS_PoolScope.h"
#include "QuenHost/CLS_StopToken.h"
#include "QuenHost/Core/ST_OwnerLink.h"
#include "QuenHost/ST_OwnerOptions.h"

#include <chrono>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>

/// Owns the one-shot tasks that are submitted through it, and removes them when it is destroyed.
///
/// As a member it comes last, so that it goes first: its tasks are gone before the members that they use. It
/// goes before its scope.
///
/// Tasks of one scope start in the order in which they were submitted, up to 300 at once.
///
/// Threads: Submit and the removals: any, from within its tasks, too, and several at once. The end: one,
/// which may be a run of its own task.
///
/// Owns: the callables. Each is destroyed exactly once: when its run has ended, on the worker, before the run
/// counts as ended; or, when it never ran, on the thread of the removal. Neither copied nor moved.
class CLS_TaskOwner
{
public:
    /// _strName says whose tasks they are, in failures and snapshots. _funOnFailure hears of its tasks'
    /// failures; without one, they go to the scope. It is destroyed with the owner, or later by the last run
    /// that outlasts it.
    CLS_TaskOwner(const CLS_PoolScope& _clsPool, std::string _strName, F_FailureHandler _funOnFailure = {})
        : CLS_TaskOwner(_clsPool, std::move(_strName), ST_OwnerOptions{0, std::move(_funOnFailure)})
    {
    }

    /// The same with options.
    CLS_TaskOwner(const CLS_PoolScope& _clsPool, std::string _strName, ST_OwnerOptions _stOptions)
        : m_pHub(CLS_PoolScope::FindHub(_clsPool, _strName)),
          m_pGroup(std::make_shared<CLS_TaskGroup>(std::move(_strName), std::move(_stOptions.m_funOnFailure),
                                                   _stOptions.m_uiMaxRunning))
    {
        if (m_pHub)
        {
            m_pHub->OpenGroup(*m_pGroup);
        }
    }

    /// The same as RemoveTasks, and nothing is taken any more. In a run of its own task, that run goes on.
    ~CLS_TaskOwner()
    {
        if (m_pHub)
        {
            m_pHub->CloseGroup(*m_pGroup);
        }
    }

    CLS_TaskOwner(const CLS_TaskOwner&) = delete;
    CLS_TaskOwner& operator=(const CLS_TaskOwner&) = delete;

    /// Queues _funTask, copied or moved, to run once in the background; it may run before the call returns.
    /// It is called without an argument, with a CLS_StopToken, or, in C++20, with a std::stop_token.
    /// _strCallInfo says what it is. False, and nothing of it is left: when the callable is empty, during a
    /// removal of the owner's tasks, when the scope has ended, and when no worker can be had.
    ///
    /// Waits: for no task; a few steps for a lock.
    /// Fails: what copying the callable throws, and std::bad_alloc; nothing was queued then.
    template <typename T_Callable>
    [[nodiscard]] bool Submit(T_Callable&& _funTask, const std::string& _strCallInfo)
    {
        auto pTask = MakeCallableTask(std::forward<T_Callable>(_funTask));
        return pTask && GetLink().Submit(std::move(pTask), _strCallInfo);
    }

    /// The same, but the task is queued after _msDelay, plus up to about 10 milliseconds. It is cancelled as
    /// any task that waits, and takes no worker until then. Delays are cut to a hundred years.
    template <typename T_Callable>
    [[nodiscard]] bool SubmitAfter(std::chrono::milliseconds _msDelay, T_Callable&& _funTask,
                                   const std::string& _strCallInfo)
    {
        auto pTask = MakeCallableTask(std::forward<T_Callable>(_funTask));
        return pTask && GetLink().SubmitAfter(_msDelay, std::move(pTask), _strCallInfo);
    }

    /// Cancels what has not started, asks what is running to stop, and waits for it. Nothing starts
    /// meanwhile, and nothing is taken. Then the owner can go on submitting. What the cancelled callables
    /// captured is destroyed on this thread. Returns whether everything ended.
    ///
    /// In a run of one of the owner's tasks: that run is not waited for, nor are others that do the same.
    ///
    /// Waits: as long as the longest run in progress, but no longer than _msLimit, and 9 seconds. After the
    /// full 9 seconds, the runs that go on are reported as failures, and no removal waits for them again.
    bool RemoveTasks(std::chrono::milliseconds _msLimit = CLS_PoolHub::REMOVAL_LIMIT)
    {
        return !m_pHub || m_pHub->RemoveTasks(*m_pGroup, _msLimit, false);
    }

    /// The same without waiting, for a window that must vanish now: a worker destroys what has not started.
    /// Runs go on, and neither a removal nor the end of the owner waits for them any more. So everything that
    /// the tasks use must hang on _pKept, which is let go on a worker, or by the last of the runs.
    ///
    /// Waits: for no task; a few steps for a lock.
    /// Fails: std::bad_alloc passes; nothing was removed then.
    void RemoveTasksLater(std::shared_ptr<const void> _pKept = nullptr)
    {
        if (m_pHub)
        {
            m_pHub->RemoveTasksLater(*m_pGroup, std::move(_pKept));
        }
    }

    /// What has been counted since the owner was made. Any thread.
    ST_PoolCounters GetCounters() const
    {
        return m_pHub ? m_pHub->GetCounters(*m_pGroup) : ST_PoolCounters();
    }

    /// For the kit.
    ST_OwnerLink GetLink() const { return {m_pHub, m_pGroup}; }

private:
    const std::shared_ptr<CLS_PoolHub> m_pHub; ///< null when there was no scope
    const std::shared_ptr<CLS_TaskGroup> m_pGroup;
};
