#include "tests/support/FailingThreads.h"

#include <atomic>
#include <cerrno>
#include <dlfcn.h>
#include <pthread.h>

namespace
{
std::atomic<bool> s_bCounting{false};
std::atomic<int> s_iRequests{0};
std::atomic<int> s_iFailing{0};

using CreateFun = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
} // namespace

/// A sanitizer's stand-in for the system's function, where one is linked into the program.
extern "C" __attribute__((weak)) int __interceptor_pthread_create(pthread_t*, const pthread_attr_t*,
                                                                  void* (*)(void*), void*);

namespace
{
/// The function that would have been called without the one below.
CreateFun GetNextCreate()
{
    if (__interceptor_pthread_create != nullptr)
    {
        return &__interceptor_pthread_create;
    }
    return reinterpret_cast<CreateFun>(dlsym(RTLD_NEXT, "pthread_create"));
}
} // namespace

CLS_FailingThreads::CLS_FailingThreads(int _iFailing)
{
    s_iRequests = 0;
    s_iFailing = _iFailing;
    s_bCounting = true;
}

CLS_FailingThreads::~CLS_FailingThreads()
{
    s_bCounting = false;
}

int CLS_FailingThreads::GetRequests() const
{
    return s_iRequests;
}

/// Stands in front of the system's function of the same name in every program that is linked with this file.
extern "C" int pthread_create(pthread_t* _pThread, const pthread_attr_t* _pAttributes,
                              void* (*_funStart)(void*), void* _pArgument) noexcept
{
    if (s_bCounting && ++s_iRequests == s_iFailing)
    {
        return EAGAIN;
    }
    static const CreateFun s_funCreate = GetNextCreate();
    return s_funCreate(_pThread, _pAttributes, _funStart, _pArgument);
}
