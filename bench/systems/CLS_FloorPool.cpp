#include "bench/systems/CLS_FloorPool.h"

#include <array>
#include <cstdio>
#include <random>

namespace
{
/// A text as long as the pool's ids.
std::string MakeId()
{
    static std::atomic<unsigned> s_uiCount{0};
    std::random_device clsRandom("/dev/urandom");
    std::array<char, 64> szId{};
    const int iLength = std::snprintf(szId.data(), szId.size(), "%08x-%032x", clsRandom(), s_uiCount++);
    return {szId.data(), static_cast<std::size_t>(iLength)};
}

/// Yields until the flag is set, but only a few times.
void YieldUntilSet(const std::atomic<bool>& _bFlag, int _iMost)
{
    for (int i = 0; i < _iMost && !_bFlag; ++i)
    {
        std::this_thread::yield();
    }
}
} // namespace

CLS_FloorPool::CLS_FloorPool() : m_clsDispatcher([this] { Dispatch(); }), m_clsTimer([this] { QueueDue(); })
{
}

CLS_FloorPool::~CLS_FloorPool()
{
    m_bEndDue = true;
    m_clsTimer.join();
    {
        const std::lock_guard<std::mutex> lock(m_mtxQueue);
        m_bEndDispatch = true;
        m_cvQueue.notify_one();
    }
    m_clsDispatcher.join();
    for (const auto& pWorker : m_vecWorkers)
    {
        {
            const std::lock_guard<std::mutex> lock(pWorker->m_mtxTask);
            pWorker->m_bEnd = true;
            pWorker->m_cvTask.notify_one();
        }
        pWorker->m_clsThread.join();
    }
}

void CLS_FloorPool::AddTask(const std::function<void()>& _funTask, void* _pOwner)
{
    Task pTask = Register(_funTask, ONE_SHOT);
    AddOwner(pTask, _pOwner);
    Queue(std::move(pTask));
}

void CLS_FloorPool::RemoveTasks(void* _pOwner)
{
    ForgetTasks(TakeOwned(_pOwner));
}

/// Takes all tasks out of the registry, then waits for those that run.
void CLS_FloorPool::ForgetTasks(const std::list<Task>& _lstTasks)
{
    for (const Task& pTask : _lstTasks)
    {
        pTask->m_bRemoved = true;
        const std::lock_guard<std::mutex> lock(m_mtxRegistry);
        m_mapRegistry.erase(pTask->m_itRegistry);
    }
    for (const Task& pTask : _lstTasks)
    {
        std::unique_lock<std::mutex> lock(m_mtxOwners);
        m_cvRunEnd.wait(lock, [&pTask] { return !pTask->m_bRunning; });
    }
}

void CLS_FloorPool::AddLoop(const std::function<void()>& _funTask, std::chrono::milliseconds _msInterval)
{
    m_lstLoops.push_back(Register(_funTask, _msInterval));
    Queue(m_lstLoops.back());
}

void CLS_FloorPool::RemoveLoops()
{
    ForgetTasks(m_lstLoops);
    m_lstLoops.clear();
}

CLS_FloorPool::Task CLS_FloorPool::Register(const std::function<void()>& _funTask,
                                            std::chrono::milliseconds _msInterval)
{
    auto pTask = std::make_shared<ST_FloorTask>();
    pTask->m_funTask = _funTask;
    pTask->m_msInterval = _msInterval;
    std::string strTask = MakeId();
    const std::lock_guard<std::mutex> lock(m_mtxRegistry);
    pTask->m_itRegistry = m_mapRegistry.emplace(std::move(strTask), pTask).first;
    return pTask;
}

void CLS_FloorPool::AddOwner(const Task& _pTask, void* _pOwner)
{
    const std::lock_guard<std::mutex> lock(m_mtxOwners);
    std::list<Task>& lstTasks = m_mapOwned[_pOwner];
    _pTask->m_itOwned = lstTasks.insert(lstTasks.end(), _pTask);
    _pTask->m_itOwner = m_mapOwner.emplace(_pTask->m_itRegistry->first, _pOwner).first;
    _pTask->m_bOwned = true;
}

void CLS_FloorPool::DropOwner(ST_FloorTask& _stTask)
{
    if (!_stTask.m_bOwned)
    {
        return;
    }
    const auto itOwned = m_mapOwned.find(_stTask.m_itOwner->second);
    itOwned->second.erase(_stTask.m_itOwned);
    if (itOwned->second.empty())
    {
        m_mapOwned.erase(itOwned);
    }
    m_mapOwner.erase(_stTask.m_itOwner);
    _stTask.m_bOwned = false;
}

std::list<CLS_FloorPool::Task> CLS_FloorPool::TakeOwned(void* _pOwner)
{
    const std::lock_guard<std::mutex> lock(m_mtxOwners);
    std::list<Task> lstTasks;
    lstTasks.swap(m_mapOwned[_pOwner]);
    m_mapOwned.erase(_pOwner);
    for (const Task& pTask : lstTasks)
    {
        m_mapOwner.erase(pTask->m_itOwner);
        pTask->m_bOwned = false;
    }
    return lstTasks;
}

void CLS_FloorPool::Queue(Task _pTask)
{
    const std::lock_guard<std::mutex> lock(m_mtxQueue);
    m_vecQueue.push_back(std::move(_pTask));
    m_bQueued = true;
    m_cvQueue.notify_one();
}

void CLS_FloorPool::Dispatch()
{
    std::vector<Task> vecBatch;
    while (TakeBatch(vecBatch))
    {
        for (Task& pTask : vecBatch)
        {
            HandOver(WaitForWorker(), pTask);
        }
        vecBatch.clear();
    }
}

/// Returns false at the end.
bool CLS_FloorPool::TakeBatch(std::vector<Task>& _vecBatch)
{
    YieldUntilSet(m_bQueued, MOST_YIELDS_BEFORE_SLEEP);
    std::unique_lock<std::mutex> lock(m_mtxQueue);
    m_cvQueue.wait(lock, [this] { return !m_vecQueue.empty() || m_bEndDispatch; });
    _vecBatch.swap(m_vecQueue);
    m_bQueued = false;
    return !_vecBatch.empty();
}

CLS_FloorPool::ST_Worker* CLS_FloorPool::TakeIdleWorker()
{
    const std::lock_guard<std::mutex> lock(m_mtxIdle);
    if (m_queIdle.empty())
    {
        return nullptr;
    }
    ST_Worker& stWorker = *m_vecWorkers[m_queIdle.top()];
    m_queIdle.pop();
    m_bIdle = !m_queIdle.empty();
    return &stWorker;
}

CLS_FloorPool::ST_Worker& CLS_FloorPool::AddWorker()
{
    m_vecWorkers.push_back(std::make_unique<ST_Worker>());
    ST_Worker& stWorker = *m_vecWorkers.back();
    stWorker.m_uiOrder = m_vecWorkers.size() - 1;
    stWorker.m_clsThread = std::thread([this, &stWorker] { Work(stWorker); });
    return stWorker;
}

CLS_FloorPool::ST_Worker& CLS_FloorPool::WaitForWorker()
{
    for (;;)
    {
        YieldUntilSet(m_bIdle, MOST_YIELDS_BEFORE_SLEEP);
        if (ST_Worker* const pWorker = TakeIdleWorker())
        {
            return *pWorker;
        }
        if (m_vecWorkers.size() < MOST_WORKERS)
        {
            return AddWorker();
        }
        std::unique_lock<std::mutex> lock(m_mtxIdle);
        m_cvIdle.wait(lock, [this] { return !m_queIdle.empty(); });
    }
}

void CLS_FloorPool::HandOver(ST_Worker& _stWorker, Task& _pTask)
{
    const std::lock_guard<std::mutex> lock(_stWorker.m_mtxTask);
    _stWorker.m_pTask.swap(_pTask);
    _stWorker.m_bTask = true;
    _stWorker.m_cvTask.notify_one();
}

void CLS_FloorPool::Work(ST_Worker& _stWorker)
{
    while (const Task pTask = TakeTask(_stWorker))
    {
        RunTask(pTask);
        const std::lock_guard<std::mutex> lock(m_mtxIdle);
        m_queIdle.push(_stWorker.m_uiOrder);
        m_bIdle = true;
        m_cvIdle.notify_one();
    }
}

/// Returns null at the end.
CLS_FloorPool::Task CLS_FloorPool::TakeTask(ST_Worker& _stWorker)
{
    YieldUntilSet(_stWorker.m_bTask, MOST_YIELDS_BEFORE_SLEEP);
    std::unique_lock<std::mutex> lock(_stWorker.m_mtxTask);
    _stWorker.m_cvTask.wait(lock, [&_stWorker] { return _stWorker.m_pTask || _stWorker.m_bEnd; });
    _stWorker.m_bTask = false;
    return std::move(_stWorker.m_pTask);
}

void CLS_FloorPool::RunTask(const Task& _pTask)
{
    _pTask->m_bRunning = true;
    if (!_pTask->m_bRemoved)
    {
        _pTask->m_funTask();
        if (_pTask->m_msInterval != ONE_SHOT)
        {
            const std::lock_guard<std::mutex> lock(m_mtxDue);
            m_queDue.push({std::chrono::steady_clock::now() + _pTask->m_msInterval, _pTask});
        }
    }
    const std::lock_guard<std::mutex> lock(m_mtxOwners);
    DropOwner(*_pTask);
    _pTask->m_bRunning = false;
    m_cvRunEnd.notify_all();
}

void CLS_FloorPool::QueueDue()
{
    while (!m_bEndDue)
    {
        {
            const std::lock_guard<std::mutex> lock(m_mtxDue);
            while (!m_queDue.empty() && m_queDue.top().m_tpDue <= std::chrono::steady_clock::now())
            {
                Queue(m_queDue.top().m_pTask);
                m_queDue.pop();
            }
        }
        std::this_thread::sleep_for(POLL);
    }
}
