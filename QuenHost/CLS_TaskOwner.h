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
/// Declare it as the last member. Then its tasks end before the members that they use are destroyed. Destroy
/// it before its scope. It can be neither copied nor moved.
///
/// The tasks of one scope start in the order of submission, up to 300 at once.
///
/// Threads: Submit and the removals: any, several at once, even in its own tasks. The destructor: one. It may
/// be called in one of the owner's tasks.
///
/// Owns: the callables. Each is destroyed once: on the worker after its run, before the run counts as ended.
/// One that never ran is destroyed on the thread of the removal.
class CLS_TaskOwner
{
public:
    /// Creates an owner without tasks.
    ///
    /// - _strName names the owner in failures and snapshots.
    /// - _funOnFailure is called when one of its tasks fails. It is destroyed with the owner, or later by the
    ///   last run that outlasts the owner. Without it, failures go to the scope.
    template <typename T_OnFailure,
              std::enable_if_t<std::is_convertible_v<T_OnFailure, F_FailureHandler>, int> = 0>
    CLS_TaskOwner(const CLS_PoolScope& _clsPool, std::string _strName, T_OnFailure&& _funOnFailure)
        : CLS_TaskOwner(_clsPool, std::move(_strName),
                        ST_OwnerOptions{0, std::forward<T_OnFailure>(_funOnFailure)})
    {
    }

    /// The same with options, or with neither options nor a failure handler.
    CLS_TaskOwner(const CLS_PoolScope& _clsPool, std::string _strName, ST_OwnerOptions _stOptions = {})
        : m_pHub(CLS_PoolScope::FindHub(_clsPool, _strName)),
          m_pGroup(std::make_shared<CLS_TaskGroup>(std::move(_strName), std::move(_stOptions.m_funOnFailure),
                                                   _stOptions.m_uiMaxRunning))
    {
        if (m_pHub)
        {
            m_pHub->OpenGroup(*m_pGroup);
        }
    }

    /// Removes the tasks, and waits as RemoveTasks does. In one of its own tasks, it does not wait for that
    /// task.
    ~CLS_TaskOwner()
    {
        if (m_pHub)
        {
            m_pHub->CloseGroup(*m_pGroup);
        }
    }

    CLS_TaskOwner(const CLS_TaskOwner&) = delete;
    CLS_TaskOwner& operator=(const CLS_TaskOwner&) = delete;

    /// Queues _funTask, copied or moved, to run once in the background.
    ///
    /// It may run before this call returns. It is called without an argument, with a CLS_StopToken, or, in
    /// C++20, with a std::stop_token. _strCallInfo describes it.
    ///
    /// Returns false, and destroys the callable, in these cases:
    /// - the callable is empty;
    /// - a removal of the owner's tasks is in progress;
    /// - the scope has ended;
    /// - the pool has no worker for the task.
    ///
    /// Waits: for no task; a few steps for a lock.
    ///
    /// Fails: with what copying the callable throws, and std::bad_alloc. Then nothing was queued.
    template <typename T_Callable>
    [[nodiscard]] bool Submit(T_Callable&& _funTask, const std::string& _strCallInfo)
    {
        auto pTask = MakeCallableTask(std::forward<T_Callable>(_funTask));
        return pTask && GetLink().Submit(std::move(pTask), _strCallInfo);
    }

    /// Does the same after _msDelay, plus up to about 10 milliseconds.
    ///
    /// Until then, the task occupies no worker, and is cancelled like any waiting task. With a delay of 0 or
    /// less, it is queued at once. The longest delay is a hundred years.
    template <typename T_Callable>
    [[nodiscard]] bool SubmitAfter(std::chrono::milliseconds _msDelay, T_Callable&& _funTask,
                                   const std::string& _strCallInfo)
    {
        auto pTask = MakeCallableTask(std::forward<T_Callable>(_funTask));
        return pTask && GetLink().SubmitAfter(_msDelay, std::move(pTask), _strCallInfo);
    }

    /// Cancels waiting tasks and deliveries, asks running ones to stop, and waits for them.
    ///
    /// During the call, nothing starts and nothing is taken. After it, the owner takes tasks again. The
    /// cancelled callables are destroyed on this thread. Returns whether everything has ended.
    ///
    /// A task may remove its own owner's tasks. The call then waits neither for that run nor for others that
    /// do the same.
    ///
    /// Waits: until the last run in progress ends, for at most _msLimit, and never more than 9 seconds. After
    /// the full 9 seconds, the runs that go on are reported as failures. No removal waits for them again.
    bool RemoveTasks(std::chrono::milliseconds _msLimit = CLS_PoolHub::REMOVAL_LIMIT)
    {
        return !m_pHub || m_pHub->RemoveTasks(*m_pGroup, _msLimit, false);
    }

    /// Removes the tasks without waiting, for a window that must close now.
    ///
    /// A worker destroys the callables that have not started. Runs go on, and neither a removal nor the
    /// destructor waits for them. So _pKept must keep alive all that the tasks use. A worker or the last of
    /// the runs releases it.
    ///
    /// Waits: for no task; a few steps for a lock.
    ///
    /// Fails: never, even without memory. A destructor may call it.
    void RemoveTasksLater(std::shared_ptr<const void> _pKept = nullptr) noexcept
    {
        if (m_pHub)
        {
            m_pHub->RemoveTasksLater(*m_pGroup, std::move(_pKept));
        }
    }

    /// The counts since the owner was created. Any thread.
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
