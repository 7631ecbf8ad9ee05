#include "tests/support/WatchedYields.h"

#include "tests/support/NextFunction.h"

#include <sched.h>

namespace
{
thread_local CLS_WatchedYields* t_pWatch = nullptr;

auto* FindYield()
{
    static auto* const s_pYield = GetNextFunction<decltype(sched_yield)>("sched_yield");
    return s_pYield;
}

// LeakSanitizer yields at the end of the process, while it keeps the allocator locked. The search allocates
// memory, so it must be over by then.
[[maybe_unused]] auto* const g_pYieldFoundEarly = FindYield();
} // namespace

CLS_WatchedYields::CLS_WatchedYields(const std::function<void()>& _funHook) : m_funHook(_funHook)
{
    t_pWatch = this;
}

CLS_WatchedYields::~CLS_WatchedYields()
{
    t_pWatch = nullptr;
}

void CLS_WatchedYields::Note()
{
    ++m_iYields;
    if (m_funHook)
    {
        m_funHook();
    }
}

/// Replaces the system's function of the same name in every program that is linked with this file.
extern "C" int sched_yield() ZEL_TEST_NOEXCEPT
{
    if (t_pWatch != nullptr)
    {
        t_pWatch->Note();
    }
    return FindYield()();
}
