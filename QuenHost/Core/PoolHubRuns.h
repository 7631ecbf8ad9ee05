#pragma once

// Runs, and waiting for them. Included by CLS_PoolHub.h.

#include "QuenHost/Core/CLS_PoolHub.h"
#include "QuenHost/Core/ThreadInfo.h"

#include <algorithm>
#include <vector>

/// Lists a run that begins.
inline void CLS_PoolHub::BeginRun(ST_Run& _stRun)
{
    m_chnRuns.Append(_stRun);
    _stRun.m_clsTask.m_pGroup->m_chnRuns.Append(_stRun);
}

/// Ends a run. Its task keeps the group alive until then.
inline void CLS_PoolHub::EndRun(ST_Run& _stRun)
{
    CLS_TaskGroup& clsGroup = *_stRun.m_clsTask.m_pGroup;
    m_chnRuns.Remove(_stRun);
    clsGroup.m_chnRuns.Remove(_stRun);
    m_stCounters.m_uiFailed += _stRun.m_bFailed ? 1U : 0U;
    clsGroup.m_stCounters.m_uiFailed += _stRun.m_bFailed ? 1U : 0U;
    clsGroup.m_cvRuns.notify_all();
}

/// Runs the callable on this thread, with no lock held.
inline void CLS_PoolHub::Execute(CLS_QueuedTask& _clsTask, ST_Run& _stRun, const char* _szCategory,
                                 const std::string& _strMembers)
{
    const auto funRun = [&]
    {
        const CLS_TraceSpan clsSpan(GetTrace(), _szCategory, _clsTask.m_strCallInfo, _strMembers);
        _stRun.m_bFailed = !_clsTask.Run(CLS_StopToken(_clsTask.m_pStop));
    };
    if (const std::exception_ptr pException = PoolCall::Catch(funRun))
    {
        _stRun.m_bFailed = true;
        Report(*_clsTask.m_pGroup, n_FailureKind::Threw, _clsTask.m_strCallInfo, pException);
    }
}

inline void CLS_PoolHub::Report(const CLS_TaskGroup& _clsGroup, n_FailureKind _enKind,
                                const std::string& _strCallInfo,
                                const std::exception_ptr& _pException) noexcept
{
    const F_FailureHandler& funHandler =
        _clsGroup.m_funOnFailure ? _clsGroup.m_funOnFailure : m_stOptions.m_funOnFailure;
    const auto funReport = [&]
    {
        const ST_TaskFailure stFailure{_enKind, _clsGroup.m_strName, _strCallInfo, _pException};
        if (!funHandler)
        {
            m_clsReport.Report(stFailure);
        }
        else if (const std::exception_ptr pThrown = PoolCall::Catch([&] { funHandler(stFailure); }))
        {
            m_clsReport.Report(stFailure);
            m_clsReport.Report({n_FailureKind::Threw, _clsGroup.m_strName, "failure handler", pThrown});
        }
    };
    if (PoolCall::Catch(funReport))
    {
        CLS_FailureReport::ReportWithoutText();
    }
}

/// Whether the run must end for a removal to report success. Removals in runs of the same group do not wait
/// for each other's runs.
inline bool CLS_PoolHub::CountsForRemoval(const ST_Run& _stRun, bool _bByRun)
{
    return !_stRun.m_bHandedOver && !(_bByRun && _stRun.m_iRemoving > 0);
}

/// Whether the calling thread is destroying the tasks that a removal of the group cancelled.
inline bool CLS_PoolHub::IsDestroyer(const CLS_TaskGroup& _clsGroup)
{
    const std::thread::id idSelf = ThreadInfo::GetSelf();
    const ST_Destroyer* pDestroyer = _clsGroup.m_chnDestroyers.GetFirst();
    while (pDestroyer != nullptr && pDestroyer->m_idThread != idSelf)
    {
        pDestroyer = CLS_Chain<ST_Destroyer, &ST_Destroyer::m_stLink>::GetNext(*pDestroyer);
    }
    return pDestroyer != nullptr;
}

// It waits for two things: the end of the group's runs, except the caller's own, and the destruction of the
// tasks that other removals took. After the full time, no removal waits for the remaining runs again.

/// Waits for the group's runs. False if one is left. Releases the lock meanwhile.
inline bool CLS_PoolHub::WaitForRuns(Lock& _lock, CLS_TaskGroup& _clsGroup,
                                     std::chrono::milliseconds _msLimit)
{
    const bool bByRun = MarkOwnRuns(_clsGroup, 0) > 0;
    const bool bByDestroyer = IsDestroyer(_clsGroup);
    bool bAllOver = false;
    const auto funOver = [&]
    {
        bool bWait = !bByDestroyer && !_clsGroup.m_chnDestroyers.IsEmpty();
        bAllOver = !bWait;
        for (const ST_Run* pRun = _clsGroup.m_chnRuns.GetFirst(); pRun != nullptr;
             pRun = CLS_Chain<ST_Run, &ST_Run::m_stGroupLink>::GetNext(*pRun))
        {
            const bool bCounts = CountsForRemoval(*pRun, bByRun);
            bAllOver &= !bCounts;
            bWait |= bCounts && !pRun->m_bGivenUp;
        }
        return !bWait;
    };
    const bool bInTime = _clsGroup.m_cvRuns.wait_for(_lock, std::min(_msLimit, REMOVAL_LIMIT), funOver);
    if (!bInTime && _msLimit >= REMOVAL_LIMIT)
    {
        GiveUp(_lock, _clsGroup, bByRun);
    }
    return bAllOver;
}

/// Reports the runs that outlasted a removal. Releases the lock briefly.
inline void CLS_PoolHub::GiveUp(Lock& _lock, CLS_TaskGroup& _clsGroup, bool _bByRun)
{
    std::vector<std::string> vecCallInfos;
    bool bUnnamed = false;
    for (ST_Run* pRun = _clsGroup.m_chnRuns.GetFirst(); pRun != nullptr;
         pRun = CLS_Chain<ST_Run, &ST_Run::m_stGroupLink>::GetNext(*pRun))
    {
        if (CountsForRemoval(*pRun, _bByRun) && !std::exchange(pRun->m_bGivenUp, true))
        {
            bUnnamed |=
                PoolCall::Catch([&] { vecCallInfos.push_back(pRun->m_clsTask.m_strCallInfo); }) != nullptr;
        }
    }
    ++_clsGroup.m_iReports;
    _lock.unlock();
    if (bUnnamed)
    {
        CLS_FailureReport::ReportWithoutText();
    }
    for (const std::string& strCallInfo : vecCallInfos)
    {
        Report(_clsGroup, n_FailureKind::Outlasted, strCallInfo, nullptr);
    }
    _lock.lock();
    --_clsGroup.m_iReports;
}

/// Notes that the group's runs on this thread begin or end a removal. Returns the number of these runs.
inline int CLS_PoolHub::MarkOwnRuns(CLS_TaskGroup& _clsGroup, int _iChange)
{
    const std::thread::id idSelf = ThreadInfo::GetSelf();
    int iRuns = 0;
    for (ST_Run* pRun = _clsGroup.m_chnRuns.GetFirst(); pRun != nullptr;
         pRun = CLS_Chain<ST_Run, &ST_Run::m_stGroupLink>::GetNext(*pRun))
    {
        if (pRun->m_stThread.m_idThread == idSelf)
        {
            pRun->m_iRemoving += _iChange;
            ++iRuns;
        }
    }
    if (iRuns > 0)
    {
        _clsGroup.m_cvRuns.notify_all();
    }
    return iRuns;
}

/// From now on, no removal waits for the group's present runs. They keep the leftover alive.
inline void CLS_PoolHub::HandOver(CLS_TaskGroup& _clsGroup, const std::shared_ptr<ST_Leftover>& _pLeftover)
{
    for (ST_Run* pRun = _clsGroup.m_chnRuns.GetFirst(); pRun != nullptr;
         pRun = CLS_Chain<ST_Run, &ST_Run::m_stGroupLink>::GetNext(*pRun))
    {
        if (!pRun->m_bHandedOver)
        {
            pRun->m_bHandedOver = true;
            pRun->m_pLeftover = _pLeftover;
        }
    }
    _clsGroup.m_cvRuns.notify_all();
}
