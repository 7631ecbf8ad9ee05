#include "bench/support/RetrySleeps.h"

#ifdef __linux__
#include "tests/support/NextFunction.h"

#include <atomic>
#include <ctime>

namespace
{
constexpr long RETRY_NANOSECONDS = 100'000'000;

std::atomic<std::uint64_t> g_uiRetries{0};

void NoteSleep(const timespec* _pLength)
{
    if (_pLength->tv_sec == 0 && _pLength->tv_nsec == RETRY_NANOSECONDS)
    {
        ++g_uiRetries;
    }
}
} // namespace

/// These two interpose the system's functions of the same names.
extern "C" int nanosleep(const timespec* _pLength, timespec* _pRest)
{
    static auto* const s_pSleep = GetNextFunction<decltype(nanosleep)>("nanosleep");
    NoteSleep(_pLength);
    return s_pSleep(_pLength, _pRest);
}

extern "C" int clock_nanosleep(clockid_t _iClock, int _iFlags, const timespec* _pTime, timespec* _pRest)
{
    static auto* const s_pSleep = GetNextFunction<decltype(clock_nanosleep)>("clock_nanosleep");
    if (_iFlags == 0)
    {
        NoteSleep(_pTime);
    }
    return s_pSleep(_iClock, _iFlags, _pTime, _pRest);
}

std::optional<std::uint64_t> CountRetrySleeps()
{
    return g_uiRetries.load();
}
#else
std::optional<std::uint64_t> CountRetrySleeps()
{
    return std::nullopt;
}
#endif
