#pragma once

#include <cstdint>
#include <optional>

/// What the process has done since its start.
///
/// Threads: any.
namespace Counters
{
/// Context switches of all threads because a thread had to wait.
std::uint64_t GetWaits();

/// All context switches of all threads.
std::uint64_t GetSwitches();

/// Allocations of all threads; nothing without the library that counts them (CountAllocations.cpp).
std::optional<std::uint64_t> GetAllocations();
} // namespace Counters
