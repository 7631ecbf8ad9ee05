#pragma once

#include "QuenInclude/CLS_Mutex.h"

#include <chrono>
#include <condition_variable>
#include <thread>

/// Lets one thread at a time do work that runs foreign code, with no mutex held meanwhile.
///
/// Opening a library runs its initialisers. They may come back to the very function that opens it, on the
/// same thread or on one that they wait for; a plain mutex would deadlock in both cases. Here the first is
/// turned away at once. The second is turned away after a bounded wait, or at once when it does not want to
/// wait. After one thread has waited for the whole bound, all others are turned away at once, until the turn
/// is given back.
///
/// Which clock the wait follows: what is left of WAIT_LIMIT comes from the steady clock, anew after each
/// wake-up. On Linux the wait itself ends by that clock, too. The C++ library of macOS makes a time of the
/// wall clock from what is left, and the system's threads library makes a duration of it again at the call:
/// setting the clock changes no wait that has begun, and one that ends early or late is followed by another
/// look at the steady clock.
///
/// Thread-safe. Never copied; an object that late threads may use is kept on the heap for good.
class ZEL_CAPABILITY("turn") CLS_LoadTurn
{
public:
    /// Longest time that a thread waits for its turn.
    static constexpr std::chrono::milliseconds WAIT_LIMIT{1000};

    /// The turn, for as long as this object lives.
    class ZEL_SCOPED_CAPABILITY CLS_Scope
    {
    public:
        /// Takes the turn, for which it waits up to WAIT_LIMIT: see IsTaken.
        explicit CLS_Scope(CLS_LoadTurn& _clsTurn) ZEL_EXCLUDES(_clsTurn)
            : m_clsTurn(_clsTurn), m_bTaken(_clsTurn.Take())
        {
        }
        /// Takes the turn when it is free, without waiting: see IsTaken.
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

        /// False when this thread has the turn already, or the holder keeps it for longer than this one
        /// waits.
        bool IsTaken() const ZEL_TRY_ACQUIRE(true) { return m_bTaken; }

    private:
        CLS_LoadTurn& m_clsTurn;
        const bool m_bTaken;
    };

private:
    bool Take() ZEL_EXCLUDES(m_mtxTurn);
    bool TryTake() ZEL_EXCLUDES(m_mtxTurn);
    void Give() ZEL_EXCLUDES(m_mtxTurn);

    CLS_Mutex m_mtxTurn;
    std::condition_variable m_cvTurn; ///< signalled when the turn is given back
    /// Who has the turn; no thread's id when it is free.
    std::thread::id m_idHolder ZEL_GUARDED_BY(m_mtxTurn);
    /// A thread has waited for the holder for the whole bound.
    bool m_bOverdue ZEL_GUARDED_BY(m_mtxTurn) = false;
};
