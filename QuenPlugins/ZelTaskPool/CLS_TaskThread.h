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

/// One worker: a thread that sleeps until a job is handed to it, runs the job and sleeps again. It knows
/// nothing about tasks; the job is given the worker itself.
///
/// Whoever creates a worker deletes it, not from the worker's own thread; only a worker that was abandoned
/// (see CLS_RunGate) deletes itself. Thread-safe but for ending and deleting: the worker's thread, the
/// dispatcher, the watchdog and the end of the pool meet only in m_mtxFunction, the run gate and atomic
/// words.
class CLS_TaskThread
{
public:
    /// Starts the thread: the worker is idle at once. std::system_error when no thread is to be had.
    ZEL_TASKPOOL_EXPORT CLS_TaskThread();

    /// Ends the worker as Exit does. An exception out of the join ends the process.
    ZEL_TASKPOOL_EXPORT ~CLS_TaskThread();

    CLS_TaskThread(const CLS_TaskThread&) = delete;
    CLS_TaskThread& operator=(const CLS_TaskThread&) = delete;

    /// The thread's body: takes jobs until the worker is told to end. Called by the worker's thread only.
    /// Holds m_mtxFunction while a job runs. Names the thread "zel-worker-" and the order id, if it has one,
    /// before the first job, and before the next one when the id was changed. A job that throws is recorded,
    /// kept, and run again on the next pass, until it returns, a new job replaces it, or the worker ends.
    ZEL_TASKPOOL_EXPORT void FunTask();

    /// Ends the thread: at once when it is idle, else when its job returns; waits for that without a limit.
    /// A job that was handed over but not begun is dropped. The worker may be deleted afterwards. One thread
    /// at a time, and not the worker's own, where the join throws std::system_error; not on a worker of the
    /// pool, which would go on handing it tasks. Takes m_mtxFunction. Always true.
    ZEL_TASKPOOL_EXPORT bool Exit();

    /// Hands over a copy of _funJob. A job that is still stored is discarded unrun. Any thread but, as it
    /// would wait for itself, the worker's own; takes m_mtxFunction, and so waits while a job runs. The copy
    /// is made and the old job destroyed under that lock; exceptions of the copy pass and change nothing.
    /// Always true.
    ZEL_TASKPOOL_EXPORT bool AddFunction(const std::function<void(CLS_TaskThread*)>& _funJob)
        ZEL_EXCLUDES(m_mtxFunction);

    /// The worker's place in the pool's order, -1 until the pool has set it. Any thread, no lock.
    ZEL_TASKPOOL_EXPORT int GetOrderId();
    /// Not while the worker is idle in a pool, whose list is sorted by it. Any thread, no lock.
    ZEL_TASKPOOL_EXPORT void SetOrderId(int _iOrderId);

    /// Whether at least GetWaitingOvertime() whole milliseconds have passed since the last pass ended (since
    /// construction, before the first). Any thread, no lock.
    ZEL_TASKPOOL_EXPORT bool IsWaitingOvertime();

    /// The time, in milliseconds, after which a worker counts as idle for too long; for all workers. 300000
    /// by default; zero or less makes every worker count so. Any thread, no lock.
    ZEL_TASKPOOL_EXPORT static void SetWaitingOvertime(int _iMilliseconds);
    /// That time, in milliseconds. Any thread, no lock.
    ZEL_TASKPOOL_EXPORT static int GetWaitingOvertime();

    ZEL_TASKPOOL_EXPORT static std::atomic<std::int32_t> m_iWaitingOvertime; ///< see SetWaitingOvertime

    /// Whether the calling thread is the worker's own. For the pool only: not exported.
    bool IsOwnThread() const;

    /// The worker's thread; no thread's id once it has ended. As IsOwnThread.
    std::thread::id GetThreadId() const;

    /// Where the worker and the end of its pool meet. For the pool only: not exported.
    CLS_RunGate& GetRunGate() { return m_clsRunGate; }

private:
    void WorkUntilEnd();
    bool RunNextJob(std::int32_t& _iShownId) ZEL_EXCLUDES(m_mtxFunction);
    void ShowOrderId(std::int32_t& _iShownId);
    void CallJob() ZEL_REQUIRES(m_mtxFunction);
    void RecordFailure();
    void RequestEnd();

    /// Whether the worker's thread is to go on. Who clears it takes m_mtxFunction before he notifies, so that
    /// a waiting worker cannot miss it.
    std::atomic<bool> m_bRun{true};
    CLS_Mutex m_mtxFunction; ///< held by the worker's thread while a job runs
    /// The job in hand; empty when idle.
    std::function<void(CLS_TaskThread*)> m_funFunction ZEL_GUARDED_BY(m_mtxFunction);
    std::condition_variable m_cvFunction; ///< signalled when a job or the end has come
    /// The worker's thread. Written by the constructor and by whoever ends the worker; no lock.
    std::unique_ptr<std::thread> m_pThread;
    std::atomic<std::int32_t> m_iOrderId{-1};
    /// End of the most recent pass. Written by the worker's thread, read by the watchdog; relaxed, for a
    /// stale value shifts one judgement by one pass.
    std::atomic<std::chrono::steady_clock::time_point> m_tpLastActive{std::chrono::steady_clock::now()};
    CLS_RunGate m_clsRunGate;
};
