#pragma once

#include "QuenInclude/CLS_Mutex.h"

#include <chrono>
#include <condition_variable>
#include <thread>

/// Lets one thread at a time do work that runs foreign code, with no mutex held meanwhile.
///
/// Opening a library runs its initialisers. They may come back to the very function that opens it, on the
/// same thread or on one that they wait for; a plain mutex would deadlock in both cases. Here the first is
/// turned away at once and the second after a bounded wait; so are, at once, all who come after one that had
/// to give up, until the turn is given back.
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
        /// Takes the turn, or waits in vain for at most WAIT_LIMIT: see IsTaken.
        explicit CLS_Scope(CLS_LoadTurn& _clsTurn) ZEL_EXCLUDES(_clsTurn)
            : m_clsTurn(_clsTurn), m_bTaken(_clsTurn.Take())
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

        /// False when this thread has the turn already, or the holder keeps it for longer than WAIT_LIMIT.
        bool IsTaken() const ZEL_TRY_ACQUIRE(true) { return m_bTaken; }

    private:
        CLS_LoadTurn& m_clsTurn;
        const bool m_bTaken;
    };

private:
    bool Take() ZEL_EXCLUDES(m_mtxTurn);
    void Give() ZEL_EXCLUDES(m_mtxTurn);

    CLS_Mutex m_mtxTurn;
    std::condition_variable m_cvTurn; ///< signalled when the turn is given back
    /// Who has the turn; no thread's id when it is free.
    std::thread::id m_idHolder ZEL_GUARDED_BY(m_mtxTurn);
    /// Somebody waited for the holder in vain.
    bool m_bOverdue ZEL_GUARDED_BY(m_mtxTurn) = false;
};
