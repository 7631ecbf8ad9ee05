#pragma once

// The records of the hub's tasks in the pool. Included by CLS_PoolHub.h.

#include "QuenHost/Core/CLS_PoolHub.h"

/// Adds a task to the pool. False if the pool refuses it.
inline bool CLS_PoolHub::AddRecord(ST_PoolRecord& _stRecord, const std::function<void()>& _funTask,
                                   int _iInterval, const std::string& _strCallInfo) const
{
    m_stFunctions.m_funAddLoopTask(_funTask, _iInterval, _stRecord.m_strTaskId, _strCallInfo);
    return !_stRecord.m_strTaskId.empty();
}

/// Notes that the calling thread no longer calls the pool.
inline void CLS_PoolHub::LeavePool()
{
    --m_iInside;
    if (m_bEnded)
    {
        m_cvInside.notify_all();
    }
}

/// Lists the record of a carrier. Allocates nothing.
inline void CLS_PoolHub::EnterRecord(const std::shared_ptr<ST_PoolRecord>& _pRecord)
{
    *_pRecord->m_itPlace = _pRecord;
    _pRecord->m_bEntered = true;
    m_lstLive.splice(m_lstLive.end(), _pRecord->m_lstPlace);
}

/// Lists the record of a task that is about to end, so that it is removed. Allocates nothing.
inline void CLS_PoolHub::FinishRecord(const std::shared_ptr<ST_PoolRecord>& _pRecord)
{
    if (!_pRecord->m_bEntered)
    {
        EnterRecord(_pRecord);
    }
    if (std::exchange(_pRecord->m_bFinished, true))
    {
        return;
    }
    _pRecord->m_tpFinished = Clock::now();
    m_lstFinished.splice(m_lstFinished.end(), m_lstLive, _pRecord->m_itPlace);
}

/// Removes the records that finished at least RECORD_REST ago. May release the lock briefly.
inline void CLS_PoolHub::SweepRecords(Lock& _lock)
{
    if (m_bEnded)
    {
        return; // the end of the hub removes them
    }
    Records lstRested;
    const Clock::time_point tpLatest = Clock::now() - RECORD_REST;
    auto itRested = m_lstFinished.begin();
    while (itRested != m_lstFinished.end() && (*itRested)->m_tpFinished <= tpLatest)
    {
        ++itRested;
    }
    lstRested.splice(lstRested.end(), m_lstFinished, m_lstFinished.begin(), itRested);
    if (!lstRested.empty())
    {
        _lock.unlock();
        RemoveRecords(lstRested);
        _lock.lock();
    }
}

/// Removes the records from the pool. The caller does not hold the lock.
inline void CLS_PoolHub::RemoveRecords(const Records& _lstRecords) const
{
    for (const std::shared_ptr<ST_PoolRecord>& pRecord : _lstRecords)
    {
        PoolCall::Catch([&] { m_stFunctions.m_funRemoveTask(pRecord->m_strTaskId, "host kit"); });
    }
}
