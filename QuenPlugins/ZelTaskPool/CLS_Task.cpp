#include "QuenPlugins/ZelTaskPool/CLS_Task.h"

#include "QuenInclude/CLS_Mutex.h"
#include "QuenPlugins/ZelTaskPool/ReserveEntry.h"
#include "QuenPlugins/ZelTaskPool/TaskPoolRecord.h"

#include <algorithm>
#include <thread>

using TaskPoolRecord::FILE_TASK;

namespace
{
/// Counts the calls of SetLoopInterval for all tasks.
std::atomic<std::uint64_t> g_uiIntervalChanges{0};

/// Stop makes a log record after this many sleeps.
constexpr int STOP_POLLS_PER_RECORD = 10;

/// The status from which a task counts as executing.
constexpr std::int32_t STATUS_EXECUTING = 2;

/// Allocates a record together with its reference counts. Its destructor is not virtual on purpose, so the
/// record is destroyed by name, as what it is.
template <typename T_Value>
class CLS_RecordAllocator : public std::allocator<T_Value>
{
public:
    template <typename T_Other>
    struct rebind
    {
        using other = CLS_RecordAllocator<T_Other>;
    };

    CLS_RecordAllocator() = default;
    template <typename T_Other>
    explicit CLS_RecordAllocator(const CLS_RecordAllocator<T_Other>& /*_clsOther*/)
    {
    }

    void destroy(CLS_Task* _pTask) { _pTask->CLS_Task::~CLS_Task(); }
};
} // namespace

/// The registry. Hosts see the map and the lock through the static members, which have the standard types.
struct CLS_Task::ST_Registry
{
    class CLS_Change;

    /// The current era. Begins a new one if a host has changed the map, which then differs in size from what
    /// the library made of it.
    std::uint32_t GetEra() ZEL_REQUIRES_SHARED(m_smLock)
    {
        if (m_uiSize.load(std::memory_order_acquire) != m_mapTasks.size())
        {
            m_uiEra.fetch_add(1, std::memory_order_relaxed);
            NoteSize();
        }
        return m_uiEra.load(std::memory_order_relaxed);
    }

    /// Notes the size of the map after a change.
    void NoteSize() ZEL_REQUIRES_SHARED(m_smLock)
    {
        m_uiSize.store(m_mapTasks.size(), std::memory_order_release);
    }

    CLS_SharedMutex m_smLock;
    std::map<std::string, std::shared_ptr<CLS_Task>> m_mapTasks ZEL_GUARDED_BY(m_smLock);
    /// The size as the library knows it. Readers that share the lock write it, too. Release and acquire: a
    /// thread that sees the new size sees the era that began with it.
    std::atomic<std::size_t> m_uiSize{0};
    std::atomic<std::uint32_t> m_uiEra{1}; ///< see CLS_Task::m_uiEra; relaxed
    /// See CLS_Change. Release and acquire: a thread that sees it set sees the era of the change.
    std::atomic<bool> m_bChanging{false};
};

/// The library's own change of the registry, for as long as this object lives, with the lock held.
///
/// It takes long, because the map is large and its memory cold. Meanwhile no host can change the map, and the
/// era is known. So FindTask needs no lock to trust a reference, and does not wait.
class CLS_Task::ST_Registry::CLS_Change
{
public:
    explicit CLS_Change(ST_Registry& _stRegistry) ZEL_REQUIRES(_stRegistry.m_smLock)
        : m_uiEra(_stRegistry.GetEra()), m_stRegistry(_stRegistry)
    {
        m_stRegistry.m_bChanging.store(true, std::memory_order_release);
    }
    ~CLS_Change() { m_stRegistry.m_bChanging.store(false, std::memory_order_relaxed); }
    CLS_Change(const CLS_Change&) = delete;
    CLS_Change& operator=(const CLS_Change&) = delete;

    const std::uint32_t m_uiEra; ///< the era of the change

private:
    ST_Registry& m_stRegistry;
};

CLS_Task::ST_Registry& CLS_Task::GetRegistry()
{
    static ST_Registry& s_stRegistry = *new ST_Registry;
    return s_stRegistry;
}

std::map<std::string, std::shared_ptr<CLS_Task>>& CLS_Task::m_mapTaskData = GetRegistry().m_mapTasks;
std::shared_mutex& CLS_Task::m_smTaskDataLock = GetRegistry().m_smLock;

/// One run, from its beginning to its end, however it ends.
class CLS_Task::CLS_Run
{
public:
    explicit CLS_Run(CLS_Task& _clsTask) : m_clsTask(_clsTask)
    {
        m_clsTask.m_iTaskStatus.exchange(TASK_STATUS_RUNNING);
    }
    ~CLS_Run()
    {
        m_clsTask.m_tpLastRun.store(std::chrono::steady_clock::now(), std::memory_order_relaxed);
        m_clsTask.m_iTaskStatus.exchange(TASK_STATUS_IDLE);
    }
    CLS_Run(const CLS_Run&) = delete;
    CLS_Run& operator=(const CLS_Run&) = delete;

private:
    CLS_Task& m_clsTask;
};

CLS_Task::CLS_Task(const std::function<void()>& _funTask, int _iLoopInterval, const std::string& _strCallInfo)
    : m_funTask(_funTask), m_iLoopInterval(_iLoopInterval)
{
    StoreParam("callinfo", CLS_CVariant(_strCallInfo));
}

CLS_Task::~CLS_Task()
{
    Stop();
}

std::shared_ptr<CLS_Task> CLS_Task::CreateTask(const std::function<void()>& _funTask, int _iLoopInterval,
                                               const std::string& _strCallInfo)
{
    std::string strTaskId;
    std::shared_ptr<CLS_Task> pTask = CreatePoolTask(_funTask, _iLoopInterval, _strCallInfo, strTaskId);
    pTask->m_uiEra.store(0, std::memory_order_relaxed);
    return pTask;
}

std::shared_ptr<CLS_Task> CLS_Task::CreatePoolTask(const std::function<void()>& _funTask, int _iLoopInterval,
                                                   const std::string& _strCallInfo, std::string& _strTaskId)
{
    auto pTask = std::allocate_shared<CLS_Task>(CLS_RecordAllocator<CLS_Task>(), _funTask, _iLoopInterval,
                                                _strCallInfo);
    // Drawing the id and making the entry take time, so they come before the lock.
    _strTaskId = pTask->GetId();
    auto clsEntry = ReserveEntry<std::map<std::string, std::shared_ptr<CLS_Task>>>(_strTaskId, pTask);
    // What is replaced is released after the lock, and so is the entry that it leaves over.
    std::shared_ptr<CLS_Task> pReplaced = pTask;
    ST_Registry& stRegistry = GetRegistry();
    const CLS_LockGuard lock(stRegistry.m_smLock);
    const ST_Registry::CLS_Change clsChange(stRegistry);
    pTask->m_uiEra.store(clsChange.m_uiEra, std::memory_order_relaxed);
    auto stInserted = stRegistry.m_mapTasks.insert(std::move(clsEntry));
    if (!stInserted.inserted)
    {
        ForgetEra(stInserted.position->second);
        pReplaced.swap(stInserted.position->second);
        clsEntry = std::move(stInserted.node);
    }
    stRegistry.NoteSize();
    return pTask;
}

std::weak_ptr<CLS_Task> CLS_Task::GetTask(const std::string& _strTaskId)
{
    ST_Registry& stRegistry = GetRegistry();
    const CLS_SharedGuard lock(stRegistry.m_smLock);
    const auto itTask = stRegistry.m_mapTasks.find(_strTaskId);
    if (itTask == stRegistry.m_mapTasks.end())
    {
        return {};
    }
    ForgetEra(itTask->second);
    return itTask->second;
}

std::shared_ptr<CLS_Task> CLS_Task::FindTask(const std::weak_ptr<CLS_Task>& _pKept,
                                             const std::string& _strTaskId)
{
    // Released after the lock: if the task has left the registry, this may be the last reference.
    std::shared_ptr<CLS_Task> pKept = _pKept.lock();
    ST_Registry& stRegistry = GetRegistry();
    if (pKept && stRegistry.m_bChanging.load(std::memory_order_acquire) &&
        pKept->IsOfEra(stRegistry.m_uiEra.load(std::memory_order_relaxed)))
    {
        return pKept;
    }
    const CLS_SharedGuard lock(stRegistry.m_smLock);
    if (pKept && pKept->IsOfEra(stRegistry.GetEra()))
    {
        return pKept;
    }
    const auto itTask = stRegistry.m_mapTasks.find(_strTaskId);
    return itTask == stRegistry.m_mapTasks.end() ? nullptr : itTask->second;
}

bool CLS_Task::IsOfEra(std::uint32_t _uiEra) const
{
    return m_uiEra.load(std::memory_order_relaxed) == _uiEra;
}

void CLS_Task::DeleteTask(const std::string& _strTaskId)
{
    ST_Registry& stRegistry = GetRegistry();
    const CLS_LockGuard lock(stRegistry.m_smLock);
    const ST_Registry::CLS_Change clsChange(stRegistry);
    const auto itTask = stRegistry.m_mapTasks.find(_strTaskId);
    if (itTask != stRegistry.m_mapTasks.end())
    {
        ForgetEra(itTask->second);
        stRegistry.m_mapTasks.erase(itTask);
        stRegistry.NoteSize();
    }
}

void CLS_Task::ForgetEra(const std::shared_ptr<CLS_Task>& _pTask)
{
    // A host may have put a null pointer into the map.
    if (_pTask)
    {
        _pTask->m_uiEra.store(0, std::memory_order_relaxed);
    }
}

bool CLS_Task::Running()
{
    const CLS_Run clsRun(*this);
    try
    {
        InvokeCallable();
    }
    catch (const std::exception& exError)
    {
        RecordFailure("Running error", exError.what());
    }
    catch (...)
    {
        RecordFailure("Running error", nullptr);
    }
    return true;
}

void CLS_Task::InvokeCallable()
{
    try
    {
        if (m_bValid && m_funTask)
        {
            m_funTask();
        }
    }
    catch (const std::exception& exError)
    {
        RecordFailure("run function error", exError.what());
    }
    catch (...)
    {
        RecordFailure("run function error", nullptr);
    }
}

void CLS_Task::RecordFailure(const std::string& _strFailure, const char* _szReason, int _iLine)
{
    const std::string strText = _szReason == nullptr
                                    ? _strFailure + " " + ParamToString()
                                    : _strFailure + " :" + _szReason + " param :" + ParamToString();
    TaskPoolRecord::Make(FILE_TASK, "Running", Logger::LOG_LEVEL_ERROR, _iLine) << strText;
}

bool CLS_Task::Stop()
{
    return StopUntil(std::chrono::steady_clock::time_point::max());
}

bool CLS_Task::StopUntil(std::chrono::steady_clock::time_point _tpLimit)
{
    m_bValid.exchange(false);
    for (int iSleeps = 1; iSleeps <= STOP_POLLS; ++iSleeps)
    {
        if (m_iTaskStatus < STATUS_EXECUTING)
        {
            return true;
        }
        const std::chrono::nanoseconds nsLeft = _tpLimit - std::chrono::steady_clock::now();
        if (nsLeft <= std::chrono::nanoseconds(0))
        {
            break;
        }
        std::this_thread::sleep_for(std::min<std::chrono::nanoseconds>(STOP_POLL, nsLeft));
        if (iSleeps % STOP_POLLS_PER_RECORD == 0)
        {
            // Kept on purpose: the number is one more than the sleeps done.
            const std::string strText =
                "Stop Task waiting task info : [" + ParamToString() + "] " + std::to_string(iSleeps + 1);
            TaskPoolRecord::Make(FILE_TASK, "Stop", Logger::LOG_LEVEL_PROGRESS) << strText;
        }
    }
    const std::string strText = "StopTask overtime task info : [" + ParamToString() + "]";
    TaskPoolRecord::Make(FILE_TASK, "Stop", Logger::LOG_LEVEL_ERROR) << strText;
    return false;
}

n_TaskStatus CLS_Task::GetTaskStatus()
{
    return m_iTaskStatus;
}

void CLS_Task::SetTaskStatus(n_TaskStatus _iTaskStatus)
{
    m_iTaskStatus.exchange(_iTaskStatus);
}

n_TaskStatus CLS_Task::SetTaskIsWaiting()
{
    return m_iTaskStatus.exchange(TASK_STATUS_WAITING);
}

void CLS_Task::UndoWaiting()
{
    n_TaskStatus iExpected = TASK_STATUS_WAITING;
    m_iTaskStatus.compare_exchange_strong(iExpected, TASK_STATUS_IDLE);
}

void CLS_Task::SetRemoved()
{
    m_bRemoved.store(true, std::memory_order_relaxed);
}

bool CLS_Task::IsRemoved()
{
    return m_bRemoved.load(std::memory_order_relaxed);
}

std::function<void()> CLS_Task::TakeCallable() noexcept
{
    std::function<void()> funTask;
    funTask.swap(m_funTask);
    return funTask;
}

bool CLS_Task::IsLoop()
{
    return m_iLoopInterval >= 0;
}

void CLS_Task::SetLoopInterval(int _iLoopInterval)
{
    m_iLoopInterval.exchange(_iLoopInterval);
    // After the interval: a thread that sees this count also sees the new interval.
    ++g_uiIntervalChanges;
}

int CLS_Task::GetLoopInterval()
{
    return m_iLoopInterval;
}

bool CLS_Task::IsRunning()
{
    return m_iTaskStatus != TASK_STATUS_IDLE;
}

bool CLS_Task::IsUseRun()
{
    if (m_iTaskStatus > TASK_STATUS_IDLE || !m_bValid)
    {
        return false;
    }
    return Util::GetElapsedMilliseconds(m_tpLastRun.load(std::memory_order_relaxed)) >= m_iLoopInterval;
}

std::chrono::steady_clock::time_point CLS_Task::GetEarliestRun()
{
    if (m_iTaskStatus > TASK_STATUS_IDLE || !m_bValid)
    {
        return std::chrono::steady_clock::time_point::min();
    }
    return m_tpLastRun.load(std::memory_order_relaxed) + std::chrono::milliseconds(m_iLoopInterval);
}

std::uint64_t CLS_Task::GetIntervalChanges()
{
    return g_uiIntervalChanges;
}

bool CLS_Task::GetValid()
{
    return m_bValid;
}

void CLS_Task::SetValid(bool _bValid)
{
    m_bValid.exchange(_bValid);
}
