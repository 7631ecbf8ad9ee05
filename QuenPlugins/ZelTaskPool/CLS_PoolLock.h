#pragma once

#include "QuenInclude/CLS_Mutex.h"

/// \file
/// The kind of the pool's own locks.

#if defined(ZEL_CHECK_POOL_LOCKS)

/// What the calling thread holds of the pool's locks.
namespace PoolLockCheck
{
/// To be called before a lock is taken. Ends the process, with a line on standard error, when the thread
/// holds one already.
void RequireNone();

void NoteTaken();
void NoteGiven();
} // namespace PoolLockCheck

/// One of the pool's own locks, of which no thread holds two at once. This is a build that checks it: the
/// process ends before a thread takes the second one.
template <typename Mutex>
class ZEL_CAPABILITY("mutex") CLS_PoolLock : public Mutex
{
public:
    void lock() ZEL_ACQUIRE()
    {
        PoolLockCheck::RequireNone();
        Mutex::lock();
        PoolLockCheck::NoteTaken();
    }
    bool try_lock() ZEL_TRY_ACQUIRE(true)
    {
        PoolLockCheck::RequireNone();
        if (!Mutex::try_lock())
        {
            return false;
        }
        PoolLockCheck::NoteTaken();
        return true;
    }
    void unlock() ZEL_RELEASE()
    {
        Mutex::unlock();
        PoolLockCheck::NoteGiven();
    }
    void lock_shared() ZEL_ACQUIRE_SHARED()
    {
        PoolLockCheck::RequireNone();
        Mutex::lock_shared();
        PoolLockCheck::NoteTaken();
    }
    bool try_lock_shared() ZEL_TRY_ACQUIRE_SHARED(true)
    {
        PoolLockCheck::RequireNone();
        if (!Mutex::try_lock_shared())
        {
            return false;
        }
        PoolLockCheck::NoteTaken();
        return true;
    }
    void unlock_shared() ZEL_RELEASE_SHARED()
    {
        Mutex::unlock_shared();
        PoolLockCheck::NoteGiven();
    }
};

#else

/// One of the pool's own locks, of which no thread holds two at once. A build with the option
/// ZEL_CHECK_POOL_LOCKS checks it; here it is the bare lock.
template <typename Mutex>
using CLS_PoolLock = Mutex;

#endif
