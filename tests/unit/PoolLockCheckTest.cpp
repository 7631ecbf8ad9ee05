// For builds that check the pool's locks. There, every other test checks them, too.

#include "QuenPlugins/ZelTaskPool/CLS_QuenTaskPool.h"

#include <gtest/gtest.h>
#include <type_traits>

namespace
{
using PoolMutex = CLS_PoolLock<CLS_Mutex>;
using PoolSharedMutex = CLS_PoolLock<CLS_SharedMutex>;

TEST(PoolLockCheckDeathTest, OperationOfThePoolUnderOneOfItsLocksEndsTheProcess)
{
    ::testing::GTEST_FLAG(death_test_style) = "threadsafe";
    EXPECT_DEATH(
        {
            CLS_QuenTaskPool& clsPool = *CLS_QuenTaskPool::GetInstance();
            const CLS_LockGuard lock(clsPool.m_mtxIdleThreads);
            clsPool.GetTaskThreadNum();
        },
        "A thread takes a second lock of the pool");
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
