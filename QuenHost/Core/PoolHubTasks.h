#pragma once

// The owners' part of the hub. Included by CLS_PoolHub.h.

#include "QuenHost/Core/CLS_PoolHub.h"

inline void CLS_PoolHub::OpenGroup(CLS_TaskGroup& _clsGroup)
{
    const Lock lock(m_mtxHub);
    m_chnGroups.Append(_clsGroup);
}

/// The stop request of the next removal.
inline std::shared_ptr<CLS_StopState> CLS_PoolHub::GetStop(CLS_TaskGroup& _clsGroup) const
{
    Lock lock(m_mtxHub);
    EnsureStopState(lock, _clsGroup);
    return _clsGroup.m_pStop;
}

/// Counts a task if it is taken now. May release the lock briefly before it decides.
inline bool CLS_PoolHub::Admit(Lock& _lock, CLS_QueuedTask& _clsTask)
{
    const bool bTied = _clsTask.m_pStop != nullptr;
    const bool bWatched = EnsureHeartbeat(_lock);
    EnsureStopState(_lock, *_clsTask.m_pGroup); // last, because it may release the lock
    const bool bAdmitted = (bWatched || bTied) && Accepts(_clsTask);
    if (bAdmitted)
    {
        CountSubmitted(_clsTask);
    }
    return bAdmitted;
}

inline bool CLS_PoolHub::Submit(std::unique_ptr<CLS_QueuedTask>&& _pTask)
{
    const bool bTied = _pTask->m_pStop != nullptr;
    const std::uint64_t uiNumber = _pTask->m_uiNumber = ++m_uiNumbers;
    const CLS_TraceSpan clsSpan(GetTrace(), "submit", _pTask->m_strCallInfo, DescribeFlow(uiNumber, "out"));
    CLS_RemovedTasks clsRefused(GetTrace()); // destroyed after the lock is released
    Lock lock(m_mtxHub);
    if (!Admit(lock, *_pTask))
    {
        clsRefused.Add(*_pTask.release());
        return false;
    }
    Enqueue(*_pTask.release());
    if (!BringCarrier(lock) && !bTied)
    {
        _pTask = Withdraw(uiNumber);
    }
    lock.unlock();
    const bool bTaken = !_pTask;
    if (!bTaken)
    {
        clsRefused.Add(*_pTask.release());
    }
    return bTaken;
}

inline bool CLS_PoolHub::RemoveTasks(CLS_TaskGroup& _clsGroup, std::chrono::milliseconds _msLimit,
                                     bool _bClose)
{
    const CLS_TraceSpan clsSpan(GetTrace(), "remove", _clsGroup.m_strName);
    Lock lock(m_mtxHub);
    ++_clsGroup.m_iRemovals;
    _clsGroup.m_bClosed |= _bClose;
    MarkOwnRuns(_clsGroup, 1);
    ST_Destroyer stDestroyer;
    {
        CLS_RemovedTasks clsRemoved(GetTrace());
        TakeWaiting(_clsGroup, clsRemoved);
        _clsGroup.m_chnDestroyers.Append(stDestroyer);
        const std::shared_ptr<CLS_StopState> pStop = std::exchange(_clsGroup.m_pStop, nullptr);
        lock.unlock();
        if (pStop)
        {
            pStop->Request();
        }
    }
    lock.lock();
    _clsGroup.m_chnDestroyers.Remove(stDestroyer);
    _clsGroup.m_cvRuns.notify_all();
    const bool bOver = WaitForRuns(lock, _clsGroup, _msLimit);
    MarkOwnRuns(_clsGroup, -1);
    --_clsGroup.m_iRemovals;
    return bOver;
}

// Without memory, it takes the group's reserve. If another removal has used the reserve, the result is empty.
// Then the group has taken no task since that removal, so there is nothing to remove.

/// Takes the lock, and makes what a removal leaves to a worker.
inline CLS_PoolHub::Leftovers CLS_PoolHub::LockWithLeftover(Lock& _lock, CLS_TaskGroup& _clsGroup,
                                                            std::shared_ptr<const void>& _pKept)
{
    Leftovers lstLeftover;
    PoolCall::Catch([&] { lstLeftover.push_back(std::make_shared<ST_Leftover>()); });
    _lock.lock();
    if (lstLeftover.empty())
    {
        lstLeftover.swap(_clsGroup.m_lstReserve);
    }
    if (!lstLeftover.empty())
    {
        lstLeftover.front()->m_pKept.swap(_pKept);
        lstLeftover.front()->m_clsRemoved.emplace(GetTrace());
    }
    return lstLeftover;
}

inline void CLS_PoolHub::RemoveTasksLater(CLS_TaskGroup& _clsGroup,
                                          std::shared_ptr<const void> _pKept) noexcept
{
    const CLS_TraceSpan clsSpan(GetTrace(), "remove", _clsGroup.m_strName);
    Lock lock(m_mtxHub, std::defer_lock);
    Leftovers lstLeftover = LockWithLeftover(lock, _clsGroup, _pKept);
    if (lstLeftover.empty())
    {
        return;
    }
    TakeWaiting(_clsGroup, *lstLeftover.front()->m_clsRemoved);
    HandOver(_clsGroup, lstLeftover.front());
    const std::shared_ptr<CLS_StopState> pStop = std::exchange(_clsGroup.m_pStop, nullptr);
    HandToWorker(lock, lstLeftover);
    lock.unlock();
    if (pStop)
    {
        pStop->Request();
    }
}

/// Gives the leftover to a carrier, which destroys it. After the end of the hub, the caller keeps it.
inline void CLS_PoolHub::HandToWorker(Lock& _lock, Leftovers& _lstLeftover)
{
    if (!m_bEnded)
    {
        m_lstLeftover.splice(m_lstLeftover.end(), _lstLeftover);
        // Without memory for a carrier, a later beat of the heartbeat brings one.
        BringCarrier(_lock);
    }
}

inline void CLS_PoolHub::CloseGroup(CLS_TaskGroup& _clsGroup)
{
    RemoveTasks(_clsGroup, REMOVAL_LIMIT, true);
    F_FailureHandler funOnFailure;
    const Lock lock(m_mtxHub);
    m_chnGroups.Remove(_clsGroup);
    if (_clsGroup.m_chnRuns.IsEmpty() && _clsGroup.m_iReports == 0)
    {
        funOnFailure.swap(_clsGroup.m_funOnFailure);
    }
}

inline ST_PoolCounters CLS_PoolHub::GetCounters(const CLS_TaskGroup& _clsGroup) const
{
    const Lock lock(m_mtxHub);
    return _clsGroup.m_stCounters;
}
