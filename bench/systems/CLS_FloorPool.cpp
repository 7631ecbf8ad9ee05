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
    const std::string strTask = Register(_funTask, ONE_SHOT);
    AddOwner(strTask, _pOwner);
    Queue(strTask);
}

void CLS_FloorPool::RemoveTasks(void* _pOwner)
{
    ForgetTasks(TakeOwned(_pOwner));
}

/// Takes all tasks out of the registry, then waits for those that run.
void CLS_FloorPool::ForgetTasks(const std::list<std::string>& _lstTasks)
{
    std::vector<std::shared_ptr<ST_FloorTask>> vecRecords;
    for (const std::string& strTask : _lstTasks)
    {
        const std::lock_guard<std::mutex> lock(m_mtxRegistry);
        const auto itRecord = m_mapRegistry.find(strTask);
        if (itRecord != m_mapRegistry.end())
        {
            vecRecords.push_back(std::move(itRecord->second));
            m_mapRegistry.erase(itRecord);
        }
    }
    for (const std::shared_ptr<ST_FloorTask>& pRecord : vecRecords)
    {
        std::unique_lock<std::mutex> lock(m_mtxOwners);
        m_cvRunEnd.wait(lock, [&pRecord] { return !pRecord->m_bRunning; });
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

std::string CLS_FloorPool::Register(const std::function<void()>& _funTask,
                                    std::chrono::milliseconds _msInterval)
{
    auto pRecord = std::make_shared<ST_FloorTask>();
    pRecord->m_funTask = _funTask;
    pRecord->m_msInterval = _msInterval;
    std::string strTask = MakeId();
    const std::lock_guard<std::mutex> lock(m_mtxRegistry);
    m_mapRegistry.emplace(strTask, std::move(pRecord));
    return strTask;
}

/// Returns null if the task was removed.
std::shared_ptr<CLS_FloorPool::ST_FloorTask> CLS_FloorPool::BeginRun(const std::string& _strTask)
{
    const std::lock_guard<std::mutex> lock(m_mtxRegistry);
    const auto itRecord = m_mapRegistry.find(_strTask);
    if (itRecord == m_mapRegistry.end())
    {
        return nullptr;
    }
    itRecord->second->m_bRunning = true;
    return itRecord->second;
}

void CLS_FloorPool::AddOwner(const std::string& _strTask, void* _pOwner)
{
    const std::lock_guard<std::mutex> lock(m_mtxOwners);
    m_mapOwned[_pOwner].push_back(_strTask);
    m_mapOwner.emplace(_strTask, _pOwner);
}

void CLS_FloorPool::DropOwner(const std::string& _strTask)
{
    const auto itOwner = m_mapOwner.find(_strTask);
    if (itOwner == m_mapOwner.end())
    {
        return;
    }
    const auto itOwned = m_mapOwned.find(itOwner->second);
    std::list<std::string>& lstTasks = itOwned->second;
    for (auto itTask = lstTasks.begin(); itTask != lstTasks.end(); ++itTask)
    {
        if (*itTask == _strTask)
        {
            lstTasks.erase(itTask);
            break;
        }
    }
    if (lstTasks.empty())
    {
        m_mapOwned.erase(itOwned);
    }
    m_mapOwner.erase(itOwner);
}

std::list<std::string> CLS_FloorPool::TakeOwned(void* _pOwner)
{
    const std::lock_guard<std::mutex> lock(m_mtxOwners);
    std::list<std::string> lstTasks;
    lstTasks.swap(m_mapOwned[_pOwner]);
    m_mapOwned.erase(_pOwner);
    for (const std::string& strTask : lstTasks)
    {
        m_mapOwner.erase(strTask);
    }
    return lstTasks;
}

void CLS_FloorPool::Queue(const std::string& _strTask)
{
    const std::lock_guard<std::mutex> lock(m_mtxQueue);
    m_vecQueue.push_back(_strTask);
    m_cvQueue.notify_one();
}

void CLS_FloorPool::Dispatch()
{
    std::vector<std::string> vecBatch;
    for (;;)
    {
        {
            std::unique_lock<std::mutex> lock(m_mtxQueue);
            m_cvQueue.wait(lock, [this] { return !m_vecQueue.empty() || m_bEndDispatch; });
            if (m_vecQueue.empty())
            {
                return;
            }
            vecBatch.swap(m_vecQueue);
        }
        for (std::string& strTask : vecBatch)
        {
            HandOver(WaitForWorker(), strTask);
        }
        vecBatch.clear();
    }
}

CLS_FloorPool::ST_Worker& CLS_FloorPool::WaitForWorker()
{
    std::unique_lock<std::mutex> lock(m_mtxIdle);
    if (m_queIdle.empty() && m_vecWorkers.size() < MOST_WORKERS)
    {
        lock.unlock();
        m_vecWorkers.push_back(std::make_unique<ST_Worker>());
        ST_Worker& stWorker = *m_vecWorkers.back();
        stWorker.m_uiOrder = m_vecWorkers.size() - 1;
        stWorker.m_clsThread = std::thread([this, &stWorker] { Work(stWorker); });
        return stWorker;
    }
    m_cvIdle.wait(lock, [this] { return !m_queIdle.empty(); });
    ST_Worker& stWorker = *m_vecWorkers[m_queIdle.top()];
    m_queIdle.pop();
    return stWorker;
}

void CLS_FloorPool::HandOver(ST_Worker& _stWorker, std::string& _strTask)
{
    const std::lock_guard<std::mutex> lock(_stWorker.m_mtxTask);
    _stWorker.m_strTask.swap(_strTask);
    _stWorker.m_cvTask.notify_one();
}

void CLS_FloorPool::Work(ST_Worker& _stWorker)
{
    for (;;)
    {
        std::string strTask;
        {
            std::unique_lock<std::mutex> lock(_stWorker.m_mtxTask);
            _stWorker.m_cvTask.wait(lock, [&_stWorker]
                                    { return !_stWorker.m_strTask.empty() || _stWorker.m_bEnd; });
            if (_stWorker.m_strTask.empty())
            {
                return;
            }
            strTask.swap(_stWorker.m_strTask);
        }
        RunTask(strTask);
        const std::lock_guard<std::mutex> lock(m_mtxIdle);
        m_queIdle.push(_stWorker.m_uiOrder);
        m_cvIdle.notify_one();
    }
}

void CLS_FloorPool::RunTask(const std::string& _strTask)
{
    const std::shared_ptr<ST_FloorTask> pRecord = BeginRun(_strTask);
    if (!pRecord)
    {
        return;
    }
    pRecord->m_funTask();
    if (pRecord->m_msInterval != ONE_SHOT)
    {
        AddDue(_strTask, pRecord->m_msInterval);
    }
    const std::lock_guard<std::mutex> lock(m_mtxOwners);
    DropOwner(_strTask);
    pRecord->m_bRunning = false;
    m_cvRunEnd.notify_all();
}

void CLS_FloorPool::AddDue(const std::string& _strTask, std::chrono::milliseconds _msInterval)
{
    const std::lock_guard<std::mutex> lock(m_mtxDue);
    m_queDue.push({std::chrono::steady_clock::now() + _msInterval, _strTask});
}

void CLS_FloorPool::QueueDue()
{
    while (!m_bEndDue)
    {
        {
            const std::lock_guard<std::mutex> lock(m_mtxDue);
            while (!m_queDue.empty() && m_queDue.top().m_tpDue <= std::chrono::steady_clock::now())
            {
                Queue(m_queDue.top().m_strTask);
                m_queDue.pop();
            }
        }
        std::this_thread::sleep_for(POLL);
    }
}
