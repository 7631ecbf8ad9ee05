#pragma once

#include "QuenPlugins/ZelTaskPool/CLS_QuenTaskPool.h"
#include "tests/support/ClassLayout.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <forward_list>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

/// The private side of CLS_QuenTaskPool, for tests that look inside. Only PoolView.cpp writes the private
/// names.
namespace PoolView
{
using OwnerLists = std::map<void*, std::list<std::string>>;
using OwnerCursors = std::map<void*, std::list<std::string>::iterator>;

// The members. The caller takes their locks.

std::atomic<bool>& GetRunFlag(CLS_QuenTaskPool& _clsPool);
std::int32_t& GetWorkerLimit(CLS_QuenTaskPool& _clsPool);
std::unique_ptr<std::thread>& GetDispatcher(CLS_QuenTaskPool& _clsPool);
std::unique_ptr<std::thread>& GetLoopScheduler(CLS_QuenTaskPool& _clsPool);
std::unique_ptr<std::thread>& GetWatchdog(CLS_QuenTaskPool& _clsPool);
std::condition_variable& GetQueueSignal(CLS_QuenTaskPool& _clsPool);
CLS_Mutex& GetQueueLock(CLS_QuenTaskPool& _clsPool);
std::vector<std::string>& GetWaitingIds(CLS_QuenTaskPool& _clsPool);
/// For each of GetWaitingIds, the reference to its task.
std::vector<std::weak_ptr<CLS_Task>>& GetWaitingRecords(CLS_QuenTaskPool& _clsPool);
/// A copy of the ids behind those of GetWaitingIds, newest first.
std::forward_list<std::string> GetOverflowIds(CLS_QuenTaskPool& _clsPool);
/// Queues an id behind those of GetWaitingIds, without a reference to its task.
void PushOverflowId(CLS_QuenTaskPool& _clsPool, const std::string& _strTaskId);
CLS_SharedMutex& GetLoopListLock(CLS_QuenTaskPool& _clsPool);
std::vector<std::string>& GetLoopIds(CLS_QuenTaskPool& _clsPool);
CLS_LoopSchedule& GetLoopSchedule(CLS_QuenTaskPool& _clsPool);
CLS_Mutex& GetOwnerLock(CLS_QuenTaskPool& _clsPool);
OwnerLists& GetOwnerLists(CLS_QuenTaskPool& _clsPool);
/// Task id to owner.
std::map<std::string, void*>& GetTaskOwners(CLS_QuenTaskPool& _clsPool);
OwnerCursors& GetOwnerCursors(CLS_QuenTaskPool& _clsPool);
CLS_Mutex& GetIdleLock(CLS_QuenTaskPool& _clsPool);
std::vector<CLS_TaskThread*>& GetIdleWorkers(CLS_QuenTaskPool& _clsPool);
CLS_SharedMutex& GetWorkerLock(CLS_QuenTaskPool& _clsPool);
/// Every worker and the id of the task that is bound to it.
std::map<CLS_TaskThread*, std::string>& GetWorkers(CLS_QuenTaskPool& _clsPool);

/// The members in the order of their declarations, up to the table of workers.
ClassLayout::Members ListMembers(const CLS_QuenTaskPool& _clsPool);

// Single steps of the pool's threads.

/// One pass of the dispatcher.
void RunDispatchPass(CLS_QuenTaskPool& _clsPool);
/// One pass of the loop scheduler.
void RunLoopPass(CLS_QuenTaskPool& _clsPool);
/// One pass of the watchdog.
void RunWatchdogPass(CLS_QuenTaskPool& _clsPool);
/// The state that the dispatcher keeps between passes.
std::shared_ptr<void> MakeBatch();
/// Takes the queue into the dispatcher's batch, and returns the ids in order.
std::vector<std::string> TakeQueue(CLS_QuenTaskPool& _clsPool, const std::shared_ptr<void>& _pBatch);
/// The same, with a new batch.
std::vector<std::string> TakeQueue(CLS_QuenTaskPool& _clsPool);
/// Hands the task to a worker; this number of ids of the batch, this one included, have none yet.
bool DispatchTask(CLS_QuenTaskPool& _clsPool, std::string _strTaskId, std::size_t _uiUndispatched);
/// The dispatcher's hint for workers: tasks wait behind the one that it hands over.
std::atomic<bool>& GetBatchHint(CLS_QuenTaskPool& _clsPool);
/// Reports that no worker was free for the oldest of this number of ids.
void ReportBusy(CLS_QuenTaskPool& _clsPool, std::size_t _uiUndispatched);
CLS_TaskThread* TakeIdleWorker(CLS_QuenTaskPool& _clsPool);
void AddIdleWorker(CLS_QuenTaskPool& _clsPool, CLS_TaskThread* _pWorker);
/// Binds the task to the worker. Has no reference to it, so the task is looked up. Moves the id away.
void BindTask(CLS_QuenTaskPool& _clsPool, CLS_TaskThread* _pWorker, std::string& _strTaskId);
void BindTask(CLS_QuenTaskPool& _clsPool, CLS_TaskThread* _pWorker, std::string& _strTaskId,
              std::weak_ptr<CLS_Task>& _pTask);
void UnbindTask(CLS_QuenTaskPool& _clsPool, CLS_TaskThread* _pWorker);
/// The id of the bound task; nothing for a worker that the pool does not know.
std::optional<std::string> ReadBoundTask(CLS_QuenTaskPool& _clsPool, CLS_TaskThread* _pWorker);
void UnregisterWorker(CLS_QuenTaskPool& _clsPool, CLS_TaskThread* _pWorker);
/// Drops the worker from the table and from the idle list.
void ForgetWorker(CLS_QuenTaskPool& _clsPool, CLS_TaskThread* _pWorker);
/// Retires the worker and frees it.
void RetireWorker(CLS_QuenTaskPool& _clsPool, CLS_TaskThread* _pWorker);
void AddOwnedTask(CLS_QuenTaskPool& _clsPool, const std::string& _strTaskId, void* _pOwner);
std::list<std::string> TakeOwnedTasks(CLS_QuenTaskPool& _clsPool, void* _pOwner);
void ForgetLoopTask(CLS_QuenTaskPool& _clsPool, const std::string& _strTaskId);
void ForgetLoopTasks(CLS_QuenTaskPool& _clsPool);
void StartServiceThreads(CLS_QuenTaskPool& _clsPool);
/// Ends the service threads and waits for them.
void EndServiceThreads(CLS_QuenTaskPool& _clsPool);
/// The instance as the library reads it.
CLS_QuenTaskPool* LoadInstance();

// Copies and changes, each under the member's lock.

/// The waiting queue, oldest first.
std::vector<std::string> GetQueue(CLS_QuenTaskPool& _clsPool);
/// Makes the ids the waiting queue, without references to their tasks, and wakes the dispatcher once.
void SetQueue(CLS_QuenTaskPool& _clsPool, const std::vector<std::string>& _vecTaskIds);
/// Reserves memory for this number of tasks in the waiting queue, so that it need not grow.
void ReserveQueue(CLS_QuenTaskPool& _clsPool, std::size_t _uiTasks);
void ClearQueue(CLS_QuenTaskPool& _clsPool);
std::vector<std::string> GetLoopTasks(CLS_QuenTaskPool& _clsPool);
/// Replaces the list of loop tasks. Does not check the ids.
void SetLoopTasks(CLS_QuenTaskPool& _clsPool, const std::vector<std::string>& _vecTaskIds);
/// Appends an id to that list.
void AddToLoopTasks(CLS_QuenTaskPool& _clsPool, const std::string& _strTaskId);
OwnerLists GetOwned(CLS_QuenTaskPool& _clsPool);
std::map<std::string, void*> GetOwners(CLS_QuenTaskPool& _clsPool);
/// The owners that have a cursor.
std::set<void*> GetCursorOwners(CLS_QuenTaskPool& _clsPool);
std::map<CLS_TaskThread*, std::string> CopyWorkers(CLS_QuenTaskPool& _clsPool);
/// The order ids of the idle list, first to last; -1 for an empty slot.
std::vector<int> GetIdleOrder(CLS_QuenTaskPool& _clsPool);

/// The ids in the registry.
std::set<std::string> GetRegistered();
bool IsRegistered(const std::string& _strTaskId);
/// The registered task with this id. Throws std::bad_weak_ptr when there is none.
std::shared_ptr<CLS_Task> GetTask(const std::string& _strTaskId);

/// Polls until every worker is idle; false at the time limit.
[[nodiscard]] bool WaitForAllIdle(CLS_QuenTaskPool& _clsPool);

/// Whether the registry's lock and all of the pool's locks are free. Tries them on another thread, so that
/// the calling thread's locks count, too.
bool AreLocksFree(CLS_QuenTaskPool& _clsPool);
} // namespace PoolView
