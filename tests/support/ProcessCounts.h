#pragma once

#ifdef __APPLE__
#include <mach/mach.h>
#else
#include <algorithm>
#include <fstream>
#endif
#include <filesystem>
#include <iterator>

/// The number of files that this process has open. It is always too high by one, because counting opens one.
inline int CountDescriptors()
{
    const std::filesystem::directory_iterator itFiles("/dev/fd");
    return static_cast<int>(std::distance(begin(itFiles), end(itFiles)));
}

/// The number of memory mappings of this process: those of the program and libraries, stacks, and the heap.
inline int CountMappings()
{
#ifdef __APPLE__
    int iMappings = 0;
    vm_address_t uiAddress = 0;
    vm_size_t uiSize = 0;
    vm_region_basic_info_data_64_t stInfo{};
    mach_port_t uiObject = MACH_PORT_NULL;
    for (mach_msg_type_number_t iInfo = VM_REGION_BASIC_INFO_COUNT_64;
         vm_region_64(mach_task_self(), &uiAddress, &uiSize, VM_REGION_BASIC_INFO_64,
                      reinterpret_cast<vm_region_info_64_t>(&stInfo), &iInfo, &uiObject) == KERN_SUCCESS;
         uiAddress += uiSize)
    {
        ++iMappings;
    }
    return iMappings;
#else
    std::ifstream fsMaps("/proc/self/maps");
    return static_cast<int>(
        std::count(std::istreambuf_iterator<char>(fsMaps), std::istreambuf_iterator<char>(), '\n'));
#endif
}
