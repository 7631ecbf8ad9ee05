#include "tests/support/CutWaits.h"

#include "tests/support/NextFunction.h"

#include <atomic>
#include <ctime>
#include <pthread.h>
#include <thread>

namespace
{
using std::chrono::nanoseconds;

std::atomic<const void*> g_pWatched{nullptr};
std::atomic<nanoseconds> g_nsLongest{nanoseconds::min()};
std::atomic<int> g_iNotifications{0};
std::atomic<const std::function<void()>*> g_pHook{nullptr};

nanoseconds ToDuration(const timespec& _stTime)
{
    return std::chrono::seconds(_stTime.tv_sec) + nanoseconds(_stTime.tv_nsec);
}

void Note(clockid_t _iClock, const timespec& _stEnd)
{
    timespec stNow{};
    clock_gettime(_iClock, &stNow);
    const nanoseconds nsLeft = ToDuration(_stEnd) - ToDuration(stNow);
    nanoseconds nsLongest = g_nsLongest;
    while (nsLongest < nsLeft && !g_nsLongest.compare_exchange_weak(nsLongest, nsLeft))
    {
    }
}

/// A wait of one millisecond.
int CutWait(pthread_mutex_t* _pMutex, clockid_t _iClock, const timespec& _stEnd)
{
    Note(_iClock, _stEnd);
    pthread_mutex_unlock(_pMutex);
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return pthread_mutex_lock(_pMutex);
}
} // namespace

CLS_CutWaits::CLS_CutWaits(std::condition_variable& _cvWatched, const std::function<void()>& _funHook)
    : m_funHook(_funHook)
{
    g_nsLongest = nanoseconds::min();
    g_iNotifications = 0;
    g_pHook = m_funHook ? &m_funHook : nullptr;
    g_pWatched = _cvWatched.native_handle();
}

CLS_CutWaits::~CLS_CutWaits()
{
    g_pWatched = nullptr;
    g_pHook = nullptr;
}

nanoseconds CLS_CutWaits::GetLongest() const
{
    return g_nsLongest;
}

int CLS_CutWaits::GetNotifications() const
{
    return g_iNotifications;
}

// These replace the system's functions of the same names in every program that is linked with this file. The
// C++ libraries of the two systems wait in different ways.

#ifdef __APPLE__
extern "C" int pthread_cond_timedwait(pthread_cond_t* _pCondition, pthread_mutex_t* _pMutex,
                                      const timespec* _pEnd)
{
    static auto* const s_pWait = GetNextFunction<decltype(pthread_cond_timedwait)>("pthread_cond_timedwait");
    return _pCondition == g_pWatched ? CutWait(_pMutex, CLOCK_REALTIME, *_pEnd)
                                     : s_pWait(_pCondition, _pMutex, _pEnd);
}
#else
extern "C" int pthread_cond_clockwait(pthread_cond_t* _pCondition, pthread_mutex_t* _pMutex,
                                      clockid_t _iClock, const timespec* _pEnd)
{
    static auto* const s_pWait = GetNextFunction<decltype(pthread_cond_clockwait)>("pthread_cond_clockwait");
    return _pCondition == g_pWatched ? CutWait(_pMutex, _iClock, *_pEnd)
                                     : s_pWait(_pCondition, _pMutex, _iClock, _pEnd);
}
#endif

extern "C" int pthread_cond_signal(pthread_cond_t* _pCondition) ZEL_TEST_NOEXCEPT
{
    if (_pCondition == g_pWatched)
    {
        ++g_iNotifications;
        if (const std::function<void()>* const pHook = g_pHook)
        {
            (*pHook)();
        }
    }
    static auto* const s_pSignal = GetNextFunction<decltype(pthread_cond_signal)>("pthread_cond_signal");
    return s_pSignal(_pCondition);
}
