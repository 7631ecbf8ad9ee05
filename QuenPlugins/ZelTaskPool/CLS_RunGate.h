#pragma once

#include "QuenInclude/CLS_Mutex.h"

#include <chrono>
#include <condition_variable>
#include <thread>

/// Decides whether one worker may still access its pool, which may be shutting down.
///
/// A worker runs foreign code for an unknown time: a task, or a job that a host gave to the worker itself.
/// The shutdown waits a bounded time and then abandons the worker. When the foreign code returns, the gate
/// tells the worker that it was abandoned. The worker then accesses neither the pool, which may be gone, nor
/// a new pool at the same address.
///
/// A job is foreign code, except between EnterPool and LeavePool. Within those, the run of a task is foreign
/// code:
///
///     BeginJob   EnterPool   EnterRun   LeaveRun   LeavePool   EndJob
///         |--foreign--|           |--foreign--|        |--foreign--|
///
/// Threads: thread-safe. The worker's thread calls everything except Close, which is for the thread that
/// shuts the pool down.
///
/// Waits: each call takes m_mtxGate for a few instructions; only Close waits longer.
class CLS_RunGate
{
public:
    /// Marks a job for as long as this object lives. For the worker's thread.
    class CLS_JobScope
    {
    public:
        /// The worker is about to run a job.
        explicit CLS_JobScope(CLS_RunGate& _clsGate) : m_clsGate(_clsGate), m_bBegun(_clsGate.BeginJob()) {}
        /// The job is over.
        ~CLS_JobScope() { m_clsGate.EndJob(); }
        CLS_JobScope(const CLS_JobScope&) = delete;
        CLS_JobScope& operator=(const CLS_JobScope&) = delete;

        /// False at the shutdown: the job must not be run.
        bool IsBegun() const { return m_bBegun; }

    private:
        CLS_RunGate& m_clsGate;
        const bool m_bBegun;
    };

    /// Marks the part of a job that uses the pool, for as long as this object lives. For the worker's thread.
    class CLS_PoolVisit
    {
    public:
        /// The job is about to touch the pool.
        explicit CLS_PoolVisit(CLS_RunGate& _clsGate) : m_clsGate(_clsGate), m_bInside(_clsGate.EnterPool())
        {
        }
        /// The job no longer touches the pool.
        ~CLS_PoolVisit() { m_clsGate.LeavePool(); }
        CLS_PoolVisit(const CLS_PoolVisit&) = delete;
        CLS_PoolVisit& operator=(const CLS_PoolVisit&) = delete;

        /// False when the pool has abandoned the worker: the job must not touch the pool.
        bool IsInside() const { return m_bInside; }

    private:
        CLS_RunGate& m_clsGate;
        const bool m_bInside;
    };

    /// The worker is about to run a task. False at the shutdown: the task must not be run.
    bool EnterRun() ZEL_EXCLUDES(m_mtxGate);

    /// The run is over. False when the pool has abandoned the worker meanwhile.
    bool LeaveRun() ZEL_EXCLUDES(m_mtxGate);

    /// Stops further jobs and runs from beginning, and waits for the one in progress. False if it abandons
    /// the worker.
    ///
    /// True: the job is over, and the worker takes a few more steps at most. False: the worker is still in
    /// foreign code. From then on the worker frees itself, and the caller must not touch it again.
    ///
    /// Threads: the one that shuts the pool down. The call does not wait for that thread itself.
    /// Waits: until _tpLimit; a few steps longer if the worker is using the pool at that moment.
    bool Close(std::chrono::steady_clock::time_point _tpLimit) ZEL_EXCLUDES(m_mtxGate);

    /// Whether Close has abandoned the worker. For the worker's own thread.
    bool IsAbandoned() ZEL_EXCLUDES(m_mtxGate);

private:
    /// A job begins. False at the shutdown.
    bool BeginJob() ZEL_EXCLUDES(m_mtxGate);
    /// The job is over.
    void EndJob() ZEL_EXCLUDES(m_mtxGate);
    /// The job is about to touch the pool. False when the worker is abandoned.
    bool EnterPool() ZEL_EXCLUDES(m_mtxGate);
    /// The job no longer touches the pool.
    void LeavePool() ZEL_EXCLUDES(m_mtxGate);
    /// Whether neither a job nor a run is in progress.
    bool IsOver() const ZEL_REQUIRES(m_mtxGate);
    /// Whether the code in progress is foreign.
    bool IsForeign() const ZEL_REQUIRES(m_mtxGate);

    CLS_Mutex m_mtxGate;
    std::condition_variable
        m_cvGate; ///< signalled when a job or a run ends, and at both ends of the pool's part
    bool m_bRunning ZEL_GUARDED_BY(m_mtxGate) = false;   ///< a task is being run
    bool m_bClosed ZEL_GUARDED_BY(m_mtxGate) = false;    ///< no job and no run may begin
    bool m_bAbandoned ZEL_GUARDED_BY(m_mtxGate) = false; ///< the shutdown came in the middle of foreign code
    bool m_bInJob ZEL_GUARDED_BY(m_mtxGate) = false;     ///< the worker runs a job
    bool m_bInPool ZEL_GUARDED_BY(m_mtxGate) = false;    ///< the job uses the pool
    /// The thread that runs the foreign code; meaningful while there is some.
    std::thread::id m_idRunner ZEL_GUARDED_BY(m_mtxGate);
};
