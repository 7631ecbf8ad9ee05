#include "verify/schedules/pool/Watch.h"

#include "verify/schedules/core/Memory.h"
#include "verify/schedules/core/Scheduler.h"
#include "verify/schedules/pool/Names.h"

#include <algorithm>
#include <array>

void CLS_Watch::Look(CLS_Scheduler& _clsScheduler)
{
    const CLS_QuenTaskPool* const pPool = CLS_QuenTaskPool::m_pInstance;
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
    if (_clsScheduler.IsLockFree(&pPool->m_smThreadTaskLock))
    {
        LookAtBindings(_clsScheduler, *pPool);
        if (_clsScheduler.IsLockFree(&pPool->m_mtxIdleThreads))
        {
            LookAtIdleList(_clsScheduler, *pPool);
        }
    }
    if (_clsScheduler.IsLockFree(&pPool->m_mtxWaitingTasks))
    {
        m_setQueued.insert(pPool->m_vecWaitingTasks.begin(), pPool->m_vecWaitingTasks.end());
        m_setQueued.insert(pPool->m_lstWaitingOverflow.begin(), pPool->m_lstWaitingOverflow.end());
    }
    if (_clsScheduler.IsLockFree(&pPool->m_mtxTmpTasks))
    {
        LookAtOwners(_clsScheduler, *pPool);
    }
}

void CLS_Watch::LookAtLocks(CLS_Scheduler& _clsScheduler, const CLS_QuenTaskPool& _clsPool)
{
    // Where threads may be slow, time passes at any step.
    if (!m_setHolders.empty() && _clsScheduler.GetTime() != m_nsNow && !_clsScheduler.HasSlowThreads())
    {
        _clsScheduler.Fail("a lock of the pool is held while its holder waits");
    }
    const std::array<const void*, 5> arrLocks{&_clsPool.m_mtxWaitingTasks, &_clsPool.m_smLoopTasksLock,
                                              &_clsPool.m_mtxTmpTasks, &_clsPool.m_mtxIdleThreads,
                                              &_clsPool.m_smThreadTaskLock};
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
        if (pTask->m_bValid.load())
        {
            m_vecValid.push_back(pTask.get());
        }
        else if (bUnderLock && std::count(m_vecValidBefore.begin(), m_vecValidBefore.end(), pTask.get()) > 0)
        {
            _clsScheduler.Fail("a task is stopped under a lock of the pool");
        }
    }
}

void CLS_Watch::LookAtBindings(CLS_Scheduler& _clsScheduler, const CLS_QuenTaskPool& _clsPool)
{
    for (const auto& [pWorker, strTaskId] : _clsPool.m_mapThreadTask)
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
    if (_clsPool.m_mapThreadTask.size() > static_cast<std::size_t>(_clsPool.m_iMaxThread) + 1)
    {
        _clsScheduler.Fail("there are more workers than the limit and one");
    }
    m_bRun = _clsPool.m_bRun.load();
}

void CLS_Watch::NoteUnbound(CLS_Scheduler& _clsScheduler, const CLS_QuenTaskPool& _clsPool,
                            const CLS_TaskThread* _pWorker, const std::string& _strTaskId)
{
    if (!m_bRun)
    {
        m_setLate.insert(_pWorker);
    }
    // A task that ran before its owner was noted keeps the entry.
    m_mapLastTask.erase(_pWorker);
    if (_clsScheduler.IsLockFree(&_clsPool.m_mtxTmpTasks) && _clsPool.m_mapTmpTaskOwner.count(_strTaskId) > 0)
    {
        m_mapLastTask[_pWorker] = _strTaskId;
    }
}

void CLS_Watch::LookAtIdleList(CLS_Scheduler& _clsScheduler, const CLS_QuenTaskPool& _clsPool)
{
    std::vector<ST_Idle> vecIdle;
    for (CLS_TaskThread* const pWorker : _clsPool.m_vecIdleThreads)
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
        vecIdle.push_back({pWorker, pWorker->m_iOrderId.load()});
        const auto itBound = _clsPool.m_mapThreadTask.find(pWorker);
        if (itBound != _clsPool.m_mapThreadTask.end() && !itBound->second.empty())
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

void CLS_Watch::LookAtOwners(CLS_Scheduler& _clsScheduler, const CLS_QuenTaskPool& _clsPool) const
{
    std::size_t uiListed = 0;
    for (const auto& [pOwner, lstTaskIds] : _clsPool.m_mapTmpTasks)
    {
        uiListed += lstTaskIds.size();
        const bool bAgree =
            std::all_of(lstTaskIds.begin(), lstTaskIds.end(),
                        [&, pNoted = pOwner](const std::string& _strTaskId)
                        {
                            const auto itOwner = _clsPool.m_mapTmpTaskOwner.find(_strTaskId);
                            return itOwner != _clsPool.m_mapTmpTaskOwner.end() && itOwner->second == pNoted;
                        });
        if (!bAgree || lstTaskIds.empty() || _clsPool.m_mapTmpTaskCursors.count(pOwner) == 0)
        {
            _clsScheduler.Fail("the owner maps disagree");
        }
    }
    if (uiListed != _clsPool.m_mapTmpTaskOwner.size() ||
        _clsPool.m_mapTmpTaskCursors.size() != _clsPool.m_mapTmpTasks.size())
    {
        _clsScheduler.Fail("the owner maps disagree");
    }
    for (const auto& [strTaskId, pOwner] : _clsPool.m_mapTmpTaskOwner)
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
