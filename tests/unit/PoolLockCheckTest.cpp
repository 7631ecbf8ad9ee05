// For builds that check the pool's locks. There, every other test checks them, too.

#include "QuenPlugins/ZelTaskPool/CLS_QuenTaskPool.h"

#include <gtest/gtest.h>
#include <mutex>
#include <thread>
#include <type_traits>

namespace
{
constexpr const char* REFUSAL = "A thread takes a second lock of the pool";

using PoolMutex = CLS_PoolLock<CLS_Mutex>;
using PoolSharedMutex = CLS_PoolLock<CLS_SharedMutex>;

/// Death tests run in a process of their own, which starts anew.
class PoolLockDeathTest : public ::testing::Test
{
protected:
    void SetUp() override { ::testing::GTEST_FLAG(death_test_style) = "threadsafe"; }

    PoolMutex m_mtxLock;
    PoolMutex m_mtxOther;
    PoolSharedMutex m_smLock;
    PoolSharedMutex m_smOther;
};

TEST_F(PoolLockDeathTest, SecondLockEndsTheProcess)
{
    EXPECT_DEATH(
        {
            const CLS_LockGuard lock(m_mtxLock);
            const CLS_LockGuard lockOther(m_mtxOther);
        },
        REFUSAL);
    EXPECT_DEATH(
        {
            const CLS_WaitGuard lock(m_mtxLock);
            const CLS_SharedGuard lockOther(m_smOther);
        },
        REFUSAL);
    EXPECT_DEATH(
        {
            const CLS_SharedGuard lock(m_smLock);
            const CLS_SharedGuard lockOther(m_smOther);
        },
        REFUSAL);
    EXPECT_DEATH(
        {
            const CLS_LockGuard lock(m_smLock);
            const CLS_WaitGuard lockOther(m_mtxOther);
        },
        REFUSAL);
}

TEST_F(PoolLockDeathTest, TryingASecondLockEndsTheProcess)
{
    EXPECT_DEATH(
        {
            const CLS_LockGuard lock(m_mtxLock);
            m_mtxOther.try_lock();
        },
        REFUSAL);
    EXPECT_DEATH(
        {
            const CLS_LockGuard lock(m_mtxLock);
            m_smOther.try_lock_shared();
        },
        REFUSAL);
}

TEST_F(PoolLockDeathTest, OperationOfThePoolUnderOneOfItsLocksEndsTheProcess)
{
    EXPECT_DEATH(
        {
            CLS_QuenTaskPool& clsPool = *CLS_QuenTaskPool::GetInstance();
            const CLS_LockGuard lock(clsPool.m_mtxIdleThreads);
            clsPool.GetTaskThreadNum();
        },
        REFUSAL);
}

TEST(PoolLockCheckTest, LocksOneAfterTheOtherAreFine)
{
    PoolMutex mtxLock;
    PoolSharedMutex smLock;
    {
        const CLS_LockGuard lock(mtxLock);
    }
    {
        const CLS_SharedGuard lock(smLock);
    }
    {
        const CLS_WaitGuard lock(mtxLock);
    }
    EXPECT_TRUE(smLock.try_lock());
    smLock.unlock();
    EXPECT_TRUE(smLock.try_lock_shared());
    smLock.unlock_shared();
    EXPECT_TRUE(mtxLock.try_lock());
    mtxLock.unlock();
}

TEST(PoolLockCheckTest, ALockThatIsNotHadDoesNotCount)
{
    PoolMutex mtxLock;
    PoolSharedMutex smLock;
    const CLS_LockGuard lock(mtxLock);
    std::thread(
        [&]
        {
            EXPECT_FALSE(mtxLock.try_lock());
            const CLS_LockGuard lockOther(smLock); // each thread has its own
        })
        .join();
    std::thread(
        [&]
        {
            const std::lock_guard<std::shared_mutex> lockOther(smLock); // unchecked
            std::thread([&] { EXPECT_FALSE(smLock.try_lock_shared()); }).join();
        })
        .join();
}

TEST(PoolLockCheckTest, AllLocksOfThePoolAreChecked)
{
    using Pool = CLS_QuenTaskPool;
    EXPECT_TRUE((std::is_same_v<decltype(Pool::m_mtxWaitingTasks), PoolMutex>));
    EXPECT_TRUE((std::is_same_v<decltype(Pool::m_smLoopTasksLock), PoolSharedMutex>));
    EXPECT_TRUE((std::is_same_v<decltype(Pool::m_mtxTmpTasks), PoolMutex>));
    EXPECT_TRUE((std::is_same_v<decltype(Pool::m_mtxIdleThreads), PoolMutex>));
    EXPECT_TRUE((std::is_same_v<decltype(Pool::m_smThreadTaskLock), PoolSharedMutex>));
}
} // namespace
