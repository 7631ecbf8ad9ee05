// The locks of builds that check the pool's locks. Other builds have them in this test alone.

#include "QuenPlugins/ZelTaskPool/CLS_PoolLock.h"
#include "tests/support/Waiting.h"

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <gtest/gtest.h>
#include <mutex>
#include <thread>
#include <unistd.h>

namespace
{
constexpr const char* REFUSAL = "A thread takes a second lock of the pool";

/// What a process exits with when abort was called in it. No sanitizer exits with that.
constexpr int ABORTED = 91;

std::atomic<bool> s_bAborted{false};

/// In place of the system's: the thread that called abort never comes back.
void HoldAborted(int)
{
    s_bAborted = true;
    while (true)
    {
        pause();
    }
}

/// More notes than there are places for.
constexpr int MANY_NOTES = 2000;

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

/// The process itself ends regularly: then builds that count what is executed keep their counts.
TEST_F(PoolLockDeathTest, SecondLockCallsAbort)
{
    EXPECT_EXIT(
        {
            std::signal(SIGABRT, HoldAborted);
            std::thread(
                [this]
                {
                    const CLS_LockGuard lock(m_mtxLock);
                    const CLS_LockGuard lockOther(m_mtxOther);
                })
                .detach();
            std::exit(WaitUntil([] { return s_bAborted.load(); }) ? ABORTED : EXIT_FAILURE);
        },
        ::testing::ExitedWithCode(ABORTED), REFUSAL);
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

TEST(PoolLockTest, LocksOneAfterTheOtherAreFine)
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

TEST(PoolLockTest, ALockThatIsNotHadDoesNotCount)
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

TEST(PoolLockTest, ThreadThatFindsNoPlaceIsNotChecked)
{
    PoolMutex mtxLock;
    PoolMutex mtxOther;
    for (int i = 0; i < MANY_NOTES; ++i)
    {
        PoolLockCheck::NoteTaken();
    }
    std::thread(
        [&]
        {
            const CLS_LockGuard lock(mtxLock);
            const CLS_LockGuard lockOther(mtxOther);
        })
        .join();
    for (int i = 0; i < MANY_NOTES; ++i)
    {
        PoolLockCheck::NoteGiven();
    }
    const CLS_LockGuard lock(mtxLock); // every place is free again
}
} // namespace
