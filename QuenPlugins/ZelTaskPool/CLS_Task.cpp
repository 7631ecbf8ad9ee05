#include "QuenPlugins/ZelTaskPool/CLS_Task.h"

#include "QuenInclude/CLS_Mutex.h"
#include "QuenPlugins/ZelTaskPool/ReserveEntry.h"
#include "QuenPlugins/ZelTaskPool/TaskPoolRecord.h"

#include <algorithm>
#include <thread>

using TaskPoolRecord::FILE_TASK;

namespace
{
/// The registry and its lock, with the annotated types. Hosts see them through the static members, which have
/// the standard types.
struct ST_Registry
{
    CLS_SharedMutex m_smLock;
    std::map<std::string, std::shared_ptr<CLS_Task>> m_mapTasks ZEL_GUARDED_BY(m_smLock);
};

ST_Registry& GetRegistry()
{
    static ST_Registry& s_stRegistry = *new ST_Registry;
    return s_stRegistry;
}

/// Counts the calls of SetLoopInterval for all tasks.
std::atomic<std::uint64_t> g_uiIntervalChanges{0};

/// Stop makes a log record after this many sleeps.
constexpr int STOP_POLLS_PER_RECORD = 10;

/// The status from which a task counts as executing.
constexpr std::int32_t STATUS_EXECUTING = 2;

#pragma GCC diagnostic push
// The destructor is not virtual on purpose. The deleted object is of exactly this class.
#pragma GCC diagnostic ignored "-Wdelete-non-virtual-dtor"
/// An empty class, so that the control block of a task record does not grow.
struct ST_DeleteRecord
{
    void operator()(const CLS_Task* _pTask) const { delete _pTask; }
};
#pragma GCC diagnostic pop
} // namespace

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
    SetParam("callinfo", _strCallInfo);
}

CLS_Task::~CLS_Task()
{
    Stop();
}

std::shared_ptr<CLS_Task> CLS_Task::CreateTask(const std::function<void()>& _funTask, int _iLoopInterval,
                                               const std::string& _strCallInfo)
{
    std::shared_ptr<CLS_Task> pTask(new CLS_Task(_funTask, _iLoopInterval, _strCallInfo), ST_DeleteRecord());
    // Drawing the id and making the entry take time, so they come before the lock.
    auto clsEntry = ReserveEntry<std::map<std::string, std::shared_ptr<CLS_Task>>>(pTask->GetId(), pTask);
    ST_Registry& stRegistry = GetRegistry();
    const CLS_LockGuard lock(stRegistry.m_smLock);
    const auto stInserted = stRegistry.m_mapTasks.insert(std::move(clsEntry));
    stInserted.position->second = pTask;
    return pTask;
}

std::weak_ptr<CLS_Task> CLS_Task::GetTask(const std::string& _strTaskId)
{
    ST_Registry& stRegistry = GetRegistry();
    const CLS_SharedGuard lock(stRegistry.m_smLock);
    const auto itTask = stRegistry.m_mapTasks.find(_strTaskId);
    return itTask == stRegistry.m_mapTasks.end() ? std::weak_ptr<CLS_Task>() : itTask->second;
}

void CLS_Task::DeleteTask(const std::string& _strTaskId)
{
    ST_Registry& stRegistry = GetRegistry();
    const CLS_LockGuard lock(stRegistry.m_smLock);
    stRegistry.m_mapTasks.erase(_strTaskId);
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
