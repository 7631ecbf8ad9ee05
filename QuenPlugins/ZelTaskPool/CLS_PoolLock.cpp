#include "QuenPlugins/ZelTaskPool/CLS_PoolLock.h"

#include <array>
#include <atomic>
#include <cstdlib>
#include <iostream>
#include <thread>

namespace
{
/// More than there are workers, service threads and hosts.
constexpr std::size_t MOST_HOLDERS = 512;

/// The threads that hold one of the pool's locks, in any order; no thread's id where a place is free.
/// Relaxed: each thread looks for itself alone, and what is checked must not order anything that the locks do
/// not.
///
/// A thread-local variable would do, but the leak checker cannot cope with those of a library that is opened
/// at run time; and what allocates would disturb the tests in which memory runs out.
std::array<std::atomic<std::thread::id>, MOST_HOLDERS> s_arrHolders{};

bool IsHolder(const std::atomic<std::thread::id>& _idHolder)
{
    return _idHolder.load(std::memory_order_relaxed) == std::this_thread::get_id();
}
} // namespace

void PoolLockCheck::RequireNone()
{
    for (const auto& idHolder : s_arrHolders)
    {
        if (IsHolder(idHolder))
        {
            std::cerr << "A thread takes a second lock of the pool" << std::endl;
            std::abort();
        }
    }
}

void PoolLockCheck::NoteTaken()
{
    for (auto& idHolder : s_arrHolders)
    {
        std::thread::id idFree;
        if (idHolder.compare_exchange_strong(idFree, std::this_thread::get_id(), std::memory_order_relaxed))
        {
            return;
        }
    }
}

void PoolLockCheck::NoteGiven()
{
    for (auto& idHolder : s_arrHolders)
    {
        if (IsHolder(idHolder))
        {
            idHolder.store(std::thread::id(), std::memory_order_relaxed);
            return;
        }
    }
}
