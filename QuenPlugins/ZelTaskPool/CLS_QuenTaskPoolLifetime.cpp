// Start and end of the pool.

#include "QuenPlugins/ZelTaskPool/CLS_QuenTaskPool.h"
#include "QuenPlugins/ZelTaskPool/CLS_ShutdownClaim.h"
#include "QuenPlugins/ZelTaskPool/TaskPoolRecord.h"

using TaskPoolRecord::FILE_POOL;

namespace
{
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

CLS_QuenTaskPool* CLS_QuenTaskPool::m_pInstance = nullptr;

CLS_QuenTaskPool* CLS_QuenTaskPool::GetInstance()
{
    CLS_QuenTaskPool* pInstance = LoadInstance();
    if (pInstance == nullptr)
    {
        pInstance = new CLS_QuenTaskPool;
        StoreInstance(pInstance);
    }
    return pInstance;
}

/// m_pInstance. It is a plain pointer for its users, and read by threads that do not end the pool.
CLS_QuenTaskPool* CLS_QuenTaskPool::LoadInstance()
{
    return __atomic_load_n(&m_pInstance, __ATOMIC_ACQUIRE);
}

void CLS_QuenTaskPool::StoreInstance(CLS_QuenTaskPool* _pPool)
{
    __atomic_store_n(&m_pInstance, _pPool, __ATOMIC_RELEASE);
}

CLS_QuenTaskPool::CLS_QuenTaskPool()
{
    CLS_ShutdownClaim::AddPool(this);
    try
    {
        StartServiceThreads();
    }
    catch (...)
    {
        EndServiceThreads();
        CLS_ShutdownClaim::RemovePool(this);
        throw;
    }
}

CLS_QuenTaskPool::~CLS_QuenTaskPool()
{
    // First of all: doing so afterwards could hide a new pool.
    StoreInstance(nullptr);
    // After a failed UnInit there may be threads left. None may run on a pool that is gone.
    EndServiceThreads();
    EndWorkers({});
    CLS_ShutdownClaim::RemovePool(this);
}

void CLS_QuenTaskPool::StartServiceThreads()
{
    StartServiceThread(m_pTaskingThread, &CLS_QuenTaskPool::FunTaskingThread);
    StartServiceThread(m_pLoopThread, &CLS_QuenTaskPool::FunLoopThread);
    StartServiceThread(m_pOvertimeThread, &CLS_QuenTaskPool::FunTaskThreadWaitingOvertime);
}

void CLS_QuenTaskPool::StartServiceThread(std::unique_ptr<std::thread>& _pThread,
                                          void (CLS_QuenTaskPool::*_funBody)())
{
    CLS_ShutdownClaim::ThreadId setThread{std::thread::id()};
    _pThread = std::make_unique<std::thread>(_funBody, this);
    CLS_ShutdownClaim::AddThread(this, _pThread->get_id(), setThread);
}

/// Tells the service threads to end and waits for them.
void CLS_QuenTaskPool::EndServiceThreads()
{
    RequestShutdown();
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
    return IsWorkerThread();
}
