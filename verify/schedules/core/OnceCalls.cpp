// The C++ run time's functions for initialisations that are done once, those of the variables that are static
// in a function: another thread may come while the first one is at a step inside.

#include "verify/schedules/core/Scheduler.h"

#include <cxxabi.h>

namespace
{
/// The first byte of a guard says whether it was done, as in the C++ ABI.
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
    /// 1 when the caller is to do it.
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
