#pragma once

#include "QuenInclude/CLS_Mutex.h"
#include "QuenPlugins/ZelTaskPool/CLS_RunGate.h"
#include "QuenPlugins/ZelTaskPool/Export.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <thread>

class CLS_Task;

/// One worker: a thread that sleeps until it is handed a job, runs the job and sleeps again.
///
/// It uses no task itself. The job receives the worker as its argument. The pool keeps in the worker the
/// reference to the task that is bound to it.
///
/// Threads: thread-safe, except for ending and deleting. The worker's thread, the dispatcher, the watchdog
/// and the shutdown share only m_mtxFunction, the run gate and atomic words. Where a comment names no thread,
/// any thread may call; where it names no wait, the call waits for nothing and takes no lock.
///
/// Owns: whoever creates a worker deletes it, but not on the worker's own thread. Only an abandoned worker
/// (see CLS_RunGate) deletes itself.
class CLS_TaskThread
{
public:
    /// Starts the thread. The worker is idle at once.
    ///
    /// Fails: std::system_error propagates when no thread can be started.
    ZEL_TASKPOOL_EXPORT CLS_TaskThread();

    /// Ends the worker as Exit does.
    ///
    /// Fails: an exception from the join ends the process.
    ZEL_TASKPOOL_EXPORT ~CLS_TaskThread();

    CLS_TaskThread(const CLS_TaskThread&) = delete;
    CLS_TaskThread& operator=(const CLS_TaskThread&) = delete;

    /// The thread's body: runs jobs until the worker is told to end.
    ///
    /// Holds m_mtxFunction while a job runs. Names the thread "zel-worker-" and the order id, if there is
    /// one, before the first job, and again when the id has changed.
    ///
    /// Threads: the worker's.
    /// Fails: a job that throws causes a log record. The job stays and runs again on the next pass, until it
    /// returns, a new job replaces it, or the worker ends.
    ZEL_TASKPOOL_EXPORT void FunTask();

    /// Ends the thread: at once when it is idle, else when its job returns. Always true.
    ///
    /// A job that was handed over but has not begun is dropped. The worker may be deleted afterwards. Not for
    /// a worker of the pool, which would go on handing it tasks.
    ///
    /// Threads: one at a time, and not the worker's own, where the join throws std::system_error.
    /// Waits: for m_mtxFunction and for the job, without a limit.
    ZEL_TASKPOOL_EXPORT bool Exit();

    /// Hands over a copy of _funJob. A job that is still stored is dropped. Always true.
    ///
    /// Copies the new job and destroys the old one under m_mtxFunction.
    ///
    /// Threads: any except the worker's own, which would wait for itself.
    /// Waits: for m_mtxFunction, and so for a running job.
    /// Fails: exceptions of the copy propagate and change nothing.
    ZEL_TASKPOOL_EXPORT bool AddFunction(const std::function<void(CLS_TaskThread*)>& _funJob)
        ZEL_EXCLUDES(m_mtxFunction);

    /// The worker's place in the pool's order; -1 until the pool has set it.
    ZEL_TASKPOOL_EXPORT int GetOrderId();
    /// Sets the order id. Not while the worker is on a pool's idle list, which is sorted by it.
    ZEL_TASKPOOL_EXPORT void SetOrderId(int _iOrderId);

    /// Whether the last pass ended at least GetWaitingOvertime() whole milliseconds ago.
    ///
    /// Before the first pass, counts from construction. Also true for a worker with a long job. So it means
    /// "idle for too long" only for a worker on the idle list.
    ZEL_TASKPOOL_EXPORT bool IsWaitingOvertime();

    /// Sets the time, in milliseconds, after which a worker counts as idle for too long. For all workers.
    ///
    /// 300000 by default. With zero or less, every worker counts as idle for too long.
    ZEL_TASKPOOL_EXPORT static void SetWaitingOvertime(int _iMilliseconds);
    /// The time that SetWaitingOvertime sets, in milliseconds.
    ZEL_TASKPOOL_EXPORT static int GetWaitingOvertime();

    ZEL_TASKPOOL_EXPORT static std::atomic<std::int32_t> m_iWaitingOvertime; ///< see SetWaitingOvertime

    /// Whether the calling thread is the worker's own. For the pool only: not exported.
    bool IsOwnThread() const;

    /// The id of the worker's thread; no thread's id once it has ended. For the pool only: not exported.
    std::thread::id GetThreadId() const;

    /// The reference to the task that the dispatcher bound to the worker. The lock of the pool's table of
    /// workers, which holds the task's id, guards it. For the pool only: not exported.
    std::weak_ptr<CLS_Task>& GetBoundTask() { return m_pBoundTask; }

    /// Says whether more tasks wait for a worker. Called by the job. For the pool only: not exported.
    void SetBacklog(bool _bBacklog) { m_bBacklog.store(_bBacklog, std::memory_order_relaxed); }

    /// The gate between the worker and the shutdown of its pool. For the pool only: not exported.
    CLS_RunGate& GetRunGate() { return m_clsRunGate; }

private:
    /// Runs jobs until the end. An abandoned worker then deletes itself.
    void WorkUntilEnd();
    /// Yields a few times, until a job is handed over, and at least once while more tasks wait.
    void YieldForJobs();
    /// Waits for a job and runs it. False when the worker ends; a job that has not begun is then dropped.
    bool RunNextJob(std::int32_t& _iShownId) ZEL_EXCLUDES(m_mtxFunction);
    /// Names the thread by its order id if that differs from _iShownId, the id that the name shows.
    void ShowOrderId(std::int32_t& _iShownId);
    /// Calls the job in hand, and drops it if it returns.
    void CallJob() ZEL_REQUIRES(m_mtxFunction);
    /// Writes a log record about a job that failed.
    void RecordFailure();
    /// Clears the run flag and wakes the worker.
    void RequestEnd();

    /// Whether the worker's thread goes on. Whoever clears it takes m_mtxFunction before notifying, so that a
    /// waiting worker cannot miss it.
    std::atomic<bool> m_bRun{true};
    CLS_Mutex m_mtxFunction; ///< held by the worker's thread while a job runs
    /// The job in hand; empty when idle.
    std::function<void(CLS_TaskThread*)> m_funFunction ZEL_GUARDED_BY(m_mtxFunction);
    std::condition_variable m_cvFunction; ///< signalled when a job or the end has come
    /// The worker's thread. Written by the constructor and by whoever ends the worker; no lock.
    std::unique_ptr<std::thread> m_pThread;
    std::atomic<std::int32_t> m_iOrderId{-1};
    /// End of the most recent pass. Written by the worker's thread, read by the watchdog. Relaxed, because a
    /// stale value only delays one decision by one pass.
    std::atomic<std::chrono::steady_clock::time_point> m_tpLastActive{std::chrono::steady_clock::now()};
    CLS_RunGate m_clsRunGate;
    std::weak_ptr<CLS_Task> m_pBoundTask; ///< see GetBoundTask
    /// Whether a job has been handed over since the worker last looked. The worker reads it without a lock
    /// before it goes to sleep, as a hint. Relaxed.
    std::atomic<bool> m_bHandedOver{false};
    std::atomic<bool> m_bBacklog{false}; ///< see SetBacklog; a hint, relaxed
};
