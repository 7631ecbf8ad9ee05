#pragma once

#include <atomic>
#include <thread>

/// Yields a few times, until the hint is set. For a thread that has just worked and would now go to sleep:
/// more work may be about to come, and being woken costs both sides several times as much.
inline void YieldUntil(const std::atomic<bool>& _bHint)
{
    constexpr int YIELDS = 4;
    for (int i = 0; i < YIELDS && !_bHint.load(std::memory_order_relaxed); ++i)
    {
        std::this_thread::yield();
    }
}
