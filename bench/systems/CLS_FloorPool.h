#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <queue>
#include <string>
#include <thread>
#include <vector>

/// The least that a pool with this one's contract can do. It handles no failures, writes no log records and
/// cannot shut down while tasks run.
///
/// - Each submission costs one read of the random device, a copy of the callable, and an entry in the
///   registry, in both owner maps and in the queue.
/// - Each run costs two hand-offs between threads: from submitter to dispatcher to worker. A thread that
///   has just worked yields a few times before it sleeps, so under load few hand-offs wake a thread.
/// - The queue and the hand-offs carry the task's record, so a run searches no registry.
/// - Loop tasks cost a poll every 10 ms.
/// - Workers are plain threads, started on demand. The lowest idle one runs the next task.
class CLS_FloorPool
{
public:
    CLS_FloorPool();
    /// No task may be queued or running.
    ~CLS_FloorPool();
    CLS_FloorPool(const CLS_FloorPool&) = delete;
    CLS_FloorPool& operator=(const CLS_FloorPool&) = delete;

    static constexpr std::size_t MOST_WORKERS = 301;

    void AddTask(const std::function<void()>& _funTask, void* _pOwner);
    void RemoveTasks(void* _pOwner);

    void AddLoop(const std::function<void()>& _funTask, std::chrono::milliseconds _msInterval);
    void RemoveLoops();

private:
    using TimePoint = std::chrono::steady_clock::time_point;

    static constexpr std::chrono::milliseconds ONE_SHOT{-1};
    static constexpr std::chrono::milliseconds POLL{10};

    /// How often a thread yields before it sleeps.
    static constexpr int MOST_YIELDS_BEFORE_SLEEP = 4;

    struct ST_FloorTask;
    using Task = std::shared_ptr<ST_FloorTask>;
    using Registry = std::map<std::string, Task>;

    /// The places of a task in the maps save searches.
    struct ST_FloorTask
    {
        std::function<void()> m_funTask;
        std::chrono::milliseconds m_msInterval;
        Registry::iterator m_itRegistry;
        bool m_bOwned = false; ///< guarded by m_mtxOwners, like the next two
        std::map<std::string, void*>::iterator m_itOwner;
        std::list<Task>::iterator m_itOwned;
        std::atomic<bool> m_bRunning{false};
        std::atomic<bool> m_bRemoved{false};
    };

    struct ST_Worker
    {
        std::size_t m_uiOrder;
        std::mutex m_mtxTask; ///< guards m_pTask and m_bEnd
        std::condition_variable m_cvTask;
        Task m_pTask;
        std::atomic<bool> m_bTask{false}; ///< whether m_pTask is set; a hint
        bool m_bEnd = false;
        std::thread m_clsThread;
    };

    struct ST_Due
    {
        TimePoint m_tpDue;
        Task m_pTask;
        bool operator>(const ST_Due& _stOther) const { return m_tpDue > _stOther.m_tpDue; }
    };

    Task Register(const std::function<void()>& _funTask, std::chrono::milliseconds _msInterval);
    void AddOwner(const Task& _pTask, void* _pOwner);
    void DropOwner(ST_FloorTask& _stTask);
    std::list<Task> TakeOwned(void* _pOwner);
    void ForgetTasks(const std::list<Task>& _lstTasks);
    void Queue(Task _pTask);

    void Dispatch();
    bool TakeBatch(std::vector<Task>& _vecBatch);
    ST_Worker* TakeIdleWorker();
    ST_Worker& AddWorker();
    ST_Worker& WaitForWorker();
    static void HandOver(ST_Worker& _stWorker, Task& _pTask);
    void Work(ST_Worker& _stWorker);
    static Task TakeTask(ST_Worker& _stWorker);
    void RunTask(const Task& _pTask);
    void QueueDue();

    std::mutex m_mtxRegistry; ///< guards m_mapRegistry
    Registry m_mapRegistry;

    std::mutex m_mtxOwners; ///< guards both owner maps
    std::condition_variable m_cvRunEnd;
    std::map<void*, std::list<Task>> m_mapOwned;
    std::map<std::string, void*> m_mapOwner;

    std::mutex m_mtxQueue; ///< guards m_vecQueue
    std::condition_variable m_cvQueue;
    std::vector<Task> m_vecQueue;
    std::atomic<bool> m_bQueued{false}; ///< whether anything is queued; a hint
    bool m_bEndDispatch = false;

    std::mutex m_mtxIdle; ///< guards m_queIdle
    std::condition_variable m_cvIdle;
    std::priority_queue<std::size_t, std::vector<std::size_t>, std::greater<>> m_queIdle;
    std::atomic<bool> m_bIdle{false};                     ///< whether a worker is idle; a hint
    std::vector<std::unique_ptr<ST_Worker>> m_vecWorkers; ///< the dispatcher's

    std::mutex m_mtxDue; ///< guards m_queDue
    std::priority_queue<ST_Due, std::vector<ST_Due>, std::greater<>> m_queDue;
    std::atomic<bool> m_bEndDue{false};
    std::list<Task> m_lstLoops;

    std::thread m_clsDispatcher;
    std::thread m_clsTimer;
};
