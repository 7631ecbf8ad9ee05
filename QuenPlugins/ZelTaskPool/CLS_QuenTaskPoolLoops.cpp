// The list of loop tasks, and the loop scheduler.

#include "QuenInclude/Util.h"
#include "QuenPlugins/ZelTaskPool/CLS_QuenTaskPool.h"
#include "QuenPlugins/ZelTaskPool/TaskPoolRecord.h"

#include <algorithm>

using TaskPoolRecord::FILE_POOL;

namespace
{
/// The loop scheduler sleeps this long between passes.
constexpr std::chrono::milliseconds LOOP_POLL{10};
} // namespace

void CLS_QuenTaskPool::FunLoopThread()
{
    Util::SetThreadName("zel-loops");
    while (m_bRun)
    {
        try
        {
            LoopPass();
            std::this_thread::sleep_for(LOOP_POLL);
        }
        catch (...)
        {
            TaskPoolRecord::Make(FILE_POOL, "FunLoopThread", Logger::LOG_LEVEL_ERROR)
                << "*** auto Loop handler fail ***";
        }
    }
}

void CLS_QuenTaskPool::LoopPass()
{
    RefreshLoopSchedule();
    auto tpNow = std::chrono::steady_clock::now();
    for (CLS_LoopSchedule::CLS_Entry& clsEntry : m_clsLoopSchedule.GetEntries())
    {
        if (!m_bRun)
        {
            return;
        }
        if (clsEntry.IsDue(tpNow))
        {
            // A host may have put another task in the place of the one that was asked.
            const std::shared_ptr<CLS_Task> pTask = clsEntry.LookUp();
            if (pTask && pTask->IsUseRun())
            {
                QueueTask(pTask, clsEntry.GetTaskId());
            }
            tpNow = std::chrono::steady_clock::now();
        }
    }
}

void CLS_QuenTaskPool::RefreshLoopSchedule()
{
    const CLS_SharedGuard lock(m_smLoopTasksLock);
    m_clsLoopSchedule.Refresh(m_vecLoopTasks);
}

void CLS_QuenTaskPool::ListLoopTask(const std::string& _strTaskId)
{
    const CLS_LockGuard lock(m_smLoopTasksLock);
    m_vecLoopTasks.push_back(_strTaskId);
    m_clsLoopSchedule.NoteListChange();
}

void CLS_QuenTaskPool::ForgetLoopTask(const std::string& _strTaskId)
{
    const CLS_LockGuard lock(m_smLoopTasksLock);
    const auto itTask = std::find(m_vecLoopTasks.begin(), m_vecLoopTasks.end(), _strTaskId);
    if (itTask != m_vecLoopTasks.end())
    {
        m_vecLoopTasks.erase(itTask);
        m_clsLoopSchedule.NoteListChange();
    }
}

void CLS_QuenTaskPool::ForgetLoopTasks()
{
    const CLS_LockGuard lock(m_smLoopTasksLock);
    m_vecLoopTasks.clear();
    m_clsLoopSchedule.NoteListChange();
}
