#pragma once

// Tasks that start later. Included by CLS_PoolHub.h.
//
// A loop task of the pool runs at once, and again after its interval. The timer is a loop task whose interval
// ends when the first task is due. Its second run queues the tasks that are due, and adds the next timer.

#include "QuenHost/Core/CLS_PoolHub.h"

#include <algorithm>

inline bool CLS_PoolHub::SubmitAfter(std::unique_ptr<CLS_QueuedTask> _pTask,
                                     std::chrono::milliseconds _msDelay)
{
    constexpr std::chrono::milliseconds LONGEST_DELAY = std::chrono::hours(24 * 365 * 100);
    if (_msDelay <= std::chrono::milliseconds(0))
    {
        return Submit(std::move(_pTask));
    }
    const std::uint64_t uiNumber = _pTask->m_uiNumber = ++m_uiNumbers;
    const CLS_TraceSpan clsSpan(GetTrace(), "submit", _pTask->m_strCallInfo, DescribeFlow(uiNumber, "out"));
    Delayed::node_type clsEntry = ReserveDelay(*_pTask, Clock::now() + std::min(_msDelay, LONGEST_DELAY));
    CLS_RemovedTasks clsRefused(GetTrace()); // destroyed after the lock is released
    Lock lock(m_mtxHub);
    if (!Admit(lock, *_pTask))
    {
        clsRefused.Add(*_pTask.release());
        return false;
    }
    Delay(*_pTask.release(), std::move(clsEntry));
    EnsureTimer(lock);
    return true;
}

// Without memory for a timer, the heartbeat queues the tasks that are due.

/// Sets the timer for the delayed task that is due first. May release the lock briefly.
inline void CLS_PoolHub::EnsureTimer(Lock& _lock)
{
    if (m_bEnded || m_mapDelayed.empty())
    {
        return;
    }
    const Clock::time_point tpDue = m_mapDelayed.begin()->first;
    if (m_pTimer && m_tpTimer <= tpDue)
    {
        return;
    }
    if (m_pTimer)
    {
        FinishRecord(std::exchange(m_pTimer, nullptr));
    }
    StartTimer(_lock, tpDue);
}

/// Adds a timer to the pool. Releases the lock briefly.
inline void CLS_PoolHub::StartTimer(Lock& _lock, Clock::time_point _tpDue)
{
    constexpr std::chrono::milliseconds LONGEST_INTERVAL{INT_MAX};
    const auto msRest = std::chrono::ceil<std::chrono::milliseconds>(_tpDue - Clock::now());
    const auto msInterval = std::clamp(msRest, std::chrono::milliseconds(1), LONGEST_INTERVAL);
    ++m_iInside;
    _lock.unlock();
    std::shared_ptr<ST_PoolRecord> pAdded;
    const auto funAdd = [&]
    {
        const auto pRecord = std::make_shared<ST_PoolRecord>();
        const auto funTick = [pHub = shared_from_this(), pRecord] { pHub->Tick(pRecord); };
        if (AddRecord(*pRecord, funTick, static_cast<int>(msInterval.count()), "host kit timer"))
        {
            pAdded = pRecord;
        }
    };
    PoolCall::Catch(funAdd);
    _lock.lock();
    LeavePool();
    if (!pAdded)
    {
        return;
    }
    const bool bWanted = !m_mapDelayed.empty() && (!m_pTimer || _tpDue < m_tpTimer);
    if (m_pTimer || !bWanted)
    {
        FinishRecord(bWanted ? std::exchange(m_pTimer, nullptr) : pAdded);
    }
    if (bWanted)
    {
        m_pTimer = pAdded;
        m_tpTimer = _tpDue;
    }
}

/// Runs a timer on a worker of the pool.
inline void CLS_PoolHub::Tick(const std::shared_ptr<ST_PoolRecord>& _pTimer)
{
    const bool bFirst = !std::exchange(_pTimer->m_bArrived, true);
    Lock lock(m_mtxHub);
    if (m_bEnded || _pTimer != m_pTimer)
    {
        return;
    }
    ++m_iInside;
    EnqueueDue();
    if (!bFirst || m_mapDelayed.empty())
    {
        FinishRecord(std::exchange(m_pTimer, nullptr));
        EnsureTimer(lock);
    }
    BringCarrier(lock);
    SweepRecords(lock);
    LeavePool();
}
