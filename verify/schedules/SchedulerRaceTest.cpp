// The scheduler finds textbook races, and reports none in correct programs.

#include "verify/schedules/SchedulerFixture.h"

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <thread>

class SchedulerRaceTest : public CLS_SchedulerFixture
{
protected:
    /// Two threads increment a number in two steps: a read and a write.
    static void LoseUpdate()
    {
        std::atomic<int> iCount{0};
        const auto funCount = [&] { iCount = iCount + 1; };
        std::thread thrOther(funCount);
        funCount();
        thrOther.join();
        Require(iCount == 2, "an update is lost");
    }

    static void CountTogether()
    {
        std::atomic<int> iCount{0};
        const auto funCount = [&] { ++iCount; };
        std::thread thrOther(funCount);
        funCount();
        thrOther.join();
        Require(iCount == 2, "an update is lost");
    }

    /// Two threads take two locks in opposite orders.
    static void TakeLocksCrosswise()
    {
        std::mutex mtxFirst;
        std::mutex mtxSecond;
        std::thread thrOther(
            [&]
            {
                const std::lock_guard<std::mutex> lockSecond(mtxSecond);
                const std::lock_guard<std::mutex> lockFirst(mtxFirst);
            });
        {
            const std::lock_guard<std::mutex> lockFirst(mtxFirst);
            const std::lock_guard<std::mutex> lockSecond(mtxSecond);
        }
        thrOther.join();
    }

    /// One thread waits for a flag that the other sets, with or without the lock.
    static void WaitForFlag(bool _bSetUnderLock)
    {
        std::mutex mtxFlag;
        std::condition_variable cvFlag;
        std::atomic<bool> bFlag{false};
        std::thread thrOther(
            [&]
            {
                std::unique_lock<std::mutex> lock(mtxFlag);
                while (!bFlag)
                {
                    cvFlag.wait(lock);
                }
            });
        {
            std::unique_lock<std::mutex> lock(mtxFlag, std::defer_lock);
            if (_bSetUnderLock)
            {
                lock.lock();
            }
            bFlag = true;
        }
        cvFlag.notify_one();
        thrOther.join();
    }

    /// Two threads check whether one is left, and then take it. Both steps are under the lock, but not
    /// together.
    static void CheckThenAct()
    {
        std::mutex mtxLeft;
        int iLeft = 1;
        const auto funTake = [&]
        {
            bool bLeft = false;
            {
                const std::lock_guard<std::mutex> lock(mtxLeft);
                bLeft = iLeft > 0;
            }
            if (bLeft)
            {
                const std::lock_guard<std::mutex> lock(mtxLeft);
                Require(--iLeft >= 0, "the last one is taken twice");
            }
        };
        std::thread thrOther(funTake);
        funTake();
        thrOther.join();
    }

    /// One thread waits for a flag that the other sets, and then frees the flag, its lock and its condition.
    /// Without the lock, the notification may use freed memory.
    static void FreeWhenNotified(bool _bUnderLock)
    {
        struct ST_Flag
        {
            std::mutex m_mtxFlag;
            std::condition_variable m_cvFlag;
            bool m_bFlag = false;
        };
        auto pFlag = std::make_unique<ST_Flag>();
        std::thread thrOther(
            [pRaw = pFlag.get(), _bUnderLock]
            {
                std::unique_lock<std::mutex> lock(pRaw->m_mtxFlag);
                pRaw->m_bFlag = true;
                if (!_bUnderLock)
                {
                    lock.unlock();
                }
                pRaw->m_cvFlag.notify_one();
            });
        {
            std::unique_lock<std::mutex> lock(pFlag->m_mtxFlag);
            pFlag->m_cvFlag.wait(lock, [&] { return pFlag->m_bFlag; });
        }
        pFlag.reset();
        thrOther.join();
    }

    /// Each thread writes its word and reads the other's. With a single total order, one of them sees the
    /// other's store.
    template <std::memory_order ORDER>
    static void WriteThenReadOther()
    {
        std::atomic<int> iMine{0};
        std::atomic<int> iOthers{0};
        int iSeenByOther = 1;
        std::thread thrOther(
            [&]
            {
                iOthers.store(1, ORDER);
                iSeenByOther = iMine.load();
            });
        iMine.store(1, ORDER);
        const int iSeen = iOthers.load();
        thrOther.join();
        Require(iSeen + iSeenByOther > 0, "neither sees the other");
    }
};

TEST_F(SchedulerRaceTest, LostUpdateIsFoundByEveryStrategy)
{
    EXPECT_EQ(RunRandom(LoseUpdate), "an update is lost");
    EXPECT_EQ(RunPriorities(2, LoseUpdate), "an update is lost");
    EXPECT_EQ(RunPriorities(3, LoseUpdate), "an update is lost");
    EXPECT_EQ(RunAll(2, LoseUpdate), "an update is lost");
}

TEST_F(SchedulerRaceTest, LostUpdateNeedsADelay)
{
    EXPECT_EQ(RunAll(0, LoseUpdate), "");
    EXPECT_EQ(m_uiSchedules, 1U);
}

TEST_F(SchedulerRaceTest, AtomicUpdateIsNotLost)
{
    EXPECT_EQ(RunRandom(CountTogether), "");
    EXPECT_EQ(RunPriorities(3, CountTogether), "");
    EXPECT_EQ(RunAll(4, CountTogether), "");
}

TEST_F(SchedulerRaceTest, LocksTakenCrosswiseDeadlock)
{
    EXPECT_EQ(RunRandom(TakeLocksCrosswise), "deadlock");
    EXPECT_EQ(RunPriorities(2, TakeLocksCrosswise), "deadlock");
    EXPECT_EQ(RunAll(2, TakeLocksCrosswise), "deadlock");
}

TEST_F(SchedulerRaceTest, DeadlockIsReportedWithEachThreadsPosition)
{
    ASSERT_EQ(RunRandom(TakeLocksCrosswise), "deadlock");
    EXPECT_EQ(m_stOutcome.m_vecPositions, (std::vector<std::string>{"thread 0: locks a local variable",
                                                                    "thread 1: locks a local variable"}));
}

TEST_F(SchedulerRaceTest, FlagSetOutsideTheLockLosesTheWakeUp)
{
    const auto funBody = [] { WaitForFlag(false); };
    EXPECT_EQ(RunRandom(funBody), "deadlock");
    EXPECT_EQ(m_stOutcome.m_vecPositions,
              (std::vector<std::string>{"thread 0: joins thread 1", "thread 1: waits for a local variable"}));
    EXPECT_EQ(RunPriorities(2, funBody), "deadlock");
    EXPECT_EQ(RunAll(2, funBody), "deadlock");
}

TEST_F(SchedulerRaceTest, FlagSetUnderTheLockDoesNot)
{
    const auto funBody = [] { WaitForFlag(true); };
    EXPECT_EQ(RunRandom(funBody), "");
    EXPECT_EQ(RunPriorities(3, funBody), "");
    EXPECT_EQ(RunAll(4, funBody), "");
}

TEST_F(SchedulerRaceTest, CheckThenActIsFound)
{
    EXPECT_EQ(RunRandom(CheckThenAct), "the last one is taken twice");
    EXPECT_EQ(RunPriorities(2, CheckThenAct), "the last one is taken twice");
    EXPECT_EQ(RunAll(2, CheckThenAct), "the last one is taken twice");
}

TEST_F(SchedulerRaceTest, LateStoresShowWhatReleaseAllows)
{
    m_stOptions.m_bLateStores = true;
    EXPECT_EQ(RunRandom(WriteThenReadOther<std::memory_order_release>), "neither sees the other");
    EXPECT_EQ(RunRandom(WriteThenReadOther<std::memory_order_seq_cst>), "");
}

TEST_F(SchedulerRaceTest, ExhaustiveSearchSeesStoresOneByOneOrAsLateAsCanBe)
{
    const auto funInTurn = []
    {
        std::atomic<int> iFirst{0};
        std::atomic<int> iSecond{0};
        std::thread thrOther(
            [&]
            {
                iFirst.store(1, std::memory_order_release);
                iSecond.store(1, std::memory_order_release);
            });
        const int iSeen = iFirst.load();
        Require(iSeen <= iSecond.load(), "the first store is seen without the second");
        thrOther.join();
    };
    const auto funCrosswise = WriteThenReadOther<std::memory_order_release>;
    EXPECT_EQ(RunAll(2, funInTurn), "the first store is seen without the second");
    EXPECT_EQ(RunAll(2, funCrosswise), "");
    m_stOptions.m_bLateStores = true;
    EXPECT_EQ(RunAll(2, funInTurn), "");
    EXPECT_EQ(RunAll(2, funCrosswise), "neither sees the other");
}

TEST_F(SchedulerRaceTest, StoresAreInTimeUnlessAskedFor)
{
    EXPECT_EQ(RunRandom(WriteThenReadOther<std::memory_order_release>), "");
}

TEST_F(SchedulerRaceTest, TouchOfFreedMemoryIsFound)
{
    const auto funBody = []
    {
        std::optional<std::thread> thrOther;
        {
            const auto pNumber = std::make_unique<std::atomic<int>>(0);
            thrOther.emplace([pRaw = pNumber.get()] { ++*pRaw; });
        }
        thrOther->join();
    };
    const std::string strFailure = RunRandom(funBody);
    EXPECT_EQ(strFailure.substr(0, strFailure.find(':')),
              "freed memory is used as an atomic word by thread 1");
}

TEST_F(SchedulerRaceTest, NotificationOfAFreedConditionIsFound)
{
    const std::string strFailure = RunRandom([] { FreeWhenNotified(false); });
    EXPECT_EQ(strFailure.substr(0, strFailure.find(':')), "freed memory is notified by thread 1");
    EXPECT_EQ(RunRandom([] { FreeWhenNotified(true); }), "");
}

TEST_F(SchedulerRaceTest, LockFreedBeforeItIsTakenIsFound)
{
    using Lock = std::shared_mutex;
    const std::vector<void (*)(Lock&)> vecUses{
        [](Lock& _smLock) { _smLock.lock(); }, [](Lock& _smLock) { _smLock.lock_shared(); },
        [](Lock& _smLock) { _smLock.try_lock(); }, [](Lock& _smLock) { _smLock.try_lock_shared(); }};
    for (const auto funUse : vecUses)
    {
        const auto funBody = [funUse]
        {
            auto pLock = std::make_unique<Lock>();
            std::atomic<bool> bThere{true};
            std::thread thrOther(
                [&bThere, funUse, pRaw = pLock.get()]
                {
                    if (bThere)
                    {
                        funUse(*pRaw);
                    }
                });
            bThere = false;
            if (pLock->try_lock())
            {
                pLock->unlock();
                pLock.reset();
            }
            thrOther.join();
            static_cast<void>(pLock.release()); // held, or gone
        };
        const std::string strFailure = RunRandom(funBody);
        EXPECT_EQ(strFailure.substr(0, strFailure.find(':')),
                  "freed memory is locked or unlocked by thread 1");
    }
}

TEST_F(SchedulerRaceTest, LockFreedWhileItsHolderWaitsIsFound)
{
    const auto funBody = []
    {
        auto pLock = std::make_unique<std::mutex>();
        std::condition_variable cvNever;
        std::thread thrOther(
            [&cvNever, pRaw = pLock.get()]
            {
                std::unique_lock<std::mutex> lock(*pRaw);
                cvNever.wait_for(lock, std::chrono::seconds(2));
            });
        std::this_thread::sleep_for(std::chrono::seconds(1));
        pLock.reset();
        thrOther.join();
    };
    const std::string strFailure = RunRandom(funBody, 1);
    EXPECT_EQ(strFailure.substr(0, strFailure.find(':')), "freed memory is locked or unlocked by thread 1");
}

TEST_F(SchedulerRaceTest, DestroyingAConditionThatSomebodyWaitsForIsFound)
{
    const auto funBody = []
    {
        std::mutex mtxLock;
        auto cvCondition = std::make_optional<std::condition_variable>();
        std::thread thrOther(
            [&]
            {
                std::unique_lock<std::mutex> lock(mtxLock);
                cvCondition->wait(lock);
            });
        std::this_thread::sleep_for(std::chrono::seconds(1));
        cvCondition.reset();
        thrOther.join();
    };
    EXPECT_EQ(RunRandom(funBody, 1), "thread 0 destroys a condition that thread 1 waits for");
}

TEST_F(SchedulerRaceTest, FreeingAHeldLockIsFound)
{
    const auto funBody = []
    {
        auto pLock = std::make_unique<std::mutex>();
        pLock->lock();
        pLock.reset();
    };
    const std::string strFailure = RunRandom(funBody, 1);
    EXPECT_EQ(strFailure.substr(0, strFailure.find(':')), "a lock is freed that a thread holds");
}

TEST_F(SchedulerRaceTest, EndlessLoopIsALivelock)
{
    m_stOptions.m_uiMostSteps = 1000;
    const auto funBody = []
    {
        std::atomic<bool> bEnd{false};
        // clang leaves out the hook where it sees that no other thread knows the variable.
        const std::atomic<bool>* volatile pEnd = &bEnd;
        while (!*pEnd)
        {
        }
    };
    EXPECT_EQ(RunRandom(funBody), "livelock: 1000 steps");
    EXPECT_EQ(m_stOutcome.m_vecPositions, (std::vector<std::string>{"thread 0: reads a local variable"}));
}

TEST_F(SchedulerRaceTest, EndlessSleepIsALivelock)
{
    m_stOptions.m_nsMostTime = 5'000'000'000;
    const auto funBody = []
    {
        while (true)
        {
            std::this_thread::sleep_for(std::chrono::seconds(2));
        }
    };
    EXPECT_EQ(RunRandom(funBody), "livelock: 6000 ms");
}

TEST_F(SchedulerRaceTest, ReadersShareAndWritersDoNot)
{
    bool bShared = false;
    const auto funBody = [&bShared]
    {
        std::shared_mutex smLock;
        std::atomic<int> iReaders{0};
        std::atomic<int> iWriters{0};
        const auto funRead = [&]
        {
            const std::shared_lock<std::shared_mutex> lock(smLock);
            bShared = ++iReaders == 2 || bShared;
            Require(iWriters == 0, "a reader alongside a writer");
            --iReaders;
        };
        std::thread thrReader(funRead);
        std::thread thrWriter(
            [&]
            {
                const std::unique_lock<std::shared_mutex> lock(smLock);
                Require(++iWriters == 1 && iReaders == 0, "a writer alongside another thread");
                --iWriters;
            });
        funRead();
        thrReader.join();
        thrWriter.join();
    };
    EXPECT_EQ(RunRandom(funBody), "");
    EXPECT_TRUE(bShared);
}

TEST_F(SchedulerRaceTest, UnlockingWhatAnotherHoldsIsFound)
{
    const auto funBody = []
    {
        std::mutex mtxLock;
        mtxLock.lock();
        std::thread([&] { mtxLock.unlock(); }).join();
    };
    EXPECT_EQ(RunRandom(funBody, 1), "thread 1 unlocks what it does not hold");
}

TEST_F(SchedulerRaceTest, UnlockingWhatOnlyAnotherReaderHoldsIsFound)
{
    const auto funBody = []
    {
        std::shared_mutex smLock;
        smLock.lock_shared();
        std::thread([&] { smLock.unlock_shared(); }).join();
    };
    EXPECT_EQ(RunRandom(funBody, 1), "thread 1 unlocks what it does not hold");
}
