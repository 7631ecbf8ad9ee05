#include "tests/support/PoolView.h"

#include "tests/support/Waiting.h"

#include <mutex>
#include <shared_mutex>

namespace PoolView
{
std::atomic<bool>& GetRunFlag(CLS_QuenTaskPool& _clsPool)
{
    return _clsPool.m_bRun;
}

std::int32_t& GetWorkerLimit(CLS_QuenTaskPool& _clsPool)
{
    return _clsPool.m_iMaxThread;
}

std::unique_ptr<std::thread>& GetDispatcher(CLS_QuenTaskPool& _clsPool)
{
    return _clsPool.m_pTaskingThread;
}

std::unique_ptr<std::thread>& GetLoopScheduler(CLS_QuenTaskPool& _clsPool)
{
    return _clsPool.m_pLoopThread;
}

std::unique_ptr<std::thread>& GetWatchdog(CLS_QuenTaskPool& _clsPool)
{
    return _clsPool.m_pOvertimeThread;
}

std::condition_variable& GetQueueSignal(CLS_QuenTaskPool& _clsPool)
{
    return _clsPool.m_cvWaitingTasks;
}

CLS_Mutex& GetQueueLock(CLS_QuenTaskPool& _clsPool)
{
    return _clsPool.m_mtxWaitingTasks;
}

std::vector<std::string>& GetWaitingIds(CLS_QuenTaskPool& _clsPool)
{
    return _clsPool.m_vecWaitingTasks;
}

std::vector<std::weak_ptr<CLS_Task>>& GetWaitingRecords(CLS_QuenTaskPool& _clsPool)
{
    return _clsPool.m_vecWaitingRecords;
}

std::forward_list<std::string> GetOverflowIds(CLS_QuenTaskPool& _clsPool)
{
    std::forward_list<std::string> lstTaskIds;
    auto itLast = lstTaskIds.before_begin();
    for (const auto& stTask : _clsPool.m_lstWaitingOverflow)
    {
        itLast = lstTaskIds.insert_after(itLast, stTask.m_strTaskId);
    }
    return lstTaskIds;
}

void PushOverflowId(CLS_QuenTaskPool& _clsPool, const std::string& _strTaskId)
{
    _clsPool.m_lstWaitingOverflow.push_front({_strTaskId, {}});
}

CLS_SharedMutex& GetLoopListLock(CLS_QuenTaskPool& _clsPool)
{
    return _clsPool.m_smLoopTasksLock;
}

std::vector<std::string>& GetLoopIds(CLS_QuenTaskPool& _clsPool)
{
    return _clsPool.m_vecLoopTasks;
}

CLS_LoopSchedule& GetLoopSchedule(CLS_QuenTaskPool& _clsPool)
{
    return _clsPool.m_clsLoopSchedule;
}

CLS_Mutex& GetOwnerLock(CLS_QuenTaskPool& _clsPool)
{
    return _clsPool.m_mtxTmpTasks;
}

OwnerLists& GetOwnerLists(CLS_QuenTaskPool& _clsPool)
{
    return _clsPool.m_mapTmpTasks;
}

std::map<std::string, void*>& GetTaskOwners(CLS_QuenTaskPool& _clsPool)
{
    return _clsPool.m_mapTmpTaskOwner;
}

OwnerCursors& GetOwnerCursors(CLS_QuenTaskPool& _clsPool)
{
    return _clsPool.m_mapTmpTaskCursors;
}

CLS_Mutex& GetIdleLock(CLS_QuenTaskPool& _clsPool)
{
    return _clsPool.m_mtxIdleThreads;
}

std::vector<CLS_TaskThread*>& GetIdleWorkers(CLS_QuenTaskPool& _clsPool)
{
    return _clsPool.m_vecIdleThreads;
}

CLS_SharedMutex& GetWorkerLock(CLS_QuenTaskPool& _clsPool)
{
    return _clsPool.m_smThreadTaskLock;
}

std::map<CLS_TaskThread*, std::string>& GetWorkers(CLS_QuenTaskPool& _clsPool)
{
    return _clsPool.m_mapThreadTask;
}

ClassLayout::Members ListMembers(const CLS_QuenTaskPool& _clsPool)
{
    return {ClassLayout::Describe("m_bRun", _clsPool.m_bRun),
            ClassLayout::Describe("m_iMaxThread", _clsPool.m_iMaxThread),
            ClassLayout::Describe("m_pTaskingThread", _clsPool.m_pTaskingThread),
            ClassLayout::Describe("m_pLoopThread", _clsPool.m_pLoopThread),
            ClassLayout::Describe("m_pOvertimeThread", _clsPool.m_pOvertimeThread),
            ClassLayout::Describe("m_cvWaitingTasks", _clsPool.m_cvWaitingTasks),
            ClassLayout::Describe("m_mtxWaitingTasks", _clsPool.m_mtxWaitingTasks),
            ClassLayout::Describe("m_vecWaitingTasks", _clsPool.m_vecWaitingTasks),
            ClassLayout::Describe("m_smLoopTasksLock", _clsPool.m_smLoopTasksLock),
            ClassLayout::Describe("m_vecLoopTasks", _clsPool.m_vecLoopTasks),
            ClassLayout::Describe("m_mtxTmpTasks", _clsPool.m_mtxTmpTasks),
            ClassLayout::Describe("m_mapTmpTasks", _clsPool.m_mapTmpTasks),
            ClassLayout::Describe("m_mapTmpTaskOwner", _clsPool.m_mapTmpTaskOwner),
            ClassLayout::Describe("m_mtxIdleThreads", _clsPool.m_mtxIdleThreads),
            ClassLayout::Describe("m_vecIdleThreads", _clsPool.m_vecIdleThreads),
            ClassLayout::Describe("m_smThreadTaskLock", _clsPool.m_smThreadTaskLock),
            ClassLayout::Describe("m_mapThreadTask", _clsPool.m_mapThreadTask)};
}

void RunDispatchPass(CLS_QuenTaskPool& _clsPool)
{
    CLS_QuenTaskPool::ST_Batch stBatch;
    _clsPool.DispatchPass(stBatch);
}

void RunLoopPass(CLS_QuenTaskPool& _clsPool)
{
    _clsPool.LoopPass();
}

void RunWatchdogPass(CLS_QuenTaskPool& _clsPool)
{
    _clsPool.OvertimePass();
}

std::shared_ptr<void> MakeBatch()
{
    return std::make_shared<CLS_QuenTaskPool::ST_Batch>();
}

std::vector<std::string> TakeQueue(CLS_QuenTaskPool& _clsPool)
{
    return TakeQueue(_clsPool, MakeBatch());
}

std::vector<std::string> TakeQueue(CLS_QuenTaskPool& _clsPool, const std::shared_ptr<void>& _pBatch)
{
    auto& stBatch = *static_cast<CLS_QuenTaskPool::ST_Batch*>(_pBatch.get());
    _clsPool.TakeWaitingTasks(stBatch);
    std::vector<std::string> vecTaskIds = stBatch.m_vecTaskIds;
    for (const auto& stTask : stBatch.m_lstOverflow)
    {
        vecTaskIds.push_back(stTask.m_strTaskId);
    }
    return vecTaskIds;
}

bool DispatchTask(CLS_QuenTaskPool& _clsPool, std::string _strTaskId, std::size_t _uiUndispatched)
{
    std::weak_ptr<CLS_Task> pTask;
    return _clsPool.DispatchTask(_strTaskId, pTask, _uiUndispatched);
}

std::atomic<bool>& GetBatchHint(CLS_QuenTaskPool& _clsPool)
{
    return _clsPool.m_bBatchWaits;
}

void ReportBusy(CLS_QuenTaskPool& _clsPool, std::size_t _uiUndispatched)
{
    _clsPool.ReportBusy(_uiUndispatched);
}

CLS_TaskThread* TakeIdleWorker(CLS_QuenTaskPool& _clsPool)
{
    return _clsPool.TakeIdleWorker();
}

void AddIdleWorker(CLS_QuenTaskPool& _clsPool, CLS_TaskThread* _pWorker)
{
    _clsPool.AddIdleWorker(_pWorker);
}

void BindTask(CLS_QuenTaskPool& _clsPool, CLS_TaskThread* _pWorker, std::string& _strTaskId)
{
    std::weak_ptr<CLS_Task> pNoTask;
    _clsPool.BindTask(_pWorker, _strTaskId, pNoTask);
}

void BindTask(CLS_QuenTaskPool& _clsPool, CLS_TaskThread* _pWorker, std::string& _strTaskId,
              std::weak_ptr<CLS_Task>& _pTask)
{
    _clsPool.BindTask(_pWorker, _strTaskId, _pTask);
}

void UnbindTask(CLS_QuenTaskPool& _clsPool, CLS_TaskThread* _pWorker)
{
    _clsPool.UnbindTask(_pWorker);
}

std::optional<std::string> ReadBoundTask(CLS_QuenTaskPool& _clsPool, CLS_TaskThread* _pWorker)
{
    auto optTask = _clsPool.ReadBoundTask(_pWorker);
    return optTask ? std::optional(std::move(optTask->m_strTaskId)) : std::nullopt;
}

void UnregisterWorker(CLS_QuenTaskPool& _clsPool, CLS_TaskThread* _pWorker)
{
    _clsPool.UnregisterWorker(_pWorker);
}

void ForgetWorker(CLS_QuenTaskPool& _clsPool, CLS_TaskThread* _pWorker)
{
    _clsPool.ForgetWorker(_pWorker);
}

void RetireWorker(CLS_QuenTaskPool& _clsPool, CLS_TaskThread* _pWorker)
{
    _clsPool.RetireWorker(_pWorker);
}

void AddOwnedTask(CLS_QuenTaskPool& _clsPool, const std::string& _strTaskId, void* _pOwner)
{
    _clsPool.AddOwnedTask(_strTaskId, _pOwner);
}

std::list<std::string> TakeOwnedTasks(CLS_QuenTaskPool& _clsPool, void* _pOwner)
{
    return _clsPool.TakeOwnedTasks(_pOwner);
}

void ForgetLoopTask(CLS_QuenTaskPool& _clsPool, const std::string& _strTaskId)
{
    _clsPool.ForgetLoopTask(_strTaskId);
}

void ForgetLoopTasks(CLS_QuenTaskPool& _clsPool)
{
    _clsPool.ForgetLoopTasks();
}

void StartServiceThreads(CLS_QuenTaskPool& _clsPool)
{
    _clsPool.StartServiceThreads();
}

void EndServiceThreads(CLS_QuenTaskPool& _clsPool)
{
    _clsPool.EndServiceThreads();
}

CLS_QuenTaskPool* LoadInstance()
{
    return CLS_QuenTaskPool::LoadInstance();
}

std::vector<std::string> GetQueue(CLS_QuenTaskPool& _clsPool)
{
    const std::lock_guard<CLS_Mutex> lock(GetQueueLock(_clsPool));
    std::vector<std::string> vecQueue = GetWaitingIds(_clsPool);
    std::forward_list<std::string> lstOverflow = GetOverflowIds(_clsPool);
    lstOverflow.reverse();
    vecQueue.insert(vecQueue.end(), lstOverflow.begin(), lstOverflow.end());
    return vecQueue;
}

void SetQueue(CLS_QuenTaskPool& _clsPool, const std::vector<std::string>& _vecTaskIds)
{
    const std::lock_guard<CLS_Mutex> lock(GetQueueLock(_clsPool));
    GetWaitingIds(_clsPool) = _vecTaskIds;
    GetWaitingRecords(_clsPool).assign(_vecTaskIds.size(), {});
    GetQueueSignal(_clsPool).notify_one();
}

void ReserveQueue(CLS_QuenTaskPool& _clsPool, std::size_t _uiTasks)
{
    const std::lock_guard<CLS_Mutex> lock(GetQueueLock(_clsPool));
    GetWaitingIds(_clsPool).reserve(_uiTasks);
    GetWaitingRecords(_clsPool).reserve(_uiTasks);
}

void ClearQueue(CLS_QuenTaskPool& _clsPool)
{
    const std::lock_guard<CLS_Mutex> lock(GetQueueLock(_clsPool));
    GetWaitingIds(_clsPool).clear();
    GetWaitingRecords(_clsPool).clear();
    _clsPool.m_lstWaitingOverflow.clear();
}

std::vector<std::string> GetLoopTasks(CLS_QuenTaskPool& _clsPool)
{
    const std::shared_lock<CLS_SharedMutex> lock(GetLoopListLock(_clsPool));
    return GetLoopIds(_clsPool);
}

void SetLoopTasks(CLS_QuenTaskPool& _clsPool, const std::vector<std::string>& _vecTaskIds)
{
    const std::unique_lock<CLS_SharedMutex> lock(GetLoopListLock(_clsPool));
    GetLoopIds(_clsPool) = _vecTaskIds;
    _clsPool.m_clsLoopSchedule.NoteListChange();
}

void AddToLoopTasks(CLS_QuenTaskPool& _clsPool, const std::string& _strTaskId)
{
    std::vector<std::string> vecTaskIds = GetLoopTasks(_clsPool);
    vecTaskIds.push_back(_strTaskId);
    SetLoopTasks(_clsPool, vecTaskIds);
}

OwnerLists GetOwned(CLS_QuenTaskPool& _clsPool)
{
    const std::lock_guard<CLS_Mutex> lock(GetOwnerLock(_clsPool));
    return GetOwnerLists(_clsPool);
}

std::map<std::string, void*> GetOwners(CLS_QuenTaskPool& _clsPool)
{
    const std::lock_guard<CLS_Mutex> lock(GetOwnerLock(_clsPool));
    return GetTaskOwners(_clsPool);
}

std::set<void*> GetCursorOwners(CLS_QuenTaskPool& _clsPool)
{
    std::set<void*> setOwners;
    const std::lock_guard<CLS_Mutex> lock(GetOwnerLock(_clsPool));
    for (const auto& [pOwner, itCursor] : GetOwnerCursors(_clsPool))
    {
        setOwners.insert(pOwner);
    }
    return setOwners;
}

std::map<CLS_TaskThread*, std::string> CopyWorkers(CLS_QuenTaskPool& _clsPool)
{
    const std::shared_lock<CLS_SharedMutex> lock(GetWorkerLock(_clsPool));
    return GetWorkers(_clsPool);
}

std::vector<int> GetIdleOrder(CLS_QuenTaskPool& _clsPool)
{
    std::vector<int> vecOrder;
    const std::lock_guard<CLS_Mutex> lock(GetIdleLock(_clsPool));
    for (CLS_TaskThread* const pWorker : GetIdleWorkers(_clsPool))
    {
        vecOrder.push_back(pWorker == nullptr ? -1 : pWorker->GetOrderId());
    }
    return vecOrder;
}

std::set<std::string> GetRegistered()
{
    std::set<std::string> setIds;
    const std::shared_lock<std::shared_mutex> lock(CLS_Task::m_smTaskDataLock);
    for (const auto& [strTaskId, pTask] : CLS_Task::m_mapTaskData)
    {
        setIds.insert(strTaskId);
    }
    return setIds;
}

bool IsRegistered(const std::string& _strTaskId)
{
    return CLS_Task::GetTask(_strTaskId).lock() != nullptr;
}

std::shared_ptr<CLS_Task> GetTask(const std::string& _strTaskId)
{
    return std::shared_ptr<CLS_Task>(CLS_Task::GetTask(_strTaskId));
}

bool WaitForAllIdle(CLS_QuenTaskPool& _clsPool)
{
    return WaitUntil(
        [&]
        {
            const auto uiWorkers = static_cast<std::size_t>(_clsPool.GetTaskThreadNum());
            const std::lock_guard<CLS_Mutex> lock(GetIdleLock(_clsPool));
            return GetIdleWorkers(_clsPool).size() == uiWorkers;
        });
}

bool AreLocksFree(CLS_QuenTaskPool& _clsPool)
{
    bool bFree = false;
    const auto funTry = [](auto& _mtxAny)
    {
        // The pool's threads hold it only for a moment; the calling thread would keep holding it.
        if (!WaitUntil([&] { return _mtxAny.try_lock(); }))
        {
            return false;
        }
        _mtxAny.unlock();
        return true;
    };
    std::thread(
        [&]
        {
            bFree = funTry(CLS_Task::m_smTaskDataLock) && funTry(GetQueueLock(_clsPool)) &&
                    funTry(GetLoopListLock(_clsPool)) && funTry(GetOwnerLock(_clsPool)) &&
                    funTry(GetIdleLock(_clsPool)) && funTry(GetWorkerLock(_clsPool));
        })
        .join();
    return bFree;
}
} // namespace PoolView
