#include "tests/support/FailingMemory.h"

#include <atomic>
#include <cstdlib>
#include <memory>
#include <new>
#include <utility>

// A sanitizer has its own operator new. The linker then redirects the program's calls to the one below.
#ifdef ZEL_TEST_WRAPPED_NEW
#define OPERATOR_NEW __wrap__Znwm
extern "C"
{
    void* __real__Znwm(std::size_t _uiSize);
    void* __wrap__Znwm(std::size_t _uiSize);
}
#else
#define OPERATOR_NEW operator new
#endif

namespace
{
std::atomic<std::thread::id> g_idFailing{};
std::atomic<int> g_iUntilFailure{0}; ///< allocations up to and including the one that fails; 0: none fails
std::atomic<bool> g_bFailed{false};
std::atomic<long> g_iLive{0};
std::atomic<long> g_iAllocations{0};
thread_local int t_iExempt = 0;
thread_local std::function<void()>* t_pFreeHook = nullptr;

bool IsToFail()
{
    if (g_iUntilFailure == 0 || t_iExempt > 0 || g_idFailing.load() != std::this_thread::get_id())
    {
        return false;
    }
    // Only the one thread comes here.
    if (--g_iUntilFailure > 0)
    {
        return false;
    }
    g_bFailed = true;
    return true;
}

#ifndef ZEL_TEST_WRAPPED_NEW
void CallFreeHook()
{
    if (t_pFreeHook != nullptr && t_iExempt == 0)
    {
        ++t_iExempt;
        (*t_pFreeHook)();
        --t_iExempt;
    }
}
#endif
} // namespace

namespace FailingMemory
{
#ifdef ZEL_TEST_WRAPPED_NEW
const bool REACHES_ALL = false;
#else
const bool REACHES_ALL = true;
#endif

void FailAt(int _iAllocation, std::thread::id _idThread)
{
    Stop();
    g_bFailed = false;
    g_idFailing = _idThread;
    g_iUntilFailure = _iAllocation;
}

bool Stop()
{
    g_iUntilFailure = 0;
    return g_bFailed;
}

long GetLiveBlocks()
{
    return g_iLive;
}

long GetAllocations()
{
    return g_iAllocations;
}

void WatchFrees(const std::function<void()>& _funHook)
{
    std::unique_ptr<std::function<void()>> pOld(
        std::exchange(t_pFreeHook, _funHook ? new std::function<void()>(_funHook) : nullptr));
}

void EnterExempt()
{
    ++t_iExempt;
}

void LeaveExempt()
{
    --t_iExempt;
}

bool IsExempt()
{
    return t_iExempt > 0;
}
} // namespace FailingMemory

void* OPERATOR_NEW(std::size_t _uiSize)
{
    if (IsToFail())
    {
        throw std::bad_alloc();
    }
#ifdef ZEL_TEST_WRAPPED_NEW
    return __real__Znwm(_uiSize);
#else
    void* const pMemory = std::malloc(_uiSize == 0 ? 1 : _uiSize);
    if (pMemory == nullptr)
    {
        throw std::bad_alloc();
    }
    ++g_iLive;
    g_iAllocations += t_iExempt > 0 ? 0 : 1;
    return pMemory;
#endif
}

#ifndef ZEL_TEST_WRAPPED_NEW
void* operator new(std::size_t _uiSize, const std::nothrow_t& /*_stNoThrow*/) noexcept
{
    try
    {
        return operator new(_uiSize);
    }
    catch (const std::bad_alloc&)
    {
        return nullptr;
    }
}

/// Not inlined: the compiler would warn about the pair of "new" and "free".
[[gnu::noinline]] void operator delete(void* _pMemory) noexcept
{
    if (_pMemory != nullptr)
    {
        CallFreeHook();
    }
    g_iLive -= _pMemory == nullptr ? 0 : 1;
    std::free(_pMemory);
}

[[gnu::noinline]] void operator delete(void* _pMemory, std::size_t /*_uiSize*/) noexcept
{
    operator delete(_pMemory);
}
#endif
