#pragma once

#include "QuenInclude/CLS_Mutex.h"

#include <chrono>
#include <condition_variable>
#include <thread>

/// Decides between one worker and the end of its pool whether the worker may still touch the pool.
///
/// A worker runs foreign code: a task, or a job that a host gave to the worker itself. How long that takes is
/// unknown. When the pool ends meanwhile, it waits a bounded time and then leaves the worker behind. The
/// worker learns so when the foreign code returns, and touches nothing of a pool that may be gone, or of a
/// new one at the same address.
///
/// A job is foreign code except between EnterPool and LeavePool, and within those a task's run is:
///
///     BeginJob   EnterPool   EnterRun   LeaveRun   LeavePool   EndJob
///         |--foreign--|           |--foreign--|        |--foreign--|
///
/// Thread-safe: the worker calls all but Close, the thread that ends the pool calls Close. Each takes
/// m_mtxGate for a few instructions; only Close waits.
class CLS_RunGate
{
public:
    /// A job, for as long as this object lives. For the worker's thread.
    class CLS_JobScope
    {
    public:
        /// The worker is about to run a job.
        explicit CLS_JobScope(CLS_RunGate& _clsGate) : m_clsGate(_clsGate), m_bBegun(_clsGate.BeginJob()) {}
        /// The job is over.
        ~CLS_JobScope() { m_clsGate.EndJob(); }
        CLS_JobScope(const CLS_JobScope&) = delete;
        CLS_JobScope& operator=(const CLS_JobScope&) = delete;

        /// False when the pool is ending: the job must not be run.
        bool IsBegun() const { return m_bBegun; }

    private:
        CLS_RunGate& m_clsGate;
        const bool m_bBegun;
    };

    /// The part of a job that uses the pool, for as long as this object lives. For the worker's thread.
    class CLS_PoolScope
    {
    public:
        /// The job is about to touch the pool.
        explicit CLS_PoolScope(CLS_RunGate& _clsGate) : m_clsGate(_clsGate), m_bInside(_clsGate.EnterPool())
        {
        }
        /// The job touches the pool no more.
        ~CLS_PoolScope() { m_clsGate.LeavePool(); }
        CLS_PoolScope(const CLS_PoolScope&) = delete;
        CLS_PoolScope& operator=(const CLS_PoolScope&) = delete;

        /// False when the pool has left the worker behind: the job must not touch it.
        bool IsInside() const { return m_bInside; }

    private:
        CLS_RunGate& m_clsGate;
        const bool m_bInside;
    };

    /// The worker is about to run a task. False when the pool is ending: the task must not be run.
    bool EnterRun() ZEL_EXCLUDES(m_mtxGate);

    /// The worker's run is over. False when the pool was not able to wait for that.
    bool LeaveRun() ZEL_EXCLUDES(m_mtxGate);

    /// The pool ends: lets no job and no run begin any more and waits for the one in progress, until
    /// _tpLimit, or, if the worker is within the pool then, a few steps longer. Does not wait for the calling
    /// thread itself. True when the job is over: the worker will take a few more steps at most. False when
    /// the worker was left behind in foreign code: from now on it belongs to itself, and the caller must not
    /// touch it again.
    bool Close(std::chrono::steady_clock::time_point _tpLimit) ZEL_EXCLUDES(m_mtxGate);

    /// Whether Close left the worker behind. For the worker's own thread.
    bool IsAbandoned() ZEL_EXCLUDES(m_mtxGate);

private:
    bool BeginJob() ZEL_EXCLUDES(m_mtxGate);
    void EndJob() ZEL_EXCLUDES(m_mtxGate);
    bool EnterPool() ZEL_EXCLUDES(m_mtxGate);
    void LeavePool() ZEL_EXCLUDES(m_mtxGate);
    bool IsOver() const ZEL_REQUIRES(m_mtxGate);
    bool IsForeign() const ZEL_REQUIRES(m_mtxGate);

    CLS_Mutex m_mtxGate;
    std::condition_variable m_cvGate; ///< signalled when a job or a run ends, and around the pool's part
    bool m_bRunning ZEL_GUARDED_BY(m_mtxGate) = false;   ///< a task is being run
    bool m_bClosed ZEL_GUARDED_BY(m_mtxGate) = false;    ///< no job and no run may begin
    bool m_bAbandoned ZEL_GUARDED_BY(m_mtxGate) = false; ///< the pool ended in the middle of foreign code
    bool m_bInJob ZEL_GUARDED_BY(m_mtxGate) = false;     ///< the worker runs a job
    bool m_bInPool ZEL_GUARDED_BY(m_mtxGate) = false;    ///< the job uses the pool
    /// The thread that runs the foreign code; meaningful while there is some.
    std::thread::id m_idRunner ZEL_GUARDED_BY(m_mtxGate);
};
