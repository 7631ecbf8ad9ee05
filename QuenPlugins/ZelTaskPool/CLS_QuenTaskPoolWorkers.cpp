// The workers: their table, the idle list, their job, and their end.

#include "QuenInclude/Util.h"
#include "QuenPlugins/ZelTaskPool/CLS_QuenTaskPool.h"
#include "QuenPlugins/ZelTaskPool/CLS_ShutdownClaim.h"
#include "QuenPlugins/ZelTaskPool/TaskPoolRecord.h"

#include <algorithm>

using TaskPoolRecord::FILE_POOL;

namespace
{
/// The watchdog sleeps 180 seconds between passes, in steps, so that it notices the pool's end.
constexpr std::chrono::milliseconds OVERTIME_STEP{180};
constexpr int OVERTIME_STEPS = 1000;

/// How long the end of the pool waits for runs that no StopTask can wait for: as long as that would.
constexpr std::chrono::milliseconds RUN_LIMIT = CLS_Task::STOP_POLL * CLS_Task::STOP_POLLS;

/// Whether a worker's place on the idle list is before a slot: by ascending order id, and never before an
/// empty one.
bool SortsBefore(CLS_TaskThread* _pThread, CLS_TaskThread* _pSlot)
{
    return _pSlot != nullptr && _pThread->GetOrderId() < _pSlot->GetOrderId();
}

void RecordRunError(CLS_TaskThread* _pThread, const std::string& _strDescription)
{
    TaskPoolRecord::Make(FILE_POOL, "FunRunTask", Logger::LOG_LEVEL_ERROR)
        << "task run error - " << _pThread->GetOrderId() << " " << _strDescription;
}

/// The task's parameters as a text. When that cannot be made, the task is not run, and waits no longer.
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

/// Runs the task that is bound to the worker. Touches nothing of the pool, which may end meanwhile; that
/// includes letting go of the task, for a removed one takes the host's captured objects with it.
void RunTask(CLS_TaskThread* _pThread, const std::string& _strTaskId)
{
    std::string strDescription;
    try
    {
        const std::shared_ptr<CLS_Task> pTask = CLS_Task::GetTask(_strTaskId).lock();
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
        RecordRunError(_pThread, strDescription);
    }
}

/// The part of a run that lies outside of the pool. False when the pool has ended, or is about to.
bool RunOutsidePool(CLS_TaskThread* _pThread, bool _bBound, const std::string& _strTaskId)
{
    if (!_pThread->GetRunGate().EnterRun())
    {
        return false;
    }
    try
    {
        if (_bBound)
        {
            RunTask(_pThread, _strTaskId);
        }
        else
        {
            RecordRunError(_pThread, "");
        }
    }
    catch (...)
    {
        // There is not even memory for the record. The run is over all the same.
    }
    return _pThread->GetRunGate().LeaveRun();
}

/// Says that a worker was idle and yet bound to a task.
void RecordBoundTask(const std::string& _strTaskId)
{
    const std::shared_ptr<CLS_Task> pTask = CLS_Task::GetTask(_strTaskId).lock();
    const std::string strParam = pTask ? pTask->ParamToString() : std::string();
    TaskPoolRecord::Make(FILE_POOL, "FunTaskThreadWaitingOvertime", Logger::LOG_LEVEL_ERROR)
        << "OvertimeThread is fail taskId - " << _strTaskId << " " << strParam;
}
} // namespace

CLS_TaskThread* CLS_QuenTaskPool::GetTaskThread()
{
    if (CLS_TaskThread* const pIdle = TakeIdleThread())
    {
        return pIdle;
    }
    // A worker may be about to come back: giving way to it once keeps the pool small and warm.
    std::this_thread::yield();
    if (CLS_TaskThread* const pIdle = TakeIdleThread())
    {
        return pIdle;
    }
    // Kept on purpose: not "greater", so there is one worker more than the limit says.
    return m_iMaxThread >= GetTaskThreadNum() ? CreateTaskThread() : nullptr;
}

CLS_TaskThread* CLS_QuenTaskPool::CreateTaskThread()
{
    CLS_TaskThread* pThread = nullptr;
    try
    {
        // Memory for the entries comes first: a worker that runs can always be registered.
        std::map<CLS_TaskThread*, std::string> mapEntry{{nullptr, std::string()}};
        CLS_ShutdownClaim::ThreadId setThread{std::thread::id()};
        pThread = new CLS_TaskThread;
        CLS_ShutdownClaim::AddThread(this, pThread->GetThreadId(), setThread);
        RegisterThread(pThread, mapEntry);
    }
    catch (...)
    {
        TaskPoolRecord::Make(FILE_POOL, "CreateTaskThread", Logger::LOG_LEVEL_ERROR)
            << "create task thread error";
    }
    return pThread;
}

/// Registers the worker with the one entry of _mapEntry.
void CLS_QuenTaskPool::RegisterThread(CLS_TaskThread* _pThread,
                                      std::map<CLS_TaskThread*, std::string>& _mapEntry)
{
    auto clsEntry = _mapEntry.extract(_mapEntry.begin());
    clsEntry.key() = _pThread;
    const CLS_LockGuard lock(m_smThreadTaskLock);
    _pThread->SetOrderId(static_cast<std::int32_t>(m_mapThreadTask.size()));
    m_mapThreadTask.insert(std::move(clsEntry));
}

int CLS_QuenTaskPool::GetTaskThreadNum()
{
    const CLS_SharedGuard lock(m_smThreadTaskLock);
    return static_cast<std::int32_t>(m_mapThreadTask.size());
}

/// Writes the id, which is moved away, under the worker's key, where the worker's job reads it.
void CLS_QuenTaskPool::BindTask(CLS_TaskThread* _pThread, std::string& _strTaskId)
{
    {
        const CLS_LockGuard lock(m_smThreadTaskLock);
        const auto itThread = m_mapThreadTask.find(_pThread);
        if (itThread != m_mapThreadTask.end())
        {
            itThread->second = std::move(_strTaskId);
            return;
        }
    }
    TaskPoolRecord::Make(FILE_POOL, "FunTaskingThread", Logger::LOG_LEVEL_ERROR)
        << "thread is not in m_mapThreadTask - " << _pThread->GetOrderId();
}

/// Every worker with the id of its task, "" for an idle one.
CLS_QuenTaskPool::Bindings CLS_QuenTaskPool::CopyBindings()
{
    const CLS_SharedGuard lock(m_smThreadTaskLock);
    return Bindings(m_mapThreadTask.begin(), m_mapThreadTask.end());
}

void CLS_QuenTaskPool::FunRunTask(CLS_TaskThread* _pThread)
{
    const CLS_RunGate::CLS_PoolScope clsScope(_pThread->GetRunGate());
    if (!clsScope.IsInside())
    {
        return;
    }
    std::string strTaskId;
    const bool bBound = ReadBoundTask(_pThread, strTaskId);
    if (!RunOutsidePool(_pThread, bBound, strTaskId))
    {
        // The pool may be gone.
        return;
    }
    UnbindTask(_pThread);
    if (!m_bRun)
    {
        return;
    }
    RemoveTmpTask(strTaskId);
    AddIdleThread(_pThread);
}

/// The id that is bound to the worker. False when it cannot be had.
bool CLS_QuenTaskPool::ReadBoundTask(CLS_TaskThread* _pThread, std::string& _strTaskId)
{
    try
    {
        const CLS_SharedGuard lock(m_smThreadTaskLock);
        _strTaskId = m_mapThreadTask.at(_pThread);
        return true;
    }
    catch (...)
    {
        return TakeBoundTask(_pThread, _strTaskId);
    }
}

/// Moves the id that is bound to the worker away, which needs no memory: better than losing the task. False
/// when the worker is not registered.
bool CLS_QuenTaskPool::TakeBoundTask(CLS_TaskThread* _pThread, std::string& _strTaskId)
{
    const CLS_LockGuard lock(m_smThreadTaskLock);
    const auto itThread = m_mapThreadTask.find(_pThread);
    if (itThread == m_mapThreadTask.end())
    {
        return false;
    }
    _strTaskId.swap(itThread->second);
    return true;
}

void CLS_QuenTaskPool::UnbindTask(CLS_TaskThread* _pThread)
{
    const CLS_LockGuard lock(m_smThreadTaskLock);
    const auto itThread = m_mapThreadTask.find(_pThread);
    if (itThread != m_mapThreadTask.end())
    {
        itThread->second.clear();
    }
}

void CLS_QuenTaskPool::AddIdleThread(CLS_TaskThread* _pThread)
{
    const CLS_LockGuard lock(m_mtxIdleThreads);
    const auto itBehind =
        std::upper_bound(m_vecIdleThreads.begin(), m_vecIdleThreads.end(), _pThread, SortsBefore);
    m_vecIdleThreads.insert(itBehind, _pThread);
}

/// Takes the first worker off the idle list; null when nobody is idle.
CLS_TaskThread* CLS_QuenTaskPool::TakeIdleThread()
{
    const CLS_LockGuard lock(m_mtxIdleThreads);
    if (m_vecIdleThreads.empty())
    {
        return nullptr;
    }
    CLS_TaskThread* const pThread = m_vecIdleThreads.front();
    m_vecIdleThreads.erase(m_vecIdleThreads.begin());
    return pThread;
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

/// Stops every task that is bound to a worker, one after the other. Returns the workers whose run outlasted
/// that.
std::vector<CLS_TaskThread*> CLS_QuenTaskPool::StopBoundTasks(CLS_ShutdownClaim& _clsClaim)
{
    std::vector<CLS_TaskThread*> vecOverrun;
    for (const auto& [pThread, strTaskId] : CopyBindings())
    {
        _clsClaim.BeginStep();
        const std::shared_ptr<CLS_Task> pTask = CLS_Task::GetTask(strTaskId).lock();
        if (pTask && !pTask->Stop())
        {
            vecOverrun.push_back(pThread);
        }
    }
    return vecOverrun;
}

/// Ends and frees every worker that is out of its run, or gets there within RUN_LIMIT: Stop returns as soon
/// as the task is idle, while the worker still has a few steps to take. It cannot wait for a task that was
/// removed, nor for a job that a host gave to the worker. A worker in _vecOverrun was waited for already;
/// when it still runs, it is left to itself.
void CLS_QuenTaskPool::EndWorkers(const std::vector<CLS_TaskThread*>& _vecOverrun)
{
    const auto tpBegin = std::chrono::steady_clock::now();
    while (CLS_TaskThread* const pThread = FindWorker())
    {
        const bool bOverrun = std::find(_vecOverrun.begin(), _vecOverrun.end(), pThread) != _vecOverrun.end();
        if (pThread->GetRunGate().Close(bOverrun ? tpBegin : tpBegin + RUN_LIMIT))
        {
            CLS_ShutdownClaim::RemoveThread(this, pThread->GetThreadId());
            pThread->Exit();
            ForgetWorker(pThread);
            delete pThread;
        }
        else
        {
            ForgetWorker(pThread);
            Util::PinLibrary();
        }
    }
}

/// Any one of the workers; null when there is none left. One that could not be registered is on the idle
/// list.
CLS_TaskThread* CLS_QuenTaskPool::FindWorker()
{
    {
        const CLS_SharedGuard lock(m_smThreadTaskLock);
        if (!m_mapThreadTask.empty())
        {
            return m_mapThreadTask.begin()->first;
        }
    }
    return TakeIdleThread();
}

/// Drops the worker from the registry and from the idle list.
void CLS_QuenTaskPool::ForgetWorker(CLS_TaskThread* _pThread)
{
    UnregisterThread(_pThread);
    const CLS_LockGuard lock(m_mtxIdleThreads);
    m_vecIdleThreads.erase(std::remove(m_vecIdleThreads.begin(), m_vecIdleThreads.end(), _pThread),
                           m_vecIdleThreads.end());
}

bool CLS_QuenTaskPool::IsWorkerThread()
{
    const CLS_SharedGuard lock(m_smThreadTaskLock);
    return std::any_of(m_mapThreadTask.begin(), m_mapThreadTask.end(),
                       [](const auto& _pairEntry) { return _pairEntry.first->IsOwnThread(); });
}
