#pragma once

#include <chrono>

/// What the system says about time. Any thread.
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

/// The CPU time that all threads of the process, or the calling thread, have used so far.
std::chrono::nanoseconds GetProcessCpu();
std::chrono::nanoseconds GetThreadCpu();

/// Computes until the calling thread has used so much CPU time: a loaded machine makes it longer, not less.
void UseCpu(std::chrono::nanoseconds _nsTime);
} // namespace Clocks
