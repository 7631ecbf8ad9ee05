#include "QuenPlugins/ZelTaskPool/CLS_RunGate.h"

namespace
{
/// Close checks a worker that is within the pool at least this often.
constexpr std::chrono::milliseconds STEPS_POLL{100};
} // namespace

bool CLS_RunGate::Begin(unsigned _uiBit)
{
    m_idRunner.store(std::this_thread::get_id(), std::memory_order_relaxed);
    unsigned uiState = m_uiState;
    while ((uiState & CLOSED) == 0)
    {
        if (m_uiState.compare_exchange_weak(uiState, uiState | _uiBit))
        {
            return true;
        }
    }
    Remove(_uiBit);
    return false;
}

bool CLS_RunGate::NotifyClose(unsigned _uiState)
{
    if ((_uiState & CLOSED) != 0)
    {
        // Once the mutex is held, Close has seen the change, or it waits and gets the notification.
        const CLS_LockGuard lock(m_mtxGate);
        m_cvGate.notify_one();
    }
    return (_uiState & ABANDONED) == 0;
}

bool CLS_RunGate::Close(std::chrono::steady_clock::time_point _tpLimit)
{
    CLS_WaitGuard lock(m_mtxGate);
    m_uiState |= CLOSED;
    if (m_idRunner.load(std::memory_order_relaxed) == std::this_thread::get_id())
    {
        return !Abandon();
    }
    m_cvGate.wait_until(lock.GetLock(), _tpLimit, [this] { return IsOver(m_uiState); });
    while (!IsOver(m_uiState))
    {
        if (Abandon())
        {
            return false;
        }
        // A worker is not abandoned in the middle of its few steps within the pool either.
        m_cvGate.wait_for(lock.GetLock(), STEPS_POLL);
    }
    return true;
}

bool CLS_RunGate::Abandon()
{
    unsigned uiState = m_uiState;
    while (IsForeign(uiState))
    {
        if (m_uiState.compare_exchange_weak(uiState, uiState | ABANDONED))
        {
            return true;
        }
    }
    return false;
}
