#include "verify/schedules/pool/Watch.h"

#include "tests/support/PoolView.h"
#include "tests/support/TaskView.h"
#include "tests/support/WorkerView.h"
#include "verify/schedules/core/Memory.h"
#include "verify/schedules/core/Scheduler.h"
#include "verify/schedules/pool/Names.h"

#include <algorithm>
#include <array>

namespace
{
/// Ends the schedule if a rule is broken. Null stands for none.
void Require(CLS_Scheduler& _clsScheduler, const char* _szBroken)
{
    if (_szBroken != nullptr)
    {
        _clsScheduler.Fail(_szBroken);
    }
}
} // namespace

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
        const std::forward_list<std::string> lstOverflow = PoolView::GetOverflowIds(*pPool);
        m_setQueued.insert(lstOverflow.begin(), lstOverflow.end());
    }
    if (_clsScheduler.IsLockFree(&PoolView::GetOwnerLock(*pPool)))
    {
        LookAtOwners(_clsScheduler, *pPool);
    }
}

void CLS_Watch::LookAtLocks(CLS_Scheduler& _clsScheduler, CLS_QuenTaskPool& _clsPool)
{
    // If threads may be slow, time passes at any step.
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
        // A worker that the shutdown abandoned may be freed earlier.
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
    Require(_clsScheduler, PoolRules::CheckWorkerCount(PoolView::GetWorkers(_clsPool).size(),
                                                       PoolView::GetWorkerLimit(_clsPool)));
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
    std::vector<PoolRules::ST_IdleWorker> vecIdle;
    for (CLS_TaskThread* const pWorker : PoolView::GetIdleWorkers(_clsPool))
    {
        if (Memory::IsFreed(pWorker))
        {
            _clsScheduler.Fail("a worker is freed while it is idle");
        }
        vecIdle.push_back({pWorker, WorkerView::GetOrderWord(*pWorker).load()});
    }
    Require(_clsScheduler, PoolRules::CheckIdleList(vecIdle));
    for (const PoolRules::ST_IdleWorker& stIdle : vecIdle)
    {
        const auto itBound = PoolView::GetWorkers(_clsPool).find(stIdle.m_pWorker);
        if (itBound != PoolView::GetWorkers(_clsPool).end() && !itBound->second.empty())
        {
            _clsScheduler.Fail("a worker is idle and bound");
        }
        const auto funIsSame = [&](const PoolRules::ST_IdleWorker& _stOther)
        { return _stOther.m_pWorker == stIdle.m_pWorker; };
        if (std::none_of(m_vecIdle.begin(), m_vecIdle.end(), funIsSame))
        {
            NoteIdle(_clsScheduler, stIdle.m_pWorker);
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
    Require(_clsScheduler,
            PoolRules::CheckOwners(PoolView::GetOwnerLists(_clsPool), PoolView::GetTaskOwners(_clsPool),
                                   PoolView::GetOwnerCursors(_clsPool)));
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
