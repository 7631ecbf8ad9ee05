// The functions of Darwin's kernel that tell a process about its threads and its memory.

#include "tests/machrun/shims/Tables.h"
#include "tests/machrun/shims/Threads.h"

#include <cstdint>
#include <cstdlib>
#include <fstream>

namespace
{
constexpr int NO_MORE_REGIONS = 1;

std::uint32_t g_uiThisTask = 1; ///< any number will do

/// A list of numbers, one for each thread. The caller frees it with FreeMemory.
int ListThreads(std::uint32_t /*_uiTask*/, std::uint32_t** _ppThreads, std::uint32_t* _pCount)
{
    *_pCount = static_cast<std::uint32_t>(Threads::Count());
    *_ppThreads = static_cast<std::uint32_t*>(std::calloc(*_pCount, sizeof(**_ppThreads)));
    return *_ppThreads == nullptr ? ENOMEM : 0;
}

int FreeMemory(std::uint32_t /*_uiTask*/, void* _pMemory, std::uint64_t /*_uiSize*/)
{
    std::free(_pMemory);
    return 0;
}

int ReleasePort(std::uint32_t /*_uiTask*/, std::uint32_t /*_uiPort*/)
{
    return 0; // the numbers of threads are not ports here
}

/// The first region of memory that ends after an address. Programs use only its place.
int FindRegion(std::uint32_t /*_uiTask*/, std::uint64_t* _pAddress, std::uint64_t* _pSize, int /*_iKind*/,
               void* /*_pFacts*/, std::uint32_t* /*_pFactCount*/, std::uint32_t* /*_pObject*/)
{
    std::ifstream fsRegions("/proc/self/maps");
    std::uint64_t uiStart = 0;
    std::uint64_t uiEnd = 0;
    char cDash = 0;
    for (std::string strRest; fsRegions >> std::hex >> uiStart >> cDash >> uiEnd;
         std::getline(fsRegions, strRest))
    {
        if (uiEnd > *_pAddress)
        {
            *_pAddress = uiStart;
            *_pSize = uiEnd - uiStart;
            return 0;
        }
    }
    return NO_MORE_REGIONS;
}
} // namespace

namespace Tables
{
const Shims& GetKernel()
{
    static const Shims s_vecShims{
        {"_mach_task_self_", &g_uiThisTask}, {"_task_threads", &ListThreads},
        {"_vm_deallocate", &FreeMemory},     {"_mach_port_deallocate", &ReleasePort},
        {"_vm_region_64", &FindRegion},
    };
    return s_vecShims;
}
} // namespace Tables
