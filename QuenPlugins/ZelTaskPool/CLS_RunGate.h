#pragma once

#include "QuenInclude/CLS_Mutex.h"

#include <chrono>
#include <condition_variable>
#include <thread>

/// Decides between one worker and the end of its pool whether the worker may still touch the pool.
///
/// A worker steps out of the pool while it runs a task, for nobody knows how long that takes. When the pool
/// ends meanwhile, it waits a bounded time and then leaves the worker behind; the worker learns so when its
/// run ends, and touches nothing of a pool that may be gone, or of a new one at the same address.
///
/// Thread-safe: the worker calls EnterRun, LeaveRun and IsAbandoned, the thread that ends the pool calls
/// Close. Each takes m_mtxGate for a few instructions; only Close waits.
class CLS_RunGate
{
public:
    /// The worker is about to run a task. False when the pool is ending: the task must not be run.
    bool EnterRun() ZEL_EXCLUDES(m_mtxGate);

    /// The worker's run is over. False when the pool was not able to wait for that.
    bool LeaveRun() ZEL_EXCLUDES(m_mtxGate);

    /// The pool ends: lets no run begin any more and waits, at most _nsLimit, for the one in progress; not
    /// at all for a run on the calling thread itself. True when the worker is out of its run: it will take a
    /// few more steps at most. False when it was left behind: from now on it belongs to itself, and the
    /// caller must not touch it again.
    bool Close(std::chrono::nanoseconds _nsLimit) ZEL_EXCLUDES(m_mtxGate);

    /// Whether Close left the worker behind. For the worker's own thread.
    bool IsAbandoned() ZEL_EXCLUDES(m_mtxGate);

private:
    CLS_Mutex m_mtxGate;
    std::condition_variable m_cvGate;                     ///< signalled when a run ends
    bool m_bRunning ZEL_GUARDED_BY(m_mtxGate) = false;    ///< a task is being run
    bool m_bClosed ZEL_GUARDED_BY(m_mtxGate) = false;     ///< no run may begin
    bool m_bAbandoned ZEL_GUARDED_BY(m_mtxGate) = false;  ///< the pool ended in the middle of a run
    std::thread::id m_idRunner ZEL_GUARDED_BY(m_mtxGate); ///< who runs the task; meaningful while m_bRunning
};
