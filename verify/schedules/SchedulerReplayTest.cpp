// Schedules repeat exactly, print readably and are complete. Threads keep their own state.

#include "verify/schedules/SchedulerFixture.h"

#include <atomic>
#include <cerrno>
#include <mutex>
#include <pthread.h>
#include <set>
#include <stdexcept>
#include <thread>

class SchedulerReplayTest : public CLS_SchedulerFixture
{
protected:
    /// Three threads that use sleeps, locks and atomics.
    static void DoVariousThings()
    {
        std::mutex mtxSum;
        std::atomic<int> iSum{0};
        std::vector<std::thread> vecThreads;
        vecThreads.reserve(3);
        for (int i = 0; i < 3; ++i)
        {
            vecThreads.emplace_back(
                [&, i]
                {
                    std::this_thread::sleep_for(std::chrono::milliseconds(i));
                    const std::lock_guard<std::mutex> lock(mtxSum);
                    iSum = iSum + i;
                });
        }
        for (std::thread& thrEach : vecThreads)
        {
            thrEach.join();
        }
    }

    static std::string GetTrace(const ST_Outcome& _stOutcome)
    {
        std::string strTrace;
        for (const ST_Step& stStep : _stOutcome.m_vecTrace)
        {
            strTrace += ToText(stStep) + "\n";
        }
        return strTrace;
    }
};

TEST_F(SchedulerReplayTest, SameSeedMakesTheSameSchedule)
{
    m_stOptions.m_bTrace = true;
    std::set<std::uint64_t> setHashes;
    for (std::uint64_t uiSeed = 1; uiSeed <= 100; ++uiSeed)
    {
        const ST_Outcome stFirst = RunSeed(uiSeed, DoVariousThings);
        const ST_Outcome stSecond = RunSeed(uiSeed, DoVariousThings);
        ASSERT_EQ(GetTrace(stFirst), GetTrace(stSecond));
        ASSERT_EQ(stFirst.m_uiHash, stSecond.m_uiHash);
        setHashes.insert(stFirst.m_uiHash);
    }
    EXPECT_GT(setHashes.size(), 50U);
}

TEST_F(SchedulerReplayTest, StepsAreReadable)
{
    m_stOptions.m_bTrace = true;
    m_stOptions.m_funNameObject = [](const void*) { return "the flag"; };
    const auto funBody = []
    {
        // clang leaves out the hook where it sees that no other thread knows the variable.
        std::atomic<bool> bFlag{false};
        std::atomic<bool>* volatile pFlag = &bFlag;
        *pFlag = true;
        std::thread thrOther([] { std::this_thread::sleep_for(std::chrono::microseconds(1500)); });
        thrOther.join();
    };
    EXPECT_EQ(GetTrace(RunSeed(1, funBody)), "      0.000 ms  thread 0          begins \n"
                                             "      0.000 ms  thread 0          writes the flag\n"
                                             "      0.000 ms  thread 0          starts thread 1\n"
                                             "      0.000 ms  thread 1          begins \n"
                                             "      1.500 ms  thread 1          sleeps until 1500 us\n"
                                             "      1.500 ms  thread 0          joins thread 1\n");
}

TEST_F(SchedulerReplayTest, ExhaustiveSearchRunsEachScheduleOnce)
{
    std::set<std::uint64_t> setHashes;
    CLS_ExhaustiveStrategy clsStrategy(100);
    const auto funBody = []
    {
        std::atomic<int> iWord{0};
        const auto funWrite = [&]
        {
            iWord = 1;
            iWord = 2;
        };
        std::thread thrOther(funWrite);
        funWrite();
        thrOther.join();
    };
    CLS_Scheduler clsScheduler(clsStrategy, {});
    std::uint64_t uiSchedules = 0;
    do
    {
        setHashes.insert(clsScheduler.Run(0, funBody).m_uiHash);
        ++uiSchedules;
    } while (clsStrategy.GoOn());
    // Each thread has three steps: the first one starts the other and writes twice, and the other begins and
    // writes twice. They have 6!/(3! 3!) orders.
    EXPECT_EQ(uiSchedules, 20U);
    EXPECT_EQ(setHashes.size(), 20U);
}

TEST_F(SchedulerReplayTest, ScheduleOfAnExhaustiveSearchIsRepeatedByItsDelays)
{
    CLS_ExhaustiveStrategy clsFirst(2);
    CLS_Scheduler clsScheduler(clsFirst, {});
    for (int i = 0; i < 40; ++i)
    {
        const ST_Outcome stOutcome = clsScheduler.Run(0, DoVariousThings);
        CLS_ExhaustiveStrategy clsSecond(2);
        clsSecond.SetDelays(clsFirst.GetDelays());
        CLS_Scheduler clsAgain(clsSecond, {});
        ASSERT_EQ(clsAgain.Run(0, DoVariousThings).m_uiHash, stOutcome.m_uiHash);
        ASSERT_TRUE(clsFirst.GoOn());
    }
}

TEST_F(SchedulerReplayTest, CopyAndReleaseOfASharedPointerAreSteps)
{
    const auto funCopy = [](bool _bCopy)
    {
        return [_bCopy]
        {
            const auto pNumber = std::make_shared<int>(1);
            const std::shared_ptr<int> pCopy = _bCopy ? pNumber : nullptr;
            Require(pCopy == nullptr || *pCopy == 1, "the copy is another one");
        };
    };
    EXPECT_GT(RunSeed(1, funCopy(true)).m_uiSteps, RunSeed(1, funCopy(false)).m_uiSteps);
}

TEST_F(SchedulerReplayTest, ObserverIsCalledAtEveryStepAndMayFailTheSchedule)
{
    std::size_t uiCalls = 0;
    m_stOptions.m_funObserver = [&uiCalls](CLS_Scheduler&) { ++uiCalls; };
    const ST_Outcome stOutcome = RunSeed(1, DoVariousThings);
    EXPECT_EQ(uiCalls + 1, stOutcome.m_uiSteps); // the strategy does not choose the first thread's beginning
    m_stOptions.m_funObserver = [](CLS_Scheduler& _clsScheduler)
    {
        if (_clsScheduler.CountSteps() == 5)
        {
            _clsScheduler.Fail("the fifth step");
        }
    };
    EXPECT_EQ(RunSeed(1, DoVariousThings).m_strFailure, "the fifth step");
}

TEST_F(SchedulerReplayTest, ThreadsKeepTheirOwnExceptions)
{
    const auto funBody = []
    {
        std::atomic<int> iSteps{0};
        const auto funThrow = [&](const std::string& _strText)
        {
            try
            {
                ++iSteps;
                throw std::runtime_error(_strText);
            }
            catch (const std::exception&)
            {
                ++iSteps;
                try
                {
                    throw;
                }
                catch (const std::exception& exError)
                {
                    ++iSteps;
                    Require(exError.what() == _strText, "another's exception");
                }
            }
        };
        std::thread thrOther(funThrow, "other");
        funThrow("first");
        thrOther.join();
    };
    EXPECT_EQ(RunRandom(funBody), "");
}

TEST_F(SchedulerReplayTest, BlocksThatAreNotFreedAreCounted)
{
    int* pLeft = nullptr;
    const auto funBody = [&pLeft]
    {
        const auto pFreed = std::make_unique<int>(1);
        pLeft = new int(2);
    };
    EXPECT_EQ(RunSeed(1, funBody).m_uiBlocks, 1U);
    EXPECT_EQ(RunSeed(1, [] {}).m_uiBlocks, 0U);
}

TEST_F(SchedulerReplayTest, DetachedThreadBelongsToTheSchedule)
{
    bool bRan = false;
    const auto funBody = [&bRan]
    {
        std::thread(
            [&bRan]
            {
                std::this_thread::sleep_for(std::chrono::seconds(1));
                bRan = true;
            })
            .detach();
    };
    EXPECT_EQ(RunSeed(1, funBody).m_strFailure, "");
    EXPECT_TRUE(bRan);
}

TEST_F(SchedulerReplayTest, ThreadThatIsNotThereCanBeNeitherJoinedNorDetached)
{
    const auto funBody = []
    {
        std::thread thrOther([] {});
        const pthread_t iGone = thrOther.native_handle();
        thrOther.join();
        for (const pthread_t iThread : {iGone, iGone + 1, pthread_t{0}})
        {
            Require(pthread_join(iThread, nullptr) == EINVAL, "joined");
            Require(pthread_detach(iThread) == EINVAL, "detached");
        }
    };
    EXPECT_EQ(RunSeed(1, funBody).m_strFailure, "");
}
