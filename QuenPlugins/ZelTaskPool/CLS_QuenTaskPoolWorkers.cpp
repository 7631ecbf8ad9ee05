// The workers: their table, the idle list, their job, retirement and shutdown.

#include "QuenInclude/Util.h"
#include "QuenPlugins/ZelTaskPool/CLS_QuenTaskPool.h"
#include "QuenPlugins/ZelTaskPool/CLS_ShutdownClaim.h"
#include "QuenPlugins/ZelTaskPool/ReserveEntry.h"
#include "QuenPlugins/ZelTaskPool/TaskPoolRecord.h"

#include <algorithm>

using TaskPoolRecord::FILE_POOL;

namespace
{
/// The watchdog sleeps 180 seconds between passes, in steps, so that it notices the shutdown.
constexpr std::chrono::milliseconds OVERTIME_STEP{180};
constexpr int OVERTIME_STEPS = 1000;

/// How long the shutdown waits for the runs that no StopTask can wait for: as long as StopTask would.
constexpr std::chrono::milliseconds RUN_LIMIT = CLS_Task::STOP_POLL * CLS_Task::STOP_POLLS;

/// Whether a worker sorts before a slot of the idle list: by ascending order id, and never before an empty
/// slot.
bool SortsBefore(CLS_TaskThread* _pWorker, CLS_TaskThread* _pSlot)
{
    return _pSlot != nullptr && _pWorker->GetOrderId() < _pSlot->GetOrderId();
}

void RecordRunError(CLS_TaskThread* _pWorker, const std::string& _strDescription)
{
    TaskPoolRecord::Make(FILE_POOL, "FunRunTask", Logger::LOG_LEVEL_ERROR)
        << "task run error - " << _pWorker->GetOrderId() << " " << _strDescription;
}

/// Reports that a worker was idle although a task was bound to it.
void RecordBoundTask(const std::string& _strTaskId)
{
    const std::shared_ptr<CLS_Task> pTask = CLS_Task::GetTask(_strTaskId).lock();
    const std::string strParam = pTask ? pTask->ParamToString() : std::string();
    TaskPoolRecord::Make(FILE_POOL, "FunTaskThreadWaitingOvertime", Logger::LOG_LEVEL_ERROR)
        << "OvertimeThread is fail taskId - " << _strTaskId << " " << strParam;
}

/// The task's parameters as text. On failure the task is not run and no longer waits.
std::string DescribeTask(CLS_Task& _clsTask)
{
    try
    {
        return _clsTask.ParamToString();
    }
    catch (...)
    {
        _clsTask.UndoWaiting();
        throw;
    }
}

/// Runs the registered task with this id; _pKept may save the look-up. Touches nothing of the pool, which may
/// end meanwhile.
void RunRegisteredTask(CLS_TaskThread* _pWorker, const std::weak_ptr<CLS_Task>& _pKept,
                       const std::string& _strTaskId)
{
    std::string strDescription;
    try
    {
        // Released outside the pool, because a removed task takes the host's captured objects with it.
        const std::shared_ptr<CLS_Task> pTask = CLS_Task::FindTask(_pKept, _strTaskId);
        if (!pTask)
        {
            TaskPoolRecord::Make(FILE_POOL, "FunRunTask", Logger::LOG_LEVEL_PROGRESS)
                << "task id is fail - " << _strTaskId;
            return;
        }
        strDescription = DescribeTask(*pTask);
        pTask->Running();
    }
    catch (...)
    {
        RecordRunError(_pWorker, strDescription);
    }
}
} // namespace

CLS_TaskThread* CLS_QuenTaskPool::GetTaskThread()
{
    if (CLS_TaskThread* const pIdle = TakeIdleWorker())
    {
        return pIdle;
    }
    // A worker may be about to become idle: yielding once keeps the pool small and warm.
    std::this_thread::yield();
    if (CLS_TaskThread* const pIdle = TakeIdleWorker())
    {
        return pIdle;
    }
    // Kept on purpose: ">=" allows one worker more than the limit says.
    return m_iMaxThread >= GetTaskThreadNum() ? CreateTaskThread() : nullptr;
}

CLS_TaskThread* CLS_QuenTaskPool::CreateTaskThread()
{
    CLS_TaskThread* pWorker = nullptr;
    try
    {
        // Memory first: a running worker can always be registered.
        auto clsBinding = ReserveEntry<BindingMap>(nullptr, std::string());
        auto clsThread = CLS_ShutdownClaim::ReserveThread();
        pWorker = new CLS_TaskThread;
        CLS_ShutdownClaim::AddThread(this, pWorker->GetThreadId(), std::move(clsThread));
        RegisterWorker(pWorker, std::move(clsBinding));
    }
    catch (...)
    {
        TaskPoolRecord::Make(FILE_POOL, "CreateTaskThread", Logger::LOG_LEVEL_ERROR)
            << "create task thread error";
    }
    return pWorker;
}

int CLS_QuenTaskPool::GetTaskThreadNum()
{
    const CLS_SharedGuard lock(m_smThreadTaskLock);
    return static_cast<std::int32_t>(m_mapThreadTask.size());
}

void CLS_QuenTaskPool::RegisterWorker(CLS_TaskThread* _pWorker, BindingMap::node_type&& _clsBinding)
{
    _clsBinding.key() = _pWorker;
    const CLS_LockGuard lock(m_smThreadTaskLock);
    _pWorker->SetOrderId(static_cast<std::int32_t>(m_mapThreadTask.size()));
    m_mapThreadTask.insert(std::move(_clsBinding));
}

std::string CLS_QuenTaskPool::UnregisterWorker(CLS_TaskThread* _pWorker)
{
    const CLS_LockGuard lock(m_smThreadTaskLock);
    auto clsBinding = m_mapThreadTask.extract(_pWorker);
    return clsBinding.empty() ? std::string() : std::move(clsBinding.mapped());
}

bool CLS_QuenTaskPool::IsWorkerThread()
{
    const CLS_SharedGuard lock(m_smThreadTaskLock);
    return std::any_of(m_mapThreadTask.begin(), m_mapThreadTask.end(),
                       [](const auto& _pairBinding) { return _pairBinding.first->IsOwnThread(); });
}

void CLS_QuenTaskPool::BindTask(CLS_TaskThread* _pWorker, std::string& _strTaskId,
                                std::weak_ptr<CLS_Task>& _pTask)
{
    {
        const CLS_LockGuard lock(m_smThreadTaskLock);
        const auto itWorker = m_mapThreadTask.find(_pWorker);
        if (itWorker != m_mapThreadTask.end())
        {
            // Swapped, so that nothing is freed under the lock.
            itWorker->second.swap(_strTaskId);
            _pWorker->GetBoundTask().swap(_pTask);
            return;
        }
    }
    TaskPoolRecord::Make(FILE_POOL, "FunTaskingThread", Logger::LOG_LEVEL_ERROR)
        << "thread is not in m_mapThreadTask - " << _pWorker->GetOrderId();
}

std::optional<CLS_QuenTaskPool::ST_QueuedTask> CLS_QuenTaskPool::ReadBoundTask(CLS_TaskThread* _pWorker)
{
    try
    {
        const CLS_SharedGuard lock(m_smThreadTaskLock);
        return ST_QueuedTask{m_mapThreadTask.at(_pWorker), _pWorker->GetBoundTask()};
    }
    catch (...)
    {
        // Not registered, or no memory for the copy. Moving the id needs none, and is better than losing the
        // task.
        return TakeBoundTask(_pWorker);
    }
}

std::optional<CLS_QuenTaskPool::ST_QueuedTask> CLS_QuenTaskPool::TakeBoundTask(CLS_TaskThread* _pWorker)
{
    const CLS_LockGuard lock(m_smThreadTaskLock);
    const auto itWorker = m_mapThreadTask.find(_pWorker);
    if (itWorker == m_mapThreadTask.end())
    {
        return std::nullopt;
    }
    return ST_QueuedTask{std::exchange(itWorker->second, {}), std::exchange(_pWorker->GetBoundTask(), {})};
}

void CLS_QuenTaskPool::UnbindTask(CLS_TaskThread* _pWorker)
{
    // Released after the lock: a task that was removed frees its memory here.
    std::weak_ptr<CLS_Task> pTask;
    const CLS_LockGuard lock(m_smThreadTaskLock);
    const auto itWorker = m_mapThreadTask.find(_pWorker);
    if (itWorker != m_mapThreadTask.end())
    {
        itWorker->second.clear();
        pTask.swap(_pWorker->GetBoundTask());
    }
}

CLS_QuenTaskPool::Bindings CLS_QuenTaskPool::CopyBindings()
{
    const CLS_SharedGuard lock(m_smThreadTaskLock);
    return Bindings(m_mapThreadTask.begin(), m_mapThreadTask.end());
}

bool CLS_QuenTaskPool::RunBoundTask(CLS_TaskThread* _pWorker, const std::optional<ST_QueuedTask>& _optTask)
{
    if (!_pWorker->GetRunGate().EnterRun())
    {
        return false;
    }
    try
    {
        if (_optTask)
        {
            RunRegisteredTask(_pWorker, _optTask->m_pTask, _optTask->m_strTaskId);
        }
        else
        {
            RecordRunError(_pWorker, "");
        }
    }
    catch (...)
    {
        // There is no memory even for the log record. The run is over in any case.
    }
    return _pWorker->GetRunGate().LeaveRun();
}

void CLS_QuenTaskPool::FunRunTask(CLS_TaskThread* _pWorker)
{
    const CLS_RunGate::CLS_PoolVisit clsVisit(_pWorker->GetRunGate());
    if (!clsVisit.IsInside())
    {
        return;
    }
    const std::optional<ST_QueuedTask> optTask = ReadBoundTask(_pWorker);
    if (!RunBoundTask(_pWorker, optTask))
    {
        // The pool may be gone.
        return;
    }
    UnbindTask(_pWorker);
    if (!m_bRun)
    {
        return;
    }
    if (optTask)
    {
        RemoveTmpTask(optTask->m_strTaskId);
    }
    _pWorker->SetBacklog(m_bBatchWaits.load(std::memory_order_relaxed) ||
                         m_bWaitingTasks.load(std::memory_order_relaxed));
    AddIdleWorker(_pWorker);
}

void CLS_QuenTaskPool::AddIdleWorker(CLS_TaskThread* _pWorker)
{
    const CLS_LockGuard lock(m_mtxIdleThreads);
    const auto itBehind =
        std::upper_bound(m_vecIdleThreads.begin(), m_vecIdleThreads.end(), _pWorker, SortsBefore);
    m_vecIdleThreads.insert(itBehind, _pWorker);
}

CLS_TaskThread* CLS_QuenTaskPool::TakeIdleWorker()
{
    const CLS_LockGuard lock(m_mtxIdleThreads);
    if (m_vecIdleThreads.empty())
    {
        return nullptr;
    }
    CLS_TaskThread* const pWorker = m_vecIdleThreads.front();
    m_vecIdleThreads.erase(m_vecIdleThreads.begin());
    return pWorker;
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

bool CLS_QuenTaskPool::SleepBetweenPasses()
{
    for (int iStep = 0; iStep < OVERTIME_STEPS && m_bRun; ++iStep)
    {
        std::this_thread::sleep_for(OVERTIME_STEP);
    }
    return m_bRun;
}

void CLS_QuenTaskPool::OvertimePass()
{
    TaskPoolRecord::Make(FILE_POOL, "FunTaskThreadWaitingOvertime", Logger::LOG_LEVEL_DETAIL)
        << "delete pThread **************";
    for (CLS_TaskThread* const pWorker : TakeOverdueWorkers())
    {
        RetireWorker(pWorker);
    }
}

std::vector<CLS_TaskThread*> CLS_QuenTaskPool::TakeOverdueWorkers()
{
    std::vector<CLS_TaskThread*> vecOverdue;
    const CLS_LockGuard lock(m_mtxIdleThreads);
    // Memory first: a worker that is taken off the list cannot get lost.
    vecOverdue.reserve(m_vecIdleThreads.size());
    while (!m_vecIdleThreads.empty())
    {
        CLS_TaskThread* const pWorker = m_vecIdleThreads.back();
        if (pWorker != nullptr && !pWorker->IsWaitingOvertime())
        {
            // A worker that was active recently protects all before it.
            break;
        }
        m_vecIdleThreads.pop_back();
        if (pWorker != nullptr)
        {
            vecOverdue.push_back(pWorker);
        }
    }
    return vecOverdue;
}

void CLS_QuenTaskPool::RetireWorker(CLS_TaskThread* _pWorker)
{
    try
    {
        CLS_ShutdownClaim::RemoveThread(this, _pWorker->GetThreadId());
        const std::string strTaskId = UnregisterWorker(_pWorker);
        const std::unique_ptr<CLS_TaskThread> pWorker(_pWorker);
        if (!strTaskId.empty())
        {
            RecordBoundTask(strTaskId);
        }
        TaskPoolRecord::Make(FILE_POOL, "FunTaskThreadWaitingOvertime", Logger::LOG_LEVEL_FINEST)
            << "delete pThread - " << _pWorker->GetOrderId();
    }
    catch (...)
    {
        TaskPoolRecord::Make(FILE_POOL, "FunTaskThreadWaitingOvertime", Logger::LOG_LEVEL_ERROR)
            << "delete pThread fail";
    }
}

std::vector<CLS_TaskThread*> CLS_QuenTaskPool::StopBoundTasks(CLS_ShutdownClaim& _clsClaim)
{
    std::vector<CLS_TaskThread*> vecOverrun;
    for (const auto& [pWorker, strTaskId] : CopyBindings())
    {
        _clsClaim.BeginStep();
        const std::shared_ptr<CLS_Task> pTask = CLS_Task::GetTask(strTaskId).lock();
        if (pTask && !pTask->Stop())
        {
            vecOverrun.push_back(pWorker);
        }
    }
    return vecOverrun;
}

/// Stop returns as soon as the task is idle, while the worker still has a few steps to take. And Stop cannot
/// wait for a removed task, nor for a job that a host gave to the worker. The run gate waits for all of
/// these, up to RUN_LIMIT in all. StopBoundTasks has already waited for a worker in _vecOverrun, so it gets
/// no more time.
void CLS_QuenTaskPool::EndWorkers(const std::vector<CLS_TaskThread*>& _vecOverrun)
{
    const auto tpBegin = std::chrono::steady_clock::now();
    while (CLS_TaskThread* const pWorker = FindWorker())
    {
        const bool bOverrun = std::find(_vecOverrun.begin(), _vecOverrun.end(), pWorker) != _vecOverrun.end();
        if (pWorker->GetRunGate().Close(bOverrun ? tpBegin : tpBegin + RUN_LIMIT))
        {
            CLS_ShutdownClaim::RemoveThread(this, pWorker->GetThreadId());
            pWorker->Exit();
            ForgetWorker(pWorker);
            delete pWorker;
        }
        else
        {
            ForgetWorker(pWorker);
            Util::PinLibrary();
        }
    }
}

CLS_TaskThread* CLS_QuenTaskPool::FindWorker()
{
    {
        const CLS_SharedGuard lock(m_smThreadTaskLock);
        if (!m_mapThreadTask.empty())
        {
            return m_mapThreadTask.begin()->first;
        }
    }
    // A worker that could not be registered is on the idle list only.
    return TakeIdleWorker();
}

void CLS_QuenTaskPool::ForgetWorker(CLS_TaskThread* _pWorker)
{
    UnregisterWorker(_pWorker);
    const CLS_LockGuard lock(m_mtxIdleThreads);
    m_vecIdleThreads.erase(std::remove(m_vecIdleThreads.begin(), m_vecIdleThreads.end(), _pWorker),
                           m_vecIdleThreads.end());
}
