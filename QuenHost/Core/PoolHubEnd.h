#pragma once

// The end of the hub. Included by CLS_PoolHub.h.

#include "QuenHost/Core/CLS_PoolHub.h"

#include <vector>

inline void CLS_PoolHub::End()
{
    constexpr std::chrono::seconds LONGEST_CALL{20};
    Records lstRecords;
    for (const std::shared_ptr<CLS_StopState>& pStop : RefuseAll())
    {
        pStop->Request();
    }
    {
        CLS_RemovedTasks clsRemoved(GetTrace());
        Leftovers lstLeftover;
        Lock lock(m_mtxHub);
        TakeAll(clsRemoved);
        lstLeftover.swap(m_lstLeftover);
        m_cvParked.notify_all();
        m_cvInside.wait_for(lock, LONGEST_CALL, [this] { return m_iInside == 0; });
        lstRecords = TakeRecords();
        lock.unlock();
    }
    if (!lstRecords.empty())
    {
        std::this_thread::sleep_for(RECORD_REST);
        RemoveRecords(lstRecords);
    }
    m_clsReport.ReportRepeats();
    ReportOutlivers();
}

/// Takes the records of all carriers that do not run the host's code, of the heartbeat, and of the timer.
inline CLS_PoolHub::Records CLS_PoolHub::TakeRecords()
{
    if (m_pHeartbeat)
    {
        FinishRecord(std::exchange(m_pHeartbeat, nullptr));
    }
    if (m_pTimer)
    {
        FinishRecord(std::exchange(m_pTimer, nullptr));
    }
    for (auto itLive = m_lstLive.begin(); itLive != m_lstLive.end();)
    {
        const std::shared_ptr<ST_PoolRecord> pRecord = *itLive++;
        if (!pRecord->m_bBusy)
        {
            FinishRecord(pRecord);
        }
    }
    // A carrier that arrives later finds nothing to do, and no record is finished twice.
    return std::exchange(m_lstFinished, Records());
}

/// Takes nothing and starts nothing from now on. Returns the stop requests of all groups and loop tasks.
inline std::vector<std::shared_ptr<CLS_StopState>> CLS_PoolHub::RefuseAll()
{
    std::vector<std::shared_ptr<CLS_StopState>> vecStops;
    const Lock lock(m_mtxHub);
    m_bEnded = true;
    for (CLS_TaskGroup* pGroup = m_chnGroups.GetFirst(); pGroup != nullptr;
         pGroup = CLS_Chain<CLS_TaskGroup, &CLS_TaskGroup::m_stHubLink>::GetNext(*pGroup))
    {
        if (pGroup->m_pStop)
        {
            vecStops.push_back(std::exchange(pGroup->m_pStop, nullptr));
        }
    }
    for (const CLS_LoopCore* pLoop = m_chnLoops.GetFirst(); pLoop != nullptr;
         pLoop = CLS_Chain<CLS_LoopCore, &CLS_LoopCore::m_stHubLink>::GetNext(*pLoop))
    {
        vecStops.push_back(pLoop->m_pGroup->m_pStop);
    }
    return vecStops;
}

/// Takes the waiting tasks of all owners.
inline void CLS_PoolHub::TakeAll(CLS_RemovedTasks& _clsRemoved)
{
    for (CLS_TaskGroup* pGroup = m_chnGroups.GetFirst(); pGroup != nullptr;
         pGroup = CLS_Chain<CLS_TaskGroup, &CLS_TaskGroup::m_stHubLink>::GetNext(*pGroup))
    {
        TakeWaiting(*pGroup, _clsRemoved);
    }
}

/// Reports the owners and loop tasks that are left. They are a mistake of the host.
inline void CLS_PoolHub::ReportOutlivers()
{
    std::string strNames;
    {
        const Lock lock(m_mtxHub);
        for (const CLS_TaskGroup* pGroup = m_chnGroups.GetFirst(); pGroup != nullptr;
             pGroup = CLS_Chain<CLS_TaskGroup, &CLS_TaskGroup::m_stHubLink>::GetNext(*pGroup))
        {
            strNames += " owner \"" + pGroup->m_strName + "\"";
        }
        for (const CLS_LoopCore* pLoop = m_chnLoops.GetFirst(); pLoop != nullptr;
             pLoop = CLS_Chain<CLS_LoopCore, &CLS_LoopCore::m_stHubLink>::GetNext(*pLoop))
        {
            strNames += " loop task \"" + pLoop->m_pGroup->m_strName + "\"";
        }
    }
    if (!strNames.empty())
    {
        HostChecks::Report("the scope has ended before what uses it:" + strNames);
    }
}
