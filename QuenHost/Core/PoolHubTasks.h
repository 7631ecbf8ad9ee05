#pragma once

// The owners' part of the hub. Included by CLS_PoolHub.h.

#include "QuenHost/Core/CLS_PoolHub.h"

inline void CLS_PoolHub::OpenGroup(CLS_TaskGroup& _clsGroup)
{
    const Lock lock(m_mtxHub);
    m_chnGroups.Append(_clsGroup);
}

/// Whether a task of the group is taken now.
inline bool CLS_PoolHub::Accepts(const CLS_TaskGroup& _clsGroup) const
{
    return !m_bEnded && !_clsGroup.m_bClosed && _clsGroup.m_iRemovals == 0;
}

/// After a removal, the group's next tasks have a request of their own.
inline void CLS_PoolHub::EnsureStopState(Lock& _lock, CLS_TaskGroup& _clsGroup) const
{
    if (!_clsGroup.m_pStop)
    {
        _lock.unlock();
        auto pStop = std::make_shared<CLS_StopState>();
        _lock.lock();
        if (!_clsGroup.m_pStop)
        {
            _clsGroup.m_pStop = std::move(pStop);
        }
    }
}

/// What a viewer joins the events of a task by; "" without a trace, and without memory.
inline std::string CLS_PoolHub::DescribeFlow(std::uint64_t _uiNumber, const char* _szDirection) const noexcept
{
    std::string strMembers;
    const auto funDescribe = [&]
    {
        const std::string strNumber = std::to_string(_uiNumber);
        strMembers = R"(,"bind_id":")" + strNumber + R"(","flow_)" + _szDirection +
                     R"(":true,"args":{"task":)" + strNumber + "}";
    };
    if (GetTrace())
    {
        PoolCall::Catch(funDescribe);
    }
    return strMembers;
}

inline bool CLS_PoolHub::Submit(std::unique_ptr<CLS_QueuedTask> _pTask)
{
    CLS_TaskGroup& clsGroup = *_pTask->m_pGroup; // the owner keeps it
    const std::uint64_t uiNumber = _pTask->m_uiNumber = ++m_uiNumbers;
    const CLS_TraceSpan clsSpan(GetTrace(), "submit", _pTask->m_strCallInfo, DescribeFlow(uiNumber, "out"));
    CLS_RemovedTasks clsRefused(GetTrace());
    Lock lock(m_mtxHub);
    const bool bWatched = EnsureHeartbeat(lock);
    EnsureStopState(lock, clsGroup); // last: from here on, no removal comes between
    if (!bWatched || !Accepts(clsGroup))
    {
        clsRefused.Add(*_pTask.release());
        lock.unlock();
        return false;
    }
    Enqueue(*_pTask.release());
    if (!BringCarrier(lock))
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

inline void CLS_PoolHub::Enqueue(CLS_QueuedTask& _clsTask)
{
    CLS_TaskGroup& clsGroup = *_clsTask.m_pGroup;
    _clsTask.m_pStop = clsGroup.m_pStop;
    _clsTask.m_tpQueued = Clock::now();
    m_chnQueue.Append(_clsTask);
    clsGroup.m_chnWaiting.Append(_clsTask);
    ++m_stCounters.m_uiSubmitted;
    ++clsGroup.m_stCounters.m_uiSubmitted;
}

inline void CLS_PoolHub::Dequeue(CLS_QueuedTask& _clsTask)
{
    m_chnQueue.Remove(_clsTask);
    _clsTask.m_pGroup->m_chnWaiting.Remove(_clsTask);
}

/// Takes a task back that no worker can be had for; null when it has been taken meanwhile.
inline std::unique_ptr<CLS_QueuedTask> CLS_PoolHub::Withdraw(std::uint64_t _uiNumber)
{
    CLS_QueuedTask* pTask = m_chnQueue.GetLast();
    while (pTask != nullptr && pTask->m_uiNumber != _uiNumber)
    {
        pTask = Queue::GetPrevious(*pTask);
    }
    if (pTask != nullptr)
    {
        Dequeue(*pTask);
        --m_stCounters.m_uiSubmitted;
        --pTask->m_pGroup->m_stCounters.m_uiSubmitted;
    }
    return std::unique_ptr<CLS_QueuedTask>(pTask);
}

inline void CLS_PoolHub::TakeWaiting(CLS_TaskGroup& _clsGroup, CLS_RemovedTasks& _clsRemoved)
{
    const std::size_t uiTasks = _clsGroup.m_chnWaiting.GetSize();
    m_stCounters.m_uiCancelled += uiTasks;
    _clsGroup.m_stCounters.m_uiCancelled += uiTasks;
    while (CLS_QueuedTask* const pTask = _clsGroup.m_chnWaiting.GetFirst())
    {
        Dequeue(*pTask);
        _clsRemoved.Add(*pTask);
    }
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

inline void CLS_PoolHub::RemoveTasksLater(CLS_TaskGroup& _clsGroup, std::shared_ptr<const void> _pKept)
{
    const CLS_TraceSpan clsSpan(GetTrace(), "remove", _clsGroup.m_strName);
    Leftovers lstLeftover{std::make_shared<ST_Leftover>(std::move(_pKept), GetTrace())};
    Lock lock(m_mtxHub);
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

/// Gives what is to be destroyed to a carrier. After the hub's end the caller keeps it.
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
