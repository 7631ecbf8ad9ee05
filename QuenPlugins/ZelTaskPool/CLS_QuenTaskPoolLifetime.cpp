// The start and the shutdown of the pool.

#include "QuenPlugins/ZelTaskPool/CLS_QuenTaskPool.h"
#include "QuenPlugins/ZelTaskPool/CLS_ShutdownClaim.h"
#include "QuenPlugins/ZelTaskPool/TaskPoolRecord.h"

using TaskPoolRecord::FILE_POOL;

namespace
{
/// Writes one of the log records that frame the shutdown.
void RecordProgress(const char* _szText, int _iLine = __builtin_LINE())
{
    TaskPoolRecord::Make(FILE_POOL, "UnInit", Logger::LOG_LEVEL_PROGRESS, _iLine) << _szText;
}

/// Destroys a pool that the caller has not claimed, unless another thread is shutting it down. Ignores null.
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
    // First, because a later store could hide a new pool.
    StoreInstance(nullptr);
    // A failed UnInit may leave threads behind. None may run on a pool that is gone.
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
    auto clsThread = CLS_ShutdownClaim::ReserveThread();
    _pThread = std::make_unique<std::thread>(_funBody, this);
    CLS_ShutdownClaim::AddThread(this, _pThread->get_id(), std::move(clsThread));
}

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
        ShutDown(clsClaim);
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
    if (ShutDown(clsClaim))
    {
        // "PrintLog" may have built another pool meanwhile.
        DestroyOther(LoadInstance());
    }
    else if (!bPoolThread)
    {
        // A thread that the shutdown waits for cannot destroy the pool either.
        clsClaim.BeginStep();
        DestroyInstance();
    }
}

bool CLS_QuenTaskPool::ShutDown(CLS_ShutdownClaim& _clsClaim)
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
