// The operations of the threads in a schedule. Each one announces itself, waits for its turn, and then takes
// effect.

#include "verify/schedules/core/Memory.h"
#include "verify/schedules/core/Scheduler.h"

#include <algorithm>

namespace
{
// Kinds of access to memory that must be allocated.
constexpr const char* USED_AS_WORD = "used as an atomic word";
constexpr const char* USED_AS_LOCK = "locked or unlocked";
constexpr const char* WAITED_FOR = "waited for";
constexpr const char* NOTIFIED = "notified";
} // namespace

void CLS_Scheduler::Reach(n_Step _iStep, const void* _pWord)
{
    const CLS_Inside clsInside;
    WaitAt(_iStep, _pWord, WAIT_NOTHING, USED_AS_WORD);
}

void CLS_Scheduler::ShowStores()
{
    GetStores().ShowAll();
}

void CLS_Scheduler::Lock(const void* _pLock)
{
    const CLS_Inside clsInside;
    GetCurrent().m_pLock = _pLock;
    WaitAt(STEP_LOCK, _pLock, WAIT_LOCK, USED_AS_LOCK);
    ShowStores();
    m_clsLocks.Take(_pLock, m_iCurrent);
}

void CLS_Scheduler::LockShared(const void* _pLock)
{
    const CLS_Inside clsInside;
    GetCurrent().m_pLock = _pLock;
    WaitAt(STEP_LOCK_SHARED, _pLock, WAIT_SHARED, USED_AS_LOCK);
    ShowStores();
    m_clsLocks.TakeShared(_pLock, m_iCurrent);
}

bool CLS_Scheduler::TryLock(const void* _pLock, bool _bShared)
{
    const CLS_Inside clsInside;
    WaitAt(STEP_TRY_LOCK, _pLock, WAIT_NOTHING, USED_AS_LOCK);
    ShowStores();
    if (!(_bShared ? m_clsLocks.IsOpen(_pLock) : m_clsLocks.IsFree(_pLock)))
    {
        return false;
    }
    if (_bShared)
    {
        m_clsLocks.TakeShared(_pLock, m_iCurrent);
    }
    else
    {
        m_clsLocks.Take(_pLock, m_iCurrent);
    }
    return true;
}

void CLS_Scheduler::Unlock(const void* _pLock)
{
    const CLS_Inside clsInside;
    WaitAt(STEP_UNLOCK, _pLock, WAIT_NOTHING, USED_AS_LOCK);
    ShowStores();
    if (!m_clsLocks.Give(_pLock, m_iCurrent))
    {
        Fail(GetCurrent().m_strName + " unlocks what it does not hold");
    }
}

bool CLS_Scheduler::WaitForCondition(const void* _pCondition, const void* _pLock, std::int64_t _nsUntil)
{
    const CLS_Inside clsInside;
    // Releasing the lock and waiting are one step: no notification can come between them.
    WaitAt(STEP_WAIT, _pCondition, WAIT_NOTHING, WAITED_FOR);
    ShowStores();
    if (!m_clsLocks.Give(_pLock, m_iCurrent))
    {
        Fail(GetCurrent().m_strName + " waits with a lock that it does not hold");
    }
    ST_Thread& stSelf = GetCurrent();
    stSelf.m_pLock = _pLock;
    stSelf.m_nsUntil = _nsUntil;
    stSelf.m_bTimedOut = true; // unless a notification arrives first
    WaitFor(STEP_WAIT, _pCondition, WAIT_CONDITION);
    // After a notification, the condition may be destroyed, but not the lock.
    Memory::CheckAccess(*this, _pLock, USED_AS_LOCK);
    m_clsLocks.Take(_pLock, m_iCurrent);
    return !stSelf.m_bTimedOut;
}

void CLS_Scheduler::Notify(const void* _pCondition, bool _bAll)
{
    const CLS_Inside clsInside;
    WaitAt(_bAll ? STEP_NOTIFY_ALL : STEP_NOTIFY_ONE, _pCondition, WAIT_NOTHING, NOTIFIED);
    ShowStores();
    std::vector<ST_Thread*> vecWaiting = FindWaiting(_pCondition);
    if (!_bAll && !vecWaiting.empty())
    {
        vecWaiting = {vecWaiting[m_clsStrategy.Draw(vecWaiting.size())]};
    }
    for (ST_Thread* const pThread : vecWaiting)
    {
        StopWaiting(*pThread);
    }
}

void CLS_Scheduler::DestroyCondition(const void* _pCondition)
{
    const CLS_Inside clsInside;
    const std::vector<ST_Thread*> vecWaiting = FindWaiting(_pCondition);
    if (!vecWaiting.empty())
    {
        Fail(GetCurrent().m_strName + " destroys a condition that " + vecWaiting.front()->m_strName +
             " waits for");
    }
}

void CLS_Scheduler::BeginOnce(const void* _pGuard)
{
    const CLS_Inside clsInside;
    if (!m_clsLocks.IsFree(_pGuard))
    {
        GetCurrent().m_pLock = _pGuard;
        WaitFor(STEP_LOCK, _pGuard, WAIT_LOCK);
    }
    m_clsLocks.Take(_pGuard, m_iCurrent);
}

void CLS_Scheduler::EndOnce(const void* _pGuard)
{
    const CLS_Inside clsInside;
    m_clsLocks.Give(_pGuard, m_iCurrent);
}

void CLS_Scheduler::SleepUntil(std::int64_t _nsUntil)
{
    const CLS_Inside clsInside;
    GetCurrent().m_nsUntil = std::max(_nsUntil, m_nsNow);
    WaitFor(STEP_SLEEP, nullptr, WAIT_TIME);
}

void CLS_Scheduler::SleepFor(std::int64_t _nsLength)
{
    SleepUntil(m_nsNow + std::max(_nsLength, m_stOptions.m_nsShortestSleep));
}

int CLS_Scheduler::CreateThread(ThreadBody _funBody, void* _pArgument)
{
    const CLS_Inside clsInside;
    ShowStores();
    const auto iThread = static_cast<int>(m_uiThreads);
    ST_Thread& stThread = AddThread(m_iCurrent);
    stThread.m_funBody = _funBody;
    stThread.m_pArgument = _pArgument;
    GetCurrent().m_iJoined = iThread;
    WaitFor(STEP_CREATE, nullptr, WAIT_NOTHING);
    return iThread;
}

bool CLS_Scheduler::JoinThread(int _iThread, void** _pResult)
{
    const CLS_Inside clsInside;
    if (!IsJoinable(_iThread) || _iThread == m_iCurrent)
    {
        return false;
    }
    ST_Thread& stJoined = *m_vecThreads[static_cast<std::size_t>(_iThread)];
    GetCurrent().m_iJoined = _iThread;
    WaitFor(STEP_JOIN, nullptr, WAIT_THREAD);
    stJoined.m_bJoined = true;
    stJoined.m_clsStores.ShowAll();
    if (_pResult != nullptr)
    {
        *_pResult = stJoined.m_pResult;
    }
    return true;
}

bool CLS_Scheduler::DetachThread(int _iThread)
{
    const CLS_Inside clsInside;
    if (!IsJoinable(_iThread))
    {
        return false;
    }
    GetCurrent().m_iJoined = _iThread;
    WaitFor(STEP_DETACH, nullptr, WAIT_NOTHING);
    const bool bCould = IsJoinable(_iThread); // other threads have run meanwhile
    m_vecThreads[static_cast<std::size_t>(_iThread)]->m_bDetached = true;
    return bCould;
}

bool CLS_Scheduler::IsJoinable(int _iThread) const
{
    if (_iThread < 0 || static_cast<std::size_t>(_iThread) >= m_uiThreads)
    {
        return false;
    }
    const ST_Thread& stThread = *m_vecThreads[static_cast<std::size_t>(_iThread)];
    return !stThread.m_bDetached && !stThread.m_bJoined;
}
