#include "tests/support/WatchedLocks.h"

#include "tests/support/NextFunction.h"

#include <array>
#include <atomic>
#include <dlfcn.h>
#include <pthread.h>

namespace
{
constexpr std::size_t MOST_LOCKS = CLS_WatchedLocks::MOST_LOCKS;

std::atomic<int> g_iWatch{0}; ///< the number of the watch that lives; 0 when there is none
std::atomic<int> g_iNested{0};
std::atomic<int> g_iUntaken{0};
std::atomic<std::size_t> g_iInnermost{MOST_LOCKS};
std::array<std::atomic<const void*>, MOST_LOCKS> g_arrLocks{};
std::array<std::atomic<int>, MOST_LOCKS> g_arrTaken{};

/// What the thread holds, as of the watch with this number.
thread_local int t_iWatch = 0;
thread_local std::array<bool, MOST_LOCKS> t_arrHeld{};

std::size_t FindLock(const void* _pLock)
{
    std::size_t iLock = 0;
    while (iLock < MOST_LOCKS && g_arrLocks[iLock] != _pLock)
    {
        ++iLock;
    }
    return iLock;
}

void NoteTaken(std::size_t _iLock)
{
    ++g_arrTaken[_iLock];
    for (const bool bHeld : t_arrHeld)
    {
        if (bHeld && _iLock != g_iInnermost)
        {
            ++g_iNested;
            break;
        }
    }
    t_arrHeld[_iLock] = true;
}

void NoteGivenBack(std::size_t _iLock)
{
    g_iUntaken += t_arrHeld[_iLock] ? 0 : 1;
    t_arrHeld[_iLock] = false;
}

/// Notes that the thread is about to take the lock, or has given it back.
void Note(const void* _pLock, bool _bTaken)
{
    const int iWatch = g_iWatch;
    const std::size_t iLock = iWatch == 0 ? MOST_LOCKS : FindLock(_pLock);
    if (iLock == MOST_LOCKS)
    {
        return;
    }
    if (t_iWatch != iWatch)
    {
        t_iWatch = iWatch;
        t_arrHeld.fill(false);
    }
    if (_bTaken)
    {
        NoteTaken(iLock);
    }
    else
    {
        NoteGivenBack(iLock);
    }
}

/// Notes the lock if the try has succeeded, and returns the try's result.
int NoteTry(const void* _pLock, int _iResult)
{
    if (_iResult == 0)
    {
        Note(_pLock, true);
    }
    return _iResult;
}
} // namespace

CLS_WatchedLocks::CLS_WatchedLocks()
{
    static int s_iLastWatch = 0;
    g_iNested = 0;
    g_iUntaken = 0;
    g_iWatch = ++s_iLastWatch;
}

CLS_WatchedLocks::~CLS_WatchedLocks()
{
    g_iWatch = 0;
    g_iInnermost = MOST_LOCKS;
    for (std::size_t i = 0; i < MOST_LOCKS; ++i)
    {
        g_arrLocks[i] = nullptr;
        g_arrTaken[i] = 0;
    }
}

void CLS_WatchedLocks::Watch(const void* _pLock)
{
    g_arrLocks.at(FindLock(nullptr)) = _pLock;
}

void CLS_WatchedLocks::WatchInnermost(std::shared_mutex& _smInnermost)
{
    g_iInnermost = FindLock(nullptr);
    Watch(_smInnermost);
}

std::vector<int> CLS_WatchedLocks::GetTaken() const
{
    std::vector<int> vecTaken;
    for (std::size_t i = 0; i < FindLock(nullptr); ++i)
    {
        vecTaken.push_back(g_arrTaken[i]);
    }
    return vecTaken;
}

int CLS_WatchedLocks::GetNested() const
{
    return g_iNested;
}

int CLS_WatchedLocks::GetUntaken() const
{
    return g_iUntaken;
}

#ifdef _LIBCPP_VERSION
// These replace the functions of the same names in every program that is linked with this file.
// This C++ library makes its shared mutex of a mutex, which has the same address, and two condition
// variables.

namespace
{
/// Whether the thread is in a function of a shared mutex, so that the mutex inside does not count.
thread_local bool t_bInSharedMutex = false;

/// Calls the C++ library's own function of a shared mutex.
void CallNext(const std::string& _strName, std::__shared_mutex_base* _pLock)
{
    t_bInSharedMutex = true;
    GetNextFunction<void(std::__shared_mutex_base*)>("_ZNSt3__119__shared_mutex_base" + _strName)(_pLock);
    t_bInSharedMutex = false;
}

/// As CallNext, for a function that tries to take the lock.
bool TryNext(const std::string& _strName, std::__shared_mutex_base* _pLock)
{
    t_bInSharedMutex = true;
    const bool bTaken =
        GetNextFunction<bool(std::__shared_mutex_base*)>("_ZNSt3__119__shared_mutex_base" + _strName)(_pLock);
    t_bInSharedMutex = false;
    NoteTry(_pLock, bTaken ? 0 : 1);
    return bTaken;
}

using MutexFun = int(pthread_mutex_t*);

/// The system's function of that name, looked up once. The compiler would make such a static variable under a
/// mutex.
MutexFun* GetNext(std::atomic<MutexFun*>& _funNext, const char* _szName)
{
    if (_funNext == nullptr)
    {
        _funNext = GetNextFunction<MutexFun>(_szName);
    }
    return _funNext;
}

void NoteMutex(const pthread_mutex_t* _pLock, bool _bTaken)
{
    if (!t_bInSharedMutex)
    {
        Note(_pLock, _bTaken);
    }
}
} // namespace

extern "C"
{
    int pthread_mutex_trylock(pthread_mutex_t* _pLock)
    {
        static std::atomic<MutexFun*> s_funNext{nullptr};
        return t_bInSharedMutex ? GetNext(s_funNext, "pthread_mutex_trylock")(_pLock)
                                : NoteTry(_pLock, GetNext(s_funNext, "pthread_mutex_trylock")(_pLock));
    }

    int pthread_mutex_lock(pthread_mutex_t* _pLock)
    {
        static std::atomic<MutexFun*> s_funNext{nullptr};
        NoteMutex(_pLock, true);
        return GetNext(s_funNext, "pthread_mutex_lock")(_pLock);
    }

    int pthread_mutex_unlock(pthread_mutex_t* _pLock)
    {
        static std::atomic<MutexFun*> s_funNext{nullptr};
        const int iResult = GetNext(s_funNext, "pthread_mutex_unlock")(_pLock);
        NoteMutex(_pLock, false);
        return iResult;
    }
}

void std::__shared_mutex_base::lock()
{
    Note(this, true);
    CallNext("4lockEv", this);
}

bool std::__shared_mutex_base::try_lock()
{
    return TryNext("8try_lockEv", this);
}

bool std::__shared_mutex_base::try_lock_shared()
{
    return TryNext("15try_lock_sharedEv", this);
}

void std::__shared_mutex_base::unlock()
{
    CallNext("6unlockEv", this);
    Note(this, false);
}

void std::__shared_mutex_base::lock_shared()
{
    Note(this, true);
    CallNext("11lock_sharedEv", this);
}

void std::__shared_mutex_base::unlock_shared()
{
    CallNext("13unlock_sharedEv", this);
    Note(this, false);
}
#else
namespace
{
template <typename T_Lock>
using LockFun = int (*)(T_Lock*);

/// The function that would have been called without those below.
template <typename T_Lock>
LockFun<T_Lock> GetNext(LockFun<T_Lock> _funSanitizers, const char* _szName)
{
    return _funSanitizers != nullptr ? _funSanitizers
                                     : reinterpret_cast<LockFun<T_Lock>>(dlsym(RTLD_NEXT, _szName));
}
} // namespace

extern "C"
{
    // A sanitizer's stand-ins for the system's functions, where one is linked into the program.
    __attribute__((weak)) int __interceptor_pthread_mutex_lock(pthread_mutex_t*);
    __attribute__((weak)) int __interceptor_pthread_mutex_trylock(pthread_mutex_t*);
    __attribute__((weak)) int __interceptor_pthread_mutex_unlock(pthread_mutex_t*);
    __attribute__((weak)) int __interceptor_pthread_rwlock_rdlock(pthread_rwlock_t*);
    __attribute__((weak)) int __interceptor_pthread_rwlock_wrlock(pthread_rwlock_t*);
    __attribute__((weak)) int __interceptor_pthread_rwlock_tryrdlock(pthread_rwlock_t*);
    __attribute__((weak)) int __interceptor_pthread_rwlock_trywrlock(pthread_rwlock_t*);
    __attribute__((weak)) int __interceptor_pthread_rwlock_unlock(pthread_rwlock_t*);

    // Replace the system's functions in every program that is linked with this file.
    int pthread_mutex_lock(pthread_mutex_t* _pLock) noexcept
    {
        static const auto s_funNext = GetNext(&__interceptor_pthread_mutex_lock, "pthread_mutex_lock");
        Note(_pLock, true);
        return s_funNext(_pLock);
    }

    int pthread_mutex_trylock(pthread_mutex_t* _pLock) noexcept
    {
        static const auto s_funNext = GetNext(&__interceptor_pthread_mutex_trylock, "pthread_mutex_trylock");
        return NoteTry(_pLock, s_funNext(_pLock));
    }

    int pthread_mutex_unlock(pthread_mutex_t* _pLock) noexcept
    {
        static const auto s_funNext = GetNext(&__interceptor_pthread_mutex_unlock, "pthread_mutex_unlock");
        const int iResult = s_funNext(_pLock);
        Note(_pLock, false);
        return iResult;
    }

    int pthread_rwlock_rdlock(pthread_rwlock_t* _pLock) noexcept
    {
        static const auto s_funNext = GetNext(&__interceptor_pthread_rwlock_rdlock, "pthread_rwlock_rdlock");
        Note(_pLock, true);
        return s_funNext(_pLock);
    }

    int pthread_rwlock_wrlock(pthread_rwlock_t* _pLock) noexcept
    {
        static const auto s_funNext = GetNext(&__interceptor_pthread_rwlock_wrlock, "pthread_rwlock_wrlock");
        Note(_pLock, true);
        return s_funNext(_pLock);
    }

    int pthread_rwlock_tryrdlock(pthread_rwlock_t* _pLock) noexcept
    {
        static const auto s_funNext =
            GetNext(&__interceptor_pthread_rwlock_tryrdlock, "pthread_rwlock_tryrdlock");
        return NoteTry(_pLock, s_funNext(_pLock));
    }

    int pthread_rwlock_trywrlock(pthread_rwlock_t* _pLock) noexcept
    {
        static const auto s_funNext =
            GetNext(&__interceptor_pthread_rwlock_trywrlock, "pthread_rwlock_trywrlock");
        return NoteTry(_pLock, s_funNext(_pLock));
    }

    int pthread_rwlock_unlock(pthread_rwlock_t* _pLock) noexcept
    {
        static const auto s_funNext = GetNext(&__interceptor_pthread_rwlock_unlock, "pthread_rwlock_unlock");
        const int iResult = s_funNext(_pLock);
        Note(_pLock, false);
        return iResult;
    }
}
#endif
