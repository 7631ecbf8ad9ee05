// The scheduler neither misses nor invents wake-ups, and its time is exact.

#include "verify/schedules/SchedulerFixture.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <set>
#include <thread>

using std::chrono_literals::operator""ns;
using std::chrono_literals::operator""ms;
using std::chrono_literals::operator""s;
using std::chrono_literals::operator""h;

class SchedulerWaitTest : public CLS_SchedulerFixture
{
protected:
    static std::chrono::nanoseconds GetTime()
    {
        static const std::chrono::seconds s_sStart(1'000'000); // the start of a schedule by this clock
        return std::chrono::steady_clock::now().time_since_epoch() - s_sStart;
    }

    struct ST_Waiter
    {
        std::mutex m_mtxLock;
        std::condition_variable m_cvCondition;
        int m_iWoken = 0;

        void Wait()
        {
            std::unique_lock<std::mutex> lock(m_mtxLock);
            m_cvCondition.wait(lock);
            ++m_iWoken;
        }
    };
};

TEST_F(SchedulerWaitTest, SleepTakesItsTimeExactly)
{
    const auto funBody = []
    {
        std::this_thread::sleep_for(180s);
        Require(GetTime() == 180s, "180 seconds");
        std::this_thread::sleep_for(1ns);
        Require(GetTime() == 180s + 1ns, "and a nanosecond");
        std::this_thread::sleep_until(std::chrono::steady_clock::now() + 5ms);
        Require(GetTime() == 180s + 5ms + 1ns, "until");
    };
    EXPECT_EQ(RunRandom(funBody, 10), "");
}

TEST_F(SchedulerWaitTest, TimeDoesNotPassWhileSomebodyCanGoOn)
{
    const auto funBody = []
    {
        std::atomic<int> iCount{0};
        std::thread thrSleeper([] { std::this_thread::sleep_for(1ms); });
        for (int i = 0; i < 20; ++i)
        {
            ++iCount;
        }
        Require(GetTime() == 0s, "time has passed");
        thrSleeper.join();
        Require(GetTime() == 1ms, "the sleep is over");
    };
    EXPECT_EQ(RunRandom(funBody), "");
}

TEST_F(SchedulerWaitTest, TimePassesEarlyOnlyWhenAskedFor)
{
    m_stOptions.m_uiEarlyOneIn = 8;
    const auto funBody = []
    {
        std::atomic<int> iCount{0};
        std::thread thrSleeper([] { std::this_thread::sleep_for(1ms); });
        for (int i = 0; i < 20; ++i)
        {
            ++iCount;
        }
        Require(GetTime() == 0s, "time has passed");
        thrSleeper.join();
    };
    EXPECT_EQ(RunRandom(funBody), "time has passed");
}

TEST_F(SchedulerWaitTest, SleepersWakeInTheOrderOfTheirTimes)
{
    const auto funBody = []
    {
        std::vector<int> vecOrder;
        std::mutex mtxOrder;
        const auto funSleep = [&](int _iNumber)
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(_iNumber));
            const std::lock_guard<std::mutex> lock(mtxOrder);
            vecOrder.push_back(_iNumber);
        };
        std::thread thrLate(funSleep, 3);
        std::thread thrEarly(funSleep, 1);
        funSleep(2);
        thrLate.join();
        thrEarly.join();
        Require(vecOrder == std::vector<int>{1, 2, 3}, "out of order");
    };
    EXPECT_EQ(RunRandom(funBody), "");
}

TEST_F(SchedulerWaitTest, NoThreadWakesWithoutANotification)
{
    const auto funBody = []
    {
        ST_Waiter stWaiter;
        std::thread thrWaiter([&] { stWaiter.Wait(); });
        std::this_thread::sleep_for(1h);
        Require(stWaiter.m_iWoken == 0, "woken without a notification");
        stWaiter.m_cvCondition.notify_one();
        thrWaiter.join();
        Require(stWaiter.m_iWoken == 1, "not woken");
    };
    m_stOptions.m_nsMostTime = 4000'000'000'000;
    EXPECT_EQ(RunRandom(funBody), "");
}

TEST_F(SchedulerWaitTest, NotifyOneWakesOneAndNotifyAllTheRest)
{
    std::set<int> setFirst; // each waiter is the first one in some schedule
    const auto funBody = [&setFirst]
    {
        ST_Waiter stWaiter;
        std::atomic<int> iFirst{0};
        std::vector<std::thread> vecThreads;
        for (int i = 1; i <= 3; ++i)
        {
            vecThreads.emplace_back(
                [&stWaiter, &iFirst, i]
                {
                    stWaiter.Wait();
                    int iNone = 0;
                    iFirst.compare_exchange_strong(iNone, i);
                });
        }
        std::this_thread::sleep_for(1ms);
        stWaiter.m_cvCondition.notify_one();
        std::this_thread::sleep_for(1ms);
        Require(stWaiter.m_iWoken == 1, "one wakes");
        stWaiter.m_cvCondition.notify_all();
        std::this_thread::sleep_for(1ms);
        Require(stWaiter.m_iWoken == 3, "all wake");
        for (std::thread& thrWaiter : vecThreads)
        {
            thrWaiter.join();
        }
        const CLS_Scheduler::CLS_Inside clsInside;
        setFirst.insert(iFirst);
    };
    EXPECT_EQ(RunRandom(funBody), "");
    EXPECT_EQ(setFirst, (std::set<int>{1, 2, 3}));
}

TEST_F(SchedulerWaitTest, NotificationBeforeTheWaitIsNotKept)
{
    const auto funBody = []
    {
        ST_Waiter stWaiter;
        stWaiter.m_cvCondition.notify_one();
        std::thread thrWaiter([&] { stWaiter.Wait(); });
        thrWaiter.join();
    };
    EXPECT_EQ(RunRandom(funBody, 100), "deadlock");
    EXPECT_EQ(m_uiSeed, 1U);
}

TEST_F(SchedulerWaitTest, TimedWaitEndsAtItsTimeOrWithTheNotification)
{
    const auto funBody = []
    {
        std::mutex mtxLock;
        std::condition_variable cvCondition;
        std::unique_lock<std::mutex> lock(mtxLock);
        Require(cvCondition.wait_for(lock, 3s) == std::cv_status::timeout, "no thread notifies");
        Require(GetTime() == 3s, "at its time");
        std::thread thrOther(
            [&]
            {
                std::this_thread::sleep_for(1s);
                cvCondition.notify_one();
            });
        Require(cvCondition.wait_for(lock, 3s) == std::cv_status::no_timeout, "notified");
        Require(GetTime() == 4s, "with the notification");
        thrOther.join();
    };
    EXPECT_EQ(RunRandom(funBody), "");
}

TEST_F(SchedulerWaitTest, TimedWaitByTheSystemClockIsExact)
{
    const auto funBody = []
    {
        std::mutex mtxLock;
        std::condition_variable cvCondition;
        std::unique_lock<std::mutex> lock(mtxLock);
        cvCondition.wait_until(lock, std::chrono::system_clock::now() + 3s);
        Require(GetTime() == 3s, "at its time");
    };
    EXPECT_EQ(RunRandom(funBody, 10), "");
}

TEST_F(SchedulerWaitTest, EitherComesFirstOfATimeOutAndASleepThatEndAtOnce)
{
    std::set<bool> setNotified;
    const auto funBody = [&setNotified]
    {
        std::mutex mtxLock;
        std::condition_variable cvCondition;
        bool bNotified = false;
        std::thread thrOther(
            [&]
            {
                std::this_thread::sleep_for(3s);
                const std::lock_guard<std::mutex> lock(mtxLock);
                bNotified = true;
                cvCondition.notify_one();
            });
        {
            std::unique_lock<std::mutex> lock(mtxLock);
            cvCondition.wait_for(lock, 3s);
            Require(GetTime() == 3s, "at its time");
            const CLS_Scheduler::CLS_Inside clsInside;
            setNotified.insert(bNotified);
        }
        thrOther.join();
    };
    EXPECT_EQ(RunRandom(funBody), "");
    EXPECT_EQ(setNotified, (std::set<bool>{false, true}));
}

TEST_F(SchedulerWaitTest, WakeUpForNoReasonComesOnlyWhenAskedFor)
{
    const auto funBody = []
    {
        std::mutex mtxLock;
        std::condition_variable cvCondition;
        std::unique_lock<std::mutex> lock(mtxLock);
        std::thread thrOther([] { std::this_thread::sleep_for(1s); });
        cvCondition.wait_for(lock, 3s);
        Require(GetTime() == 3s, "woken for no reason");
        thrOther.join();
    };
    EXPECT_EQ(RunRandom(funBody), "");
    m_stOptions.m_uiSpuriousOneIn = 4;
    EXPECT_EQ(RunRandom(funBody), "woken for no reason");
}

TEST_F(SchedulerWaitTest, WaitForAPredicateBearsWakeUpsForNoReason)
{
    m_stOptions.m_uiSpuriousOneIn = 4;
    const auto funBody = []
    {
        std::mutex mtxLock;
        std::condition_variable cvCondition;
        bool bReady = false;
        std::thread thrOther(
            [&]
            {
                {
                    const std::lock_guard<std::mutex> lock(mtxLock);
                    bReady = true;
                }
                cvCondition.notify_one();
            });
        {
            std::unique_lock<std::mutex> lock(mtxLock);
            cvCondition.wait(lock, [&] { return bReady; });
        }
        thrOther.join();
    };
    EXPECT_EQ(RunRandom(funBody), "");
}

TEST_F(SchedulerWaitTest, WaiterHoldsTheLockWhenItGoesOn)
{
    const auto funBody = []
    {
        std::mutex mtxLock;
        std::condition_variable cvCondition;
        std::atomic<bool> bInside{false};
        std::thread thrOther(
            [&]
            {
                const std::lock_guard<std::mutex> lock(mtxLock);
                cvCondition.notify_one();
                bInside = true;
                bInside = false;
            });
        {
            std::unique_lock<std::mutex> lock(mtxLock);
            cvCondition.wait_for(lock, 1s);
            Require(!bInside, "two hold the lock");
        }
        thrOther.join();
    };
    EXPECT_EQ(RunRandom(funBody), "");
}

TEST_F(SchedulerWaitTest, OneThreadInitialisesAndTheOtherWaits)
{
    int iInitialised = 0;
    bool bThrow = true; // then it is tried again
    const auto funBody = [&]
    {
        std::atomic<bool> bInside{false};
        const auto funInitialise = [&]
        {
            Require(!bInside.exchange(true), "two at once");
            for (int i = 0; i < 50; ++i)
            {
                std::this_thread::yield();
            }
            bInside = false;
            ++iInitialised;
            if (bThrow)
            {
                throw 1;
            }
            return true;
        };
        const auto funUse = [&]
        {
            try
            {
                static const bool s_bDone = funInitialise();
                Require(s_bDone, "not initialised");
            }
            catch (int)
            {
            }
        };
        std::thread thrOther(funUse);
        funUse();
        thrOther.join();
    };
    EXPECT_EQ(RunRandom(funBody, 100), "");
    EXPECT_EQ(iInitialised, 200);
    bThrow = false;
    EXPECT_EQ(RunRandom(funBody, 1), "");
    EXPECT_EQ(iInitialised, 201);
}
