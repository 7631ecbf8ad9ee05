// The end of the pool.

#include "QuenPlugins/ZelTaskPool/CLS_QuenTaskPool.h"
#include "QuenPlugins/ZelTaskPool/CLS_ShutdownClaim.h"
#include "QuenPlugins/ZelTaskPool/TaskPoolRecord.h"

#include <algorithm>

using TaskPoolRecord::FILE_POOL;

namespace
{
/// How long the end of the pool waits for runs that no StopTask can wait for: as long as that would.
constexpr std::chrono::milliseconds RUN_LIMIT = CLS_Task::STOP_POLL * CLS_Task::STOP_POLLS;

void RecordProgress(const char* _szText, int _iLine = __builtin_LINE())
{
    TaskPoolRecord::Make(FILE_POOL, "UnInit", Logger::LOG_LEVEL_PROGRESS, _iLine) << _szText;
}

/// Destroys a pool that the caller has no claim to yet, unless another thread is ending it; null is ignored.
void DestroyOther(const CLS_QuenTaskPool* _pPool)
{
    const CLS_ShutdownClaim clsClaim(_pPool);
    if (clsClaim.IsGranted())
    {
        delete _pPool;
    }
}
} // namespace

CLS_QuenTaskPool::~CLS_QuenTaskPool()
{
    // First of all: doing so afterwards could hide a new pool.
    StoreInstance(nullptr);
    // After a failed UnInit there may be threads left. None may run on a pool that is gone.
    EndServiceThreads();
    EndWorkers({});
    CLS_ShutdownClaim::RemovePool(this);
}

void CLS_QuenTaskPool::UnInit()
{
    CLS_ShutdownClaim clsClaim(this);
    if (clsClaim.IsGranted())
    {
        EndPool(clsClaim);
    }
}

void CLS_QuenTaskPool::KillTaskAll()
{
    CLS_ShutdownClaim clsClaim(this);
    if (!clsClaim.IsGranted())
    {
        return;
    }
    const bool bPoolThread = IsPoolThread();
    if (EndPool(clsClaim))
    {
        // A record's "PrintLog" may have built another pool meanwhile.
        DestroyOther(LoadInstance());
    }
    else if (!bPoolThread)
    {
        // A thread that the end has to wait for cannot destroy the pool either.
        clsClaim.BeginStep();
        DestroyInstance();
    }
}

/// Ends the pool and destroys it. False when that failed, and the pool is still there.
bool CLS_QuenTaskPool::EndPool(CLS_ShutdownClaim& _clsClaim)
{
    RecordProgress("----- TaskPool UnInit begin -----");
    try
    {
        EndServiceThreads();
        RecordProgress("----- TaskPool m_mapAllThreads start -----");
        ForgetLoopTasks();
        const std::vector<CLS_TaskThread*> vecOverrun = StopBoundTasks(_clsClaim);
        _clsClaim.BeginStep();
        EndWorkers(vecOverrun);
    }
    catch (...)
    {
        TaskPoolRecord::Make(FILE_POOL, "UnInit", Logger::LOG_LEVEL_ERROR) << "UnInit error ";
        RecordProgress("----- TaskPool UnInit end -----");
        return false;
    }
    DestroyInstance();
    // This object is gone from here on.
    RecordProgress("----- TaskPool UnInit end -----");
    return true;
}

/// Destroys the instance: this pool, unless a racing first use has built another one.
void CLS_QuenTaskPool::DestroyInstance()
{
    CLS_QuenTaskPool* const pInstance = LoadInstance();
    if (pInstance == this)
    {
        delete this;
    }
    else
    {
        DestroyOther(pInstance);
    }
}

/// Whether the calling thread is one that the end of the pool waits for.
bool CLS_QuenTaskPool::IsPoolThread()
{
    for (const auto* const pThread : {&m_pTaskingThread, &m_pLoopThread, &m_pOvertimeThread})
    {
        if (*pThread && (*pThread)->get_id() == std::this_thread::get_id())
        {
            return true;
        }
    }
    const CLS_SharedGuard lock(m_smThreadTaskLock);
    return std::any_of(m_mapThreadTask.begin(), m_mapThreadTask.end(),
                       [](const auto& _pairEntry) { return _pairEntry.first->IsOwnThread(); });
}

/// Tells the service threads to end and waits for them.
void CLS_QuenTaskPool::EndServiceThreads()
{
    {
        const CLS_LockGuard lock(m_mtxWaitingTasks);
        m_bRun.exchange(false);
    }
    m_cvWaitingTasks.notify_one();
    EndServiceThread(m_pTaskingThread);
    EndServiceThread(m_pLoopThread);
    EndServiceThread(m_pOvertimeThread);
}

void CLS_QuenTaskPool::EndServiceThread(std::unique_ptr<std::thread>& _pThread)
{
    if (_pThread)
    {
        if (_pThread->joinable())
        {
            const std::thread::id idThread = _pThread->get_id();
            _pThread->join();
            CLS_ShutdownClaim::RemoveThread(this, idThread);
        }
        _pThread.reset();
    }
}

void CLS_QuenTaskPool::ForgetLoopTasks()
{
    const CLS_LockGuard lock(m_smLoopTasksLock);
    m_vecLoopTasks.clear();
    ++m_uiLoopListChanges;
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
