#include "verify/schedules/core/Memory.h"

#include "verify/schedules/core/Scheduler.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <new>
#include <sys/mman.h>

// The beginning and the end of the program in memory. The linker defines these symbols.
extern "C" const char __executable_start;
extern "C" const char _end;

namespace
{
constexpr std::size_t GRANULE = 16;
constexpr std::size_t ARENA_SIZE = std::size_t{1} << 30U;
constexpr unsigned char FREED_BYTE = 0xdb;

enum n_Granule : unsigned char
{
    GRANULE_UNUSED = 0,
    GRANULE_FIRST,
    GRANULE_NEXT,
    GRANULE_FREED
};

/// Address space for all memory of a schedule. The system backs a page with memory at the first access.
struct ST_Arena
{
    ST_Arena()
        : m_pBegin(static_cast<char*>(Map(reinterpret_cast<void*>(0x200000000000), ARENA_SIZE))),
          m_pGranules(static_cast<unsigned char*>(Map(nullptr, ARENA_SIZE / GRANULE)))
    {
    }

    static void* Map(void* _pPlace, std::size_t _uiSize)
    {
        void* const pMemory = mmap(_pPlace, _uiSize, PROT_READ | PROT_WRITE,
                                   MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (pMemory == MAP_FAILED)
        {
            std::abort();
        }
        return pMemory;
    }

    bool Contains(const void* _pPlace) const
    {
        return static_cast<std::size_t>(static_cast<const char*>(_pPlace) - m_pBegin) < ARENA_SIZE;
    }

    std::size_t GetGranule(const void* _pPlace) const
    {
        return static_cast<std::size_t>(static_cast<const char*>(_pPlace) - m_pBegin) / GRANULE;
    }

    char* const m_pBegin;
    unsigned char* const m_pGranules; ///< an n_Granule each
    std::size_t m_uiUsed = 0;         ///< in granules
    std::size_t m_uiBlocks = 0;
};

ST_Arena& GetArena()
{
    alignas(ST_Arena) static char s_arrArena[sizeof(ST_Arena)];
    static ST_Arena& s_stArena = *new (s_arrArena) ST_Arena;
    return s_stArena;
}

void* Allocate(std::size_t _uiSize)
{
    ST_Arena& stArena = GetArena();
    const std::size_t uiCount = _uiSize / GRANULE + 1;
    if (stArena.m_uiUsed + uiCount > ARENA_SIZE / GRANULE)
    {
        throw std::bad_alloc();
    }
    const std::size_t uiFirst = stArena.m_uiUsed;
    stArena.m_uiUsed += uiCount;
    ++stArena.m_uiBlocks;
    std::memset(stArena.m_pGranules + uiFirst, GRANULE_NEXT, uiCount);
    stArena.m_pGranules[uiFirst] = GRANULE_FIRST;
    return stArena.m_pBegin + uiFirst * GRANULE;
}

void Free(void* _pBlock)
{
    ST_Arena& stArena = GetArena();
    const std::size_t uiFirst = stArena.GetGranule(_pBlock);
    std::size_t uiEnd = uiFirst + 1;
    while (uiEnd < stArena.m_uiUsed && stArena.m_pGranules[uiEnd] == GRANULE_NEXT)
    {
        ++uiEnd;
    }
    CLS_Scheduler* const pScheduler = CLS_Scheduler::GetActive();
    if (pScheduler != nullptr)
    {
        const CLS_Scheduler::CLS_Inside clsInside;
        if (stArena.m_pGranules[uiFirst] != GRANULE_FIRST)
        {
            pScheduler->Fail("memory is freed that is not allocated: " + Memory::Describe(_pBlock));
        }
        if (pScheduler->GetLocks().FindHeld(_pBlock, stArena.m_pBegin + uiEnd * GRANULE) != nullptr)
        {
            pScheduler->Fail("a lock is freed that a thread holds: " + Memory::Describe(_pBlock));
        }
    }
    std::memset(stArena.m_pGranules + uiFirst, GRANULE_FREED, uiEnd - uiFirst);
    std::memset(_pBlock, FREED_BYTE, (uiEnd - uiFirst) * GRANULE);
    --stArena.m_uiBlocks;
}
} // namespace

namespace Memory
{
void Reset()
{
    ST_Arena& stArena = GetArena();
    std::memset(stArena.m_pGranules, GRANULE_UNUSED, stArena.m_uiUsed);
    stArena.m_uiUsed = 0;
    stArena.m_uiBlocks = 0;
}

std::size_t CountBlocks()
{
    return GetArena().m_uiBlocks;
}

bool IsFreed(const void* _pPlace)
{
    const ST_Arena& stArena = GetArena();
    return stArena.Contains(_pPlace) && stArena.m_pGranules[stArena.GetGranule(_pPlace)] == GRANULE_FREED;
}

void CheckAccess(CLS_Scheduler& _clsScheduler, const void* _pPlace, const char* _szAccess)
{
    if (IsFreed(_pPlace))
    {
        const CLS_Scheduler::CLS_Inside clsInside;
        _clsScheduler.Fail("freed memory is " + std::string(_szAccess) + " by " +
                           _clsScheduler.GetThreadName(_clsScheduler.GetCurrentNumber()) + ": " +
                           Describe(_pPlace));
    }
}

void CheckAccess(const void* _pPlace, const char* _szAccess)
{
    if (CLS_Scheduler* const pScheduler = CLS_Scheduler::GetActive())
    {
        CheckAccess(*pScheduler, _pPlace, _szAccess);
    }
}

std::uintptr_t GetNumber(const void* _pPlace)
{
    const ST_Arena& stArena = GetArena();
    const char* const pPlace = static_cast<const char*>(_pPlace);
    if (stArena.Contains(_pPlace))
    {
        return static_cast<std::uintptr_t>(pPlace - stArena.m_pBegin) + 1;
    }
    if (pPlace >= &__executable_start && pPlace < &_end)
    {
        return ARENA_SIZE + static_cast<std::uintptr_t>(pPlace - &__executable_start);
    }
    return 0;
}

std::string Describe(const void* _pPlace)
{
    const ST_Arena& stArena = GetArena();
    if (!stArena.Contains(_pPlace))
    {
        Dl_info stInfo{};
        if (dladdr(_pPlace, &stInfo) == 0)
        {
            return "a local variable";
        }
        return stInfo.dli_sname != nullptr ? stInfo.dli_sname : "a static variable";
    }
    std::size_t uiFirst = stArena.GetGranule(_pPlace);
    while (stArena.m_pGranules[uiFirst] == GRANULE_NEXT)
    {
        --uiFirst;
    }
    const auto iOffset = static_cast<const char*>(_pPlace) - (stArena.m_pBegin + uiFirst * GRANULE);
    return "block " + std::to_string(uiFirst) + " + " + std::to_string(iOffset);
}
} // namespace Memory

// Replacements of the C++ library's operators.

void* operator new(std::size_t _uiSize)
{
    if (CLS_Scheduler::GetActive() != nullptr)
    {
        return Allocate(_uiSize);
    }
    void* const pBlock = std::malloc(_uiSize == 0 ? 1 : _uiSize);
    if (pBlock == nullptr)
    {
        throw std::bad_alloc();
    }
    return pBlock;
}

void operator delete(void* _pBlock) noexcept
{
    if (_pBlock != nullptr && GetArena().Contains(_pBlock))
    {
        Free(_pBlock);
        return;
    }
    std::free(_pBlock);
}

void operator delete(void* _pBlock, std::size_t) noexcept
{
    operator delete(_pBlock);
}
