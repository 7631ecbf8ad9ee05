#pragma once

#include "QuenPlugins/ZelTaskPool/CLS_Task.h"

#include <atomic>
#include <cstddef>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <vector>

/// Frees the memory of finished tasks, for long-running hosts that use the bare functions.
///
/// The registry keeps the task record of a finished one-shot task, with its captures, until the process ends.
/// A host that calls DeleteFinished from time to time keeps its memory bounded. The program must link the
/// library. These functions need no pool and create none. See docs/host-kit.md.
///
/// Threads: any, even in tasks.
///
/// Fails: with std::bad_alloc. Then the registry is unchanged.
namespace TaskSweep
{
/// A reference to a task record.
using TaskReference = std::shared_ptr<CLS_Task>;

/// The interval that AddTmpTask gives to its tasks.
constexpr int ONE_SHOT = -1;

/// Whether only the registry refers to the task record. _pTask is the registry's reference, under its lock.
inline bool IsUnheld(const TaskReference& _pTask)
{
    const bool bUnheld = _pTask.use_count() == 1;
    // The count is read without ordering. The fence lets this thread see what the last holder wrote.
    std::atomic_thread_fence(std::memory_order_acquire);
    return bUnheld;
}

/// Whether the task has run and will not run again.
///
/// A new task is also idle, but its creator holds it until it is queued. So the holders are checked before
/// the status.
inline bool IsFinished(const TaskReference& _pTask)
{
    return IsUnheld(_pTask) && _pTask->GetLoopInterval() == ONE_SHOT &&
           _pTask->GetTaskStatus() == TASK_STATUS_IDLE;
}

/// Whether a task of an ended pool can be deleted: only the registry refers to it, and it does not run. Call
/// it only while there is no pool.
inline bool IsLeftBehind(const TaskReference& _pTask)
{
    return IsUnheld(_pTask) && _pTask->GetTaskStatus() != TASK_STATUS_RUNNING;
}

/// The ids of the registered tasks for which _funWanted holds.
///
/// Waits: for the registry's lock, shared. Creations of tasks wait during the call.
template <typename T_Wanted>
std::vector<std::string> CollectIds(T_Wanted _funWanted)
{
    std::vector<std::string> vecTaskIds;
    const std::shared_lock<std::shared_mutex> lock(CLS_Task::m_smTaskDataLock);
    for (const auto& [strTaskId, pTask] : CLS_Task::m_mapTaskData)
    {
        if (_funWanted(pTask))
        {
            vecTaskIds.push_back(strTaskId);
        }
    }
    return vecTaskIds;
}

/// Takes tasks out of the registry.
///
/// Owns: the captures. They are destroyed on this thread with no lock held, because the reference outlives
/// the deletion.
inline void DeleteTasks(const std::vector<std::string>& _vecTaskIds)
{
    for (const std::string& strTaskId : _vecTaskIds)
    {
        const TaskReference pTask = CLS_Task::GetTask(strTaskId).lock();
        CLS_Task::DeleteTask(strTaskId);
    }
}

/// Deletes the task records of finished one-shot tasks, and returns how many.
///
/// It keeps these tasks:
/// - new, queued and running tasks;
/// - loop tasks, except those with an interval of exactly -1, which look like one-shot tasks. An interval of
///   0 repeats just as fast;
/// - every task that the host refers to. To queue a finished task again, keep the reference that
///   CLS_Task::CreateTask returned.
inline std::size_t DeleteFinished()
{
    const std::vector<std::string> vecTaskIds = CollectIds(IsFinished);
    DeleteTasks(vecTaskIds);
    return vecTaskIds.size();
}

/// Deletes the tasks that a pool has left behind, and returns how many.
///
/// These are the finished tasks, the tasks that were still queued when the pool ended, and the loop tasks. It
/// keeps tasks that still run, and tasks that the host refers to. Call it only between UnInit and the next
/// use of the pool.
inline std::size_t DeleteLeftBehind()
{
    const std::vector<std::string> vecTaskIds = CollectIds(IsLeftBehind);
    DeleteTasks(vecTaskIds);
    return vecTaskIds.size();
}
} // namespace TaskSweep
