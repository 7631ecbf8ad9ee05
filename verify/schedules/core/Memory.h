#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

class CLS_Scheduler;

/// The memory that the program under a schedule asks for. It comes from a place of its own, in the same order
/// at the same addresses every time, and what is freed is not used again before the next schedule: so a touch
/// of freed memory is noticed, and schedules repeat.
namespace Memory
{
/// Forgets everything. For the beginning of a schedule.
void Reset();

/// The number of blocks that are allocated and not freed.
std::size_t CountBlocks();

bool IsFreed(const void* _pPlace);

/// Ends the schedule when the place is in memory that was freed.
void CheckAccess(CLS_Scheduler& _clsScheduler, const void* _pPlace, const char* _szAccess);
/// The same for code that may run outside of a schedule.
void CheckAccess(const void* _pPlace, const char* _szAccess);

/// A number that the place has in every process of the same program; 0 when there is none, as on a stack.
std::uintptr_t GetNumber(const void* _pPlace);

/// The number of the block and the place in it, or the name of a variable.
std::string Describe(const void* _pPlace);
} // namespace Memory
