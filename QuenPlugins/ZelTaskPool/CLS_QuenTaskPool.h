#pragma once

#include "QuenInclude/CLS_Mutex.h"
#include "QuenPlugins/ZelTaskPool/CLS_LoopSchedule.h"
#include "QuenPlugins/ZelTaskPool/CLS_Task.h"
#include "QuenPlugins/ZelTaskPool/CLS_TaskThread.h"
#include "QuenPlugins/ZelTaskPool/Export.h"
#include "QuenPlugins/ZelTaskPool/TaskPoolExports.h"

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <forward_list>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

class CLS_ShutdownClaim;

/// The pool: one object per process. It runs the host's callables on up to 301 workers, which it creates on
/// demand.
///
/// The path of a task:
/// - AddTmpTask or AddLoopTask registers the task and puts its id on the waiting queue.
/// - The dispatcher takes the queue and binds each id to a worker: the idle one with the lowest order id, or
///   a new one. It then hands the worker its job, FunRunTask.
/// - The job runs the task and puts the worker back on the idle list.
/// - The loop scheduler requeues a loop task when its interval has passed since its last run ended.
/// - The watchdog retires workers that have been idle for too long.
///
/// Threads: thread-safe, except at the start and the shutdown. The first use must not race another, and no
/// host thread may be inside another call while UnInit runs.
///
/// Locks: no thread holds two of the pool's locks at once. A thread that holds one does not run, destroy or
/// wait for a task, and writes no log record.
///
/// Fails: failures become log records and empty results. No exception leaves an operation unless its comment
/// says so. Unknown ids and owners are ignored.
///
/// Pitfalls:
/// - A task that stops or removes itself waits for its own run, about 9 seconds.
/// - A task that shuts the pool down frees it while its own worker still runs. Nothing breaks, but avoid it.
/// - A callable that may outlast the shutdown must not call the pool afterwards.
class CLS_QuenTaskPool
{
public:
    /// Returns the pool. Builds it when there is none.
    ///
    /// Threads: any, but the first call must not race another: building on first use is not synchronised, on
    /// purpose.
    /// Fails: the exceptions of the constructor propagate.
    ZEL_TASKPOOL_EXPORT static CLS_QuenTaskPool* GetInstance();

    /// Starts dispatcher, loop scheduler and watchdog, but no worker. For GetInstance.
    ///
    /// Fails: std::system_error or std::bad_alloc propagates when a thread cannot be started. The threads
    /// that already run are ended first.
    ZEL_TASKPOOL_EXPORT CLS_QuenTaskPool();

    /// Forgets the instance and releases the members. For UnInit and KillTaskAll.
    ///
    /// Waits: for nothing after a successful UnInit. After a failed one, waits up to about 9 seconds to end
    /// the remaining threads, because none may run on a pool that is gone.
    ZEL_TASKPOOL_EXPORT ~CLS_QuenTaskPool();

    CLS_QuenTaskPool(const CLS_QuenTaskPool&) = delete;
    CLS_QuenTaskPool& operator=(const CLS_QuenTaskPool&) = delete;

    /// Queues a copy of _funTask to run once on behalf of the owner _pObj. True if it was queued.
    ///
    /// The owner must not be null, and is never accessed. _strCallInfo names the submitter in log records.
    /// The task may run before the call returns.
    ///
    /// Threads: any, even in a task.
    /// Waits: for no task; takes one lock at a time.
    /// Fails: false, with a log record, in these cases:
    /// - the owner is null: nothing is queued;
    /// - copying the callable throws or shuts the pool down: nothing is queued;
    /// - memory or another resource runs out. If the task was queued before that, it still runs, but without
    ///   an owner.
    ///
    /// Owns: the registry keeps the task record and the captured objects until the process ends, even after
    /// the pool. A removal of the owner's tasks before the run destroys them earlier.
    ZEL_TASKPOOL_EXPORT bool AddTmpTask(const std::function<void()>& _funTask, void* _pObj,
                                        const std::string& _strCallInfo);

    /// Queues a copy of _funTask to run now, and again _iInterval milliseconds after each run has ended.
    ///
    /// The next run starts up to about 10 ms late. With an interval of 0, or a negative one, the task repeats
    /// at once. Overwrites _strTaskId with the id of the task, for RemoveTask.
    ///
    /// Threads: any, even in a task.
    /// Waits: for no task; takes one lock at a time.
    /// Fails: with a log record, when copying the callable throws or shuts the pool down, or when memory or
    /// another resource runs out. _strTaskId then tells how far the call came:
    /// - unchanged: there is no such task;
    /// - changed: the task is registered. It runs once if it was queued, otherwise never. In either case
    ///   RemoveTask removes it.
    ZEL_TASKPOOL_EXPORT void AddLoopTask(const std::function<void()>& _funTask, int _iInterval,
                                         std::string& _strTaskId, const std::string& _strCallInfo);

    /// Makes a task invalid and waits for a run in progress. The task stays registered.
    ///
    /// Threads: any.
    /// Waits: as CLS_Task::Stop, whose exceptions propagate.
    ZEL_TASKPOOL_EXPORT void StopTask(const std::string& _strTaskId);

    /// Drops one id from the owner maps. The task itself is left alone.
    ///
    /// Threads: any.
    /// Waits: for m_mtxTmpTasks.
    ZEL_TASKPOOL_EXPORT void RemoveTmpTask(const std::string& _strTaskId) ZEL_EXCLUDES(m_mtxTmpTasks);

    /// Cancels and forgets all unfinished tasks of the owner _pObj.
    ///
    /// Makes them all invalid first, then waits for each that is running. Also cancels tasks that these
    /// submit for the same owner in the meantime. Ignores a null or unknown owner.
    ///
    /// The owner may be destroyed afterwards, unless a run outlasted the wait. Such a run goes on, and its
    /// task is forgotten. Tasks that it submits for the owner from then on are not cancelled.
    ///
    /// Threads: any.
    /// Waits:
    /// - up to 9 seconds for each task that the owner had at the call;
    /// - then up to 9 seconds in all for the tasks that were submitted since;
    /// - and up to 0.3 seconds in all for threads that still hold a reference to a task.
    ///
    /// Fails: when something throws, there is a log record. The tasks not yet handled stay registered, and
    /// most of them are invalid.
    ///
    /// Owns: destroys the captured objects on the calling thread, with no lock held. Their destructors may
    /// call the pool or shut it down. If a run outlasts the wait, or another thread still uses the task, that
    /// thread destroys them later.
    ZEL_TASKPOOL_EXPORT void RemoveTmpTask(void* _pObj, const std::string& _strCallInfo);

    /// Stops and forgets one task, usually a loop task.
    ///
    /// Threads: any.
    /// Waits: up to about 9 seconds for a run in progress.
    /// Fails: with a log record.
    /// Owns: destroys the captured objects as the removal by owner does.
    ZEL_TASKPOOL_EXPORT void RemoveTask(const std::string& _strTaskId, const std::string& _strCallInfo);

    /// Does the same as RemoveTask, with the same log texts.
    ZEL_TASKPOOL_EXPORT void KillTask(const std::string& _strTaskId, const std::string& _strCallInfo);

    /// Shuts the pool down as UnInit does, and destroys the instance even when UnInit fails.
    ///
    /// This object is gone afterwards. During another shutdown, a call behaves as UnInit does.
    ///
    /// Threads: as UnInit. On a thread of the pool, the instance survives a failed UnInit. On a service
    /// thread, UnInit always fails.
    ///
    /// Waits: as UnInit; about 9 seconds more when that fails.
    ZEL_TASKPOOL_EXPORT void KillTaskAll();

    /// Shuts the pool down: stops the running tasks, ends all threads and destroys this object.
    ///
    /// Queued tasks are dropped and loop tasks forgotten. The registry stays as it is.
    ///
    /// Threads: any, except in a task or in the "PrintLog" of a log record. While another thread shuts the
    /// pool down with either function, a call
    /// - waits until that is over and then finds no pool, or shuts it down itself if the other thread failed;
    /// - gives up when a single step of the other thread takes more than 20 seconds;
    /// - returns at once on a thread of the pool, and on the thread that shuts it down.
    ///
    /// Waits for:
    /// - the service threads: about 200 ms;
    /// - each running task: up to 9 seconds;
    /// - runs of removed tasks, and jobs that a host gave to a worker with CLS_TaskThread::AddFunction: up to
    ///   9 seconds in all.
    ///
    /// A worker whose run or job outlasts this is abandoned. It no longer accesses the pool, ends when the
    /// run does, and keeps the library loaded.
    ///
    /// Fails: when a step fails, there is a log record. The object survives, accepts tasks but runs none, and
    /// UnInit may be called again.
    ZEL_TASKPOOL_EXPORT void UnInit();

    /// Marks the task as waiting and appends its id to the waiting queue.
    ///
    /// Pitfall: nothing is checked. A task that is queued twice runs twice, perhaps at the same time. Stop
    /// does not wait for a task that is queued while it runs.
    ///
    /// Threads: any.
    /// Waits: for the registry's lock, then m_mtxWaitingTasks.
    /// Fails: std::bad_alloc propagates before the task is touched.
    ZEL_TASKPOOL_EXPORT void AddWaitingTasks(const std::string& _strTaskId) ZEL_EXCLUDES(m_mtxWaitingTasks);

    /// Creates and registers a worker. For GetTaskThread.
    ///
    /// Fails: with a log record. Returns null if no thread can be started or memory runs out. If only the
    /// registration failed, returns the worker.
    ///
    /// Owns: the pool owns the worker.
    ZEL_TASKPOOL_EXPORT CLS_TaskThread* CreateTaskThread();

    /// Picks the worker for the next task: an idle one, or else a new one. Null if neither is available.
    ///
    /// Takes the idle worker with the lowest order id. If there is none, yields once to a worker that may be
    /// about to become idle. Creates a worker if there are at most m_iMaxThread workers.
    ///
    /// Threads: the dispatcher only: check, count and creation are separate steps.
    ZEL_TASKPOOL_EXPORT CLS_TaskThread* GetTaskThread();

    /// The number of workers.
    ///
    /// Threads: any.
    /// Waits: for m_smThreadTaskLock, shared.
    ZEL_TASKPOOL_EXPORT int GetTaskThreadNum() ZEL_EXCLUDES(m_smThreadTaskLock);

    /// A worker's job: runs the task that the dispatcher bound to it and puts the worker back on the idle
    /// list.
    ///
    /// Threads: the worker's.
    /// Fails: if the task's parameters cannot be read, writes a log record and does not run the task. A loop
    /// task is due again. If the idle list cannot grow, std::bad_alloc propagates. The worker then calls its
    /// job again, which finds no task and tries the list again.
    ZEL_TASKPOOL_EXPORT void FunRunTask(CLS_TaskThread* _pWorker);

    /// The body of the dispatcher's thread, which it names zel-dispatcher.
    ///
    /// Returns at the shutdown: at once, or when the pass in progress is done.
    ZEL_TASKPOOL_EXPORT void FunTaskingThread();
    /// The body of the loop scheduler's thread, which it names zel-loops. Returns within 10 ms of the
    /// shutdown.
    ZEL_TASKPOOL_EXPORT void FunLoopThread();
    /// The body of the watchdog's thread, which it names zel-watchdog. Returns within 180 ms of the shutdown.
    ZEL_TASKPOOL_EXPORT void FunTaskThreadWaitingOvertime();

    /// The one pool; null when there is none. No lock: only the first use and the shutdown write it. The
    /// library itself reads and writes it atomically.
    ZEL_TASKPOOL_EXPORT static CLS_QuenTaskPool* m_pInstance;

private:
    using BindingMap = std::map<CLS_TaskThread*, std::string>;
    using Bindings = std::vector<std::pair<CLS_TaskThread*, std::string>>;

    /// A task on its way to a worker: its id, and a reference that saves looking it up. The reference may be
    /// out of date, see CLS_Task::FindTask.
    struct ST_QueuedTask
    {
        std::string m_strTaskId;
        std::weak_ptr<CLS_Task> m_pTask;
    };

    /// What the dispatcher has taken off the waiting queue: ids with their references, and the overflow
    /// behind them, oldest first.
    struct ST_Batch
    {
        std::vector<std::string> m_vecTaskIds;
        std::vector<std::weak_ptr<CLS_Task>> m_vecTasks;
        std::forward_list<ST_QueuedTask> m_lstOverflow;
    };

    // Lifetime: the start and the shutdown.

    /// Reads m_pInstance atomically, because the caller may race the shutdown.
    static CLS_QuenTaskPool* LoadInstance();
    /// Writes m_pInstance atomically, for LoadInstance.
    static void StoreInstance(CLS_QuenTaskPool* _pPool);
    /// Starts dispatcher, loop scheduler and watchdog.
    void StartServiceThreads();
    /// Starts one service thread.
    void StartServiceThread(std::unique_ptr<std::thread>& _pThread, void (CLS_QuenTaskPool::*_funBody)());
    /// Tells the service threads to end and waits for them.
    void EndServiceThreads();
    /// Waits for one service thread, if it was started.
    void EndServiceThread(std::unique_ptr<std::thread>& _pThread);
    /// Shuts the pool down and destroys it. False when that failed and the pool is still there.
    bool ShutDown(CLS_ShutdownClaim& _clsClaim);
    /// Destroys the instance: this pool, unless a racing first use has built another one.
    void DestroyInstance();
    /// Whether the shutdown waits for the calling thread.
    bool IsPoolThread();

    // Tasks: submission and removal.

    /// Creates and registers a task and returns its id in _strTaskId. Throws when copying the callable throws
    /// or shuts the pool down.
    std::shared_ptr<CLS_Task> MakeTask(const std::function<void()>& _funTask, int _iInterval,
                                       const std::string& _strCallInfo, std::string& _strTaskId);
    /// Removes the tasks that the owner's tasks submitted while they were being removed.
    void RemoveLateTasks(void* _pObj, int& _iPollsLeft);

    // Loops: the loop tasks and their scheduler.

    /// Queues each loop task that is due.
    void LoopPass() ZEL_EXCLUDES(m_smLoopTasksLock);
    /// Brings the schedule into line with the list of loop tasks.
    void RefreshLoopSchedule() ZEL_EXCLUDES(m_smLoopTasksLock);
    /// Appends the id to the list of loop tasks.
    void ListLoopTask(const std::string& _strTaskId) ZEL_EXCLUDES(m_smLoopTasksLock);
    /// Drops the first occurrence of the id from the list of loop tasks.
    void ForgetLoopTask(const std::string& _strTaskId) ZEL_EXCLUDES(m_smLoopTasksLock);
    /// Clears the list of loop tasks.
    void ForgetLoopTasks() ZEL_EXCLUDES(m_smLoopTasksLock);

    // Dispatch: from the waiting queue to a worker.

    /// Marks the task as waiting and appends it to the waiting queue, as AddWaitingTasks does.
    void QueueTask(const std::shared_ptr<CLS_Task>& _pTask, const std::string& _strTaskId)
        ZEL_EXCLUDES(m_mtxWaitingTasks);
    /// Appends the one task in the list to the waiting queue. Without memory, queues the list itself.
    void AppendWaitingTask(std::forward_list<ST_QueuedTask>& _lstTask) ZEL_REQUIRES(m_mtxWaitingTasks);
    /// Makes room for one more task in the vectors of the waiting queue. False without memory.
    bool ReserveWaitingTask() ZEL_REQUIRES(m_mtxWaitingTasks);
    /// Clears the run flag and wakes the dispatcher.
    void RequestShutdown() ZEL_EXCLUDES(m_mtxWaitingTasks);
    /// Takes all queued tasks into _stBatch and hands them to workers, in order. The shutdown drops the rest.
    void DispatchPass(ST_Batch& _stBatch);
    /// Waits for a task or the shutdown. Takes the queue into _stBatch, and reuses the memory that is in it.
    void TakeWaitingTasks(ST_Batch& _stBatch) ZEL_EXCLUDES(m_mtxWaitingTasks);
    /// Hands a task to a worker; _iUndispatched ids wait for one. False when the shutdown comes first.
    bool DispatchTask(std::string& _strTaskId, std::weak_ptr<CLS_Task>& _pTask, std::size_t _iUndispatched);
    /// Waits for a worker; _iUndispatched ids wait for one. Null when the shutdown comes first.
    CLS_TaskThread* WaitForWorker(std::size_t _iUndispatched);
    /// Reports what keeps every worker busy while _iUndispatched ids of the batch wait for one.
    void ReportBusy(std::size_t _iUndispatched) ZEL_EXCLUDES(m_mtxWaitingTasks);

    // Workers: their table, the idle list, their job, retirement and shutdown.

    /// Sets the worker's order id and adds the worker to the table, using up the entry.
    void RegisterWorker(CLS_TaskThread* _pWorker, BindingMap::node_type&& _clsBinding)
        ZEL_EXCLUDES(m_smThreadTaskLock);
    /// Drops the worker from the table. Returns the id of the task bound to it, "" for none.
    std::string UnregisterWorker(CLS_TaskThread* _pWorker) ZEL_EXCLUDES(m_smThreadTaskLock);
    /// Whether the calling thread is a registered worker's.
    bool IsWorkerThread() ZEL_EXCLUDES(m_smThreadTaskLock);
    /// Binds the task to the worker, whose job reads it. Exchanges id and reference for those of the worker.
    void BindTask(CLS_TaskThread* _pWorker, std::string& _strTaskId, std::weak_ptr<CLS_Task>& _pTask)
        ZEL_EXCLUDES(m_smThreadTaskLock);
    /// The task bound to the worker, if it is registered. Moves the id out if there is no memory to copy it.
    std::optional<ST_QueuedTask> ReadBoundTask(CLS_TaskThread* _pWorker) ZEL_EXCLUDES(m_smThreadTaskLock);
    /// Moves out the task bound to the worker, if it is registered. Needs no memory.
    std::optional<ST_QueuedTask> TakeBoundTask(CLS_TaskThread* _pWorker) ZEL_EXCLUDES(m_smThreadTaskLock);
    /// The part of a job that does not touch the pool. False when the pool has ended, or is about to.
    static bool RunBoundTask(CLS_TaskThread* _pWorker, const std::optional<ST_QueuedTask>& _optTask);
    /// Clears the id bound to the worker, and the reference.
    void UnbindTask(CLS_TaskThread* _pWorker) ZEL_EXCLUDES(m_smThreadTaskLock);
    /// Every worker with the id of its task, "" for an idle one.
    Bindings CopyBindings() ZEL_EXCLUDES(m_smThreadTaskLock);
    /// Puts the worker on the idle list, by order id.
    void AddIdleWorker(CLS_TaskThread* _pWorker) ZEL_EXCLUDES(m_mtxIdleThreads);
    /// Takes the first worker off the idle list; null when there is none.
    CLS_TaskThread* TakeIdleWorker() ZEL_EXCLUDES(m_mtxIdleThreads);
    /// Sleeps between two passes of the watchdog. False at the shutdown.
    bool SleepBetweenPasses();
    /// Retires the workers that have been idle for too long.
    void OvertimePass();
    /// Takes overdue workers and empty slots off the back of the idle list, up to the first other worker.
    std::vector<CLS_TaskThread*> TakeOverdueWorkers() ZEL_EXCLUDES(m_mtxIdleThreads);
    /// Unregisters the worker, ends its thread and frees it.
    void RetireWorker(CLS_TaskThread* _pWorker);
    /// Stops every bound task, one after the other. Returns the workers whose run outlasted that.
    std::vector<CLS_TaskThread*> StopBoundTasks(CLS_ShutdownClaim& _clsClaim);
    /// Ends and frees all workers, but abandons those whose run does not end in time.
    void EndWorkers(const std::vector<CLS_TaskThread*>& _vecOverrun);
    /// Any of the workers; null when none is left.
    CLS_TaskThread* FindWorker() ZEL_EXCLUDES(m_smThreadTaskLock);
    /// Drops the worker from the table and from the idle list.
    void ForgetWorker(CLS_TaskThread* _pWorker) ZEL_EXCLUDES(m_mtxIdleThreads);

    // Owners: which owner submitted which one-shot task.

    /// Notes the owner of a task in all maps, or in none when memory runs out.
    void AddOwnedTask(std::string _strTaskId, void* _pObj) ZEL_EXCLUDES(m_mtxTmpTasks);
    /// Drops the owner from all maps and returns the ids of its tasks.
    std::list<std::string> TakeOwnedTasks(void* _pObj) ZEL_EXCLUDES(m_mtxTmpTasks);

    /// Whether the pool runs. Cleared under m_mtxWaitingTasks, so that a waiting dispatcher cannot miss it.
    /// Service threads and workers read it without the lock.
    std::atomic<bool> m_bRun{true};
    std::int32_t m_iMaxThread = 300; ///< a worker is created while there are no more than this; constant

    /// The service threads. Written by the constructor and by the thread that shuts the pool down; no lock.
    std::unique_ptr<std::thread> m_pTaskingThread;
    std::unique_ptr<std::thread> m_pLoopThread;
    std::unique_ptr<std::thread> m_pOvertimeThread;

    std::condition_variable m_cvWaitingTasks; ///< signalled for each queued id, and at the shutdown
    CLS_Mutex m_mtxWaitingTasks;
    /// Ids that wait for a worker, oldest first.
    std::vector<std::string> m_vecWaitingTasks ZEL_GUARDED_BY(m_mtxWaitingTasks);

    CLS_SharedMutex m_smLoopTasksLock;
    /// Ids of the loop tasks, in order of submission.
    std::vector<std::string> m_vecLoopTasks ZEL_GUARDED_BY(m_smLoopTasksLock);

    CLS_Mutex m_mtxTmpTasks;
    /// Owner to the ids of its tasks, in order of submission.
    std::map<void*, std::list<std::string>> m_mapTmpTasks ZEL_GUARDED_BY(m_mtxTmpTasks);
    /// Id to owner.
    std::map<std::string, void*> m_mapTmpTaskOwner ZEL_GUARDED_BY(m_mtxTmpTasks);

    CLS_Mutex m_mtxIdleThreads;
    /// The idle list: workers without a task, by ascending order id.
    std::vector<CLS_TaskThread*> m_vecIdleThreads ZEL_GUARDED_BY(m_mtxIdleThreads);

    CLS_SharedMutex m_smThreadTaskLock;
    /// The table of workers, which the pool owns: each with the id of its task, or "".
    std::map<CLS_TaskThread*, std::string> m_mapThreadTask ZEL_GUARDED_BY(m_smThreadTaskLock);

    /// For each owner, the place in its list just behind the id that was dropped last. The next id to be
    /// dropped is probably near it. Ids of tasks that ran before they were listed gather at the front.
    std::map<void*, std::list<std::string>::iterator> m_mapTmpTaskCursors ZEL_GUARDED_BY(m_mtxTmpTasks);

    /// What the loop scheduler knows about m_vecLoopTasks. Only its thread uses this, except the count of the
    /// list's changes.
    CLS_LoopSchedule m_clsLoopSchedule;

    /// For each id in m_vecWaitingTasks, the reference to its task.
    std::vector<std::weak_ptr<CLS_Task>> m_vecWaitingRecords ZEL_GUARDED_BY(m_mtxWaitingTasks);
    /// Tasks that wait behind those of m_vecWaitingTasks, because it had no memory to grow. Newest first.
    std::forward_list<ST_QueuedTask> m_lstWaitingOverflow ZEL_GUARDED_BY(m_mtxWaitingTasks);
    /// Whether any task waits in the queue. Written with m_mtxWaitingTasks held. Dispatcher and workers read
    /// it without, as a hint. Relaxed.
    std::atomic<bool> m_bWaitingTasks{false};
    /// Whether tasks wait behind the one that the dispatcher hands over now. Written by the dispatcher, read
    /// by workers, as a hint. Relaxed.
    std::atomic<bool> m_bBatchWaits{false};
};
