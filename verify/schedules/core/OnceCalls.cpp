// Replacements of the C++ runtime's functions for static variables in functions. Another thread may arrive
// during a step of the initialisation.

#include "verify/schedules/core/Scheduler.h"

#include <cxxabi.h>

namespace
{
/// Whether the initialisation is done: the first byte of the guard, as in the C++ ABI.
char& GetDone(abi::__guard* _pGuard)
{
    return *reinterpret_cast<char*>(_pGuard);
}

void End(abi::__guard* _pGuard)
{
    if (CLS_Scheduler* const pScheduler = CLS_Scheduler::GetActive())
    {
        pScheduler->EndOnce(_pGuard);
    }
}
} // namespace

namespace __cxxabiv1
{
extern "C"
{
    /// 1 if the caller must initialise the variable.
    int __cxa_guard_acquire(abi::__guard* _pGuard)
    {
        if (GetDone(_pGuard) != 0)
        {
            return 0;
        }
        CLS_Scheduler* const pScheduler = CLS_Scheduler::GetActive();
        if (pScheduler == nullptr)
        {
            return 1;
        }
        pScheduler->BeginOnce(_pGuard);
        if (GetDone(_pGuard) != 0)
        {
            pScheduler->EndOnce(_pGuard);
            return 0;
        }
        return 1;
    }

    void __cxa_guard_release(abi::__guard* _pGuard) noexcept
    {
        GetDone(_pGuard) = 1;
        End(_pGuard);
    }

    void __cxa_guard_abort(abi::__guard* _pGuard) noexcept
    {
        End(_pGuard);
    }
}
} // namespace __cxxabiv1
