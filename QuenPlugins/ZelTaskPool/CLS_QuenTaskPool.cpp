// Start of the pool, and its workers.

#include "QuenPlugins/ZelTaskPool/CLS_QuenTaskPool.h"

#include "QuenPlugins/ZelTaskPool/CLS_ShutdownClaim.h"
#include "QuenPlugins/ZelTaskPool/TaskPoolRecord.h"

using TaskPoolRecord::FILE_POOL;

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

int CLS_QuenTaskPool::GetTaskThreadNum()
{
    const CLS_SharedGuard lock(m_smThreadTaskLock);
    return static_cast<std::int32_t>(m_mapThreadTask.size());
}
