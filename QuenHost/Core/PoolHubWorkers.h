#pragma once

// The hub's tasks in the pool: carriers and the heartbeat. Included by CLS_PoolHub.h.

#include "QuenHost/Core/CLS_PoolHub.h"

#include <algorithm>
#include <vector>

/// Brings a carrier for what waits. False if there is none. May release the lock briefly.
inline bool CLS_PoolHub::BringCarrier(Lock& _lock)
{
    const std::size_t uiWaiting = m_chnQueue.GetSize() + m_lstLeftover.size();
    const auto uiComing = static_cast<std::size_t>(m_iStarting) + static_cast<std::size_t>(m_iClaimed);
    if (uiComing >= std::min(uiWaiting, MOST_COMING))
    {
        return true; // each of them brings the next
    }
    if (m_iParked > m_iClaimed)
    {
        ++m_iClaimed;
        m_cvParked.notify_one();
        return true;
    }
    return m_iCarriers >= MOST_CARRIERS || StartCarrier(_lock) || m_iCarriers > 0;
}

/// Adds a carrier to the pool. False if the pool refuses it. Releases the lock briefly.
inline bool CLS_PoolHub::StartCarrier(Lock& _lock)
{
    ++m_iCarriers;
    ++m_iStarting;
    ++m_iInside;
    m_tpLastStart = Clock::now();
    const std::uint64_t uiEpoch = m_uiEpoch;
    _lock.unlock();
    std::shared_ptr<ST_PoolRecord> pRecord;
    bool bAdded = false;
    const auto funAdd = [&]
    {
        pRecord = std::make_shared<ST_PoolRecord>();
        pRecord->m_uiEpoch = uiEpoch;
        _lock.lock();
        EnterRecord(pRecord);
        _lock.unlock();
        bAdded = AddRecord(
            *pRecord, [pHub = shared_from_this(), pRecord] { pHub->Carry(pRecord); }, INT_MAX,
            "host kit worker");
    };
    PoolCall::Catch(funAdd);
    _lock.lock();
    LeavePool();
    if (!bAdded && uiEpoch == m_uiEpoch)
    {
        --m_iCarriers;
        --m_iStarting;
    }
    if (!bAdded && pRecord && pRecord->m_bEntered && !pRecord->m_bFinished)
    {
        m_lstLive.erase(pRecord->m_itPlace);
    }
    return bAdded;
}

// The heartbeat writes off carriers that the pool lost when memory ran out, and removes the records of the
// last carriers. Without it, no task is taken. The pool may lose the heartbeat in the same way: then it is
// silent.

/// Adds the heartbeat to the pool, if there is none. False without one. May release the lock briefly.
inline bool CLS_PoolHub::EnsureHeartbeat(Lock& _lock)
{
    if (m_pHeartbeat && !m_bEnded && Clock::now() - m_tpLastBeat > LONGEST_SILENCE)
    {
        FinishRecord(std::exchange(m_pHeartbeat, nullptr));
    }
    if (m_pHeartbeat || m_bEnded)
    {
        return m_pHeartbeat != nullptr;
    }
    ++m_iInside;
    _lock.unlock();
    std::shared_ptr<ST_PoolRecord> pAdded;
    const auto funAdd = [&]
    {
        const auto pRecord = std::make_shared<ST_PoolRecord>();
        const auto funBeat = [pHub = shared_from_this()] { pHub->Beat(); };
        if (AddRecord(*pRecord, funBeat, static_cast<int>(BEAT.count()), "host kit heartbeat"))
        {
            pAdded = pRecord;
        }
    };
    PoolCall::Catch(funAdd);
    _lock.lock();
    LeavePool();
    if (pAdded && m_pHeartbeat)
    {
        FinishRecord(pAdded); // another thread was faster
    }
    else if (pAdded)
    {
        m_pHeartbeat = pAdded;
        m_tpLastBeat = Clock::now();
    }
    return m_pHeartbeat != nullptr;
}

/// Runs a carrier on a worker of the pool.
inline void CLS_PoolHub::Carry(const std::shared_ptr<ST_PoolRecord>& _pRecord)
{
    if (std::exchange(_pRecord->m_bArrived, true))
    {
        return; // the pool repeats it, weeks later
    }
    const ST_RunThread stThread;
    Lock lock(m_mtxHub);
    Arrive(*_pRecord);
    bool bWanted = true;
    while (bWanted && !m_bEnded)
    {
        if (!m_lstLeftover.empty())
        {
            DestroyLeftover(lock);
        }
        else if (!m_chnQueue.IsEmpty())
        {
            RunFirst(lock, *_pRecord, stThread);
        }
        else
        {
            bWanted = Park(lock);
        }
    }
    --m_iCarriers;
    SweepRecords(lock);
    FinishRecord(_pRecord);
    LeavePool();
}

/// Counts a carrier that has begun its run.
inline void CLS_PoolHub::Arrive(const ST_PoolRecord& _stRecord)
{
    ++m_iInside;
    if (_stRecord.m_uiEpoch == m_uiEpoch)
    {
        --m_iStarting;
    }
    else
    {
        ++m_iCarriers; // it had been written off too early
    }
}

/// Waits for something to do. False if the carrier must leave.
inline bool CLS_PoolHub::Park(Lock& _lock)
{
    if (m_iParked >= MOST_PARKED)
    {
        return false;
    }
    ++m_iParked;
    const bool bWanted = m_cvParked.wait_for(
        _lock, PARKED_TIME,
        [this] { return m_bEnded || m_iClaimed > 0 || !m_chnQueue.IsEmpty() || !m_lstLeftover.empty(); });
    --m_iParked;
    m_iClaimed -= m_iClaimed > 0 ? 1 : 0;
    return bWanted;
}

/// Runs the first task of the queue. Releases the lock during the run.
inline void CLS_PoolHub::RunFirst(Lock& _lock, ST_PoolRecord& _stRecord, const ST_RunThread& _stThread)
{
    std::unique_ptr<CLS_QueuedTask> pTask(m_chnQueue.GetFirst());
    CLS_TaskGroup& clsGroup = *pTask->m_pGroup;
    Dequeue(*pTask);
    ST_Run stRun{*pTask, _stThread, Clock::now()};
    const std::chrono::nanoseconds nsWait = stRun.m_tpStart - pTask->m_tpQueued;
    m_stCounters.m_nsLongestWait = std::max(m_stCounters.m_nsLongestWait, nsWait);
    clsGroup.m_stCounters.m_nsLongestWait = std::max(clsGroup.m_stCounters.m_nsLongestWait, nsWait);
    BeginRun(stRun);
    BringCarrier(_lock);
    _stRecord.m_bBusy = true;
    LeavePool();
    _lock.unlock();

    Execute(*pTask, stRun, "run", DescribeFlow(pTask->m_uiNumber, "in"));
    pTask->DestroyCallable();

    _lock.lock();
    EndRun(stRun);
    Deactivate(clsGroup);
    m_stCounters.m_uiRun += pTask->m_bContinued ? 0U : 1U;
    clsGroup.m_stCounters.m_uiRun += pTask->m_bContinued ? 0U : 1U;
    _stRecord.m_bBusy = false;
    ++m_iInside;
    if (stRun.m_pLeftover)
    {
        BringCarrier(_lock); // destroying it may take long
    }
    _lock.unlock();
    stRun.m_pLeftover.reset();
    pTask.reset();
    _lock.lock();
}

/// Destroys the first leftover of the removals. Releases the lock meanwhile.
inline void CLS_PoolHub::DestroyLeftover(Lock& _lock)
{
    Leftovers lstFirst;
    lstFirst.splice(lstFirst.end(), m_lstLeftover, m_lstLeftover.begin());
    BringCarrier(_lock);
    LeavePool();
    _lock.unlock();
    lstFirst.front()->m_clsRemoved.reset();
    lstFirst.front()->m_pLoopCallable.reset();
    lstFirst.clear();
    _lock.lock();
    ++m_iInside;
}

/// Runs the heartbeat on a worker of the pool.
inline void CLS_PoolHub::Beat()
{
    Lock lock(m_mtxHub);
    if (m_bEnded)
    {
        return;
    }
    m_tpLastBeat = Clock::now();
    ++m_iInside;
    SweepRecords(lock);
    WriteOffLostCarriers();
    WriteOffLostTimer();
    BringCarrier(lock);
    LeavePool();
}

// The pool starts its tasks in order, and has just started the heartbeat. So a carrier that was added earlier
// and has not started was lost.

/// Writes off carriers that the pool lost when memory ran out.
inline void CLS_PoolHub::WriteOffLostCarriers()
{
    if (m_iStarting > 0 && Clock::now() - m_tpLastStart > BEAT)
    {
        ++m_uiEpoch;
        m_iCarriers -= m_iStarting;
        m_iStarting = 0;
    }
}

/// Queues the tasks that are due. Writes off a timer that the pool lost when memory ran out.
inline void CLS_PoolHub::WriteOffLostTimer()
{
    EnqueueDue();
    if (m_pTimer && Clock::now() - m_tpTimer > BEAT)
    {
        FinishRecord(std::exchange(m_pTimer, nullptr));
    }
}
