#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

class CLS_Scheduler;

/// Allocates memory for the program under a schedule.
///
/// Each schedule gets the same addresses in the same order, so that schedules can be repeated. Freed memory
/// is not reused before the next schedule, so that an access to it is detected.
namespace Memory
{
/// Frees everything, at the beginning of a schedule.
void Reset();

/// The number of blocks that are allocated and not freed.
std::size_t CountBlocks();

bool IsFreed(const void* _pPlace);

/// Fails the schedule if the place is in memory that was freed.
void CheckAccess(CLS_Scheduler& _clsScheduler, const void* _pPlace, const char* _szAccess);
/// Does the same for code that may run outside of a schedule.
void CheckAccess(const void* _pPlace, const char* _szAccess);

/// The number of the place, which is the same in every process of the program; 0 for none, as on a stack.
std::uintptr_t GetNumber(const void* _pPlace);

/// The number of the block and the offset in it, or the name of a variable.
std::string Describe(const void* _pPlace);
} // namespace Memory
