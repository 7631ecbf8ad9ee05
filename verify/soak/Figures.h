#pragma once

#include <cstdint>

/// What the process uses at one moment, and what it should. Sizes in bytes.
struct ST_Figures
{
    double m_dSeconds = 0;         ///< since the start
    std::int64_t m_iSubmitted = 0; ///< one-shot tasks so far
    std::int64_t m_iHeap = 0;      ///< in use, as the allocator counts
    std::int64_t m_iResident = 0;
    int m_iDescriptors = 0;
    int m_iThreads = 0;
    int m_iWorkers = 0;
    std::int64_t m_iRegistered = 0; ///< records in the registry
    std::int64_t m_iLiveCopies = 0; ///< callables that exist
    std::int64_t m_iKept = 0;       ///< loop tasks: so many records and callables should exist
};

/// What the system says about this process. Memory is 0 in a build with a sanitizer, which keeps what was
/// freed for a while, and needs more the more there is; it looks for leaks itself.
namespace Figures
{
/// Makes all threads share one heap, where the allocator can. With a heap for each few threads, what all of
/// them leave unused rises slowly, and hides growth. Before the first thread is started.
void ShareHeap();

std::int64_t GetHeap();

/// Makes the allocator give back what is free first: the peak of a backlog is no growth.
std::int64_t GetResident();
} // namespace Figures
