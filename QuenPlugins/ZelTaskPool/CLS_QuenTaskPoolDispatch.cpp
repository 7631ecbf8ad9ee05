// The waiting queue, and the dispatcher that hands its tasks to workers.

#include "QuenInclude/Util.h"
#include "QuenPlugins/ZelTaskPool/CLS_QuenTaskPool.h"
#include "QuenPlugins/ZelTaskPool/TaskPoolRecord.h"
#include "QuenPlugins/ZelTaskPool/YieldUntil.h"

#include <algorithm>
#include <iterator>

using TaskPoolRecord::FILE_POOL;

namespace
{
/// The dispatcher checks the run flag at least this often.
constexpr std::chrono::seconds QUEUE_WAIT{1};
/// How long the dispatcher waits before it asks for a worker again, and how often it asks between two
/// reports.
constexpr std::chrono::milliseconds RETRY_WAIT{100};
constexpr int RETRIES_PER_REPORT = 90;
/// The dispatcher reuses the memory of the queue up to this number of tasks.
constexpr std::size_t KEPT_CAPACITY = 1024;

/// Reports one task that keeps a worker busy.
void ReportTask(const std::string& _strTaskId)
{
    if (const std::shared_ptr<CLS_Task> pTask = CLS_Task::FindTask({}, _strTaskId))
    {
        // Kept on purpose: nothing between the id and the status.
        const std::string strText = "runing task info TaskStatus : [" + _strTaskId +
                                    std::to_string(pTask->GetTaskStatus()) +
                                    "] task info :" + pTask->ParamToString();
        TaskPoolRecord::Make(FILE_POOL, "FunTaskingThread", Logger::LOG_LEVEL_PROGRESS) << strText;
        return;
    }
    // Kept on purpose: the null pointer stands for the missing task.
    const std::string strNull = CLS_CVariant(static_cast<void*>(nullptr)).ToString();
    TaskPoolRecord::Make(FILE_POOL, "FunTaskingThread", Logger::LOG_LEVEL_PROGRESS)
        << "runing task info - " << _strTaskId << strNull;
}
} // namespace

void CLS_QuenTaskPool::AddWaitingTasks(const std::string& _strTaskId)
{
    if (const std::shared_ptr<CLS_Task> pTask = CLS_Task::FindTask({}, _strTaskId))
    {
        QueueTask(pTask, _strTaskId);
    }
}

void CLS_QuenTaskPool::QueueTask(const std::shared_ptr<CLS_Task>& _pTask, const std::string& _strTaskId)
{
    // Memory first: nothing may fail after the mark. It cannot be taken back, because other threads may queue
    // and run the task meanwhile.
    std::forward_list<ST_QueuedTask> lstTask;
    lstTask.push_front({_strTaskId, _pTask});
    _pTask->SetTaskIsWaiting();
    const CLS_LockGuard lock(m_mtxWaitingTasks);
    AppendWaitingTask(lstTask);
    m_bWaitingTasks.store(true, std::memory_order_relaxed);
    m_cvWaitingTasks.notify_one();
}

void CLS_QuenTaskPool::AppendWaitingTask(std::forward_list<ST_QueuedTask>& _lstTask)
{
    if (m_lstWaitingOverflow.empty() && ReserveWaitingTask())
    {
        m_vecWaitingTasks.push_back(std::move(_lstTask.front().m_strTaskId));
        m_vecWaitingRecords.push_back(std::move(_lstTask.front().m_pTask));
    }
    else
    {
        m_lstWaitingOverflow.splice_after(m_lstWaitingOverflow.before_begin(), _lstTask);
    }
}

bool CLS_QuenTaskPool::ReserveWaitingTask()
{
    const std::size_t uiSize = m_vecWaitingTasks.size();
    if (uiSize < std::min(m_vecWaitingTasks.capacity(), m_vecWaitingRecords.capacity()))
    {
        return true;
    }
    try
    {
        m_vecWaitingTasks.reserve(2 * uiSize + 1);
        m_vecWaitingRecords.reserve(2 * uiSize + 1);
        return true;
    }
    catch (...)
    {
        return false;
    }
}

void CLS_QuenTaskPool::RequestShutdown()
{
    {
        const CLS_LockGuard lock(m_mtxWaitingTasks);
        m_bRun.exchange(false);
    }
    m_cvWaitingTasks.notify_one();
}

void CLS_QuenTaskPool::FunTaskingThread()
{
    Util::SetThreadName("zel-dispatcher");
    ST_Batch stBatch;
    while (m_bRun)
    {
        try
        {
            DispatchPass(stBatch);
        }
        catch (...)
        {
            TaskPoolRecord::Make(FILE_POOL, "FunTaskingThread", Logger::LOG_LEVEL_ERROR)
                << "*** auto Tasking handler fail ***";
        }
    }
}

void CLS_QuenTaskPool::DispatchPass(ST_Batch& _stBatch)
{
    TakeWaitingTasks(_stBatch);
    auto& [vecTaskIds, vecTasks, lstOverflow] = _stBatch;
    std::size_t iUndispatched =
        vecTaskIds.size() + static_cast<std::size_t>(std::distance(lstOverflow.begin(), lstOverflow.end()));
    for (std::size_t i = 0; i < vecTaskIds.size(); ++i)
    {
        if (!DispatchTask(vecTaskIds[i], vecTasks[i], iUndispatched--))
        {
            return;
        }
    }
    for (ST_QueuedTask& stTask : lstOverflow)
    {
        if (!DispatchTask(stTask.m_strTaskId, stTask.m_pTask, iUndispatched--))
        {
            return;
        }
    }
    YieldUntil(m_bWaitingTasks);
}

void CLS_QuenTaskPool::TakeWaitingTasks(ST_Batch& _stBatch)
{
    if (_stBatch.m_vecTaskIds.capacity() > KEPT_CAPACITY)
    {
        _stBatch = {};
    }
    _stBatch.m_vecTaskIds.clear();
    _stBatch.m_vecTasks.clear();
    _stBatch.m_lstOverflow.clear();
    {
        CLS_WaitGuard lock(m_mtxWaitingTasks);
        while (m_vecWaitingTasks.empty() && m_lstWaitingOverflow.empty() && m_bRun)
        {
            m_cvWaitingTasks.wait_for(lock.GetLock(), QUEUE_WAIT);
        }
        _stBatch.m_vecTaskIds.swap(m_vecWaitingTasks);
        _stBatch.m_vecTasks.swap(m_vecWaitingRecords);
        _stBatch.m_lstOverflow.swap(m_lstWaitingOverflow);
        m_bWaitingTasks.store(false, std::memory_order_relaxed);
    }
    _stBatch.m_lstOverflow.reverse();
}

bool CLS_QuenTaskPool::DispatchTask(std::string& _strTaskId, std::weak_ptr<CLS_Task>& _pTask,
                                    std::size_t _iUndispatched)
{
    m_bBatchWaits.store(_iUndispatched > 1, std::memory_order_relaxed);
    CLS_TaskThread* const pWorker = m_bRun ? WaitForWorker(_iUndispatched) : nullptr;
    if (pWorker == nullptr)
    {
        return false;
    }
    BindTask(pWorker, _strTaskId, _pTask);
    pWorker->AddFunction([this](CLS_TaskThread* _pWorker) { FunRunTask(_pWorker); });
    return true;
}

CLS_TaskThread* CLS_QuenTaskPool::WaitForWorker(std::size_t _iUndispatched)
{
    for (int iTry = 1;; ++iTry)
    {
        if (CLS_TaskThread* const pWorker = GetTaskThread())
        {
            return pWorker;
        }
        if (iTry % RETRIES_PER_REPORT == 0)
        {
            ReportBusy(_iUndispatched);
        }
        std::this_thread::sleep_for(RETRY_WAIT);
        if (!m_bRun)
        {
            return nullptr;
        }
    }
}

void CLS_QuenTaskPool::ReportBusy(std::size_t _iUndispatched)
{
    std::size_t iWaiting = _iUndispatched;
    {
        const CLS_LockGuard lock(m_mtxWaitingTasks);
        iWaiting += m_vecWaitingTasks.size();
        iWaiting +=
            static_cast<std::size_t>(std::distance(m_lstWaitingOverflow.begin(), m_lstWaitingOverflow.end()));
    }
    const int iThreads = GetTaskThreadNum();
    TaskPoolRecord::Make(FILE_POOL, "FunTaskingThread", Logger::LOG_LEVEL_PROGRESS)
        << "waiting task count [" << iWaiting << "] CurrentThreadCount [" << iThreads << "] MaxThread ["
        << m_iMaxThread << "]";
    for (const auto& [pWorker, strTaskId] : CopyBindings())
    {
        ReportTask(strTaskId);
    }
}
