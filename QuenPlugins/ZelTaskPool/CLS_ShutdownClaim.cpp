#include "QuenPlugins/ZelTaskPool/CLS_ShutdownClaim.h"

#include "QuenPlugins/ZelTaskPool/ReserveEntry.h"

CLS_ShutdownClaim::ST_Pools& CLS_ShutdownClaim::GetPools()
{
    static ST_Pools& s_stPools = *new ST_Pools;
    return s_stPools;
}

bool CLS_ShutdownClaim::ST_Life::MustNotWait(std::thread::id _idThread) const
{
    return _idThread == m_idClaimant || m_setThreads.count(_idThread) > 0;
}

CLS_ShutdownClaim::CLS_ShutdownClaim(const CLS_QuenTaskPool* _pPool)
{
    const std::thread::id idSelf = std::this_thread::get_id();
    ST_Pools& stPools = GetPools();
    CLS_WaitGuard lock(stPools.m_mtxPools);
    const auto itPool = stPools.m_mapPools.find(_pPool);
    if (itPool == stPools.m_mapPools.end())
    {
        return;
    }
    const std::shared_ptr<ST_Life> pLife = itPool->second;
    while (pLife->m_bClaimed)
    {
        if (pLife->MustNotWait(idSelf) || std::chrono::steady_clock::now() >= pLife->m_tpStepLimit)
        {
            return;
        }
        stPools.m_cvPools.wait_until(lock.GetLock(), pLife->m_tpStepLimit);
    }
    if (!pLife->m_bGone)
    {
        pLife->m_bClaimed = true;
        pLife->m_idClaimant = idSelf;
        pLife->m_tpStepLimit = std::chrono::steady_clock::now() + STEP_LIMIT;
        m_pLife = pLife;
    }
}

CLS_ShutdownClaim::~CLS_ShutdownClaim()
{
    if (m_pLife)
    {
        ST_Pools& stPools = GetPools();
        const CLS_LockGuard lock(stPools.m_mtxPools);
        m_pLife->m_bClaimed = false;
        stPools.m_cvPools.notify_all();
    }
}

void CLS_ShutdownClaim::BeginStep()
{
    const CLS_LockGuard lock(GetPools().m_mtxPools);
    m_pLife->m_tpStepLimit = std::chrono::steady_clock::now() + STEP_LIMIT;
}

void CLS_ShutdownClaim::AddPool(const CLS_QuenTaskPool* _pPool)
{
    auto pLife = std::make_shared<ST_Life>();
    ST_Pools& stPools = GetPools();
    const CLS_LockGuard lock(stPools.m_mtxPools);
    stPools.m_mapPools.emplace(_pPool, std::move(pLife));
}

void CLS_ShutdownClaim::RemovePool(const CLS_QuenTaskPool* _pPool)
{
    ST_Pools& stPools = GetPools();
    const CLS_LockGuard lock(stPools.m_mtxPools);
    const auto itPool = stPools.m_mapPools.find(_pPool);
    itPool->second->m_bGone = true;
    stPools.m_mapPools.erase(itPool);
}

CLS_ShutdownClaim::ThreadEntry CLS_ShutdownClaim::ReserveThread()
{
    return ReserveEntry<std::set<std::thread::id>>();
}

void CLS_ShutdownClaim::AddThread(const CLS_QuenTaskPool* _pPool, std::thread::id _idThread,
                                  ThreadEntry&& _clsEntry)
{
    _clsEntry.value() = _idThread;
    ST_Pools& stPools = GetPools();
    const CLS_LockGuard lock(stPools.m_mtxPools);
    stPools.m_mapPools.find(_pPool)->second->m_setThreads.insert(std::move(_clsEntry));
}

void CLS_ShutdownClaim::RemoveThread(const CLS_QuenTaskPool* _pPool, std::thread::id _idThread)
{
    ST_Pools& stPools = GetPools();
    const CLS_LockGuard lock(stPools.m_mtxPools);
    stPools.m_mapPools.find(_pPool)->second->m_setThreads.erase(_idThread);
}

void CLS_ShutdownClaim::RemoveOwnThread()
{
    ST_Pools& stPools = GetPools();
    const CLS_LockGuard lock(stPools.m_mtxPools);
    for (const auto& [pPool, pLife] : stPools.m_mapPools)
    {
        pLife->m_setThreads.erase(std::this_thread::get_id());
    }
}
