#include "QuenPlugins/ZelTaskPool/CLS_LoopEntry.h"

#include <utility>

CLS_LoopEntry::CLS_LoopEntry(std::string&& _strTaskId) : m_strTaskId(std::move(_strTaskId)) {}

bool CLS_LoopEntry::IsDue(std::chrono::steady_clock::time_point _tpNow)
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

std::shared_ptr<CLS_Task> CLS_LoopEntry::FindTask()
{
    std::shared_ptr<CLS_Task> pTask = m_pTask.lock();
    if (!pTask)
    {
        m_pTask = CLS_Task::GetTask(m_strTaskId);
        pTask = m_pTask.lock();
    }
    return pTask;
}
