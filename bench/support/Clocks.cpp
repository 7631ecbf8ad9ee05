#include "bench/support/Clocks.h"

#include <cerrno>
#include <ctime>
#include <system_error>

namespace
{
std::chrono::nanoseconds ReadClock(clockid_t _iClock)
{
    timespec stTime{};
    if (clock_gettime(_iClock, &stTime) != 0)
    {
        throw std::system_error(errno, std::generic_category(), "cannot read the clock of CPU time");
    }
    return std::chrono::seconds(stTime.tv_sec) + std::chrono::nanoseconds(stTime.tv_nsec);
}
} // namespace

std::chrono::nanoseconds Clocks::GetProcessCpu()
{
    return ReadClock(CLOCK_PROCESS_CPUTIME_ID);
}

std::chrono::nanoseconds Clocks::GetThreadCpu()
{
    return ReadClock(CLOCK_THREAD_CPUTIME_ID);
}

void Clocks::UseCpu(std::chrono::nanoseconds _nsTime)
{
    const std::chrono::nanoseconds nsEnd = GetThreadCpu() + _nsTime;
    while (GetThreadCpu() < nsEnd)
    {
    }
}
