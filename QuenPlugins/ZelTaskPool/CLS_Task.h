#pragma once

#include "QuenInclude/CLS_Basic.h"
#include "QuenPlugins/ZelTaskPool/Export.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <shared_mutex>
#include <string>

/// \file
/// The task record.

/// The state of a task. Values from 2 on count as executing; nothing sets 2.
enum n_TaskStatus : std::int32_t
{
    TASK_STATUS_IDLE = 0,    ///< not queued, not executing
    TASK_STATUS_WAITING = 1, ///< queued for a worker
    TASK_STATUS_RUNNING = 3  ///< its callable is executing
};

/// A task record: the host's callable, its status, its loop interval, and the time of its last run. Its
/// validity says whether it may still run.
///
///     IDLE --(queued)--> WAITING --(Running begins)--> RUNNING --(Running ends)--> IDLE
///
/// CreateTask and CreatePoolTask enter each task into a registry under its id. The registry keeps it until
/// DeleteTask; a one-shot task that has run stays registered until then (kept on purpose).
///
/// Threads: thread-safe. Status, interval, time and validity are single atomic words, which any thread reads
/// and writes without a lock. The callable is set once, and taken out when the task is removed. Where a
/// comment names no thread, any thread may call; where it names no wait, the call waits for nothing and takes
/// no lock.
///
/// Owns: GetTask returns a weak reference. Code that uses the task holds a strong one while it does so. So a
/// task that is removed during its run lives until the run ends.
class CLS_Task : public CLS_Basic
{
public:
    static constexpr std::chrono::milliseconds STOP_POLL{300}; ///< how often Stop polls
    static constexpr int STOP_POLLS = 30;                      ///< how many times Stop sleeps at most

    /// Creates a valid, idle task that is not registered.
    ///
    /// Copies _funTask, which may be empty. _iLoopInterval is in milliseconds, negative for a one-shot task.
    /// _strCallInfo names the submitter and becomes the parameter "callinfo".
    ///
    /// Fails: the exceptions of the copies propagate.
    ZEL_TASKPOOL_EXPORT CLS_Task(const std::function<void()>& _funTask, int _iLoopInterval,
                                 const std::string& _strCallInfo);

    /// Stops the task.
    ///
    /// Waits: up to about 9 seconds for a run in progress.
    /// Fails: an exception from Stop ends the process.
    ZEL_TASKPOOL_EXPORT ~CLS_Task();

    /// Creates a task and registers it under a fresh id. Replaces a registered task with the same id.
    ///
    /// Waits: for the task's parameter lock, then the registry's lock, exclusive.
    /// Fails: exceptions propagate (no memory, no random device). Nothing is registered then.
    /// Owns: the caller and the registry share the task.
    ZEL_TASKPOOL_EXPORT static std::shared_ptr<CLS_Task>
    CreateTask(const std::function<void()>& _funTask, int _iLoopInterval, const std::string& _strCallInfo);

    /// Does what CreateTask does, for a task that only the pool knows. Also returns the id in _strTaskId.
    ///
    /// FindTask may trust a reference to this task. For the pool only: not exported.
    static std::shared_ptr<CLS_Task> CreatePoolTask(const std::function<void()>& _funTask, int _iLoopInterval,
                                                    const std::string& _strCallInfo, std::string& _strTaskId);

    /// The registered task with this id; an empty reference when there is none.
    ///
    /// Waits: for the registry's lock, shared.
    ZEL_TASKPOOL_EXPORT static std::weak_ptr<CLS_Task> GetTask(const std::string& _strTaskId);

    /// The registered task with this id; null when there is none. Does not search the registry if _pKept, a
    /// reference from an earlier look-up, is sure to be what the search would find.
    ///
    /// That is so while only the registry owns the task, and the pool for as long as it uses the task: a task
    /// that leaves the registry is then destroyed. So the search is needed
    /// - when the reference is empty, or its task is gone;
    /// - when other code may own the task: CreateTask or GetTask has handed it out, or DeleteTask or
    ///   CreateTask has taken it out of the registry;
    /// - when a host has changed m_mapTaskData itself, so that it no longer holds what the library put there.
    ///
    /// For the pool only: not exported.
    ///
    /// Waits: for the registry's lock, shared. While the library itself changes the registry, only a search
    /// waits.
    static std::shared_ptr<CLS_Task> FindTask(const std::weak_ptr<CLS_Task>& _pKept,
                                              const std::string& _strTaskId);

    /// Takes the task out of the registry. Ignores an unknown id.
    ///
    /// Pitfall: if the registry holds the last reference, the task and its captured objects are destroyed
    /// under the registry's lock. A caller that cannot rule that out must hold its own reference during the
    /// call.
    ///
    /// Waits: for the registry's lock, exclusive.
    ZEL_TASKPOOL_EXPORT static void DeleteTask(const std::string& _strTaskId);

    /// Runs the callable once on the calling thread, unless it is empty or the task is not valid. Always
    /// true.
    ///
    /// The task is idle afterwards in any case.
    ///
    /// Threads: the worker that the task is bound to.
    /// Waits: as long as the callable runs.
    /// Fails: an exception from the callable becomes a log record. If writing that log record fails, a second
    /// one says so. Only a failure to write the second one propagates.
    ZEL_TASKPOOL_EXPORT bool Running();

    /// Makes the task invalid for good and waits until it does not execute. False if it still executes after
    /// the wait.
    ///
    /// Returns true at once for an idle or a queued task. Writes a log record after every 10 sleeps and when
    /// it gives up.
    ///
    /// Pitfall: on the thread that runs the task, Stop waits for itself until it gives up.
    ///
    /// Waits: polls every STOP_POLL, up to STOP_POLLS times: 9 seconds in all.
    /// Fails: exceptions of ParamToString propagate.
    ZEL_TASKPOOL_EXPORT bool Stop();

    /// Stops the task, but gives up at _tpLimit if that comes first, or at once if it has already passed.
    ///
    /// For a caller that waits for several tasks with one bound. For the pool only: not exported.
    bool StopUntil(std::chrono::steady_clock::time_point _tpLimit);

    /// The status.
    ZEL_TASKPOOL_EXPORT n_TaskStatus GetTaskStatus();
    /// Sets the status.
    ///
    /// Pitfall: nothing is checked. If a task executes but its status says otherwise, Stop does not wait for
    /// it. A second run may also start at the same time.
    ZEL_TASKPOOL_EXPORT void SetTaskStatus(n_TaskStatus _iTaskStatus);
    /// Sets TASK_STATUS_WAITING and returns the previous status. Pitfall: as SetTaskStatus.
    ZEL_TASKPOOL_EXPORT n_TaskStatus SetTaskIsWaiting();

    /// Makes a waiting task idle, because its worker cannot run it. Leaves other tasks alone.
    ///
    /// Without this, the loop scheduler would never queue the task again. For the pool only: not exported.
    ///
    /// Threads: the worker's.
    void UndoWaiting();

    /// Notes that RemoveTask has begun: the task must no longer be put on the list of loop tasks.
    ///
    /// The list's lock orders this against IsRemoved. For the pool only: not exported.
    void SetRemoved();
    /// Whether SetRemoved was called.
    bool IsRemoved();

    /// Takes the callable out of the task, which runs nothing from then on.
    ///
    /// Call it only after Stop has returned true. At some moment since then, the caller's reference must have
    /// been the only one. The reason: a task that was queued while it ran may still run. No later run reads
    /// the callable, unless the task is made valid again. For the pool only: not exported.
    std::function<void()> TakeCallable() noexcept;

    /// Whether the task repeats: its interval is not negative.
    ZEL_TASKPOOL_EXPORT bool IsLoop();
    /// Changes the interval. The loop scheduler uses it from its next pass on.
    ZEL_TASKPOOL_EXPORT void SetLoopInterval(int _iLoopInterval);
    /// The time in milliseconds from the end of one run to the next.
    ///
    /// Negative for a one-shot task. A listed loop task with a negative interval is due whenever it is idle.
    ZEL_TASKPOOL_EXPORT int GetLoopInterval();

    /// Whether the task is queued or executing.
    ZEL_TASKPOOL_EXPORT bool IsRunning();

    /// Whether a loop task is due: idle, valid, and its interval has passed since the last run ended.
    ///
    /// Before the first run, the interval counts from construction.
    ZEL_TASKPOOL_EXPORT bool IsUseRun();

    /// The moment before which IsUseRun stays false, unless the interval changes.
    ///
    /// For a task that is queued, executing or not valid, a moment in the distant past, because that may
    /// change at any moment. For the pool only: not exported.
    std::chrono::steady_clock::time_point GetEarliestRun();

    /// Counts the calls of SetLoopInterval for all tasks. For the pool only: not exported.
    static std::uint64_t GetIntervalChanges();

    /// Whether the task may still run.
    ZEL_TASKPOOL_EXPORT bool GetValid();
    /// Sets whether the task may still run. The library itself never sets it back to true.
    ///
    /// Pitfall: while a task is being removed, a host must not set it to true. A removal takes the callable
    /// out of the task.
    ZEL_TASKPOOL_EXPORT void SetValid(bool _bValid);

    /// The registry, by task id. Never destroyed, because late threads may look tasks up while the process
    /// exits.
    ///
    /// Pitfall: the pool notices a host's own changes by the number of tasks. It may miss a change that keeps
    /// the number: another task under an old id, or an old task under a new id. While anything owns
    /// the old task, it may then still run: once for each time that its old id was queued before the change.
    /// A host that wants another task under an id calls DeleteTask first.
    ZEL_TASKPOOL_EXPORT static std::map<std::string, std::shared_ptr<CLS_Task>>& m_mapTaskData;
    ZEL_TASKPOOL_EXPORT static std::shared_mutex& m_smTaskDataLock; ///< guards m_mapTaskData

private:
    class CLS_Run;
    struct ST_Registry;

    /// The registry and its lock, with the annotated types.
    static ST_Registry& GetRegistry();
    /// Whether the task was registered in this era, and only the pool has had access to it since.
    bool IsOfEra(std::uint32_t _uiEra) const;
    /// Makes FindTask search for this task from now on. Ignores null.
    static void ForgetEra(const std::shared_ptr<CLS_Task>& _pTask);

    /// Calls the callable and logs what it throws. A failure to write the log record propagates.
    void InvokeCallable();
    /// Writes a log record; _szReason is null when the exception has no text, and the two forms differ.
    void RecordFailure(const std::string& _strFailure, const char* _szReason, int _iLine = __builtin_LINE());

    /// Status and validity are sequentially consistent. A run stores the status, then reads the validity;
    /// Stop stores the validity, then reads the status. If any of the four were weaker, both could read the
    /// old value. Then a task could start after Stop has returned. verify/models/handshake checks all
    /// executions.
    std::atomic<n_TaskStatus> m_iTaskStatus{TASK_STATUS_IDLE};
    std::function<void()> m_funTask; ///< the work; see TakeCallable
    std::atomic<std::int32_t> m_iLoopInterval;
    /// End of the most recent run. The thread that runs the task writes it before the status becomes idle, so
    /// a thread that sees the task idle also sees this time.
    std::atomic<std::chrono::steady_clock::time_point> m_tpLastRun{std::chrono::steady_clock::now()};
    std::atomic<bool> m_bValid{true};
    std::atomic<bool> m_bRemoved{false}; ///< see SetRemoved; relaxed
    /// The era of the registry in which the task was registered; 0 once code outside the pool may own it,
    /// or once it has left the registry. See FindTask. Relaxed: the registry's lock orders it, or CLS_Change
    /// does.
    std::atomic<std::uint32_t> m_uiEra{0};
};
