// A library to preload: counts the allocations of a process. profile_tasks.py uses it, on Linux.

#include <atomic>
#include <cstddef>
#include <cstdint>

extern "C" void* __libc_malloc(std::size_t _uiSize); // NOLINT(bugprone-reserved-identifier)
extern "C" void* __libc_calloc(std::size_t _uiCount,
                               std::size_t _uiSize);               // NOLINT(bugprone-reserved-identifier)
extern "C" void* __libc_realloc(void* _pOld, std::size_t _uiSize); // NOLINT(bugprone-reserved-identifier)

namespace
{
std::atomic<std::uint64_t> g_uiAllocations{0};

void NoteAllocation()
{
    g_uiAllocations.fetch_add(1, std::memory_order_relaxed);
}
} // namespace

extern "C" void* malloc(std::size_t _uiSize)
{
    NoteAllocation();
    return __libc_malloc(_uiSize);
}

extern "C" void* calloc(std::size_t _uiCount, std::size_t _uiSize)
{
    NoteAllocation();
    return __libc_calloc(_uiCount, _uiSize);
}

extern "C" void* realloc(void* _pOld, std::size_t _uiSize)
{
    NoteAllocation();
    return __libc_realloc(_pOld, _uiSize);
}

extern "C" std::uint64_t zel_count_allocations()
{
    return g_uiAllocations.load(std::memory_order_relaxed);
}
