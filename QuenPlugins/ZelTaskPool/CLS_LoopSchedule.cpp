#include "QuenPlugins/ZelTaskPool/CLS_LoopSchedule.h"

#include <algorithm>
#include <functional>
#include <utility>

CLS_LoopSchedule::CLS_Entry::CLS_Entry(std::string _strTaskId) : m_strTaskId(std::move(_strTaskId)) {}

bool CLS_LoopSchedule::CLS_Entry::IsDue(std::chrono::steady_clock::time_point _tpNow)
{
    if (_tpNow < m_tpEarliest)
    {
        return false;
    }
    const std::shared_ptr<CLS_Task> pTask = FindTask();
    if (!pTask)
    {
        return false;
    }
    m_tpEarliest = pTask->GetEarliestRun();
    return pTask->IsUseRun();
}

std::shared_ptr<CLS_Task> CLS_LoopSchedule::CLS_Entry::FindTask()
{
    std::shared_ptr<CLS_Task> pTask = m_pTask.lock();
    return pTask ? pTask : LookUp();
}

std::shared_ptr<CLS_Task> CLS_LoopSchedule::CLS_Entry::LookUp()
{
    std::shared_ptr<CLS_Task> pTask = CLS_Task::FindTask({}, m_strTaskId);
    m_pTask = pTask;
    return pTask;
}

void CLS_LoopSchedule::Refresh(const std::vector<std::string>& _vecTaskIds)
{
    if (m_uiListChanges != m_uiSeenListChanges)
    {
        Rebuild(_vecTaskIds);
        m_uiSeenListChanges = m_uiListChanges;
    }
    if (const std::uint64_t uiIntervalChanges = CLS_Task::GetIntervalChanges();
        uiIntervalChanges != m_uiSeenIntervalChanges)
    {
        std::for_each(m_vecEntries.begin(), m_vecEntries.end(), std::mem_fn(&CLS_Entry::ForgetTime));
        m_uiSeenIntervalChanges = uiIntervalChanges;
    }
}

void CLS_LoopSchedule::Rebuild(const std::vector<std::string>& _vecTaskIds)
{
    std::vector<CLS_Entry> vecEntries;
    vecEntries.reserve(_vecTaskIds.size());
    // The list loses ids anywhere and gains them only at its end, so one walk finds all known entries.
    auto itOld = m_vecEntries.begin();
    for (const std::string& strTaskId : _vecTaskIds)
    {
        itOld = std::find_if(itOld, m_vecEntries.end(),
                             [&](const CLS_Entry& _clsOld) { return _clsOld.GetTaskId() == strTaskId; });
        if (itOld != m_vecEntries.end())
        {
            vecEntries.push_back(std::move(*itOld++));
        }
        else
        {
            vecEntries.emplace_back(strTaskId);
        }
    }
    m_vecEntries = std::move(vecEntries);
}
