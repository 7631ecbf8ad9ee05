#include "verify/rules/PoolRules.h"

#include <mutex>

const char* PoolRules::CheckWorkerCount(std::size_t _uiWorkers, int _iLimit)
{
    return _uiWorkers > static_cast<std::size_t>(_iLimit) + 1 ? TOO_MANY_WORKERS : nullptr;
}

const char* PoolRules::CheckIdleList(const std::vector<ST_IdleWorker>& _vecIdle)
{
    for (std::size_t i = 0; i < _vecIdle.size(); ++i)
    {
        for (std::size_t j = 0; j < i; ++j)
        {
            if (_vecIdle[j].m_pWorker == _vecIdle[i].m_pWorker)
            {
                return IDLE_TWICE;
            }
        }
        if (i > 0 && _vecIdle[i - 1].m_iOrderId > _vecIdle[i].m_iOrderId)
        {
            return IDLE_UNSORTED;
        }
    }
    return nullptr;
}

const char* PoolRules::CheckOwners(const PoolView::OwnerLists& _mapLists,
                                   const std::map<std::string, void*>& _mapOwners,
                                   const PoolView::OwnerCursors& _mapCursors)
{
    std::size_t uiListed = 0;
    for (const auto& [pOwner, lstTaskIds] : _mapLists)
    {
        if (lstTaskIds.empty() || _mapCursors.count(pOwner) == 0)
        {
            return OWNERS_DISAGREE;
        }
        for (const std::string& strTaskId : lstTaskIds)
        {
            const auto itOwner = _mapOwners.find(strTaskId);
            if (itOwner == _mapOwners.end() || itOwner->second != pOwner)
            {
                return OWNERS_DISAGREE;
            }
            ++uiListed;
        }
    }
    return uiListed == _mapOwners.size() && _mapCursors.size() == _mapLists.size() ? nullptr
                                                                                   : OWNERS_DISAGREE;
}

const char* PoolRules::CheckPool(CLS_QuenTaskPool& _clsPool)
{
    const auto uiWorkers = static_cast<std::size_t>(_clsPool.GetTaskThreadNum());
    if (const char* const szBroken = CheckWorkerCount(uiWorkers, PoolView::GetWorkerLimit(_clsPool)))
    {
        return szBroken;
    }
    {
        std::vector<ST_IdleWorker> vecIdle;
        const std::lock_guard<std::mutex> lock(PoolView::GetIdleLock(_clsPool));
        for (CLS_TaskThread* const pWorker : PoolView::GetIdleWorkers(_clsPool))
        {
            vecIdle.push_back({pWorker, pWorker->GetOrderId()});
        }
        if (const char* const szBroken = CheckIdleList(vecIdle))
        {
            return szBroken;
        }
    }
    const std::lock_guard<std::mutex> lock(PoolView::GetOwnerLock(_clsPool));
    return CheckOwners(PoolView::GetOwnerLists(_clsPool), PoolView::GetTaskOwners(_clsPool),
                       PoolView::GetOwnerCursors(_clsPool));
}
