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

/// The pool: one object a process. Runs the host's callables on workers that it makes on demand, 301 at most.
///
/// A task's road: AddTmpTask or AddLoopTask registers it and puts its id on the waiting queue; the dispatcher
/// takes the queue, binds each id to the idle worker with the lowest order id, or to a new one, and hands the
/// worker its job, FunRunTask, which runs the task and puts the worker back on the idle list. The loop
/// scheduler queues each loop task anew when its interval has passed since its last run ended. The watchdog
/// retires workers that have been idle for too long.
///
/// Failures are records and empty results; no exception leaves an operation unless it says so. Unknown ids
/// and owners are ignored.
///
/// Thread-safe, but for the beginning and the end: the first use must not race another, and no host thread
/// may be in the pool while UnInit runs. No thread holds two of the pool's locks at once, and none is held
/// while a task runs, is waited for or destroyed, nor while a record is made.
///
/// Pitfalls: a task that stops or removes itself waits for its own run, about 9 seconds. A task that shuts
/// the pool down frees it beneath its own worker; that is survived, but not meant. A callable that may
/// outlast the end of the pool must not call it from then on.
class CLS_QuenTaskPool
{
public:
    /// The pool; builds it when there is none, and passes on the constructor's exceptions. The first call
    /// must not race another: building on first use is unsynchronised on purpose.
    ZEL_TASKPOOL_EXPORT static CLS_QuenTaskPool* GetInstance();

    /// Starts dispatcher, loop scheduler and watchdog, and no worker. When one of them cannot be started,
    /// those already running are ended before the std::system_error, or std::bad_alloc, leaves. For
    /// GetInstance.
    ZEL_TASKPOOL_EXPORT CLS_QuenTaskPool();

    /// Forgets the instance and releases the members. No thread is left after UnInit; after one that failed,
    /// ends those that are, which takes about 9 seconds at most, for none may run on a pool that is gone. For
    /// UnInit and KillTaskAll.
    ZEL_TASKPOOL_EXPORT ~CLS_QuenTaskPool();

    CLS_QuenTaskPool(const CLS_QuenTaskPool&) = delete;
    CLS_QuenTaskPool& operator=(const CLS_QuenTaskPool&) = delete;

    /// Queues _funTask, copied, to run once on behalf of the owner _pObj, which is never touched and must not
    /// be null. _strCallInfo says who submits it, and appears in records. False, with a record, for a null
    /// owner, when the copying throws or ends the pool, and when memory or another resource runs out; when
    /// that happens after the queueing, the task runs all the same, without an owner. The task may run before
    /// the call returns. Its record, and what the callable captured, stay until the process ends, unless the
    /// owner's tasks are removed before it has run. Any thread, from within tasks, too. Waits for no task;
    /// one lock at a time.
    ZEL_TASKPOOL_EXPORT bool AddTmpTask(const std::function<void()>& _funTask, void* _pObj,
                                        const std::string& _strCallInfo);

    /// Queues _funTask, copied, to run now and again _iInterval milliseconds after each run ended, plus up to
    /// about 10 ms; 0 repeats at once, a negative interval never waits either. Overwrites _strTaskId with the
    /// task's id, by which it is removed.
    ///
    /// When the copying throws or ends the pool, or memory or another resource runs out, there is a record.
    /// The id then tells how far the call came:
    /// - it is as it was: there is no such task;
    /// - it is new: the task is registered. It was queued and runs once, or it was not queued and never runs.
    ///   RemoveTask removes it in either case.
    ///
    /// Any thread, from within tasks, too. Waits for no task; one lock at a time.
    ZEL_TASKPOOL_EXPORT void AddLoopTask(const std::function<void()>& _funTask, int _iInterval,
                                         std::string& _strTaskId, const std::string& _strCallInfo);

    /// Makes a task invalid and waits, as CLS_Task::Stop does, for a run in progress. The task stays known.
    /// Any thread. Exceptions of CLS_Task::Stop pass.
    ZEL_TASKPOOL_EXPORT void StopTask(const std::string& _strTaskId);

    /// Drops one id from the owner maps; the task itself is left alone. Any thread; m_mtxTmpTasks.
    ZEL_TASKPOOL_EXPORT void RemoveTmpTask(const std::string& _strTaskId) ZEL_EXCLUDES(m_mtxTmpTasks);

    /// Cancels and forgets all tasks that _pObj submitted and that have not finished: makes them all invalid,
    /// then waits for each that is running. What those submit for the same owner meanwhile is cancelled, too.
    ///
    /// Waits
    /// - up to 9 seconds for each task that the owner had at the call;
    /// - then up to 9 seconds for all that were submitted since, together;
    /// - and up to 0.3 seconds in all for threads that let go of a task.
    ///
    /// The owner may be destroyed afterwards, unless a run outlasted the wait: such a run goes on, and its
    /// task is forgotten. Tasks that it submits for the owner from then on are not cancelled.
    ///
    /// What the callables captured is destroyed on the calling thread, with no lock held; it may call the
    /// pool, or end it. When a run outlasts the wait, or another thread goes on using the task, it is
    /// destroyed there and later. A null or unknown owner is ignored. When something throws, there is a
    /// record, and the tasks not yet handled stay registered, most of them invalid. Any thread.
    ZEL_TASKPOOL_EXPORT void RemoveTmpTask(void* _pObj, const std::string& _strCallInfo);

    /// Stops and forgets one task, usually a loop task; waits up to about 9 seconds for a run in progress.
    /// The callable is destroyed as by the removal by owner. Any thread.
    ZEL_TASKPOOL_EXPORT void RemoveTask(const std::string& _strTaskId, const std::string& _strCallInfo);

    /// The same as RemoveTask, record texts included.
    ZEL_TASKPOOL_EXPORT void KillTask(const std::string& _strTaskId, const std::string& _strCallInfo);

    /// UnInit, and destroys the instance even when UnInit could not, which takes about 9 seconds more. This
    /// object is gone afterwards. The same threads as UnInit; on a service thread, where UnInit fails, the
    /// instance survives. A call while the pool is being ended does what UnInit does then.
    ZEL_TASKPOOL_EXPORT void KillTaskAll();

    /// Ends the pool: ends the service threads, stops the tasks that are running, ends the workers, destroys
    /// this object. Queued tasks are dropped, loop tasks forgotten; the registry stays as it is.
    ///
    /// Waits for
    /// - the service threads, about 200 ms;
    /// - each running task, up to 9 seconds;
    /// - then for all that no StopTask can wait for, up to 9 seconds together: runs of removed tasks, and
    ///   jobs that a host gave to a worker with CLS_TaskThread::AddFunction.
    ///
    /// A run or a job that outlasts this is left behind: its worker touches nothing of the pool, ends when
    /// the run does, and keeps the library loaded.
    ///
    /// A call while another thread ends the pool, in whichever way, waits until that is over, and then finds
    /// no pool; it ends the pool itself if the other thread failed. It gives up when a single step of the
    /// other's takes more than 20 seconds. On a thread of the pool's own, and on the thread that ends the
    /// pool, such a call returns at once.
    ///
    /// When a step fails, there is a record, the object survives, takes tasks but runs none, and UnInit may
    /// be called again. Not from a task or a record's "PrintLog".
    ZEL_TASKPOOL_EXPORT void UnInit();

    /// Marks the task as waiting and appends its id to the waiting queue. Any thread; the registry's lock,
    /// then m_mtxWaitingTasks. std::bad_alloc passes, before the task is touched. Pitfall: no check is
    /// made; a task that is queued twice runs twice, perhaps at once, and one that is queued while it runs is
    /// not waited for by Stop.
    ZEL_TASKPOOL_EXPORT void AddWaitingTasks(const std::string& _strTaskId) ZEL_EXCLUDES(m_mtxWaitingTasks);

    /// Makes and registers a worker, which the pool owns. Null, with a record, when there is no thread or no
    /// memory to be had; the worker, with a record, when only the registering failed. For GetTaskThread.
    ZEL_TASKPOOL_EXPORT CLS_TaskThread* CreateTaskThread();

    /// The idle worker with the lowest order id, else, after giving way once to one that may be coming back,
    /// a new one as long as there are no more than m_iMaxThread, else null. For the dispatcher only: check,
    /// count and creation are separate steps.
    ZEL_TASKPOOL_EXPORT CLS_TaskThread* GetTaskThread();

    /// The number of workers. Any thread; m_smThreadTaskLock, shared.
    ZEL_TASKPOOL_EXPORT int GetTaskThreadNum() ZEL_EXCLUDES(m_smThreadTaskLock);

    /// A worker's job: runs the task that the dispatcher bound to the worker, then puts the worker back on
    /// the idle list. On the worker's thread. A task whose parameters cannot be read is not
    /// run, with a record; a loop task is due again. std::bad_alloc passes when the idle list cannot grow;
    /// the worker then calls its job again, which finds no task and tries the list again.
    ZEL_TASKPOOL_EXPORT void FunRunTask(CLS_TaskThread* _pWorker);

    /// The dispatcher's body. Names its thread zel-dispatcher. Returns when the pool ends: at once, or when
    /// the pass in progress is done. For its thread only.
    ZEL_TASKPOOL_EXPORT void FunTaskingThread();
    /// The loop scheduler's body: the same, but its thread is zel-loops, and it returns within 10 ms.
    ZEL_TASKPOOL_EXPORT void FunLoopThread();
    /// The watchdog's body: the same, but its thread is zel-watchdog, and it returns within 180 ms.
    ZEL_TASKPOOL_EXPORT void FunTaskThreadWaitingOvertime();

    /// The one pool; null when there is none. No lock: written by the first use and by the pool's end only.
    /// The library itself reads and writes it atomically.
    ZEL_TASKPOOL_EXPORT static CLS_QuenTaskPool* m_pInstance;

private:
    using BindingMap = std::map<CLS_TaskThread*, std::string>;
    using Bindings = std::vector<std::pair<CLS_TaskThread*, std::string>>;

    // Lifetime: the start and end of the pool.
    static CLS_QuenTaskPool* LoadInstance();
    static void StoreInstance(CLS_QuenTaskPool* _pPool);
    void StartServiceThreads();
    void StartServiceThread(std::unique_ptr<std::thread>& _pThread, void (CLS_QuenTaskPool::*_funBody)());
    void EndServiceThreads();
    void EndServiceThread(std::unique_ptr<std::thread>& _pThread);
    bool ShutDown(CLS_ShutdownClaim& _clsClaim);
    void DestroyInstance();
    bool IsPoolThread();

    // Tasks: submission and removal.
    std::shared_ptr<CLS_Task> MakeTask(const std::function<void()>& _funTask, int _iInterval,
                                       const std::string& _strCallInfo);
    void RemoveLateTasks(void* _pObj, int& _iPollsLeft);

    // Loops: the loop tasks and their scheduler.
    void LoopPass() ZEL_EXCLUDES(m_smLoopTasksLock);
    void RefreshLoopSchedule() ZEL_EXCLUDES(m_smLoopTasksLock);
    void ListLoopTask(const std::string& _strTaskId) ZEL_EXCLUDES(m_smLoopTasksLock);
    void ForgetLoopTask(const std::string& _strTaskId) ZEL_EXCLUDES(m_smLoopTasksLock);
    void ForgetLoopTasks() ZEL_EXCLUDES(m_smLoopTasksLock);

    // Dispatch: from the waiting queue to a worker.
    void AppendWaitingTask(std::forward_list<std::string>& _lstTaskId) ZEL_REQUIRES(m_mtxWaitingTasks);
    void RequestShutdown() ZEL_EXCLUDES(m_mtxWaitingTasks);
    void DispatchPass();
    std::vector<std::string> TakeWaitingTasks(std::forward_list<std::string>& _lstOverflow)
        ZEL_EXCLUDES(m_mtxWaitingTasks);
    bool DispatchTask(std::string& _strTaskId, std::size_t _iUndispatched);
    CLS_TaskThread* WaitForWorker(std::size_t _iUndispatched);
    void ReportBusy(std::size_t _iUndispatched) ZEL_EXCLUDES(m_mtxWaitingTasks);

    // Workers: their table, the idle list, their job, and their end.
    void RegisterWorker(CLS_TaskThread* _pWorker, BindingMap::node_type&& _clsBinding)
        ZEL_EXCLUDES(m_smThreadTaskLock);
    std::string UnregisterWorker(CLS_TaskThread* _pWorker) ZEL_EXCLUDES(m_smThreadTaskLock);
    void BindTask(CLS_TaskThread* _pWorker, std::string& _strTaskId) ZEL_EXCLUDES(m_smThreadTaskLock);
    std::optional<std::string> ReadBoundTask(CLS_TaskThread* _pWorker) ZEL_EXCLUDES(m_smThreadTaskLock);
    std::optional<std::string> TakeBoundTask(CLS_TaskThread* _pWorker) ZEL_EXCLUDES(m_smThreadTaskLock);
    void UnbindTask(CLS_TaskThread* _pWorker) ZEL_EXCLUDES(m_smThreadTaskLock);
    Bindings CopyBindings() ZEL_EXCLUDES(m_smThreadTaskLock);
    bool IsWorkerThread() ZEL_EXCLUDES(m_smThreadTaskLock);
    void AddIdleWorker(CLS_TaskThread* _pWorker) ZEL_EXCLUDES(m_mtxIdleThreads);
    CLS_TaskThread* TakeIdleWorker() ZEL_EXCLUDES(m_mtxIdleThreads);
    bool SleepBetweenPasses();
    void OvertimePass();
    std::vector<CLS_TaskThread*> TakeOverdueWorkers() ZEL_EXCLUDES(m_mtxIdleThreads);
    void RetireWorker(CLS_TaskThread* _pWorker);
    std::vector<CLS_TaskThread*> StopBoundTasks(CLS_ShutdownClaim& _clsClaim);
    void EndWorkers(const std::vector<CLS_TaskThread*>& _vecOverrun);
    CLS_TaskThread* FindWorker() ZEL_EXCLUDES(m_smThreadTaskLock);
    void ForgetWorker(CLS_TaskThread* _pWorker) ZEL_EXCLUDES(m_mtxIdleThreads);

    // Owners: who submitted which one-shot task.
    void AddOwnedTask(const std::string& _strTaskId, void* _pObj) ZEL_EXCLUDES(m_mtxTmpTasks);
    std::list<std::string> TakeOwnedTasks(void* _pObj) ZEL_EXCLUDES(m_mtxTmpTasks);

    /// Whether the pool goes on. Cleared under m_mtxWaitingTasks, so that a waiting dispatcher cannot miss
    /// it; read by service threads and workers without.
    std::atomic<bool> m_bRun{true};
    std::int32_t m_iMaxThread = 300; ///< a new worker is made while there are no more than this; constant

    /// The service threads. Written by the constructor and by the thread that ends the pool; no lock.
    std::unique_ptr<std::thread> m_pTaskingThread;
    std::unique_ptr<std::thread> m_pLoopThread;
    std::unique_ptr<std::thread> m_pOvertimeThread;

    std::condition_variable m_cvWaitingTasks; ///< signalled for each queued id, and at the end
    CLS_Mutex m_mtxWaitingTasks;
    /// Ids that wait for a worker, oldest first.
    std::vector<std::string> m_vecWaitingTasks ZEL_GUARDED_BY(m_mtxWaitingTasks);

    CLS_SharedMutex m_smLoopTasksLock;
    /// Ids of the loop tasks, in order of submission.
    std::vector<std::string> m_vecLoopTasks ZEL_GUARDED_BY(m_smLoopTasksLock);

    CLS_Mutex m_mtxTmpTasks;
    /// Owner to its ids, in order of submission.
    std::map<void*, std::list<std::string>> m_mapTmpTasks ZEL_GUARDED_BY(m_mtxTmpTasks);
    /// Id to owner.
    std::map<std::string, void*> m_mapTmpTaskOwner ZEL_GUARDED_BY(m_mtxTmpTasks);

    CLS_Mutex m_mtxIdleThreads;
    /// Workers without a task, by ascending order id.
    std::vector<CLS_TaskThread*> m_vecIdleThreads ZEL_GUARDED_BY(m_mtxIdleThreads);

    CLS_SharedMutex m_smThreadTaskLock;
    /// Every worker, owned, to its task's id or "".
    std::map<CLS_TaskThread*, std::string> m_mapThreadTask ZEL_GUARDED_BY(m_smThreadTaskLock);

    /// Owner to the place in its list behind the id that was dropped last; one for each list. The next one to
    /// be dropped is likely to be near, while ids of tasks that ran before they were listed gather at the
    /// front.
    std::map<void*, std::list<std::string>::iterator> m_mapTmpTaskCursors ZEL_GUARDED_BY(m_mtxTmpTasks);

    /// What the loop scheduler knows about m_vecLoopTasks.
    CLS_LoopSchedule m_clsLoopSchedule;

    /// Ids that wait for a worker behind those of m_vecWaitingTasks, which had no memory to grow. Newest
    /// first.
    std::forward_list<std::string> m_lstWaitingOverflow ZEL_GUARDED_BY(m_mtxWaitingTasks);
};
