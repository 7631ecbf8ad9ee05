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
} // namespace

CLS_FailingRandom::CLS_FailingRandom()
{
    g_bFailing = true;
}

CLS_FailingRandom::~CLS_FailingRandom()
{
    g_bFailing = false;
}

/// Stands in front of the system's function of the same name in every program that is linked with this file.
extern "C" int open(const char* _szPath, int _iFlags, ...)
{
    if (g_bFailing && std::strcmp(_szPath, "/dev/urandom") == 0)
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
#endif
    if (g_bFailing)
    {
        throw std::system_error(EMFILE, std::system_category(), "random_device failed to open " + _strToken);
    }
}
#endif
