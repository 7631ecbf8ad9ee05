#pragma once

#include "QuenPlugins/ZelTaskPool/CLS_Task.h"

#include <atomic>
#include <cstddef>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <vector>

/// For hosts that live long and use the bare functions. The registry keeps the record of a one-shot task that
/// has run, and what its callable captured, until the process ends; a host that calls DeleteFinished now and
/// then keeps the memory bounded. Needs a program that links the library. See docs/host-kit.md.
///
/// Thread-safe: any thread, from within tasks, too, along with everything that the pool does. Needs no pool
/// and builds none. std::bad_alloc passes, and leaves the registry as it was.
namespace TaskSweep
{
/// A record, as its holders refer to it.
using TaskReference = std::shared_ptr<CLS_Task>;

/// The interval that AddTmpTask gives to its tasks.
constexpr int ONE_SHOT = -1;

/// Whether the registry alone holds the record. _pTask is the registry's own reference, under its lock.
inline bool IsUnheld(const TaskReference& _pTask)
{
    const bool bUnheld = _pTask.use_count() == 1;
    // The count is read without any ordering. With the fence, a thread that sees that a holder has let go
    // sees all that the holder did to the record before.
    std::atomic_thread_fence(std::memory_order_acquire);
    return bUnheld;
}

/// Whether the task has run and will not run again. An idle task may also be one that was just created; but
/// whoever creates one holds it until it is queued. So the holder is asked for first, and the status then: a
/// task that was let go is no longer idle until it has run.
inline bool IsFinished(const TaskReference& _pTask)
{
    return IsUnheld(_pTask) && _pTask->GetLoopInterval() == ONE_SHOT &&
           _pTask->GetTaskStatus() == TASK_STATUS_IDLE;
}

/// Whether the task belongs to a pool that has ended. True for all but those that still run, when there is no
/// pool: nothing is queued then, and loop tasks are forgotten.
inline bool IsLeftBehind(const TaskReference& _pTask)
{
    return IsUnheld(_pTask) && _pTask->GetTaskStatus() != TASK_STATUS_RUNNING;
}

/// The ids of the registered tasks for which _funWanted holds. Takes the registry's lock, shared: creations
/// wait meanwhile.
template <typename Wanted>
std::vector<std::string> CollectIds(Wanted _funWanted)
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

/// Takes tasks out of the registry. What their callables captured is destroyed here, on the calling thread,
/// with no lock held: the reference outlives the deletion, which happens under the registry's lock.
inline void DeleteTasks(const std::vector<std::string>& _vecTaskIds)
{
    for (const std::string& strTaskId : _vecTaskIds)
    {
        const TaskReference pTask = CLS_Task::GetTask(strTaskId).lock();
        CLS_Task::DeleteTask(strTaskId);
    }
}

/// Deletes the records of one-shot tasks that have run; returns how many. Leaves alone what was just created,
/// is queued, runs or repeats, and every record that somebody holds: a host that wants to queue a finished
/// task again holds a reference to it from its creation on, as CLS_Task::CreateTask returns it. Pitfall: a
/// loop task with an interval of exactly -1 looks like a one-shot task; 0 repeats as fast and does not.
inline std::size_t DeleteFinished()
{
    const std::vector<std::string> vecTaskIds = CollectIds(IsFinished);
    DeleteTasks(vecTaskIds);
    return vecTaskIds.size();
}

/// Deletes what a pool has left behind: the tasks that were still queued when it ended and its loop tasks,
/// besides the finished ones; returns how many. Only between UnInit and the next use of the pool. A run that
/// outlasted the end of its pool is left alone, and so is what somebody holds.
inline std::size_t DeleteLeftBehind()
{
    const std::vector<std::string> vecTaskIds = CollectIds(IsLeftBehind);
    DeleteTasks(vecTaskIds);
    return vecTaskIds.size();
}
} // namespace TaskSweep
