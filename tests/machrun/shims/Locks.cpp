// Mutexes, reader/writer locks, and calls that are made once. As on macOS, objects that were destroyed or
// never initialised are refused.

#include "tests/machrun/shims/Inside.h"
#include "tests/machrun/shims/Tables.h"

#include <pthread.h>

namespace
{
/// Darwin's kinds of mutexes.
constexpr std::array<int, 3> MUTEX_KINDS{PTHREAD_MUTEX_NORMAL, PTHREAD_MUTEX_ERRORCHECK,
                                         PTHREAD_MUTEX_RECURSIVE};

template <auto FUN>
int CallOnMutex(Mutex* _pMutex)
{
    const long iSignature = _pMutex->m_iSignature;
    const bool bUsable = iSignature == SIGNATURE_MUTEX || iSignature == SIGNATURE_MUTEX_READY;
    return bUsable ? Errno::ToDarwin(FUN(_pMutex->As<pthread_mutex_t>())) : EINVAL;
}

int MakeMutex(Mutex* _pMutex, MutexAttributes* _pAttributes)
{
    const int iResult =
        pthread_mutex_init(_pMutex->As<pthread_mutex_t>(),
                           _pAttributes == nullptr ? nullptr : _pAttributes->As<pthread_mutexattr_t>());
    _pMutex->m_iSignature = SIGNATURE_MUTEX_READY;
    return Errno::ToDarwin(iResult);
}

int DestroyMutex(Mutex* _pMutex)
{
    const int iResult = CallOnMutex<&pthread_mutex_destroy>(_pMutex);
    if (iResult == 0)
    {
        _pMutex->m_iSignature = SIGNATURE_NONE;
    }
    return iResult;
}

int MakeAttributes(MutexAttributes* _pAttributes)
{
    _pAttributes->m_iSignature = SIGNATURE_ATTRIBUTES;
    return pthread_mutexattr_init(_pAttributes->As<pthread_mutexattr_t>());
}

int DestroyAttributes(MutexAttributes* _pAttributes)
{
    _pAttributes->m_iSignature = SIGNATURE_NONE;
    return 0;
}

int SetKind(MutexAttributes* _pAttributes, int _iKind)
{
    if (_iKind < 0 || _iKind >= static_cast<int>(MUTEX_KINDS.size()))
    {
        return EINVAL;
    }
    return pthread_mutexattr_settype(_pAttributes->As<pthread_mutexattr_t>(),
                                     MUTEX_KINDS[static_cast<std::size_t>(_iKind)]);
}

template <auto FUN>
int CallOnRwLock(RwLock* _pLock)
{
    return _pLock->m_iSignature == SIGNATURE_RWLOCK ? Errno::ToDarwin(FUN(_pLock->As<pthread_rwlock_t>()))
                                                    : EINVAL;
}

int MakeRwLock(RwLock* _pLock, const void* /*_pAttributes*/)
{
    _pLock->m_iSignature = SIGNATURE_RWLOCK;
    return Errno::ToDarwin(pthread_rwlock_init(_pLock->As<pthread_rwlock_t>(), nullptr));
}

int DestroyRwLock(RwLock* _pLock)
{
    const int iResult = CallOnRwLock<&pthread_rwlock_destroy>(_pLock);
    _pLock->m_iSignature = SIGNATURE_NONE;
    return iResult;
}

int CallOnce(Once* _pOnce, void (*_funOnce)())
{
    return _pOnce->m_iSignature == SIGNATURE_ONCE ? pthread_once(_pOnce->As<pthread_once_t>(), _funOnce)
                                                  : EINVAL;
}
} // namespace

namespace Tables
{
const Shims& GetLocks()
{
    static const Shims s_vecShims{
        {"_pthread_mutex_init", &MakeMutex},
        {"_pthread_mutex_destroy", &DestroyMutex},
        {"_pthread_mutex_lock", &CallOnMutex<&pthread_mutex_lock>},
        {"_pthread_mutex_trylock", &CallOnMutex<&pthread_mutex_trylock>},
        {"_pthread_mutex_unlock", &CallOnMutex<&pthread_mutex_unlock>},
        {"_pthread_mutexattr_init", &MakeAttributes},
        {"_pthread_mutexattr_destroy", &DestroyAttributes},
        {"_pthread_mutexattr_settype", &SetKind},
        {"_pthread_rwlock_init", &MakeRwLock},
        {"_pthread_rwlock_destroy", &DestroyRwLock},
        {"_pthread_rwlock_rdlock", &CallOnRwLock<&pthread_rwlock_rdlock>},
        {"_pthread_rwlock_wrlock", &CallOnRwLock<&pthread_rwlock_wrlock>},
        {"_pthread_rwlock_unlock", &CallOnRwLock<&pthread_rwlock_unlock>},
        {"_pthread_once", &CallOnce},
    };
    return s_vecShims;
}
} // namespace Tables
