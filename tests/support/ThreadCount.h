#pragma once

#include "tests/support/Waiting.h"

#include <thread>

#ifdef __APPLE__
#include <mach/mach.h>
#else
#include <filesystem>
#include <iterator>
#endif

namespace ThreadCount
{
/// The number of threads that the system lists for this process.
inline int CountListed()
{
#ifdef __APPLE__
    thread_act_array_t pThreads = nullptr;
    mach_msg_type_number_t iCount = 0;
    task_threads(mach_task_self(), &pThreads, &iCount);
    for (mach_msg_type_number_t i = 0; i < iCount; ++i)
    {
        mach_port_deallocate(mach_task_self(), pThreads[i]);
    }
    vm_deallocate(mach_task_self(), reinterpret_cast<vm_address_t>(pThreads), iCount * sizeof(*pThreads));
    return static_cast<int>(iCount);
#else
    const std::filesystem::directory_iterator itThreads("/proc/self/task");
    return static_cast<int>(std::distance(begin(itThreads), end(itThreads)));
#endif
}

/// Starts a thread and waits until it is no longer listed. With the first thread of the program, a sanitizer
/// starts one of its own.
inline bool StartFirst()
{
#ifdef __APPLE__
    const int iBefore = CountListed();
    std::thread([] {}).join();
    return WaitUntil([iBefore] { return CountListed() == iBefore; });
#else
    std::filesystem::path pthThread;
    std::thread([&pthThread] { pthThread = std::filesystem::read_symlink("/proc/thread-self"); }).join();
    return WaitUntil([&pthThread] { return !std::filesystem::exists("/proc" / pthThread); });
#endif
}
} // namespace ThreadCount

/// The number of threads that exist in this process now, including those of the system's libraries.
inline int CountThreads()
{
    static const bool s_bStarted = ThreadCount::StartFirst();
    return s_bStarted ? ThreadCount::CountListed() : -1;
}

/// Whether the process has this number of threads within the limit. A joined thread is still listed for a
/// moment.
[[nodiscard]] inline bool WaitForThreads(int _iCount)
{
    return WaitUntil([_iCount] { return CountThreads() == _iCount; });
}
