#pragma once

// What the hub is doing. Included by CLS_PoolHub.h.

#include "QuenHost/Core/CLS_PoolHub.h"

#include <algorithm>

/// Describes a run for a snapshot.
inline ST_RunInfo CLS_PoolHub::DescribeRun(const ST_Run& _stRun, Clock::time_point _tpNow)
{
    ST_RunInfo stInfo;
    stInfo.m_strOwner = _stRun.m_clsTask.m_pGroup->m_strName;
    stInfo.m_strCallInfo = _stRun.m_clsTask.m_strCallInfo;
    stInfo.m_nsRunning = _tpNow - _stRun.m_tpStart;
    stInfo.m_uiThread = _stRun.m_stThread.m_uiThread;
    stInfo.m_strThread = _stRun.m_stThread.m_strThread;
    stInfo.m_bStopRequested = _stRun.m_clsTask.m_pStop->IsRequested();
    return stInfo;
}

/// Describes a loop task for a snapshot.
inline ST_LoopInfo CLS_PoolHub::DescribeLoop(const CLS_LoopCore& _clsLoop, Clock::time_point _tpNow)
{
    ST_LoopInfo stInfo;
    stInfo.m_strCallInfo = _clsLoop.m_pGroup->m_strName;
    stInfo.m_msInterval = _clsLoop.m_msInterval;
    stInfo.m_bRunning = !_clsLoop.m_pGroup->m_chnRuns.IsEmpty();
    const bool bDue = stInfo.m_bRunning || _clsLoop.m_tpDue <= _tpNow;
    stInfo.m_nsUntilNext = bDue ? std::chrono::nanoseconds(0) : _clsLoop.m_tpDue - _tpNow;
    return stInfo;
}

/// Counts the tasks that wait for a worker, or for other tasks of their owner.
inline void CLS_PoolHub::CountWaiting(ST_PoolSnapshot& _stSnapshot, Clock::time_point _tpNow) const
{
    for (const CLS_TaskGroup* pGroup = m_chnGroups.GetFirst(); pGroup != nullptr;
         pGroup = CLS_Chain<CLS_TaskGroup, &CLS_TaskGroup::m_stHubLink>::GetNext(*pGroup))
    {
        for (const auto* const pChain : {&pGroup->m_chnWaiting, &pGroup->m_chnHeld})
        {
            _stSnapshot.m_uiQueued += pChain->GetSize();
            const CLS_QueuedTask* const pFirst = pChain->GetFirst();
            _stSnapshot.m_nsOldestQueued =
                std::max(_stSnapshot.m_nsOldestQueued,
                         pFirst != nullptr ? _tpNow - pFirst->m_tpQueued : std::chrono::nanoseconds(0));
        }
    }
}

inline ST_PoolSnapshot CLS_PoolHub::TakeSnapshot() const
{
    ST_PoolSnapshot stSnapshot;
    const Lock lock(m_mtxHub);
    const Clock::time_point tpNow = Clock::now();
    stSnapshot.m_iIdleWorkers = m_iParked;
    stSnapshot.m_iStartingWorkers = m_iStarting;
    stSnapshot.m_stCounters = m_stCounters;
    CountWaiting(stSnapshot, tpNow);
    for (const ST_Run* pRun = m_chnRuns.GetFirst(); pRun != nullptr;
         pRun = CLS_Chain<ST_Run, &ST_Run::m_stHubLink>::GetNext(*pRun))
    {
        stSnapshot.m_vecRuns.push_back(DescribeRun(*pRun, tpNow));
        stSnapshot.m_iBusyWorkers += pRun->m_bDelivery ? 0 : 1;
    }
    for (const CLS_LoopCore* pLoop = m_chnLoops.GetFirst(); pLoop != nullptr;
         pLoop = CLS_Chain<CLS_LoopCore, &CLS_LoopCore::m_stHubLink>::GetNext(*pLoop))
    {
        stSnapshot.m_vecLoops.push_back(DescribeLoop(*pLoop, tpNow));
    }
    return stSnapshot;
}
