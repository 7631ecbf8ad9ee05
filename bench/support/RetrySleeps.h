#pragma once

#include <cstdint>
#include <optional>

/// How many times a thread of this process began to sleep for exactly 100 ms, which the pool does when no
/// worker is free. Empty on systems where the program cannot count this.
std::optional<std::uint64_t> CountRetrySleeps();
