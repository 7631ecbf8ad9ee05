#include "verify/schedules/pool/Watch.h"

#include "tests/support/PoolView.h"
#include "tests/support/TaskView.h"
#include "tests/support/WorkerView.h"
#include "verify/schedules/core/Memory.h"
#include "verify/schedules/core/Scheduler.h"
#include "verify/schedules/pool/Names.h"

#include <algorithm>
#include <array>

void CLS_Watch::Look(CLS_Scheduler& _clsScheduler)
{
    CLS_QuenTaskPool* const pPool = CLS_QuenTaskPool::m_pInstance;
    if (pPool != m_pPool)
    {
        *this = CLS_Watch();
        m_pPool = pPool;
    }
    if (pPool == nullptr)
    {
        return;
    }
    LookAtLocks(_clsScheduler, *pPool);
    LookAtTasks(_clsScheduler);
    if (_clsScheduler.IsLockFree(&PoolView::GetWorkerLock(*pPool)))
    {
        LookAtBindings(_clsScheduler, *pPool);
        if (_clsScheduler.IsLockFree(&PoolView::GetIdleLock(*pPool)))
        {
            LookAtIdleList(_clsScheduler, *pPool);
        }
    }
    if (_clsScheduler.IsLockFree(&PoolView::GetQueueLock(*pPool)))
    {
        m_setQueued.insert(PoolView::GetWaitingIds(*pPool).begin(), PoolView::GetWaitingIds(*pPool).end());
        m_setQueued.insert(PoolView::GetOverflowIds(*pPool).begin(), PoolView::GetOverflowIds(*pPool).end());
    }
    if (_clsScheduler.IsLockFree(&PoolView::GetOwnerLock(*pPool)))
    {
        LookAtOwners(_clsScheduler, *pPool);
    }
}

void CLS_Watch::LookAtLocks(CLS_Scheduler& _clsScheduler, CLS_QuenTaskPool& _clsPool)
{
    // Where threads may be slow, time passes at any step.
    if (!m_setHolders.empty() && _clsScheduler.GetTime() != m_nsNow && !_clsScheduler.HasSlowThreads())
    {
        _clsScheduler.Fail("a lock of the pool is held while its holder waits");
    }
    const std::array<const void*, 5> arrLocks{
        &PoolView::GetQueueLock(_clsPool), &PoolView::GetLoopListLock(_clsPool),
        &PoolView::GetOwnerLock(_clsPool), &PoolView::GetIdleLock(_clsPool),
        &PoolView::GetWorkerLock(_clsPool)};
    m_setHolders.clear();
    for (const void* const pLock : arrLocks)
    {
        for (const int iHolder : _clsScheduler.GetLocks().GetHolders(pLock))
        {
            if (!m_setHolders.insert(iHolder).second)
            {
                _clsScheduler.Fail("a thread holds two locks of the pool");
            }
        }
    }
    m_nsNow = _clsScheduler.GetTime();
}

void CLS_Watch::LookAtTasks(CLS_Scheduler& _clsScheduler)
{
    m_vecValidBefore.swap(m_vecValid);
    m_vecValid.clear();
    if (!_clsScheduler.IsLockFree(&CLS_Task::m_smTaskDataLock))
    {
        return;
    }
    const bool bUnderLock = m_setHolders.count(_clsScheduler.GetCurrentNumber()) > 0;
    for (const auto& [strTaskId, pTask] : CLS_Task::m_mapTaskData)
    {
        if (TaskView::GetValidWord(*pTask).load())
        {
            m_vecValid.push_back(pTask.get());
        }
        else if (bUnderLock && std::count(m_vecValidBefore.begin(), m_vecValidBefore.end(), pTask.get()) > 0)
        {
            _clsScheduler.Fail("a task is stopped under a lock of the pool");
        }
    }
}

void CLS_Watch::LookAtBindings(CLS_Scheduler& _clsScheduler, CLS_QuenTaskPool& _clsPool)
{
    for (const auto& [pWorker, strTaskId] : PoolView::GetWorkers(_clsPool))
    {
        // One that the end of the pool has left behind may be faster.
        if (m_bRun && Memory::IsFreed(pWorker))
        {
            _clsScheduler.Fail("a worker is freed before it is unregistered");
        }
        std::string& strBefore = m_mapBound[pWorker];
        if (strBefore != strTaskId)
        {
            if (strTaskId.empty())
            {
                NoteUnbound(_clsScheduler, _clsPool, pWorker, strBefore);
            }
            strBefore = strTaskId;
        }
    }
    if (PoolView::GetWorkers(_clsPool).size() >
        static_cast<std::size_t>(PoolView::GetWorkerLimit(_clsPool)) + 1)
    {
        _clsScheduler.Fail("there are more workers than the limit and one");
    }
    m_bRun = PoolView::GetRunFlag(_clsPool).load();
}

void CLS_Watch::NoteUnbound(CLS_Scheduler& _clsScheduler, CLS_QuenTaskPool& _clsPool,
                            const CLS_TaskThread* _pWorker, const std::string& _strTaskId)
{
    if (!m_bRun)
    {
        m_setLate.insert(_pWorker);
    }
    // A task that ran before its owner was noted keeps the entry.
    m_mapLastTask.erase(_pWorker);
    if (_clsScheduler.IsLockFree(&PoolView::GetOwnerLock(_clsPool)) &&
        PoolView::GetTaskOwners(_clsPool).count(_strTaskId) > 0)
    {
        m_mapLastTask[_pWorker] = _strTaskId;
    }
}

void CLS_Watch::LookAtIdleList(CLS_Scheduler& _clsScheduler, CLS_QuenTaskPool& _clsPool)
{
    std::vector<ST_Idle> vecIdle;
    for (CLS_TaskThread* const pWorker : PoolView::GetIdleWorkers(_clsPool))
    {
        const auto funIsWorker = [&](const ST_Idle& _stIdle) { return _stIdle.m_pWorker == pWorker; };
        if (Memory::IsFreed(pWorker))
        {
            _clsScheduler.Fail("a worker is freed while it is idle");
        }
        if (std::any_of(vecIdle.begin(), vecIdle.end(), funIsWorker))
        {
            _clsScheduler.Fail("a worker is on the idle list twice");
        }
        vecIdle.push_back({pWorker, WorkerView::GetOrderWord(*pWorker).load()});
        const auto itBound = PoolView::GetWorkers(_clsPool).find(pWorker);
        if (itBound != PoolView::GetWorkers(_clsPool).end() && !itBound->second.empty())
        {
            _clsScheduler.Fail("a worker is idle and bound");
        }
        if (vecIdle.size() > 1 && vecIdle[vecIdle.size() - 2].m_iOrderId > vecIdle.back().m_iOrderId)
        {
            _clsScheduler.Fail("the idle list is out of order");
        }
        if (std::none_of(m_vecIdle.begin(), m_vecIdle.end(), funIsWorker))
        {
            NoteIdle(_clsScheduler, pWorker);
        }
    }
    if (Names::IsDispatcher(_clsScheduler.GetCurrentNumber()) && vecIdle.size() + 1 == m_vecIdle.size() &&
        !vecIdle.empty() && vecIdle.front().m_pWorker == m_vecIdle.front().m_pWorker)
    {
        _clsScheduler.Fail("an idle worker is taken that has not the lowest order id");
    }
    m_vecIdle = std::move(vecIdle);
}

void CLS_Watch::NoteIdle(CLS_Scheduler& _clsScheduler, const CLS_TaskThread* _pWorker)
{
    if (m_setLate.count(_pWorker) > 0)
    {
        _clsScheduler.Fail("a worker goes idle after the end has begun");
    }
    const auto itLastTask = m_mapLastTask.find(_pWorker);
    if (itLastTask != m_mapLastTask.end())
    {
        m_setOver.insert(itLastTask->second);
    }
}

void CLS_Watch::LookAtOwners(CLS_Scheduler& _clsScheduler, CLS_QuenTaskPool& _clsPool) const
{
    std::size_t uiListed = 0;
    for (const auto& [pOwner, lstTaskIds] : PoolView::GetOwnerLists(_clsPool))
    {
        uiListed += lstTaskIds.size();
        const bool bAgree = std::all_of(
            lstTaskIds.begin(), lstTaskIds.end(),
            [&, pNoted = pOwner](const std::string& _strTaskId)
            {
                const auto itOwner = PoolView::GetTaskOwners(_clsPool).find(_strTaskId);
                return itOwner != PoolView::GetTaskOwners(_clsPool).end() && itOwner->second == pNoted;
            });
        if (!bAgree || lstTaskIds.empty() || PoolView::GetOwnerCursors(_clsPool).count(pOwner) == 0)
        {
            _clsScheduler.Fail("the owner maps disagree");
        }
    }
    if (uiListed != PoolView::GetTaskOwners(_clsPool).size() ||
        PoolView::GetOwnerCursors(_clsPool).size() != PoolView::GetOwnerLists(_clsPool).size())
    {
        _clsScheduler.Fail("the owner maps disagree");
    }
    for (const auto& [strTaskId, pOwner] : PoolView::GetTaskOwners(_clsPool))
    {
        if (m_setQueued.count(strTaskId) == 0)
        {
            _clsScheduler.Fail("a task has an owner before it was queued");
        }
        if (m_setOver.count(strTaskId) > 0)
        {
            _clsScheduler.Fail("a task that has run keeps its owner");
        }
    }
}
