#pragma once

#include "QuenInclude/CLS_Mutex.h"

#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <set>
#include <thread>

class CLS_QuenTaskPool;

/// The right to shut one pool down, held as long as this object lives.
///
/// One thread at a time has it. A thread that does not get it must not touch the pool, which may be gone. For
/// the pool only: not exported.
///
/// Threads: thread-safe, with one lock for the process, held for a few instructions. The lock outlives every
/// pool: a caller may ask about a pool that another thread has destroyed meanwhile.
class CLS_ShutdownClaim
{
public:
    /// The longest that one step of a shutdown takes: CLS_Task::Stop's wait for one run, and as long again
    /// for log records and a busy system.
    static constexpr std::chrono::seconds STEP_LIMIT{20};

    /// The entry of one thread, made ahead of time.
    using ThreadEntry = std::set<std::thread::id>::node_type;

    /// Asks for the right to shut _pPool down. The pool is only compared, never touched.
    ///
    /// Waits: while another thread shuts the pool down, until that is over. Gives up when one step of that
    /// shutdown exceeds STEP_LIMIT. A thread of the pool, and the thread that shuts it down, get an answer at
    /// once.
    explicit CLS_ShutdownClaim(const CLS_QuenTaskPool* _pPool);

    /// Releases the right and wakes the threads that wait for it.
    ~CLS_ShutdownClaim();

    CLS_ShutdownClaim(const CLS_ShutdownClaim&) = delete;
    CLS_ShutdownClaim& operator=(const CLS_ShutdownClaim&) = delete;

    /// Whether this object has the right. False in these cases:
    /// - the pool is gone;
    /// - another thread shuts it down, and the caller did not wait or gave up.
    bool IsGranted() const { return m_pLife != nullptr; }

    /// Begins the next step of the shutdown: waiting threads grant it STEP_LIMIT from now on.
    void BeginStep();

    /// Notes that a pool is being built.
    ///
    /// Fails: std::bad_alloc propagates and leaves nothing behind.
    static void AddPool(const CLS_QuenTaskPool* _pPool);

    /// Notes that the pool is about to be destroyed. It can no longer be claimed.
    static void RemovePool(const CLS_QuenTaskPool* _pPool);

    /// Makes the entry for one thread, so that AddThread cannot fail.
    ///
    /// Fails: std::bad_alloc propagates.
    static ThreadEntry ReserveThread();

    /// Notes that the thread is the pool's own from now on. Uses up the entry.
    static void AddThread(const CLS_QuenTaskPool* _pPool, std::thread::id _idThread, ThreadEntry&& _clsEntry);

    /// Notes that the thread is about to end. Its id may be reused afterwards.
    static void RemoveThread(const CLS_QuenTaskPool* _pPool, std::thread::id _idThread);

    /// Does the same for the calling thread, whose pool may be gone or still shutting down.
    static void RemoveOwnThread();

private:
    /// What is known about a pool. Guarded by ST_Pools::m_mtxPools. A thread that waits for a shutdown keeps
    /// it beyond the pool's life.
    struct ST_Life
    {
        bool m_bGone = false;
        bool m_bClaimed = false;
        std::thread::id m_idClaimant; ///< meaningful while m_bClaimed
        std::chrono::steady_clock::time_point
            m_tpStepLimit;                      ///< of the shutdown's step; meaningful while m_bClaimed
        std::set<std::thread::id> m_setThreads; ///< the pool's own threads

        /// Whether the thread must not wait for the shutdown, which may be waiting for it.
        bool MustNotWait(std::thread::id _idThread) const;
    };

    /// The pools of the process.
    struct ST_Pools
    {
        CLS_Mutex m_mtxPools;
        std::condition_variable m_cvPools; ///< signalled when a claim ends
        std::map<const CLS_QuenTaskPool*, std::shared_ptr<ST_Life>> m_mapPools ZEL_GUARDED_BY(m_mtxPools);
    };

    /// The pools of the process, never destroyed, because late threads may ask while it exits.
    static ST_Pools& GetPools();

    std::shared_ptr<ST_Life> m_pLife; ///< null unless granted
};
