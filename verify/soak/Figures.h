#pragma once

#include <cstdint>

/// The resources of the process at one moment. Sizes are in bytes.
struct ST_Figures
{
    double m_dSeconds = 0;         ///< since the start
    std::int64_t m_iSubmitted = 0; ///< one-shot tasks so far
    std::int64_t m_iHeap = 0;      ///< in use, as counted by the allocator
    std::int64_t m_iResident = 0;
    int m_iDescriptors = 0;
    int m_iThreads = 0;
    int m_iWorkers = 0;
    std::int64_t m_iRegistered = 0; ///< task records in the registry
    std::int64_t m_iLiveCopies = 0; ///< callables that exist
    std::int64_t m_iKept = 0;       ///< loop tasks: the expected number of task records and callables
};

/// What the system reports about this process.
///
/// Memory is 0 in a build with a sanitizer. It keeps freed memory for a while, and finds leaks itself.
namespace Figures
{
/// Makes all threads share one heap, if the allocator can.
///
/// With several heaps, their unused memory rises slowly and hides growth. Call it before the first thread is
/// started.
void ShareHeap();

std::int64_t GetHeap();

/// The resident memory after the allocator has released free memory, so that the peak of a backlog does not
/// count.
std::int64_t GetResident();
} // namespace Figures
