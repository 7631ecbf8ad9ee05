#include "verify/soak/Figures.h"

#ifdef __APPLE__
#include <mach/mach.h>
#include <malloc/malloc.h>
#else
#include <fstream>
#include <malloc.h>
#include <unistd.h>
#endif

namespace Figures
{
#ifdef ZEL_TEST_SANITIZED
void ShareHeap() {}

std::int64_t GetHeap()
{
    return 0;
}

std::int64_t GetResident()
{
    return 0;
}
#elif defined(__APPLE__)
void ShareHeap() {}

std::int64_t GetHeap()
{
    malloc_statistics_t stStatistics{};
    malloc_zone_statistics(nullptr, &stStatistics);
    return static_cast<std::int64_t>(stStatistics.size_in_use);
}

std::int64_t GetResident()
{
    malloc_zone_pressure_relief(nullptr, 0);
    mach_task_basic_info_data_t stInfo{};
    mach_msg_type_number_t uiCount = MACH_TASK_BASIC_INFO_COUNT;
    task_info(mach_task_self(), MACH_TASK_BASIC_INFO, reinterpret_cast<task_info_t>(&stInfo), &uiCount);
    return static_cast<std::int64_t>(stInfo.resident_size);
}
#else
void ShareHeap()
{
    mallopt(M_ARENA_MAX, 1);
}

std::int64_t GetHeap()
{
    const struct mallinfo2 stInfo = mallinfo2();
    return static_cast<std::int64_t>(stInfo.uordblks + stInfo.hblkhd);
}

std::int64_t GetResident()
{
    malloc_trim(0);
    std::int64_t iTotal = 0;
    std::int64_t iResident = 0;
    std::ifstream("/proc/self/statm") >> iTotal >> iResident;
    return iResident * sysconf(_SC_PAGESIZE);
}
#endif
} // namespace Figures
