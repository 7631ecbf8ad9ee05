#include "tests/support/ShutdownClaimView.h"

#include <memory>
#include <new>
#include <type_traits>

namespace
{
/// What the process knows about the pool; null for an unknown one.
std::shared_ptr<CLS_ShutdownClaim::ST_Life> FindLife(const CLS_QuenTaskPool* _pPool)
{
    CLS_ShutdownClaim::ST_Pools& stPools = CLS_ShutdownClaim::GetPools();
    const CLS_LockGuard lock(stPools.m_mtxPools);
    const auto itPool = stPools.m_mapPools.find(_pPool);
    return itPool == stPools.m_mapPools.end() ? nullptr : itPool->second;
}
} // namespace

namespace ShutdownClaimView
{
bool IsKnown(const CLS_QuenTaskPool* _pPool)
{
    return FindLife(_pPool) != nullptr;
}

std::chrono::steady_clock::time_point GetStepLimit(const CLS_QuenTaskPool* _pPool)
{
    return FindLife(_pPool)->m_tpStepLimit;
}

void SetStepLimit(const CLS_QuenTaskPool* _pPool, std::chrono::steady_clock::time_point _tpLimit)
{
    FindLife(_pPool)->m_tpStepLimit = _tpLimit;
}

bool IsOwnThread(const CLS_QuenTaskPool* _pPool, std::thread::id _idThread)
{
    const CLS_LockGuard lock(CLS_ShutdownClaim::GetPools().m_mtxPools);
    return CLS_ShutdownClaim::GetPools().m_mapPools.at(_pPool)->MustNotWait(_idThread);
}

void ForgetAll()
{
    auto& mapPools = CLS_ShutdownClaim::GetPools().m_mapPools;
    new (&mapPools) std::remove_reference_t<decltype(mapPools)>;
}
} // namespace ShutdownClaimView
