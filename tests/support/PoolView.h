#pragma once

#include "QuenPlugins/ZelTaskPool/CLS_QuenTaskPool.h"
#include "tests/support/Waiting.h"

#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <shared_mutex>
#include <string>
#include <thread>
#include <vector>

/// Copies of what the pool and the registry keep, each taken under its lock. For tests that look inside.
namespace PoolView
{
/// The waiting queue, oldest first.
inline std::vector<std::string> GetQueue(CLS_QuenTaskPool& _clsPool)
{
    const std::lock_guard<std::mutex> lock(_clsPool.m_mtxWaitingTasks);
    std::vector<std::string> vecQueue = _clsPool.m_vecWaitingTasks;
    std::forward_list<std::string> lstOverflow = _clsPool.m_lstWaitingOverflow;
    lstOverflow.reverse();
    vecQueue.insert(vecQueue.end(), lstOverflow.begin(), lstOverflow.end());
    return vecQueue;
}

inline void ClearQueue(CLS_QuenTaskPool& _clsPool)
{
    const std::lock_guard<std::mutex> lock(_clsPool.m_mtxWaitingTasks);
    _clsPool.m_vecWaitingTasks.clear();
    _clsPool.m_lstWaitingOverflow.clear();
}

inline std::vector<std::string> GetLoopTasks(CLS_QuenTaskPool& _clsPool)
{
    const std::shared_lock<std::shared_mutex> lock(_clsPool.m_smLoopTasksLock);
    return _clsPool.m_vecLoopTasks;
}

/// Makes another list of the loop tasks' ids, whatever they belong to.
inline void SetLoopTasks(CLS_QuenTaskPool& _clsPool, const std::vector<std::string>& _vecTaskIds)
{
    const std::unique_lock<std::shared_mutex> lock(_clsPool.m_smLoopTasksLock);
    _clsPool.m_vecLoopTasks = _vecTaskIds;
    _clsPool.m_clsLoopSchedule.NoteListChange();
}

/// Puts an id on that list.
inline void AddToLoopTasks(CLS_QuenTaskPool& _clsPool, const std::string& _strTaskId)
{
    std::vector<std::string> vecTaskIds = GetLoopTasks(_clsPool);
    vecTaskIds.push_back(_strTaskId);
    SetLoopTasks(_clsPool, vecTaskIds);
}

inline std::map<void*, std::list<std::string>> GetOwned(CLS_QuenTaskPool& _clsPool)
{
    const std::lock_guard<std::mutex> lock(_clsPool.m_mtxTmpTasks);
    return _clsPool.m_mapTmpTasks;
}

inline std::map<std::string, void*> GetOwners(CLS_QuenTaskPool& _clsPool)
{
    const std::lock_guard<std::mutex> lock(_clsPool.m_mtxTmpTasks);
    return _clsPool.m_mapTmpTaskOwner;
}

/// The owners whose lists the pool has a cursor for.
inline std::set<void*> GetCursorOwners(CLS_QuenTaskPool& _clsPool)
{
    std::set<void*> setOwners;
    const std::lock_guard<std::mutex> lock(_clsPool.m_mtxTmpTasks);
    for (const auto& [pOwner, itCursor] : _clsPool.m_mapTmpTaskCursors)
    {
        setOwners.insert(pOwner);
    }
    return setOwners;
}

/// The ids in the registry.
inline std::set<std::string> GetRegistered()
{
    std::set<std::string> setIds;
    const std::shared_lock<std::shared_mutex> lock(CLS_Task::m_smTaskDataLock);
    for (const auto& [strTaskId, pTask] : CLS_Task::m_mapTaskData)
    {
        setIds.insert(strTaskId);
    }
    return setIds;
}

inline bool IsRegistered(const std::string& _strTaskId)
{
    return CLS_Task::GetTask(_strTaskId).lock() != nullptr;
}

/// The registered task with this id. Throws std::bad_weak_ptr when there is none.
inline std::shared_ptr<CLS_Task> GetTask(const std::string& _strTaskId)
{
    return std::shared_ptr<CLS_Task>(CLS_Task::GetTask(_strTaskId));
}

/// Whether every worker is idle, within the limit.
[[nodiscard]] inline bool WaitForAllIdle(CLS_QuenTaskPool& _clsPool)
{
    return WaitUntil(
        [&]
        {
            const auto iWorkers = static_cast<std::size_t>(_clsPool.GetTaskThreadNum());
            const std::lock_guard<std::mutex> lock(_clsPool.m_mtxIdleThreads);
            return _clsPool.m_vecIdleThreads.size() == iWorkers;
        });
}

/// Whether nobody holds the registry's lock or one of the pool's. Asked on a thread of its own, so that the
/// calling thread's locks count, too.
inline bool AreLocksFree(CLS_QuenTaskPool& _clsPool)
{
    bool bFree = false;
    const auto funTry = [](auto& _mtxAny)
    {
        // The pool's threads hold it for a moment now and then; the calling thread would go on holding it.
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
            bFree = funTry(CLS_Task::m_smTaskDataLock) && funTry(_clsPool.m_mtxWaitingTasks) &&
                    funTry(_clsPool.m_smLoopTasksLock) && funTry(_clsPool.m_mtxTmpTasks) &&
                    funTry(_clsPool.m_mtxIdleThreads) && funTry(_clsPool.m_smThreadTaskLock);
        })
        .join();
    return bFree;
}
} // namespace PoolView
