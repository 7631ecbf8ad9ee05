#include "tests/support/FailingThreads.h"

#include "tests/support/NextFunction.h"

#include <atomic>
#include <cerrno>
#include <pthread.h>

namespace
{
std::atomic<bool> g_bCounting{false};
std::atomic<int> g_iRequests{0};
std::atomic<int> g_iFailing{0};
} // namespace

CLS_FailingThreads::CLS_FailingThreads(int _iFailing)
{
    g_iRequests = 0;
    g_iFailing = _iFailing;
    g_bCounting = true;
}

CLS_FailingThreads::~CLS_FailingThreads()
{
    g_bCounting = false;
}

int CLS_FailingThreads::GetRequests() const
{
    return g_iRequests;
}

/// Replaces the system's function of the same name in every program that is linked with this file.
extern "C" int pthread_create(pthread_t* _pThread, const pthread_attr_t* _pAttributes,
                              void* (*_funStart)(void*), void* _pArgument) ZEL_TEST_NOEXCEPT
{
    if (g_bCounting && ++g_iRequests == g_iFailing)
    {
        return EAGAIN;
    }
    static auto* const s_pCreate = GetNextFunction<decltype(pthread_create)>("pthread_create");
    return s_pCreate(_pThread, _pAttributes, _funStart, _pArgument);
}
