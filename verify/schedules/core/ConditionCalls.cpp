// Replacements of the system's functions for condition variables, for controlled threads.

#include "verify/schedules/core/Clocks.h"
#include "verify/schedules/core/Scheduler.h"

#include <cerrno>
#include <pthread.h>

namespace
{
int Wait(const void* _pCondition, const void* _pLock, std::int64_t _nsUntil)
{
    CLS_Scheduler* const pScheduler = CLS_Scheduler::GetActive();
    return pScheduler == nullptr || pScheduler->WaitForCondition(_pCondition, _pLock, _nsUntil) ? 0
                                                                                                : ETIMEDOUT;
}

int Notify(const void* _pCondition, bool _bAll)
{
    if (CLS_Scheduler* const pScheduler = CLS_Scheduler::GetActive())
    {
        pScheduler->Notify(_pCondition, _bAll);
    }
    return 0;
}
} // namespace

extern "C"
{
    int pthread_cond_wait(pthread_cond_t* _pCondition, pthread_mutex_t* _pLock)
    {
        return Wait(_pCondition, _pLock, CLS_Scheduler::NEVER);
    }

    int pthread_cond_timedwait(pthread_cond_t* _pCondition, pthread_mutex_t* _pLock, const timespec* _pUntil)
    {
        return Wait(_pCondition, _pLock, Clocks::ToScheduleTime(CLOCK_REALTIME, *_pUntil));
    }

    int pthread_cond_clockwait(pthread_cond_t* _pCondition, pthread_mutex_t* _pLock, clockid_t _iClock,
                               const timespec* _pUntil)
    {
        return Wait(_pCondition, _pLock, Clocks::ToScheduleTime(_iClock, *_pUntil));
    }

    int pthread_cond_signal(pthread_cond_t* _pCondition) noexcept
    {
        return Notify(_pCondition, false);
    }
    int pthread_cond_broadcast(pthread_cond_t* _pCondition) noexcept
    {
        return Notify(_pCondition, true);
    }
    int pthread_cond_destroy(pthread_cond_t* _pCondition) noexcept
    {
        if (CLS_Scheduler* const pScheduler = CLS_Scheduler::GetActive())
        {
            pScheduler->DestroyCondition(_pCondition);
        }
        return 0;
    }
}
