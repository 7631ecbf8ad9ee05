#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

/// Whether a mistake of the host ends the process. In either case, a line is written to standard error.
#ifndef ZEL_HOST_CHECKS
#ifdef NDEBUG
#define ZEL_HOST_CHECKS 0
#else
#define ZEL_HOST_CHECKS 1
#endif
#endif

namespace HostChecks
{
/// Reports a mistake of the host, and ends the process if ZEL_HOST_CHECKS is on.
inline void Report(const std::string& _strMistake) noexcept
{
    std::fprintf(stderr, "host kit: %s\n", _strMistake.c_str());
#if ZEL_HOST_CHECKS
    std::abort();
#endif
}
} // namespace HostChecks
