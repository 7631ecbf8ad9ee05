// The waiting queue, and the dispatcher that hands its tasks to workers.

#include "QuenInclude/Util.h"
#include "QuenPlugins/ZelTaskPool/CLS_QuenTaskPool.h"
#include "QuenPlugins/ZelTaskPool/TaskPoolRecord.h"

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

/// Reports one task that keeps a worker busy.
void ReportTask(const std::string& _strTaskId)
{
    if (const std::shared_ptr<CLS_Task> pTask = CLS_Task::GetTask(_strTaskId).lock())
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
    const std::shared_ptr<CLS_Task> pTask = CLS_Task::GetTask(_strTaskId).lock();
    if (!pTask)
    {
        return;
    }
    // Memory first: nothing may fail after the mark. It cannot be taken back, because other threads may queue
    // and run the task meanwhile.
    std::forward_list<std::string> lstTaskId(1, _strTaskId);
    pTask->SetTaskIsWaiting();
    const CLS_LockGuard lock(m_mtxWaitingTasks);
    AppendWaitingTask(lstTaskId);
    m_cvWaitingTasks.notify_one();
}

void CLS_QuenTaskPool::AppendWaitingTask(std::forward_list<std::string>& _lstTaskId)
{
    if (m_lstWaitingOverflow.empty())
    {
        try
        {
            m_vecWaitingTasks.push_back(std::move(_lstTaskId.front()));
            return;
        }
        catch (...)
        {
            // No memory: the id is still in its list, which becomes part of the queue.
        }
    }
    m_lstWaitingOverflow.splice_after(m_lstWaitingOverflow.before_begin(), _lstTaskId);
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
    while (m_bRun)
    {
        try
        {
            DispatchPass();
        }
        catch (...)
        {
            TaskPoolRecord::Make(FILE_POOL, "FunTaskingThread", Logger::LOG_LEVEL_ERROR)
                << "*** auto Tasking handler fail ***";
        }
    }
}

void CLS_QuenTaskPool::DispatchPass()
{
    std::forward_list<std::string> lstOverflow;
    std::vector<std::string> vecBatch = TakeWaitingTasks(lstOverflow);
    lstOverflow.reverse();
    std::size_t iUndispatched =
        vecBatch.size() + static_cast<std::size_t>(std::distance(lstOverflow.begin(), lstOverflow.end()));
    for (std::string& strTaskId : vecBatch)
    {
        if (!DispatchTask(strTaskId, iUndispatched--))
        {
            return;
        }
    }
    for (std::string& strTaskId : lstOverflow)
    {
        if (!DispatchTask(strTaskId, iUndispatched--))
        {
            return;
        }
    }
}

std::vector<std::string> CLS_QuenTaskPool::TakeWaitingTasks(std::forward_list<std::string>& _lstOverflow)
{
    std::vector<std::string> vecBatch;
    CLS_WaitGuard lock(m_mtxWaitingTasks);
    while (m_vecWaitingTasks.empty() && m_lstWaitingOverflow.empty() && m_bRun)
    {
        m_cvWaitingTasks.wait_for(lock.GetLock(), QUEUE_WAIT);
    }
    vecBatch.swap(m_vecWaitingTasks);
    _lstOverflow.swap(m_lstWaitingOverflow);
    return vecBatch;
}

bool CLS_QuenTaskPool::DispatchTask(std::string& _strTaskId, std::size_t _iUndispatched)
{
    CLS_TaskThread* const pWorker = m_bRun ? WaitForWorker(_iUndispatched) : nullptr;
    if (pWorker == nullptr)
    {
        return false;
    }
    BindTask(pWorker, _strTaskId);
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
