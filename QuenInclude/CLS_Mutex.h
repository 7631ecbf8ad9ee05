#pragma once

#include "QuenInclude/ThreadSafety.h"

#include <mutex>
#include <shared_mutex>

/// \file
/// The standard library's locks, with the annotations that the compiler's check of the lock discipline needs.
/// Each operation does what the standard one does. A wait for a lock tries again for a moment before it
/// sleeps.

namespace Util
{
/// Tells the processor core that the thread waits in a loop.
inline void PauseCore()
{
#if defined(__x86_64__)
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    __asm__ volatile("yield");
#endif
}

/// Tries to take a lock for a few microseconds. True if it succeeds.
///
/// The locks are usually held for much less than that. So this avoids a sleep and a wake-up, which cost both
/// threads several times as much.
template <typename T_TryLock>
bool SpinForLock(T_TryLock _funTryLock)
{
    constexpr int TRIES = 5;
    constexpr int PAUSES = 40;
    for (int i = 0; i < TRIES; ++i)
    {
        if (_funTryLock())
        {
            return true;
        }
        for (int k = 0; k < PAUSES; ++k)
        {
            PauseCore();
        }
    }
    return false;
}
} // namespace Util

/// A mutex.
class ZEL_CAPABILITY("mutex") CLS_Mutex : public std::mutex
{
public:
    /// Waits for the lock.
    void lock() ZEL_ACQUIRE()
    {
        if (!Util::SpinForLock([this] { return std::mutex::try_lock(); }))
        {
            std::mutex::lock();
        }
    }
    /// Takes the lock if it is free.
    bool try_lock() ZEL_TRY_ACQUIRE(true) { return std::mutex::try_lock(); }
    /// Releases the lock, on the thread that took it.
    void unlock() ZEL_RELEASE() { std::mutex::unlock(); }
};

/// A reader/writer mutex.
class ZEL_CAPABILITY("mutex") CLS_SharedMutex : public std::shared_mutex
{
public:
    /// Waits for the lock.
    void lock() ZEL_ACQUIRE()
    {
        if (!Util::SpinForLock([this] { return std::shared_mutex::try_lock(); }))
        {
            std::shared_mutex::lock();
        }
    }
    /// Takes the lock if it is free.
    bool try_lock() ZEL_TRY_ACQUIRE(true) { return std::shared_mutex::try_lock(); }
    /// Releases the lock, on the thread that took it.
    void unlock() ZEL_RELEASE() { std::shared_mutex::unlock(); }
    /// Takes the lock, shared; waits while it is held exclusively.
    void lock_shared() ZEL_ACQUIRE_SHARED()
    {
        if (!Util::SpinForLock([this] { return std::shared_mutex::try_lock_shared(); }))
        {
            std::shared_mutex::lock_shared();
        }
    }
    /// Takes the lock, shared, unless it is held exclusively.
    bool try_lock_shared() ZEL_TRY_ACQUIRE_SHARED(true) { return std::shared_mutex::try_lock_shared(); }
    /// Releases the shared lock, on the thread that took it.
    void unlock_shared() ZEL_RELEASE_SHARED() { std::shared_mutex::unlock_shared(); }
};

/// Holds a lock of either kind, exclusive, as long as it lives.
template <typename T_Mutex>
class ZEL_SCOPED_CAPABILITY CLS_LockGuard
{
public:
    /// Waits for the lock.
    explicit CLS_LockGuard(T_Mutex& _mtxLock) ZEL_ACQUIRE(_mtxLock) : m_lock(_mtxLock) {}
    /// Releases the lock.
    ~CLS_LockGuard() ZEL_RELEASE() = default;
    CLS_LockGuard(const CLS_LockGuard&) = delete;
    CLS_LockGuard& operator=(const CLS_LockGuard&) = delete;

private:
    const std::lock_guard<T_Mutex> m_lock;
};

/// Holds a reader/writer mutex, shared, as long as it lives.
template <typename T_Mutex>
class ZEL_SCOPED_CAPABILITY CLS_SharedGuard
{
public:
    /// Waits while the lock is held exclusively.
    explicit CLS_SharedGuard(T_Mutex& _smLock) ZEL_ACQUIRE_SHARED(_smLock) : m_lock(_smLock) {}
    /// Releases the lock.
    ~CLS_SharedGuard() ZEL_RELEASE_GENERIC() = default;
    CLS_SharedGuard(const CLS_SharedGuard&) = delete;
    CLS_SharedGuard& operator=(const CLS_SharedGuard&) = delete;

private:
    const std::shared_lock<T_Mutex> m_lock;
};

/// Holds a mutex as long as it lives, except while a condition variable waits with it.
template <typename T_Mutex>
class ZEL_SCOPED_CAPABILITY CLS_WaitGuard
{
public:
    /// Waits for the lock.
    explicit CLS_WaitGuard(T_Mutex& _mtxLock) ZEL_ACQUIRE(_mtxLock)
        : m_lockHeld(_mtxLock), m_lockWait(_mtxLock, std::adopt_lock)
    {
    }
    /// Releases the lock.
    ~CLS_WaitGuard() ZEL_RELEASE() { static_cast<void>(m_lockWait.release()); }
    CLS_WaitGuard(const CLS_WaitGuard&) = delete;
    CLS_WaitGuard& operator=(const CLS_WaitGuard&) = delete;

    /// Only for the wait of a condition variable: the mutex is held again when the wait returns.
    std::unique_lock<std::mutex>& GetLock() { return m_lockWait; }

private:
    const std::lock_guard<T_Mutex> m_lockHeld;
    std::unique_lock<std::mutex> m_lockWait;
};
