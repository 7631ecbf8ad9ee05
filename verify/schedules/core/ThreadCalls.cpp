// Replacements of the system's functions for threads, for controlled threads. A thread's id is its number in
// the schedule plus one. Outside of a schedule, no thread can be started.

#include "verify/schedules/core/Scheduler.h"

#include <cerrno>
#include <pthread.h>

namespace
{
int ToNumber(pthread_t _iThread)
{
    return static_cast<int>(_iThread) - 1;
}

pthread_t ToId(int _iNumber)
{
    return static_cast<pthread_t>(_iNumber) + 1;
}
} // namespace

extern "C"
{
    int pthread_create(pthread_t* _pThread, const pthread_attr_t*, void* (*_funBody)(void*),
                       void* _pArgument) noexcept
    {
        CLS_Scheduler* const pScheduler = CLS_Scheduler::GetActive();
        if (pScheduler == nullptr)
        {
            return EAGAIN;
        }
        *_pThread = ToId(pScheduler->CountAllThreads());
        pScheduler->CreateThread(_funBody, _pArgument);
        return 0;
    }

    int pthread_join(pthread_t _iThread, void** _pResult)
    {
        CLS_Scheduler* const pScheduler = CLS_Scheduler::GetActive();
        if (pScheduler != nullptr && ToNumber(_iThread) == pScheduler->GetCurrentNumber())
        {
            return EDEADLK;
        }
        return pScheduler != nullptr && pScheduler->JoinThread(ToNumber(_iThread), _pResult) ? 0 : EINVAL;
    }

    int pthread_detach(pthread_t _iThread) noexcept
    {
        CLS_Scheduler* const pScheduler = CLS_Scheduler::GetActive();
        return pScheduler != nullptr && pScheduler->DetachThread(ToNumber(_iThread)) ? 0 : EINVAL;
    }

    pthread_t pthread_self() noexcept
    {
        CLS_Scheduler* const pScheduler = CLS_Scheduler::GetActive();
        return pScheduler == nullptr ? 1 : ToId(pScheduler->GetCurrentNumber());
    }

    // The system's function would use the id as an address.
    int pthread_setname_np(pthread_t, const char*) noexcept
    {
        return 0;
    }

    int pthread_getname_np(pthread_t, char* _szName, std::size_t _uiSize) noexcept
    {
        if (_uiSize > 0)
        {
            *_szName = '\0';
        }
        return 0;
    }
}
