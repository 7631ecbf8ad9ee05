#include "QuenPlugins/ZelTaskPool/CLS_RunGate.h"

bool CLS_RunGate::EnterRun()
{
    const std::lock_guard<std::mutex> lock(m_mtxGate);
    m_bRunning = !m_bClosed;
    m_idRunner = std::this_thread::get_id();
    return m_bRunning;
}

bool CLS_RunGate::LeaveRun()
{
    const std::lock_guard<std::mutex> lock(m_mtxGate);
    m_bRunning = false;
    m_cvGate.notify_one();
    return !m_bAbandoned;
}

bool CLS_RunGate::Close(std::chrono::nanoseconds _nsLimit)
{
    std::unique_lock<std::mutex> lock(m_mtxGate);
    m_bClosed = true;
    if (m_bRunning && m_idRunner != std::this_thread::get_id())
    {
        m_cvGate.wait_for(lock, _nsLimit, [this] { return !m_bRunning; });
    }
    m_bAbandoned = m_bRunning;
    return !m_bAbandoned;
}

bool CLS_RunGate::IsAbandoned()
{
    const std::lock_guard<std::mutex> lock(m_mtxGate);
    return m_bAbandoned;
}
