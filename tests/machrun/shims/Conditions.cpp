// Condition variables. Linux's object does not fit into Darwin's. So it is created at the first use, and
// Darwin's object contains a pointer to it.

#include "tests/machrun/shims/Inside.h"
#include "tests/machrun/shims/Tables.h"

#include <pthread.h>
#include <sched.h>

namespace
{
struct ST_Pointer
{
    pthread_cond_t* m_pLinux;
};

/// The Linux object; null if it was destroyed or never initialised.
pthread_cond_t* GetCondition(Condition* _pCondition)
{
    long iSignature = SIGNATURE_CONDITION;
    if (_pCondition->m_iSignature.compare_exchange_strong(iSignature, SIGNATURE_BEING_MADE))
    {
        _pCondition->As<ST_Pointer>()->m_pLinux = new pthread_cond_t(PTHREAD_COND_INITIALIZER);
        _pCondition->m_iSignature = SIGNATURE_CONDITION_READY;
    }
    while (_pCondition->m_iSignature == SIGNATURE_BEING_MADE)
    {
        sched_yield(); // another thread is creating it
    }
    return _pCondition->m_iSignature == SIGNATURE_CONDITION_READY ? _pCondition->As<ST_Pointer>()->m_pLinux
                                                                  : nullptr;
}

int Destroy(Condition* _pCondition)
{
    long iSignature = SIGNATURE_CONDITION;
    if (_pCondition->m_iSignature.compare_exchange_strong(iSignature, SIGNATURE_NONE))
    {
        return 0; // it was never created
    }
    pthread_cond_t* const pLinux = GetCondition(_pCondition);
    if (pLinux == nullptr)
    {
        return EINVAL;
    }
    _pCondition->m_iSignature = SIGNATURE_NONE;
    const int iResult = pthread_cond_destroy(pLinux);
    delete pLinux;
    return Errno::ToDarwin(iResult);
}

template <auto FUN>
int Notify(Condition* _pCondition)
{
    pthread_cond_t* const pLinux = GetCondition(_pCondition);
    return pLinux == nullptr ? EINVAL : Errno::ToDarwin(FUN(pLinux));
}

int Wait(Condition* _pCondition, Mutex* _pMutex)
{
    pthread_cond_t* const pLinux = GetCondition(_pCondition);
    return pLinux == nullptr ? EINVAL
                             : Errno::ToDarwin(pthread_cond_wait(pLinux, _pMutex->As<pthread_mutex_t>()));
}

int WaitUntil(Condition* _pCondition, Mutex* _pMutex, const timespec* _pEnd)
{
    pthread_cond_t* const pLinux = GetCondition(_pCondition);
    return pLinux == nullptr
               ? EINVAL
               : Errno::ToDarwin(pthread_cond_timedwait(pLinux, _pMutex->As<pthread_mutex_t>(), _pEnd));
}
} // namespace

namespace Tables
{
const Shims& GetConditions()
{
    static const Shims s_vecShims{
        {"_pthread_cond_destroy", &Destroy},
        {"_pthread_cond_signal", &Notify<&pthread_cond_signal>},
        {"_pthread_cond_broadcast", &Notify<&pthread_cond_broadcast>},
        {"_pthread_cond_wait", &Wait},
        {"_pthread_cond_timedwait", &WaitUntil},
    };
    return s_vecShims;
}
} // namespace Tables
