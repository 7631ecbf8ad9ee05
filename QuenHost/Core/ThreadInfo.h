#pragma once

#include <array>
#include <cstdint>
#include <pthread.h>
#include <string>
#ifndef __APPLE__
#include <sys/syscall.h>
#include <unistd.h>
#endif

/// What the system says about the calling thread.
namespace ThreadInfo
{
/// The number that debuggers and profilers show.
inline std::uint64_t GetId()
{
#ifdef __APPLE__
    std::uint64_t uiId = 0;
    pthread_threadid_np(nullptr, &uiId);
    return uiId;
#else
    return static_cast<std::uint64_t>(syscall(SYS_gettid));
#endif
}

/// The name that the system shows; "" for none.
inline std::string GetName()
{
    std::array<char, 64> arrName = {};
    pthread_getname_np(pthread_self(), arrName.data(), arrName.size());
    return arrName.data();
}
} // namespace ThreadInfo
