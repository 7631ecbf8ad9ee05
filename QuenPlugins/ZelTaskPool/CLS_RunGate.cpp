#include "QuenPlugins/ZelTaskPool/CLS_RunGate.h"

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

bool CLS_RunGate::Close(std::chrono::nanoseconds _nsLimit)
{
    CLS_WaitGuard lock(m_mtxGate);
    m_bClosed = true;
    if (m_bRunning && m_idRunner != std::this_thread::get_id())
    {
        m_cvGate.wait_for(lock.GetLock(), _nsLimit, [this]() ZEL_REQUIRES(m_mtxGate) { return !m_bRunning; });
    }
    m_bAbandoned = m_bRunning;
    return !m_bAbandoned;
}

bool CLS_RunGate::IsAbandoned()
{
    const CLS_LockGuard lock(m_mtxGate);
    return m_bAbandoned;
}
