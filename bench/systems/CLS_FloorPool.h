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
/// - Each run costs two hand-offs between sleeping threads: from submitter to dispatcher to worker.
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

    struct ST_FloorTask
    {
        std::function<void()> m_funTask;
        std::chrono::milliseconds m_msInterval;
        std::atomic<bool> m_bRunning{false};
    };

    struct ST_Worker
    {
        std::size_t m_uiOrder;
        std::mutex m_mtxTask; ///< guards m_strTask and m_bEnd
        std::condition_variable m_cvTask;
        std::string m_strTask;
        bool m_bEnd = false;
        std::thread m_clsThread;
    };

    struct ST_Due
    {
        TimePoint m_tpDue;
        std::string m_strTask;
        bool operator>(const ST_Due& _stOther) const { return m_tpDue > _stOther.m_tpDue; }
    };

    std::string Register(const std::function<void()>& _funTask, std::chrono::milliseconds _msInterval);
    std::shared_ptr<ST_FloorTask> BeginRun(const std::string& _strTask);
    void AddOwner(const std::string& _strTask, void* _pOwner);
    void DropOwner(const std::string& _strTask);
    std::list<std::string> TakeOwned(void* _pOwner);
    void ForgetTasks(const std::list<std::string>& _lstTasks);
    void Queue(const std::string& _strTask);

    void Dispatch();
    ST_Worker& WaitForWorker();
    void HandOver(ST_Worker& _stWorker, std::string& _strTask);
    void Work(ST_Worker& _stWorker);
    void RunTask(const std::string& _strTask);
    void AddDue(const std::string& _strTask, std::chrono::milliseconds _msInterval);
    void QueueDue();

    std::mutex m_mtxRegistry; ///< guards m_mapRegistry
    std::map<std::string, std::shared_ptr<ST_FloorTask>> m_mapRegistry;

    std::mutex m_mtxOwners; ///< guards both owner maps
    std::condition_variable m_cvRunEnd;
    std::map<void*, std::list<std::string>> m_mapOwned;
    std::map<std::string, void*> m_mapOwner;

    std::mutex m_mtxQueue; ///< guards m_vecQueue
    std::condition_variable m_cvQueue;
    std::vector<std::string> m_vecQueue;
    bool m_bEndDispatch = false;

    std::mutex m_mtxIdle; ///< guards m_queIdle
    std::condition_variable m_cvIdle;
    std::priority_queue<std::size_t, std::vector<std::size_t>, std::greater<>> m_queIdle;
    std::vector<std::unique_ptr<ST_Worker>> m_vecWorkers; ///< the dispatcher's

    std::mutex m_mtxDue; ///< guards m_queDue
    std::priority_queue<ST_Due, std::vector<ST_Due>, std::greater<>> m_queDue;
    std::atomic<bool> m_bEndDue{false};
    std::list<std::string> m_lstLoops;

    std::thread m_clsDispatcher;
    std::thread m_clsTimer;
};
