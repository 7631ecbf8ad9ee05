#include "QuenPlugins/ZelTaskPool/CLS_TaskThread.h"

#include "QuenInclude/Util.h"
#include "QuenPlugins/ZelTaskPool/CLS_ShutdownClaim.h"
#include "QuenPlugins/ZelTaskPool/TaskPoolRecord.h"
#include "QuenPlugins/ZelTaskPool/YieldUntil.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <string_view>

using TaskPoolRecord::FILE_THREAD;

std::atomic<std::int32_t> CLS_TaskThread::m_iWaitingOvertime{300000};

namespace
{
/// A worker checks its run flag at least this often.
constexpr std::chrono::seconds WAIT_LIMIT{3};

/// The order id of a worker that the pool has not registered.
constexpr std::int32_t NO_ORDER_ID = -1;
} // namespace

CLS_TaskThread::CLS_TaskThread()
{
    m_pThread = std::make_unique<std::thread>(&CLS_TaskThread::WorkUntilEnd, this);
}

CLS_TaskThread::~CLS_TaskThread()
{
    Exit();
}

void CLS_TaskThread::WorkUntilEnd()
{
    FunTask();
    if (m_clsRunGate.IsAbandoned())
    {
        // No other thread knows this worker. Its pool may be gone, or may still be ending other workers.
        CLS_ShutdownClaim::RemoveOwnThread();
        m_pThread->detach();
        delete this;
    }
}

void CLS_TaskThread::FunTask()
{
    std::int32_t iShownId = NO_ORDER_ID;
    while (m_bRun)
    {
        try
        {
            if (!RunNextJob(iShownId))
            {
                return;
            }
        }
        catch (...)
        {
            RecordFailure();
        }
        m_tpLastActive.store(std::chrono::steady_clock::now(), std::memory_order_relaxed);
        if (m_clsRunGate.IsAbandoned())
        {
            // However the job ended, it belongs to a pool that is gone.
            return;
        }
        YieldForJobs();
    }
}

void CLS_TaskThread::YieldForJobs()
{
    if (m_bBacklog.load(std::memory_order_relaxed))
    {
        // Even if the next job is already there: the dispatcher gets to hand over several jobs at a time.
        std::this_thread::yield();
    }
    YieldUntil(m_bHandedOver);
}

bool CLS_TaskThread::RunNextJob(std::int32_t& _iShownId)
{
    CLS_WaitGuard lock(m_mtxFunction);
    while (!m_funFunction && m_bRun)
    {
        m_cvFunction.wait_for(lock.GetLock(), WAIT_LIMIT);
    }
    if (!m_bRun)
    {
        return false;
    }
    m_bHandedOver.store(false, std::memory_order_relaxed);
    ShowOrderId(_iShownId);
    const CLS_RunGate::CLS_JobScope clsScope(m_clsRunGate);
    if (!clsScope.IsBegun())
    {
        return false;
    }
    CallJob();
    return true;
}

/// The order id comes when the thread already runs, but before its first job.
void CLS_TaskThread::ShowOrderId(std::int32_t& _iShownId)
{
    const std::int32_t iOrderId = m_iOrderId;
    if (iOrderId == _iShownId)
    {
        return;
    }
    constexpr std::string_view PREFIX = "zel-worker-";
    std::array<char, 16> arrName{}; // room for four digits; the pool's ids have up to three
    char* const pDigits = std::copy(PREFIX.begin(), PREFIX.end(), arrName.data());
    std::to_chars(pDigits, arrName.data() + arrName.size() - 1, iOrderId);
    Util::SetThreadName(arrName.data());
    _iShownId = iOrderId;
}

void CLS_TaskThread::RecordFailure()
{
    TaskPoolRecord::Make(FILE_THREAD, "FunTask", Logger::LOG_LEVEL_ERROR)
        << "thread handler error - " << m_iOrderId.load();
}

void CLS_TaskThread::CallJob()
{
    try
    {
        m_funFunction(this);
    }
    catch (...)
    {
        // Kept on purpose: the job stays and runs again on the next pass.
        RecordFailure();
        return;
    }
    m_funFunction = nullptr;
}

bool CLS_TaskThread::Exit()
{
    RequestEnd();
    if (m_pThread && m_pThread->joinable())
    {
        m_pThread->join();
        m_pThread.reset();
    }
    return true;
}

void CLS_TaskThread::RequestEnd()
{
    // At once, so that a job in progress does not run again when it fails.
    m_bRun.exchange(false);
    if (IsOwnThread())
    {
        // Within a job, which holds the mutex. No thread waits for the notification.
        return;
    }
    // Once the mutex is held, the worker has seen the flag, or it waits and gets the notification.
    const CLS_LockGuard lock(m_mtxFunction);
    m_cvFunction.notify_one();
}

bool CLS_TaskThread::IsOwnThread() const
{
    return m_pThread && m_pThread->get_id() == std::this_thread::get_id();
}

std::thread::id CLS_TaskThread::GetThreadId() const
{
    return m_pThread ? m_pThread->get_id() : std::thread::id();
}

bool CLS_TaskThread::AddFunction(const std::function<void(CLS_TaskThread*)>& _funJob)
{
    const CLS_LockGuard lock(m_mtxFunction);
    m_funFunction = _funJob;
    m_bHandedOver.store(true, std::memory_order_relaxed);
    m_cvFunction.notify_one();
    return true;
}

int CLS_TaskThread::GetOrderId()
{
    return m_iOrderId;
}

void CLS_TaskThread::SetOrderId(int _iOrderId)
{
    m_iOrderId.exchange(_iOrderId);
}

bool CLS_TaskThread::IsWaitingOvertime()
{
    return Util::GetElapsedMilliseconds(m_tpLastActive.load(std::memory_order_relaxed)) >= m_iWaitingOvertime;
}

void CLS_TaskThread::SetWaitingOvertime(int _iMilliseconds)
{
    m_iWaitingOvertime.exchange(_iMilliseconds);
}

int CLS_TaskThread::GetWaitingOvertime()
{
    return m_iWaitingOvertime;
}
