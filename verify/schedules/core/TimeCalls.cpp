// Replacements of the system's functions for time, for controlled threads.

#include "verify/schedules/core/Clocks.h"
#include "verify/schedules/core/Scheduler.h"

#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace
{
constexpr std::int64_t SECOND = 1'000'000'000;

/// A clock's time at the beginning of a schedule, in seconds. The value is arbitrary, but differs by clock.
std::int64_t GetStart(clockid_t _iClock)
{
    return _iClock == CLOCK_REALTIME ? 1'600'000'000 : 1'000'000;
}

std::int64_t ToNanoseconds(const timespec& _stTime)
{
    return _stTime.tv_sec * SECOND + _stTime.tv_nsec;
}
} // namespace

namespace Clocks
{
timespec ToClockTime(clockid_t _iClock, std::int64_t _nsSchedule)
{
    return {GetStart(_iClock) + _nsSchedule / SECOND, _nsSchedule % SECOND};
}

std::int64_t ToScheduleTime(clockid_t _iClock, const timespec& _stTime)
{
    return ToNanoseconds(_stTime) - GetStart(_iClock) * SECOND;
}
} // namespace Clocks

extern "C"
{
    int clock_gettime(clockid_t _iClock, timespec* _pTime) noexcept
    {
        if (CLS_Scheduler* const pScheduler = CLS_Scheduler::GetActive())
        {
            *_pTime = Clocks::ToClockTime(_iClock, pScheduler->GetTime());
            return 0;
        }
        return static_cast<int>(syscall(SYS_clock_gettime, _iClock, _pTime));
    }

    int nanosleep(const timespec* _pLength, timespec*)
    {
        if (CLS_Scheduler* const pScheduler = CLS_Scheduler::GetActive())
        {
            pScheduler->SleepFor(ToNanoseconds(*_pLength));
        }
        return 0;
    }

    int clock_nanosleep(clockid_t _iClock, int _iFlags, const timespec* _pTime, timespec*)
    {
        if (CLS_Scheduler* const pScheduler = CLS_Scheduler::GetActive())
        {
            if ((_iFlags & TIMER_ABSTIME) != 0)
            {
                pScheduler->SleepUntil(Clocks::ToScheduleTime(_iClock, *_pTime));
            }
            else
            {
                pScheduler->SleepFor(ToNanoseconds(*_pTime));
            }
        }
        return 0;
    }

    int sched_yield() noexcept
    {
        if (CLS_Scheduler* const pScheduler = CLS_Scheduler::GetActive())
        {
            pScheduler->Yield();
        }
        return 0;
    }
}
