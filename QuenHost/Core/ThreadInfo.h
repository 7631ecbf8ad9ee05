#pragma once

#include <array>
#include <cstdint>
#include <pthread.h>
#include <string>
#include <thread>
#ifndef __APPLE__
#include <sys/syscall.h>
#include <unistd.h>
#endif

/// What the system says about the calling thread.
///
/// A coroutine may continue on another thread after a co_await. If a compiler inlines one of these functions
/// into a coroutine, it may reuse the first result: it assumes that a function stays on one thread. So these
/// functions are never inlined, and the kit calls the system only here.
namespace ThreadInfo
{
/// Keeps the compiler from reusing an earlier result of the function that calls this.
inline void ForbidReuse()
{
    __asm__ volatile("");
}

/// Tells threads apart.
[[gnu::noinline]] inline std::thread::id GetSelf()
{
    ForbidReuse();
    return std::this_thread::get_id();
}

/// The number that debuggers and profilers show.
[[gnu::noinline]] inline std::uint64_t GetId()
{
    ForbidReuse();
#ifdef __APPLE__
    std::uint64_t uiId = 0;
    pthread_threadid_np(nullptr, &uiId);
    return uiId;
#else
    return static_cast<std::uint64_t>(syscall(SYS_gettid));
#endif
}

/// The name that the system shows; "" for none.
[[gnu::noinline]] inline std::string GetName()
{
    ForbidReuse();
    std::array<char, 64> arrName = {};
    pthread_getname_np(pthread_self(), arrName.data(), arrName.size());
    return arrName.data();
}
} // namespace ThreadInfo
