// Replaces the C++ library's random device for controlled threads. It does not call the system.

#include "verify/schedules/core/Scheduler.h"

#include <random>

void std::random_device::_M_init(const std::string&) {}

void std::random_device::_M_fini() {}

std::random_device::result_type std::random_device::_M_getval()
{
    CLS_Scheduler* const pScheduler = CLS_Scheduler::GetActive();
    return pScheduler == nullptr ? 0 : pScheduler->DrawRandom();
}
