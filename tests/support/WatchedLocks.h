#pragma once

#include <mutex>
#include <shared_mutex>
#include <vector>

/// During its life, it watches the order in which all threads take some locks.
///
/// On macOS, the program's functions must replace the system's for the C++ library as well. Only one may
/// exist at a time.
class CLS_WatchedLocks
{
public:
    static constexpr std::size_t MOST_LOCKS = 8;

    void Watch(std::mutex& _mtxOuter) { Watch(static_cast<const void*>(_mtxOuter.native_handle())); }
    /// If the lock has a native handle, that has the same address.
    void Watch(std::shared_mutex& _smOuter) { Watch(static_cast<const void*>(&_smOuter)); }
    /// The one lock that may be taken while another is held.
    void WatchInnermost(std::shared_mutex& _smInnermost);

    CLS_WatchedLocks();
    ~CLS_WatchedLocks();
    CLS_WatchedLocks(const CLS_WatchedLocks&) = delete;
    CLS_WatchedLocks& operator=(const CLS_WatchedLocks&) = delete;

    /// How many times each lock was taken, in the order of the calls of Watch.
    std::vector<int> GetTaken() const;
    /// How many times a thread took a lock while it held another one, except the innermost.
    int GetNested() const;
    /// How many times a thread released a lock that it had not taken since the watch began.
    int GetUntaken() const;

private:
    void Watch(const void* _pLock);
};
