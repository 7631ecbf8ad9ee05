// Replacements of the system's functions for locks, for controlled threads. Outside of a schedule, there is
// only one thread, so they do nothing.

#include "verify/schedules/core/Scheduler.h"

#include <cerrno>
#include <pthread.h>

namespace
{
int Lock(const void* _pLock)
{
    if (CLS_Scheduler* const pScheduler = CLS_Scheduler::GetActive())
    {
        pScheduler->Lock(_pLock);
    }
    return 0;
}

int LockShared(const void* _pLock)
{
    if (CLS_Scheduler* const pScheduler = CLS_Scheduler::GetActive())
    {
        pScheduler->LockShared(_pLock);
    }
    return 0;
}

int TryLock(const void* _pLock, bool _bShared)
{
    CLS_Scheduler* const pScheduler = CLS_Scheduler::GetActive();
    return pScheduler == nullptr || pScheduler->TryLock(_pLock, _bShared) ? 0 : EBUSY;
}

int Unlock(const void* _pLock)
{
    if (CLS_Scheduler* const pScheduler = CLS_Scheduler::GetActive())
    {
        pScheduler->Unlock(_pLock);
    }
    return 0;
}
} // namespace

extern "C"
{
    int pthread_mutex_lock(pthread_mutex_t* _pLock) noexcept
    {
        return Lock(_pLock);
    }
    int pthread_mutex_trylock(pthread_mutex_t* _pLock) noexcept
    {
        return TryLock(_pLock, false);
    }
    int pthread_mutex_unlock(pthread_mutex_t* _pLock) noexcept
    {
        return Unlock(_pLock);
    }
    int pthread_rwlock_wrlock(pthread_rwlock_t* _pLock) noexcept
    {
        return Lock(_pLock);
    }
    int pthread_rwlock_rdlock(pthread_rwlock_t* _pLock) noexcept
    {
        return LockShared(_pLock);
    }
    int pthread_rwlock_trywrlock(pthread_rwlock_t* _pLock) noexcept
    {
        return TryLock(_pLock, false);
    }
    int pthread_rwlock_tryrdlock(pthread_rwlock_t* _pLock) noexcept
    {
        return TryLock(_pLock, true);
    }
    int pthread_rwlock_unlock(pthread_rwlock_t* _pLock) noexcept
    {
        return Unlock(_pLock);
    }
}
