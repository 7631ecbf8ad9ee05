#pragma once

#include <cstdint>
#include <optional>

/// How often something in this process began to sleep for exactly 100 ms, which is what the pool does for
/// want of a worker; nothing where that cannot be told.
std::optional<std::uint64_t> CountRetrySleeps();
