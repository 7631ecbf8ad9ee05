#include "tests/support/FailingRandom.h"

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <fcntl.h>
#include <random>
#include <system_error>

namespace
{
std::atomic<bool> g_bFailing{false};
thread_local const std::function<void()>* t_pHook = nullptr;

/// The source is about to be opened. False when it cannot be.
bool BeginOpening()
{
    if (t_pHook != nullptr)
    {
        (*t_pHook)();
    }
    return !g_bFailing;
}
} // namespace

CLS_FailingRandom::CLS_FailingRandom()
{
    g_bFailing = true;
}

CLS_FailingRandom::~CLS_FailingRandom()
{
    g_bFailing = false;
}

CLS_WatchedRandom::CLS_WatchedRandom(const std::function<void()>& _funHook) : m_funHook(_funHook)
{
    t_pHook = &m_funHook;
}

CLS_WatchedRandom::~CLS_WatchedRandom()
{
    t_pHook = nullptr;
}

/// Stands in front of the system's function of the same name in every program that is linked with this file.
extern "C" int open(const char* _szPath, int _iFlags, ...)
{
    if (std::strcmp(_szPath, "/dev/urandom") == 0 && !BeginOpening())
    {
        errno = EMFILE;
        return -1;
    }
    mode_t uiMode = 0;
    if ((_iFlags & O_CREAT) != 0)
    {
        va_list vaRest;
        va_start(vaRest, _iFlags);
        // The analyser overlooks va_start.
        uiMode = static_cast<mode_t>(va_arg(vaRest, int)); // NOLINT(clang-analyzer-valist.Uninitialized)
        va_end(vaRest);
    }
    return openat(AT_FDCWD, _szPath, _iFlags, uiMode);
}

#ifdef _LIBCPP_VERSION
/// This C++ library takes its random numbers from inside, past the function above.
std::random_device::random_device(const std::string& _strToken)
{
#ifdef _LIBCPP_USING_DEV_RANDOM
    __f_ = open(_strToken.c_str(), O_RDONLY);
    const bool bOpened = __f_ >= 0;
#else
    const bool bOpened = BeginOpening();
#endif
    if (!bOpened)
    {
        throw std::system_error(EMFILE, std::system_category(), "random_device failed to open " + _strToken);
    }
}
#endif
