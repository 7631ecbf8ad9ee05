#pragma once

#include "QuenInclude/CLS_Mutex.h"

#include <atomic>
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
/// Waits: only Close waits. The other calls take no lock until Close has begun.
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
    bool EnterRun() { return Begin(RUNNING); }

    /// The run is over. False when the pool has abandoned the worker meanwhile.
    bool LeaveRun() { return Remove(RUNNING); }

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
    bool IsAbandoned() const { return (m_uiState & ABANDONED) != 0; }

private:
    // What m_uiState is made of.
    static constexpr unsigned IN_JOB = 1;     ///< the worker runs a job
    static constexpr unsigned IN_POOL = 2;    ///< the job uses the pool
    static constexpr unsigned RUNNING = 4;    ///< a task is being run
    static constexpr unsigned CLOSED = 8;     ///< no job and no run may begin
    static constexpr unsigned ABANDONED = 16; ///< the shutdown came in the middle of foreign code

    /// A job begins. False at the shutdown.
    bool BeginJob() { return Begin(IN_JOB); }
    /// The job is over.
    void EndJob() { Remove(IN_JOB); }
    /// The job is about to touch the pool. False when the worker is abandoned.
    bool EnterPool() { return Add(IN_POOL); }
    /// The job no longer touches the pool.
    void LeavePool() { Remove(IN_POOL); }

    /// Adds a bit to the state, unless the gate is closed: then takes the bit away and returns false.
    bool Begin(unsigned _uiBit) ZEL_EXCLUDES(m_mtxGate);
    /// Adds a bit to the state. Returns as NotifyClose.
    bool Add(unsigned _uiBit) { return NotifyClose(m_uiState.fetch_or(_uiBit)); }
    /// Takes a bit out of the state. Returns as NotifyClose.
    bool Remove(unsigned _uiBit) { return NotifyClose(m_uiState.fetch_and(~_uiBit)); }
    /// Wakes Close if the gate is closed. _uiState is the state before a step of the worker. False when the
    /// worker is abandoned.
    bool NotifyClose(unsigned _uiState) ZEL_EXCLUDES(m_mtxGate);
    /// Marks the worker as abandoned if it is in foreign code. False if it is not.
    bool Abandon();
    /// Whether neither a job nor a run is in progress.
    static bool IsOver(unsigned _uiState) { return (_uiState & (IN_JOB | RUNNING)) == 0; }
    /// Whether the code in progress is foreign.
    static bool IsForeign(unsigned _uiState)
    {
        return (_uiState & RUNNING) != 0 || (_uiState & (IN_JOB | IN_POOL)) == IN_JOB;
    }

    CLS_Mutex m_mtxGate;              ///< held while Close looks at the state; guards no member
    std::condition_variable m_cvGate; ///< signalled at each change of the state once the gate is closed
    /// The worker's progress, and what Close has decided. In one word, so that either the worker sees the
    /// gate closed, or Close sees the worker's step.
    std::atomic<unsigned> m_uiState{0};
    /// The thread that runs the foreign code; meaningful while there is some. Relaxed: the step that follows
    /// publishes it.
    std::atomic<std::thread::id> m_idRunner{};
};
