#include "tests/support/FailingRandom.h"

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <fcntl.h>

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
