// Start of the pool, and its workers.

#include "QuenPlugins/ZelTaskPool/CLS_QuenTaskPool.h"

#include "QuenPlugins/ZelTaskPool/TaskPoolRecord.h"

using TaskPoolRecord::FILE_POOL;

CLS_QuenTaskPool* CLS_QuenTaskPool::m_pInstance = nullptr;

CLS_QuenTaskPool* CLS_QuenTaskPool::GetInstance()
{
    if (m_pInstance == nullptr)
    {
        m_pInstance = new CLS_QuenTaskPool;
    }
    return m_pInstance;
}

CLS_QuenTaskPool::CLS_QuenTaskPool()
{
    try
    {
        StartServiceThreads();
    }
    catch (...)
    {
        EndServiceThreads();
        throw;
    }
}

void CLS_QuenTaskPool::StartServiceThreads()
{
    m_pTaskingThread = std::make_unique<std::thread>(&CLS_QuenTaskPool::FunTaskingThread, this);
    m_pLoopThread = std::make_unique<std::thread>(&CLS_QuenTaskPool::FunLoopThread, this);
    m_pOvertimeThread = std::make_unique<std::thread>(&CLS_QuenTaskPool::FunTaskThreadWaitingOvertime, this);
}

CLS_TaskThread* CLS_QuenTaskPool::CreateTaskThread()
{
    CLS_TaskThread* pThread = nullptr;
    try
    {
        // Memory for the entry comes first: a worker that runs can always be registered.
        std::map<CLS_TaskThread*, std::string> mapEntry{{nullptr, std::string()}};
        pThread = new CLS_TaskThread;
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
