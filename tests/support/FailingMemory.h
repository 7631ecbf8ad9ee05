#pragma once

#include <functional>
#include <thread>

/// Lets single allocations of one thread fail. For programs that are linked with FailingMemory.cpp, which
/// replaces their operator new.
///
/// With some sanitizers, it reaches only the allocations of the program's own code. It does not reach those
/// of the standard library, such as the memory of long texts.
namespace FailingMemory
{
/// Whether every allocation is reached. Only then is GetLiveBlocks meaningful.
extern const bool REACHES_ALL;
/// Why a test that needs REACHES_ALL does not run without it.
inline constexpr const char* WHY_NOT =
    "this sanitizer replaces operator new, so the test cannot count or fail what the C++ library allocates; "
    "the build with g++ runs it";

/// Lets the _iAllocation-th allocation of a thread from now on throw std::bad_alloc: 1 is the next, 0 is
/// none. Only one thread at a time. Replaces the previous call.
void FailAt(int _iAllocation, std::thread::id _idThread = std::this_thread::get_id());

/// Lets no more allocations fail. Returns whether one failed since FailAt.
bool Stop();

/// The blocks that are allocated and not freed, over all threads.
long GetLiveBlocks();

/// The allocations so far, over all threads.
long GetAllocations();

/// From now on, calls _funHook before each block that the calling thread frees; an empty one ends that. What
/// the hook itself does is exempt.
void WatchFrees(const std::function<void()>& _funHook);

/// Between the two, allocations of the calling thread neither fail nor count. They may be nested.
void EnterExempt();
void LeaveExempt();

/// Whether the calling thread is between the two.
bool IsExempt();
} // namespace FailingMemory
