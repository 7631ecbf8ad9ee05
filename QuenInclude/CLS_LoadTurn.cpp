#include "QuenInclude/CLS_LoadTurn.h"

bool CLS_LoadTurn::Take()
{
    const std::thread::id idSelf = std::this_thread::get_id();
    CLS_WaitGuard lock(m_mtxTurn);
    if (m_idHolder == idSelf || m_bOverdue)
    {
        return false;
    }
    if (!m_cvTurn.wait_for(lock.GetLock(), WAIT_LIMIT,
                           [this]() ZEL_REQUIRES(m_mtxTurn) { return m_idHolder == std::thread::id(); }))
    {
        m_bOverdue = true;
        return false;
    }
    m_idHolder = idSelf;
    return true;
}

void CLS_LoadTurn::Give()
{
    const CLS_LockGuard lock(m_mtxTurn);
    m_idHolder = std::thread::id();
    m_bOverdue = false;
    m_cvTurn.notify_one();
}
