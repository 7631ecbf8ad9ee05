#pragma once

#include "QuenHost/Core/CLS_FailureReport.h"
#include "QuenHost/Core/CLS_LoopCore.h"
#include "QuenHost/Core/CLS_RemovedTasks.h"
#include "QuenHost/Core/CLS_TaskGroup.h"
#include "QuenHost/Core/HostChecks.h"
#include "QuenHost/ST_PoolFunctions.h"
#include "QuenHost/ST_PoolSnapshot.h"
#include "QuenHost/ST_ScopeOptions.h"

#include <atomic>
#include <chrono>
#include <climits>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

class CLS_Ticket;

/// How a host runs a callable on a thread of its own. See CLS_HostThread.
using F_HostPost = std::function<void(std::function<void()>)>;

/// The core of a scope: the queue of its owners' one-shot tasks, and the workers that take from it.
///
/// The pool keeps the task record of a one-shot task, and its removal polls a run every 300 ms. So the kit
/// adds no one-shot task to the pool. It adds carriers:
/// - A carrier is a loop task with the longest interval. It runs once, takes tasks from the hub's queue until
///   the queue is empty, and is removed after its run.
/// - At most MOST_COMING carriers are starting at a time. Each one that takes a task brings the next.
/// - The number of carriers depends on how many tasks run at once. So memory stays flat.
///
/// Threads: any, except End, which runs on the scope's thread. One mutex guards everything. It is held for a
/// few steps, and never during a call of the host's code or of the pool.
///
/// Waits: on the hub's own conditions. So a wait ends as soon as the run does.
///
/// Owns: the waiting tasks. The scope, the owners and the carriers share it.
class CLS_PoolHub : public std::enable_shared_from_this<CLS_PoolHub>
{
public:
    using Clock = std::chrono::steady_clock;

    /// How many one-shot tasks run at once. The pool has 301 workers; one is left for loop tasks.
    static constexpr int MOST_CARRIERS = 300;

    /// How long a removal waits for runs.
    static constexpr std::chrono::milliseconds REMOVAL_LIMIT{9000};

    CLS_PoolHub(const ST_PoolFunctions& _stFunctions, ST_ScopeOptions _stOptions)
        : m_stFunctions(_stFunctions), m_stOptions(std::move(_stOptions))
    {
    }

    CLS_PoolHub(const CLS_PoolHub&) = delete;
    CLS_PoolHub& operator=(const CLS_PoolHub&) = delete;

    // Owners.

    void OpenGroup(CLS_TaskGroup& _clsGroup);

    /// Takes over a task of a group.
    ///
    /// Returns false, and destroys the task, if nothing is taken now or there is no worker. A task that
    /// carries the stop token of earlier work (m_pStop) waits for a worker instead.
    ///
    /// Fails: with std::bad_alloc. Then the caller still has the task.
    bool Submit(std::unique_ptr<CLS_QueuedTask>&& _pTask);

    /// CLS_TaskOwner::SubmitAfter.
    bool SubmitAfter(std::unique_ptr<CLS_QueuedTask> _pTask, std::chrono::milliseconds _msDelay);

    std::shared_ptr<CLS_StopState> GetStop(CLS_TaskGroup& _clsGroup) const;

    /// CLS_TaskOwner::RemoveTasks. With _bClose, the group takes no task afterwards.
    bool RemoveTasks(CLS_TaskGroup& _clsGroup, std::chrono::milliseconds _msLimit, bool _bClose);

    /// CLS_TaskOwner::RemoveTasksLater.
    void RemoveTasksLater(CLS_TaskGroup& _clsGroup, std::shared_ptr<const void> _pKept) noexcept;

    /// Ends an owner.
    void CloseGroup(CLS_TaskGroup& _clsGroup);

    ST_PoolCounters GetCounters(const CLS_TaskGroup& _clsGroup) const;

    /// Reports a failure to the nearest handler, or else to standard error.
    void Report(const CLS_TaskGroup& _clsGroup, n_FailureKind _enKind, const std::string& _strCallInfo,
                const std::exception_ptr& _pException) noexcept;

    // Deliveries to the host's thread.

    /// Has the host's thread run a task, unless the owner's tasks are removed before. Calls the host's code.
    ///
    /// Returns false if the task is not taken. Also false if it cannot be posted: that is a failure of the
    /// task.
    ///
    /// Fails: as Submit.
    bool Post(std::unique_ptr<CLS_QueuedTask>&& _pTask, const F_HostPost& _funPost);
    void RunDelivery(CLS_Ticket& _clsTicket);
    void DropDelivery(CLS_Ticket& _clsTicket, const std::exception_ptr& _pException) noexcept;

    // Loop tasks.

    /// Adds a loop task to the pool. False if the pool refuses it.
    bool AddLoop(const std::shared_ptr<CLS_LoopCore>& _pLoop);

    /// CLS_LoopTask::IsAdded.
    bool IsOpen(const CLS_LoopCore& _clsLoop) const;

    /// CLS_LoopTask::Remove.
    bool RemoveLoop(CLS_LoopCore& _clsLoop, std::chrono::milliseconds _msLimit);

    /// CLS_LoopTask::RemoveLater.
    void RemoveLoopLater(CLS_LoopCore& _clsLoop, std::shared_ptr<const void> _pKept) noexcept;

    // The scope.

    /// Ends the hub: takes no task from now on, and destroys the waiting tasks. The end of the pool waits for
    /// the runs.
    ///
    /// Waits: until no thread of the hub is in a call of the pool, at most 20 seconds.
    void End();

    /// Takes a snapshot without m_iPoolWorkers.
    ST_PoolSnapshot TakeSnapshot() const;

    const std::shared_ptr<CLS_TraceFile>& GetTrace() const { return m_stOptions.m_pTrace; }

private:
    using Lock = std::unique_lock<std::mutex>;
    using Queue = CLS_Chain<CLS_QueuedTask, &CLS_QueuedTask::m_stQueueLink>;
    using Records = std::list<std::shared_ptr<ST_PoolRecord>>;
    using Leftovers = std::list<std::shared_ptr<ST_Leftover>>;
    using Delayed = CLS_QueuedTask::Delayed;

    /// How many carriers are starting at once. While tasks wait, each one that arrives brings the next. So a
    /// few workers do short tasks, and tasks that block soon have as many as they need.
    static constexpr std::size_t MOST_COMING = 4;

    /// How many carriers stay when there is nothing to do, and for how long.
    static constexpr int MOST_PARKED = 8;
    static constexpr std::chrono::seconds PARKED_TIME{5};

    /// The heartbeat's interval. A carrier or a timer that is late by more than this has been lost.
    static constexpr std::chrono::milliseconds BEAT{1000};

    /// A heartbeat that was silent for this long may have been lost, and is replaced.
    static constexpr std::chrono::milliseconds LONGEST_SILENCE{3000};

    /// The time from the end of a carrier's run to the removal of its record. After it, the removal need not
    /// wait.
    static constexpr std::chrono::milliseconds RECORD_REST{20};

    // Records.
    bool AddRecord(ST_PoolRecord& _stRecord, const std::function<void()>& _funTask, int _iInterval,
                   const std::string& _strCallInfo) const;
    void LeavePool();
    void EnterRecord(const std::shared_ptr<ST_PoolRecord>& _pRecord);
    void FinishRecord(const std::shared_ptr<ST_PoolRecord>& _pRecord);
    void SweepRecords(Lock& _lock);
    void RemoveRecords(const Records& _lstRecords) const;

    // Queue.
    bool Accepts(const CLS_QueuedTask& _clsTask) const;
    void EnsureStopState(Lock& _lock, CLS_TaskGroup& _clsGroup) const;
    void CountSubmitted(CLS_QueuedTask& _clsTask);
    void Enqueue(CLS_QueuedTask& _clsTask);
    void Activate(CLS_QueuedTask& _clsTask);
    void Dequeue(CLS_QueuedTask& _clsTask);
    void Deactivate(CLS_TaskGroup& _clsGroup);
    std::unique_ptr<CLS_QueuedTask> Withdraw(std::uint64_t _uiNumber);
    static Delayed::node_type ReserveDelay(CLS_QueuedTask& _clsTask, Clock::time_point _tpDue);
    void Delay(CLS_QueuedTask& _clsTask, Delayed::node_type&& _clsEntry);
    void Undelay(CLS_QueuedTask& _clsTask);
    void EnqueueDue();
    static CLS_QueuedTask* TakePosted(CLS_Ticket& _clsTicket);
    void TakeWaiting(CLS_TaskGroup& _clsGroup, CLS_RemovedTasks& _clsRemoved);
    std::string DescribeFlow(std::uint64_t _uiNumber, const char* _szDirection) const noexcept;

    // Runs.
    void BeginRun(ST_Run& _stRun);
    void EndRun(ST_Run& _stRun);
    void Execute(CLS_QueuedTask& _clsTask, ST_Run& _stRun, const char* _szCategory,
                 const std::string& _strMembers);
    bool WaitForRuns(Lock& _lock, CLS_TaskGroup& _clsGroup, std::chrono::milliseconds _msLimit);
    static bool IsDestroyer(const CLS_TaskGroup& _clsGroup);
    static int MarkOwnRuns(CLS_TaskGroup& _clsGroup, int _iChange);
    static bool CountsForRemoval(const ST_Run& _stRun, bool _bByRun);
    static void HandOver(CLS_TaskGroup& _clsGroup, const std::shared_ptr<ST_Leftover>& _pLeftover);
    void GiveUp(Lock& _lock, CLS_TaskGroup& _clsGroup, bool _bByRun);

    // Workers.
    bool BringCarrier(Lock& _lock);
    bool StartCarrier(Lock& _lock);
    bool EnsureHeartbeat(Lock& _lock);
    void Carry(const std::shared_ptr<ST_PoolRecord>& _pRecord);
    void Arrive(const ST_PoolRecord& _stRecord);
    bool Park(Lock& _lock);
    void RunFirst(Lock& _lock, ST_PoolRecord& _stRecord, const ST_RunThread& _stThread);
    void DestroyLeftover(Lock& _lock);
    void Beat();
    void WriteOffLostCarriers();
    void WriteOffLostTimer();

    // Owners.
    bool Admit(Lock& _lock, CLS_QueuedTask& _clsTask);
    Leftovers LockWithLeftover(Lock& _lock, CLS_TaskGroup& _clsGroup, std::shared_ptr<const void>& _pKept);
    void HandToWorker(Lock& _lock, Leftovers& _lstLeftover);

    // Timer.
    void EnsureTimer(Lock& _lock);
    void StartTimer(Lock& _lock, Clock::time_point _tpDue);
    void Tick(const std::shared_ptr<ST_PoolRecord>& _pTimer);

    // Deliveries.
    template <typename T_End>
    void EndDelivery(CLS_Ticket& _clsTicket, T_End _funEnd);

    // Loop tasks.
    void RunLoop(CLS_LoopCore& _clsLoop);
    std::string DescribeInterval(const CLS_LoopCore& _clsLoop) const noexcept;
    std::shared_ptr<CLS_StopState> CloseLoop(CLS_LoopCore& _clsLoop);
    std::unique_ptr<CLS_QueuedTask> FinishLoop(CLS_LoopCore& _clsLoop);
    void DestroyLoop(Lock& _lock, CLS_LoopCore& _clsLoop);

    // Snapshot.
    static ST_RunInfo DescribeRun(const ST_Run& _stRun, Clock::time_point _tpNow);
    static ST_LoopInfo DescribeLoop(const CLS_LoopCore& _clsLoop, Clock::time_point _tpNow);
    void CountWaiting(ST_PoolSnapshot& _stSnapshot, Clock::time_point _tpNow) const;

    // End.
    Records TakeRecords();
    std::vector<std::shared_ptr<CLS_StopState>> RefuseAll();
    void TakeAll(CLS_RemovedTasks& _clsRemoved);
    void ReportOutlivers();

    const ST_PoolFunctions m_stFunctions;
    const ST_ScopeOptions m_stOptions;
    CLS_FailureReport m_clsReport;
    std::atomic<std::uint64_t> m_uiNumbers{0}; ///< the number of the last task; it orders nothing

    mutable std::mutex m_mtxHub; ///< guards what follows, and the objects that it refers to
    bool m_bEnded = false;
    Queue m_chnQueue;        ///< owned
    Delayed m_mapDelayed;    ///< owned
    Leftovers m_lstLeftover; ///< for a carrier to destroy
    CLS_Chain<CLS_TaskGroup, &CLS_TaskGroup::m_stHubLink> m_chnGroups;
    CLS_Chain<CLS_LoopCore, &CLS_LoopCore::m_stHubLink> m_chnLoops;
    CLS_Chain<ST_Run, &ST_Run::m_stHubLink> m_chnRuns;
    ST_PoolCounters m_stCounters;

    int m_iCarriers = 0;         ///< carriers that were requested and have not left
    int m_iStarting = 0;         ///< those of them that have not arrived
    int m_iParked = 0;           ///< those of them that wait for a task
    int m_iClaimed = 0;          ///< parked carriers that were notified and are not awake yet
    std::uint64_t m_uiEpoch = 0; ///< starting carriers of earlier epochs are written off
    Clock::time_point m_tpLastStart;
    std::condition_variable m_cvParked;
    std::shared_ptr<ST_PoolRecord> m_pHeartbeat; ///< null until it is needed
    Clock::time_point m_tpLastBeat;              ///< the last beat, or when the heartbeat was added
    std::shared_ptr<ST_PoolRecord> m_pTimer;     ///< null when no task is delayed
    Clock::time_point m_tpTimer;                 ///< when its second run is due
    Records m_lstLive;     ///< records of carriers, from before they are added until they leave
    Records m_lstFinished; ///< records to be removed, the oldest first

    int m_iInside = 0; ///< threads that may call the pool
    std::condition_variable m_cvInside;
};

#include "QuenHost/Core/PoolHubDeliveries.h"
#include "QuenHost/Core/PoolHubEnd.h"
#include "QuenHost/Core/PoolHubLoops.h"
#include "QuenHost/Core/PoolHubQueue.h"
#include "QuenHost/Core/PoolHubRecords.h"
#include "QuenHost/Core/PoolHubRuns.h"
#include "QuenHost/Core/PoolHubSnapshot.h"
#include "QuenHost/Core/PoolHubTasks.h"
#include "QuenHost/Core/PoolHubTimer.h"
#include "QuenHost/Core/PoolHubWorkers.h"
