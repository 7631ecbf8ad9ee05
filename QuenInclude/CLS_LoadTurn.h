#pragma once

#include "QuenInclude/CLS_Mutex.h"

#include <chrono>
#include <condition_variable>
#include <thread>

/// Lets one thread at a time do work that runs foreign code, with no mutex held.
///
/// Opening a library runs its initialisers. They may call the function that opens it again, on the same
/// thread or on one that they wait for. A plain mutex would deadlock in both cases. Here the same thread is
/// refused at once. Another thread is refused after a bounded wait, or at once if it asked not to wait. After
/// one thread has waited for the full WAIT_LIMIT, all others are refused at once until the turn is given
/// back.
///
/// The wait is measured with the steady clock, which is read again after each wake-up. On Linux, the wait
/// itself uses that clock, too. On macOS, the C++ library converts the deadline to wall-clock time, and the
/// system converts it back to a duration at the call. So setting the system clock does not change a wait that
/// has begun. A wait that ends early or late is followed by another look at the steady clock.
///
/// Threads: thread-safe.
/// Owns: never copied. An object that late threads may use is allocated on the heap and never freed.
class ZEL_CAPABILITY("turn") CLS_LoadTurn
{
public:
    /// The longest that a thread waits for its turn.
    static constexpr std::chrono::milliseconds WAIT_LIMIT{1000};

    /// Holds the turn as long as it lives.
    class ZEL_SCOPED_CAPABILITY CLS_Scope
    {
    public:
        /// Takes the turn; waits up to WAIT_LIMIT for it. See IsTaken.
        explicit CLS_Scope(CLS_LoadTurn& _clsTurn) ZEL_EXCLUDES(_clsTurn)
            : m_clsTurn(_clsTurn), m_bTaken(_clsTurn.Take())
        {
        }
        /// Takes the turn if it is free, without waiting. See IsTaken.
        CLS_Scope(CLS_LoadTurn& _clsTurn, std::try_to_lock_t) ZEL_EXCLUDES(_clsTurn)
            : m_clsTurn(_clsTurn), m_bTaken(_clsTurn.TryTake())
        {
        }
        /// Gives the turn back, if this object has it.
        ~CLS_Scope() ZEL_RELEASE()
        {
            if (m_bTaken)
            {
                m_clsTurn.Give();
            }
        }
        CLS_Scope(const CLS_Scope&) = delete;
        CLS_Scope& operator=(const CLS_Scope&) = delete;

        /// False when this thread already has the turn, or the holder keeps it longer than this thread waits.
        bool IsTaken() const ZEL_TRY_ACQUIRE(true) { return m_bTaken; }

    private:
        CLS_LoadTurn& m_clsTurn;
        const bool m_bTaken;
    };

private:
    /// Waits for the turn. False when the calling thread has it already or the wait ran out.
    bool Take() ZEL_EXCLUDES(m_mtxTurn);
    /// Takes the turn if it is free.
    bool TryTake() ZEL_EXCLUDES(m_mtxTurn);
    /// Gives the turn back.
    void Give() ZEL_EXCLUDES(m_mtxTurn);

    CLS_Mutex m_mtxTurn;
    std::condition_variable m_cvTurn; ///< signalled when the turn is given back
    /// The thread that has the turn; no thread's id when it is free.
    std::thread::id m_idHolder ZEL_GUARDED_BY(m_mtxTurn);
    /// Whether a thread has waited for the holder for the whole bound.
    bool m_bOverdue ZEL_GUARDED_BY(m_mtxTurn) = false;
};
