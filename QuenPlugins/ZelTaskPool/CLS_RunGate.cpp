#include "QuenPlugins/ZelTaskPool/CLS_RunGate.h"

namespace
{
/// Close checks a worker that is within the pool at least this often.
constexpr std::chrono::milliseconds STEPS_POLL{100};
} // namespace

bool CLS_RunGate::BeginJob()
{
    const CLS_LockGuard lock(m_mtxGate);
    m_bInJob = !m_bClosed;
    m_idRunner = std::this_thread::get_id();
    return m_bInJob;
}

void CLS_RunGate::EndJob()
{
    const CLS_LockGuard lock(m_mtxGate);
    m_bInJob = false;
    m_cvGate.notify_one();
}

bool CLS_RunGate::EnterPool()
{
    const CLS_LockGuard lock(m_mtxGate);
    m_bInPool = true;
    m_cvGate.notify_one();
    return !m_bAbandoned;
}

void CLS_RunGate::LeavePool()
{
    const CLS_LockGuard lock(m_mtxGate);
    m_bInPool = false;
    m_cvGate.notify_one();
}

bool CLS_RunGate::EnterRun()
{
    const CLS_LockGuard lock(m_mtxGate);
    m_bRunning = !m_bClosed;
    m_idRunner = std::this_thread::get_id();
    return m_bRunning;
}

bool CLS_RunGate::LeaveRun()
{
    const CLS_LockGuard lock(m_mtxGate);
    m_bRunning = false;
    m_cvGate.notify_one();
    return !m_bAbandoned;
}

bool CLS_RunGate::IsOver() const
{
    return !m_bInJob && !m_bRunning;
}

bool CLS_RunGate::IsForeign() const
{
    return m_bRunning || (m_bInJob && !m_bInPool);
}

bool CLS_RunGate::Close(std::chrono::steady_clock::time_point _tpLimit)
{
    CLS_WaitGuard lock(m_mtxGate);
    m_bClosed = true;
    if (m_idRunner != std::this_thread::get_id())
    {
        m_cvGate.wait_until(lock.GetLock(), _tpLimit, [this]() ZEL_REQUIRES(m_mtxGate) { return IsOver(); });
        // A worker is not abandoned in the middle of its few steps within the pool either.
        while (!IsForeign() && !IsOver())
        {
            m_cvGate.wait_for(lock.GetLock(), STEPS_POLL);
        }
    }
    m_bAbandoned = IsForeign();
    return !m_bAbandoned;
}

bool CLS_RunGate::IsAbandoned()
{
    const CLS_LockGuard lock(m_mtxGate);
    return m_bAbandoned;
}
