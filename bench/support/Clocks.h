#pragma once

#include <chrono>

/// Wall time and CPU time.
///
/// Threads: any.
namespace Clocks
{
using TimePoint = std::chrono::steady_clock::time_point;

inline TimePoint Now()
{
    return std::chrono::steady_clock::now();
}

inline double ToSeconds(std::chrono::nanoseconds _nsTime)
{
    return std::chrono::duration<double>(_nsTime).count();
}

inline double ToMilliseconds(std::chrono::nanoseconds _nsTime)
{
    return std::chrono::duration<double, std::milli>(_nsTime).count();
}

inline double ToMicroseconds(std::chrono::nanoseconds _nsTime)
{
    return std::chrono::duration<double, std::micro>(_nsTime).count();
}

/// The CPU time of all threads of the process, and of the calling thread.
std::chrono::nanoseconds GetProcessCpu();
std::chrono::nanoseconds GetThreadCpu();

/// Computes until the calling thread has used _nsTime of CPU. On a busy machine, this takes longer.
void UseCpu(std::chrono::nanoseconds _nsTime);
} // namespace Clocks
