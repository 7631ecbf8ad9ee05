#include "tests/schedule/pool/Watch.h"

#include "tests/schedule/core/Scheduler.h"
#include "tests/schedule/pool/Names.h"

#include <algorithm>

void CLS_Watch::Look(CLS_Scheduler& _clsScheduler)
{
    const CLS_QuenTaskPool* const pPool = CLS_QuenTaskPool::m_pInstance;
    if (pPool != m_pPool)
    {
        m_pPool = pPool;
        m_vecIdle.clear();
    }
    if (pPool == nullptr)
    {
        return;
    }
    if (_clsScheduler.IsLockFree(&pPool->m_mtxIdleThreads) &&
        _clsScheduler.IsLockFree(&pPool->m_smThreadTaskLock))
    {
        LookAtIdleList(_clsScheduler, *pPool);
    }
    if (_clsScheduler.IsLockFree(&pPool->m_mtxWaitingTasks))
    {
        m_setQueued.insert(pPool->m_vecWaitingTasks.begin(), pPool->m_vecWaitingTasks.end());
    }
    if (_clsScheduler.IsLockFree(&pPool->m_mtxTmpTasks))
    {
        LookAtOwners(_clsScheduler, *pPool);
    }
}

void CLS_Watch::LookAtIdleList(CLS_Scheduler& _clsScheduler, const CLS_QuenTaskPool& _clsPool)
{
    std::vector<ST_Idle> vecIdle;
    for (CLS_TaskThread* const pWorker : _clsPool.m_vecIdleThreads)
    {
        const bool bTwice = std::any_of(vecIdle.begin(), vecIdle.end(),
                                        [&](const ST_Idle& _stIdle) { return _stIdle.m_pWorker == pWorker; });
        if (bTwice)
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
    }
    if (Names::IsDispatcher(_clsScheduler.GetCurrentNumber()) && vecIdle.size() + 1 == m_vecIdle.size() &&
        !vecIdle.empty() && vecIdle.front().m_pWorker == m_vecIdle.front().m_pWorker)
    {
        _clsScheduler.Fail("an idle worker is taken that has not the lowest order id");
    }
    m_vecIdle = std::move(vecIdle);
    if (_clsPool.m_mapThreadTask.size() > static_cast<std::size_t>(_clsPool.m_iMaxThread) + 1)
    {
        _clsScheduler.Fail("there are more workers than the limit and one");
    }
}

void CLS_Watch::LookAtOwners(CLS_Scheduler& _clsScheduler, const CLS_QuenTaskPool& _clsPool) const
{
    std::size_t uiListed = 0;
    for (const auto& [pOwner, lstTaskIds] : _clsPool.m_mapTmpTasks)
    {
        uiListed += lstTaskIds.size();
    }
    if (uiListed != _clsPool.m_mapTmpTaskOwner.size())
    {
        _clsScheduler.Fail("the owner maps disagree");
    }
    for (const auto& [strTaskId, pOwner] : _clsPool.m_mapTmpTaskOwner)
    {
        if (m_setQueued.count(strTaskId) == 0)
        {
            _clsScheduler.Fail("a task has an owner before it was queued");
        }
    }
}
