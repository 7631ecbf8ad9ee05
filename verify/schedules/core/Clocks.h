#pragma once

#include <cstdint>
#include <ctime>

/// The clocks of controlled threads. Each starts at a fixed moment and shows the schedule's time.
namespace Clocks
{
timespec ToClockTime(clockid_t _iClock, std::int64_t _nsSchedule);
std::int64_t ToScheduleTime(clockid_t _iClock, const timespec& _stTime);
} // namespace Clocks
