#include "tests/support/FailingRandom.h"

#include "tests/support/NextFunction.h"

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

/// Called before the source is opened. False if it cannot be opened.
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

/// Replaces the system's function of the same name in every program that is linked with this file.
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
/// This C++ library opens its source internally, without calling the function above, if it opens one at all.
std::random_device::random_device(const std::string& _strToken)
{
    if (!BeginOpening())
    {
        throw std::system_error(EMFILE, std::system_category(), "random_device failed to open " + _strToken);
    }
    using Constructor = void(std::random_device*, const std::string&);
    static auto* const s_pNext = GetNextFunction<Constructor>(
        "_ZNSt3__113random_deviceC1ERKNS_12basic_stringIcNS_11char_traitsIcEENS_9allocatorIcEEEE");
    s_pNext(this, _strToken);
}
#endif
