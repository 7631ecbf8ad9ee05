// Pages, the stack guard, and helper functions that compilers call.

#include "tests/machrun/shims/Tables.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/mman.h>
#include <sys/random.h>

// The division of 128-bit numbers in the compiler's own library. Only its address is used.
extern "C" void __udivti3();

namespace
{
// Darwin's numbers.
constexpr int MAP_AT_ADDRESS = 0x10;
constexpr int MAP_WITHOUT_FILE = 0x1000;
constexpr int MAP_SHARING = 3; ///< both bits mean the same on both systems

std::uintptr_t g_uiStackGuard = 0x5bd1e995cafef000; // need not be secret

void* MapPages(void* _pWanted, std::size_t _uiSize, int _iAccess, int _iFlags, int _iFile, off_t _iOffset)
{
    const CLS_ErrnoScope clsErrno;
    const bool bFile = (_iFlags & MAP_WITHOUT_FILE) == 0;
    const int iFlags = (_iFlags & MAP_SHARING) | ((_iFlags & MAP_AT_ADDRESS) != 0 ? MAP_FIXED : 0) |
                       (bFile ? 0 : MAP_ANONYMOUS);
    return mmap(_pWanted, _uiSize, _iAccess, iFlags, bFile ? _iFile : -1, _iOffset);
}

[[noreturn]] void ReportStack()
{
    std::fputs("machrun: the program has written past the end of an array on its stack\n", stderr);
    std::abort();
}

std::uint32_t DrawNumber()
{
    std::uint32_t uiNumber = 0;
    if (getrandom(&uiNumber, sizeof(uiNumber), 0) != sizeof(uiNumber))
    {
        std::abort(); // as Darwin's does
    }
    return uiNumber;
}
} // namespace

namespace Tables
{
const Shims& GetMemory()
{
    static const Shims s_vecShims{
        {"_mmap", &MapPages},
        {"_munmap", WITH_ERRNO<&::munmap>},
        {"_mprotect", WITH_ERRNO<&::mprotect>},
        {"___bzero", &::bzero},
        {"___stack_chk_guard", &g_uiStackGuard},
        {"___stack_chk_fail", &ReportStack},
        {"___udivti3", &__udivti3},
        {"_arc4random", &DrawNumber},
    };
    return s_vecShims;
}
} // namespace Tables
