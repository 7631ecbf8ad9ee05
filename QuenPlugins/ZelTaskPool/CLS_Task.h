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

/// Where a task is in its life. A task counts as executing at 2 or more; nothing produces 2.
enum n_TaskStatus : std::int32_t
{
    TASK_STATUS_IDLE = 0,    ///< not queued, not executing
    TASK_STATUS_WAITING = 1, ///< queued for a worker
    TASK_STATUS_RUNNING = 3  ///< its callable is executing
};

/// The record of one unit of work: the host's callable, its status, its loop interval, when it ran last,
/// and whether it may still run.
///
///     IDLE --(queued)--> WAITING --(Running begins)--> RUNNING --(Running ends)--> IDLE
///
/// The pool makes every record with CreateTask, which enters it into a registry under its id. The registry
/// keeps it until DeleteTask; a one-shot task that has run stays registered (kept on purpose) until then.
/// Whoever uses a record takes a strong reference from GetTask's weak one for that long, so that a task which
/// is removed while it runs lives until its run ends.
///
/// Thread-safe: status, interval, time and validity are single atomic words that any thread reads and
/// writes without a lock; the callable is set once, and taken out when the task is removed.
class CLS_Task : public CLS_Basic
{
public:
    static constexpr std::chrono::milliseconds STOP_POLL{300}; ///< how often Stop looks
    static constexpr int STOP_POLLS = 30;                      ///< how many times Stop sleeps at most

    /// A valid, idle record, not registered. Copies _funTask, which may be empty. _iLoopInterval in
    /// milliseconds; negative for a one-shot task. _strCallInfo says who submitted it, and becomes the
    /// parameter "callinfo". Exceptions of the copies pass.
    ZEL_TASKPOOL_EXPORT CLS_Task(const std::function<void()>& _funTask, int _iLoopInterval,
                                 const std::string& _strCallInfo);

    /// Stops the task, and so waits up to about 9 seconds for a run in progress. An exception out of Stop
    /// ends the process.
    ZEL_TASKPOOL_EXPORT ~CLS_Task();

    /// Makes a record and registers it under a fresh id, in place of one with the same id. The caller shares
    /// it with the registry. Any thread; the record's parameter lock, then the registry's, exclusive.
    /// Exceptions (no memory, no random device) pass, and leave nothing registered.
    ZEL_TASKPOOL_EXPORT static std::shared_ptr<CLS_Task>
    CreateTask(const std::function<void()>& _funTask, int _iLoopInterval, const std::string& _strCallInfo);

    /// The registered task with this id; an empty reference when there is none. Any thread; registry lock,
    /// shared.
    ZEL_TASKPOOL_EXPORT static std::weak_ptr<CLS_Task> GetTask(const std::string& _strTaskId);

    /// Takes the task out of the registry; an unknown id is ignored. Any thread; registry lock, exclusive.
    /// Pitfall: when the registry holds the last reference, the record and what its callable captured are
    /// destroyed under that lock. A caller that cannot rule that out holds a reference of its own meanwhile.
    ZEL_TASKPOOL_EXPORT static void DeleteTask(const std::string& _strTaskId);

    /// Runs the callable once on the calling thread, unless it is empty or the task is not valid. What it
    /// throws is recorded and swallowed, and so is a failure to record that; only a failure to record the
    /// latter passes. The task is idle afterwards in any case. Takes as long as the callable. For the worker
    /// that has the task in hand; no lock. Always true.
    ZEL_TASKPOOL_EXPORT bool Running();

    /// Makes the task invalid for good and waits until it is not executing: looks every STOP_POLL, and
    /// gives up after STOP_POLLS sleeps, 9 seconds in all. True at once for a task that is idle or queued;
    /// false when the wait ran out. No lock. Any thread but, pitfall, the one that runs the task: there it
    /// waits for itself, for the whole bound. Makes a record after every 10 sleeps and when it gives up;
    /// exceptions of ParamToString pass from there.
    ZEL_TASKPOOL_EXPORT bool Stop();

    /// Stop, but gives up at _tpLimit if that comes first, at once if it has passed: for a caller whose wait
    /// for several tasks has one bound. For the pool only: not exported.
    bool StopUntil(std::chrono::steady_clock::time_point _tpLimit);

    /// The task's place in its life. Any thread, no lock.
    ZEL_TASKPOOL_EXPORT n_TaskStatus GetTaskStatus();
    /// Any thread, no lock. Pitfall: it is not checked, and a task that executes but says otherwise is not
    /// waited for by Stop, and may be run a second time at once.
    ZEL_TASKPOOL_EXPORT void SetTaskStatus(n_TaskStatus _iTaskStatus);
    /// Sets TASK_STATUS_WAITING and returns what the status was. As SetTaskStatus.
    ZEL_TASKPOOL_EXPORT n_TaskStatus SetTaskIsWaiting();

    /// Makes a waiting task idle: its worker cannot run it, and the loop scheduler never queues a task that
    /// waits. Does nothing to a task in another status. The worker's thread, no lock. For the pool only: not
    /// exported.
    void UndoWaiting();

    /// The pool's RemoveTask has begun: the task must not be put on the list of loop tasks any more. Any
    /// thread; the list's lock orders this against IsRemoved. For the pool only: not exported.
    void SetRemoved();
    /// Whether SetRemoved was called.
    bool IsRemoved();

    /// Hands over the callable; the record is left without one and runs nothing. Any thread, no lock, and
    /// only when Stop has returned true and nobody else has had a reference since: a task that was queued
    /// while it ran may still run then. No later run reads the callable as long as nobody makes the task
    /// valid again. For the pool only: not exported.
    std::function<void()> TakeCallable() noexcept;

    /// Whether the task repeats: any interval from 0 on. Any thread, no lock.
    ZEL_TASKPOOL_EXPORT bool IsLoop();
    /// Changes the interval, which counts from the scheduler's next look on. Any thread, no lock.
    ZEL_TASKPOOL_EXPORT void SetLoopInterval(int _iLoopInterval);
    /// The time, in milliseconds, from the end of one run to the next. Negative for a one-shot task; a listed
    /// loop task is due whenever idle then. Any thread, no lock.
    ZEL_TASKPOOL_EXPORT int GetLoopInterval();

    /// Whether the task is queued or executing. Any thread, no lock.
    ZEL_TASKPOOL_EXPORT bool IsRunning();

    /// Whether a loop task is due: idle, valid, and its interval has passed since its last run ended (since
    /// it was made, before the first). Any thread, no lock.
    ZEL_TASKPOOL_EXPORT bool IsUseRun();

    /// Before which moment IsUseRun stays false as long as the interval stays as it is; the distant past for
    /// a task that is queued, executing or not valid, which may change at any moment. Any thread, no lock.
    /// For the pool only: not exported.
    std::chrono::steady_clock::time_point GetEarliestRun();

    /// Counts the calls of SetLoopInterval, of all tasks. Any thread, no lock. For the pool only: not
    /// exported.
    static std::uint64_t GetIntervalChanges();

    /// Whether the task may still run. Any thread, no lock.
    ZEL_TASKPOOL_EXPORT bool GetValid();
    /// Any thread, no lock. The library itself never sets it back to true. Pitfall: nor may a host while the
    /// task is being removed, for a removal takes the callable out of the record.
    ZEL_TASKPOOL_EXPORT void SetValid(bool _bValid);

    /// The registry, by task id, and its lock. Never destroyed: late threads may look tasks up while the
    /// process exits.
    ZEL_TASKPOOL_EXPORT static std::map<std::string, std::shared_ptr<CLS_Task>>& m_mapTaskData;
    ZEL_TASKPOOL_EXPORT static std::shared_mutex& m_smTaskDataLock; ///< guards m_mapTaskData

private:
    class CLS_Run;

    void InvokeCallable();
    void RecordFailure(const std::string& _strFailure, const char* _szReason, int _iLine = __builtin_LINE());

    /// Status and validity are sequentially consistent: a run stores the status and then reads the validity,
    /// Stop stores the validity and then reads the status. With anything weaker both could read the old
    /// value, and a task would start after Stop had returned: under the C++ memory model that is so as soon
    /// as a single one of the four is weaker, and never as they are (verify/models/handshake checks all
    /// executions).
    std::atomic<n_TaskStatus> m_iTaskStatus{TASK_STATUS_IDLE};
    std::function<void()> m_funTask; ///< the work; see TakeCallable
    std::atomic<std::int32_t> m_iLoopInterval;
    /// End of the most recent run. Written by the thread that runs the task, before the status becomes idle:
    /// who sees the task idle sees this time, too.
    std::atomic<std::chrono::steady_clock::time_point> m_tpLastRun{std::chrono::steady_clock::now()};
    std::atomic<bool> m_bValid{true};
    std::atomic<bool> m_bRemoved{false}; ///< see SetRemoved; relaxed
};
