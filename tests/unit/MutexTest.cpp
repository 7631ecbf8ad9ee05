#include "QuenInclude/CLS_Mutex.h"
#include "tests/support/Waiting.h"

#include <condition_variable>
#include <gtest/gtest.h>
#include <mutex>
#include <shared_mutex>
#include <thread>
#include <type_traits>

namespace
{
/// Whether another thread could take the lock.
template <typename T_Mutex>
bool IsFree(T_Mutex& _mtxLock)
{
    bool bFree = false;
    std::thread(
        [&]
        {
            bFree = _mtxLock.try_lock();
            if (bFree)
            {
                _mtxLock.unlock();
            }
        })
        .join();
    return bFree;
}

/// Whether another thread could take the lock in shared mode.
bool IsFreeForReaders(CLS_SharedMutex& _smLock)
{
    bool bFree = false;
    std::thread(
        [&]
        {
            bFree = _smLock.try_lock_shared();
            if (bFree)
            {
                _smLock.unlock_shared();
            }
        })
        .join();
    return bFree;
}

TEST(MutexTest, AddsNothingToTheStandardLocks)
{
    EXPECT_TRUE((std::is_base_of_v<std::mutex, CLS_Mutex>));
    EXPECT_EQ(sizeof(std::mutex), sizeof(CLS_Mutex));
    EXPECT_TRUE((std::is_base_of_v<std::shared_mutex, CLS_SharedMutex>));
    EXPECT_EQ(sizeof(std::shared_mutex), sizeof(CLS_SharedMutex));
}

TEST(MutexTest, MutexIsHeldFromLockToUnlock)
{
    CLS_Mutex mtxLock;
    EXPECT_TRUE(IsFree(mtxLock));
    mtxLock.lock();
    EXPECT_FALSE(IsFree(mtxLock));
    mtxLock.unlock();
    EXPECT_TRUE(IsFree(mtxLock));
}

TEST(MutexTest, SharedMutexTakesOneWriterOrManyReaders)
{
    CLS_SharedMutex smLock;
    smLock.lock();
    EXPECT_FALSE(IsFree(smLock));
    EXPECT_FALSE(IsFreeForReaders(smLock));
    smLock.unlock();
    smLock.lock_shared();
    EXPECT_FALSE(IsFree(smLock));
    EXPECT_TRUE(IsFreeForReaders(smLock));
    smLock.unlock_shared();
    EXPECT_TRUE(IsFree(smLock));
}

TEST(MutexTest, GuardsHoldTheirLockUntilTheirDestruction)
{
    CLS_Mutex mtxLock;
    CLS_SharedMutex smLock;
    {
        const CLS_LockGuard lock(mtxLock);
        const CLS_LockGuard lockWriter(smLock);
        EXPECT_FALSE(IsFree(mtxLock));
        EXPECT_FALSE(IsFreeForReaders(smLock));
    }
    {
        const CLS_WaitGuard lock(mtxLock);
        const CLS_SharedGuard lockReader(smLock);
        EXPECT_FALSE(IsFree(mtxLock));
        EXPECT_FALSE(IsFree(smLock));
        EXPECT_TRUE(IsFreeForReaders(smLock));
    }
    EXPECT_TRUE(IsFree(mtxLock));
    EXPECT_TRUE(IsFree(smLock));
}

TEST(MutexTest, WaitGuardReleasesItsLockWhileAConditionVariableWaits)
{
    CLS_Mutex mtxLock;
    std::condition_variable cvChanged;
    bool bChanged = false;
    CLS_WaitGuard lock(mtxLock);
    std::thread thrChanger(
        [&]
        {
            const CLS_LockGuard lockChanger(mtxLock);
            bChanged = true;
            cvChanged.notify_one();
        });
    EXPECT_TRUE(cvChanged.wait_for(lock.GetLock(), WAIT_LIMIT, [&] { return bChanged; }));
    EXPECT_FALSE(IsFree(mtxLock));
    thrChanger.join();
}
} // namespace
