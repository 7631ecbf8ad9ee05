#pragma once

// Where tasks wait: in the hub's queue, for other tasks of their owner, until they are due, or for the host's
// thread. Included by CLS_PoolHub.h.

#include "QuenHost/Core/CLS_PoolHub.h"
#include "QuenHost/Core/CLS_Ticket.h"

/// Whether the task is taken now.
inline bool CLS_PoolHub::Accepts(const CLS_QueuedTask& _clsTask) const
{
    const CLS_TaskGroup& clsGroup = *_clsTask.m_pGroup;
    const bool bCurrent = !_clsTask.m_pStop || _clsTask.m_pStop == clsGroup.m_pStop;
    return bCurrent && !m_bEnded && !clsGroup.m_bClosed && clsGroup.m_iRemovals == 0;
}

/// Makes a stop request and a reserve for the next removal, if there are none. May release the lock briefly.
inline void CLS_PoolHub::EnsureStopState(Lock& _lock, CLS_TaskGroup& _clsGroup) const
{
    if (!_clsGroup.m_pStop)
    {
        _lock.unlock();
        auto pStop = std::make_shared<CLS_StopState>();
        Leftovers lstReserve{std::make_shared<ST_Leftover>()};
        _lock.lock();
        if (!_clsGroup.m_pStop)
        {
            _clsGroup.m_pStop = std::move(pStop);
            _clsGroup.m_lstReserve.swap(lstReserve);
        }
    }
}

/// Counts a task that is taken, unless it continues another one.
inline void CLS_PoolHub::CountSubmitted(CLS_QueuedTask& _clsTask)
{
    CLS_TaskGroup& clsGroup = *_clsTask.m_pGroup;
    _clsTask.m_pStop = clsGroup.m_pStop;
    m_stCounters.m_uiSubmitted += _clsTask.m_bContinues ? 0U : 1U;
    clsGroup.m_stCounters.m_uiSubmitted += _clsTask.m_bContinues ? 0U : 1U;
}

/// Queues the task, or holds it until the limit of its owner lets it start.
inline void CLS_PoolHub::Enqueue(CLS_QueuedTask& _clsTask)
{
    CLS_TaskGroup& clsGroup = *_clsTask.m_pGroup;
    _clsTask.m_tpQueued = Clock::now();
    if (clsGroup.m_uiMaxRunning == 0 || clsGroup.m_uiActive < clsGroup.m_uiMaxRunning)
    {
        Activate(_clsTask);
    }
    else
    {
        clsGroup.m_chnHeld.Append(_clsTask);
    }
}

/// Puts the task into the hub's queue.
inline void CLS_PoolHub::Activate(CLS_QueuedTask& _clsTask)
{
    CLS_TaskGroup& clsGroup = *_clsTask.m_pGroup;
    ++clsGroup.m_uiActive;
    clsGroup.m_chnWaiting.Append(_clsTask);
    m_chnQueue.Append(_clsTask);
}

/// Takes the task out of the hub's queue. It counts as active until Deactivate.
inline void CLS_PoolHub::Dequeue(CLS_QueuedTask& _clsTask)
{
    m_chnQueue.Remove(_clsTask);
    _clsTask.m_pGroup->m_chnWaiting.Remove(_clsTask);
}

/// Notes that an active task has ended or will not run. Queues the next task that was held.
inline void CLS_PoolHub::Deactivate(CLS_TaskGroup& _clsGroup)
{
    --_clsGroup.m_uiActive;
    if (CLS_QueuedTask* const pHeld = _clsGroup.m_chnHeld.TakeFirst())
    {
        Activate(*pHeld);
    }
}

/// Takes back a task for which there is no worker. Null if another thread has taken it since.
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
        Deactivate(*pTask->m_pGroup);
        --m_stCounters.m_uiSubmitted;
        --pTask->m_pGroup->m_stCounters.m_uiSubmitted;
    }
    return std::unique_ptr<CLS_QueuedTask>(pTask);
}

/// Makes the task's entry among the delayed tasks ahead of time.
inline CLS_PoolHub::Delayed::node_type CLS_PoolHub::ReserveDelay(CLS_QueuedTask& _clsTask,
                                                                 Clock::time_point _tpDue)
{
    Delayed mapOne;
    return mapOne.extract(mapOne.emplace(_tpDue, &_clsTask));
}

/// Adds the task to the delayed tasks, using up the entry. Allocates nothing.
inline void CLS_PoolHub::Delay(CLS_QueuedTask& _clsTask, Delayed::node_type&& _clsEntry)
{
    _clsTask.m_itDelayed = m_mapDelayed.insert(std::move(_clsEntry));
    _clsTask.m_pGroup->m_chnDelayed.Append(_clsTask);
}

/// Takes the task out of the delayed tasks.
inline void CLS_PoolHub::Undelay(CLS_QueuedTask& _clsTask)
{
    _clsTask.m_pGroup->m_chnDelayed.Remove(_clsTask);
    m_mapDelayed.erase(_clsTask.m_itDelayed);
}

/// Queues the delayed tasks that are due.
inline void CLS_PoolHub::EnqueueDue()
{
    const Clock::time_point tpNow = Clock::now();
    while (!m_mapDelayed.empty() && m_mapDelayed.begin()->first <= tpNow)
    {
        CLS_QueuedTask& clsTask = *m_mapDelayed.begin()->second;
        Undelay(clsTask);
        Enqueue(clsTask);
    }
}

/// Takes a delivery that was posted to the host's thread. Null if it was taken before.
inline CLS_QueuedTask* CLS_PoolHub::TakePosted(CLS_Ticket& _clsTicket)
{
    CLS_QueuedTask* const pTask = std::exchange(_clsTicket.m_pTask, nullptr);
    if (pTask != nullptr)
    {
        pTask->m_pGroup->m_chnPosted.Remove(*pTask);
    }
    return pTask;
}

/// Cancels the group's waiting tasks and deliveries.
inline void CLS_PoolHub::TakeWaiting(CLS_TaskGroup& _clsGroup, CLS_RemovedTasks& _clsRemoved)
{
    while (CLS_QueuedTask* const pTask = _clsGroup.m_chnPosted.GetFirst())
    {
        _clsRemoved.Add(*TakePosted(*pTask->m_pTicket));
    }
    const std::size_t uiTasks =
        _clsGroup.m_chnWaiting.GetSize() + _clsGroup.m_chnHeld.GetSize() + _clsGroup.m_chnDelayed.GetSize();
    m_stCounters.m_uiCancelled += uiTasks;
    _clsGroup.m_stCounters.m_uiCancelled += uiTasks;
    while (CLS_QueuedTask* const pTask = _clsGroup.m_chnWaiting.GetFirst())
    {
        Dequeue(*pTask);
        --_clsGroup.m_uiActive;
        _clsRemoved.Add(*pTask);
    }
    while (CLS_QueuedTask* const pTask = _clsGroup.m_chnHeld.TakeFirst())
    {
        _clsRemoved.Add(*pTask);
    }
    while (CLS_QueuedTask* const pTask = _clsGroup.m_chnDelayed.GetFirst())
    {
        Undelay(*pTask);
        _clsRemoved.Add(*pTask);
    }
    if (m_pTimer && m_mapDelayed.empty())
    {
        FinishRecord(std::exchange(m_pTimer, nullptr));
    }
}

/// The number by which viewers join the events of a task; "" without a trace or memory.
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
