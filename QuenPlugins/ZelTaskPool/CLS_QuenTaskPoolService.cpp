// The loop scheduler and the overtime watchdog.

#include "QuenInclude/Util.h"
#include "QuenPlugins/ZelTaskPool/CLS_QuenTaskPool.h"
#include "QuenPlugins/ZelTaskPool/CLS_ShutdownClaim.h"
#include "QuenPlugins/ZelTaskPool/TaskPoolRecord.h"

#include <algorithm>
#include <functional>

using TaskPoolRecord::FILE_POOL;

namespace
{
constexpr std::chrono::milliseconds LOOP_POLL{10};

/// The watchdog sleeps 180 seconds between passes, in steps, so that it notices the pool's end.
constexpr std::chrono::milliseconds OVERTIME_STEP{180};
constexpr int OVERTIME_STEPS = 1000;

/// Says that a worker was idle and yet bound to a task.
void RecordBoundTask(const std::string& _strTaskId)
{
    const std::shared_ptr<CLS_Task> pTask = CLS_Task::GetTask(_strTaskId).lock();
    const std::string strParam = pTask ? pTask->ParamToString() : std::string();
    TaskPoolRecord::Make(FILE_POOL, "FunTaskThreadWaitingOvertime", Logger::LOG_LEVEL_ERROR)
        << "OvertimeThread is fail taskId - " << _strTaskId << " " << strParam;
}

/// An entry for each id; uses up both lists, and takes over what it finds in _vecOld. The list loses ids
/// anywhere and gets new ones at its end only, so that one walk finds them.
std::vector<CLS_LoopEntry> MakeLoopEntries(std::vector<std::string>& _vecTaskIds,
                                           std::vector<CLS_LoopEntry>& _vecOld)
{
    std::vector<CLS_LoopEntry> vecEntries;
    vecEntries.reserve(_vecTaskIds.size());
    auto itOld = _vecOld.begin();
    for (std::string& strTaskId : _vecTaskIds)
    {
        itOld = std::find_if(itOld, _vecOld.end(),
                             [&](const CLS_LoopEntry& _clsOld) { return _clsOld.GetTaskId() == strTaskId; });
        if (itOld != _vecOld.end())
        {
            vecEntries.push_back(std::move(*itOld++));
        }
        else
        {
            vecEntries.emplace_back(std::move(strTaskId));
        }
    }
    return vecEntries;
}
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

/// Queues each loop task that is due.
void CLS_QuenTaskPool::LoopPass()
{
    RefreshLoopEntries();
    auto tpNow = std::chrono::steady_clock::now();
    for (CLS_LoopEntry& clsEntry : m_vecLoopEntries)
    {
        if (!m_bRun)
        {
            return;
        }
        if (clsEntry.IsDue(tpNow))
        {
            AddWaitingTasks(clsEntry.GetTaskId());
            tpNow = std::chrono::steady_clock::now();
        }
    }
}

/// Brings the scheduler's entries into line with the list, and with intervals that were changed.
void CLS_QuenTaskPool::RefreshLoopEntries()
{
    std::vector<std::string> vecLoopTasks;
    std::uint64_t uiListChanges = 0;
    {
        const CLS_SharedGuard lock(m_smLoopTasksLock);
        uiListChanges = m_uiLoopListChanges;
        if (uiListChanges != m_uiSeenListChanges)
        {
            vecLoopTasks = m_vecLoopTasks;
        }
    }
    if (uiListChanges != m_uiSeenListChanges)
    {
        m_vecLoopEntries = MakeLoopEntries(vecLoopTasks, m_vecLoopEntries);
        m_uiSeenListChanges = uiListChanges;
    }
    if (const std::uint64_t uiIntervalChanges = CLS_Task::GetIntervalChanges();
        uiIntervalChanges != m_uiSeenIntervalChanges)
    {
        std::for_each(m_vecLoopEntries.begin(), m_vecLoopEntries.end(),
                      std::mem_fn(&CLS_LoopEntry::ForgetTime));
        m_uiSeenIntervalChanges = uiIntervalChanges;
    }
}

void CLS_QuenTaskPool::FunTaskThreadWaitingOvertime()
{
    Util::SetThreadName("zel-watchdog");
    while (SleepBetweenPasses())
    {
        try
        {
            OvertimePass();
        }
        catch (...)
        {
            TaskPoolRecord::Make(FILE_POOL, "FunTaskThreadWaitingOvertime", Logger::LOG_LEVEL_ERROR)
                << "*** auto delete handler fail";
        }
    }
}

/// False when the pool ends.
bool CLS_QuenTaskPool::SleepBetweenPasses()
{
    for (int iStep = 0; iStep < OVERTIME_STEPS && m_bRun; ++iStep)
    {
        std::this_thread::sleep_for(OVERTIME_STEP);
    }
    return m_bRun;
}

/// Retires the workers at the back of the idle list that have been idle for too long.
void CLS_QuenTaskPool::OvertimePass()
{
    TaskPoolRecord::Make(FILE_POOL, "FunTaskThreadWaitingOvertime", Logger::LOG_LEVEL_DETAIL)
        << "delete pThread **************";
    for (CLS_TaskThread* const pThread : TakeOverrunThreads())
    {
        RetireThread(pThread);
    }
}

/// Takes workers off the back of the idle list, down to the first one that was active recently: that one
/// protects all before it. Empty slots are dropped.
std::vector<CLS_TaskThread*> CLS_QuenTaskPool::TakeOverrunThreads()
{
    std::vector<CLS_TaskThread*> vecOverrun;
    const CLS_LockGuard lock(m_mtxIdleThreads);
    // Memory comes first: a worker that is taken off the list cannot get lost.
    vecOverrun.reserve(m_vecIdleThreads.size());
    while (!m_vecIdleThreads.empty())
    {
        CLS_TaskThread* const pThread = m_vecIdleThreads.back();
        if (pThread != nullptr && !pThread->IsWaitingOvertime())
        {
            break;
        }
        m_vecIdleThreads.pop_back();
        if (pThread != nullptr)
        {
            vecOverrun.push_back(pThread);
        }
    }
    return vecOverrun;
}

/// Unregisters the worker, ends its thread and frees it.
void CLS_QuenTaskPool::RetireThread(CLS_TaskThread* _pThread)
{
    try
    {
        CLS_ShutdownClaim::RemoveThread(this, _pThread->GetThreadId());
        const std::string strTaskId = UnregisterThread(_pThread);
        const std::unique_ptr<CLS_TaskThread> pThread(_pThread);
        if (!strTaskId.empty())
        {
            RecordBoundTask(strTaskId);
        }
        TaskPoolRecord::Make(FILE_POOL, "FunTaskThreadWaitingOvertime", Logger::LOG_LEVEL_FINEST)
            << "delete pThread - " << _pThread->GetOrderId();
    }
    catch (...)
    {
        TaskPoolRecord::Make(FILE_POOL, "FunTaskThreadWaitingOvertime", Logger::LOG_LEVEL_ERROR)
            << "delete pThread fail";
    }
}

/// Drops the worker from the registry. Returns the id of the task that was bound to it, "" for none.
std::string CLS_QuenTaskPool::UnregisterThread(CLS_TaskThread* _pThread)
{
    const CLS_LockGuard lock(m_smThreadTaskLock);
    auto clsEntry = m_mapThreadTask.extract(_pThread);
    return clsEntry.empty() ? std::string() : std::move(clsEntry.mapped());
}
