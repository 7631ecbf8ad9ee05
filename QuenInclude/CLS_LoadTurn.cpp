#include "QuenInclude/CLS_LoadTurn.h"

bool CLS_LoadTurn::Take()
{
    const std::thread::id idSelf = std::this_thread::get_id();
    CLS_WaitGuard lock(m_mtxTurn);
    if (m_idHolder == idSelf || m_bOverdue)
    {
        return false;
    }
    const auto tpEnd = std::chrono::steady_clock::now() + WAIT_LIMIT;
    while (m_idHolder != std::thread::id())
    {
        const auto nsLeft = tpEnd - std::chrono::steady_clock::now();
        if (nsLeft <= std::chrono::steady_clock::duration::zero())
        {
            m_bOverdue = true;
            return false;
        }
        m_cvTurn.wait_for(lock.GetLock(), nsLeft);
    }
    m_idHolder = idSelf;
    return true;
}

bool CLS_LoadTurn::TryTake()
{
    const CLS_LockGuard lock(m_mtxTurn);
    if (m_idHolder != std::thread::id())
    {
        return false;
    }
    m_idHolder = std::this_thread::get_id();
    return true;
}

void CLS_LoadTurn::Give()
{
    const CLS_LockGuard lock(m_mtxTurn);
    m_idHolder = std::thread::id();
    m_bOverdue = false;
    m_cvTurn.notify_one();
}
