#pragma once

#include <mutex>
#include <shared_mutex>
#include <vector>

/// While one lives, it watches some locks, on all threads, for the order in which they are taken. On macOS
/// the program's functions must replace the system's for the C++ library, too. One at a time.
class CLS_WatchedLocks
{
public:
    static constexpr std::size_t MOST_LOCKS = 8;

    void Watch(std::mutex& _mtxOuter) { Watch(static_cast<const void*>(_mtxOuter.native_handle())); }
    /// Its native handle has the same address, where it has one.
    void Watch(std::shared_mutex& _smOuter) { Watch(static_cast<const void*>(&_smOuter)); }
    /// The one lock that may be taken while another is held.
    void WatchInnermost(std::shared_mutex& _smInnermost);

    CLS_WatchedLocks();
    ~CLS_WatchedLocks();
    CLS_WatchedLocks(const CLS_WatchedLocks&) = delete;
    CLS_WatchedLocks& operator=(const CLS_WatchedLocks&) = delete;

    /// How often each lock was taken, in the order of the calls of Watch.
    std::vector<int> GetTaken() const;
    /// How often a lock was taken by a thread that held another one, the innermost excepted.
    int GetNested() const;
    /// How often a lock was given back by a thread that had not taken it since the watch began.
    int GetUntaken() const;

private:
    void Watch(const void* _pLock);
};
