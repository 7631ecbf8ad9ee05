#pragma once

#include <functional>
#include <thread>

/// Lets single allocations of one thread fail. For programs that are linked with FailingMemory.cpp, which
/// replaces their operator new.
///
/// Where a sanitizer keeps the operator to itself, only the allocations that the program's own code makes are
/// reached, not those of the standard library's, such as the memory of long texts.
namespace FailingMemory
{
/// Whether every allocation is reached, and GetLiveBlocks therefore means something.
extern const bool REACHES_ALL;

/// Lets the _iAllocation-th allocation of a thread from now on throw std::bad_alloc: 1 is the next, 0 is
/// none. One thread at a time; replaces the call before.
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
