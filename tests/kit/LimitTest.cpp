// The limit on the number of an owner's tasks that run at once.

#include "QuenHost/CLS_TaskOwner.h"
#include "tests/kit/FewWorkers.h"
#include "tests/kit/PoolTest.h"

#include <algorithm>
#include <memory>
#include <numeric>
#include <stdexcept>
#include <vector>

namespace
{
using LimitTest = CLS_PoolTest;

TEST_F(LimitTest, NoMoreTasksThanTheLimitRunAtOnceAndAllRun)
{
    std::atomic<int> iRunning{0};
    std::atomic<int> iMost{0};
    CLS_Counter clsEnded;
    CLS_TaskOwner clsOwner(GetPool(), "owner", ST_OwnerOptions{3});
    const auto funTask = [&]
    {
        const int iNow = ++iRunning;
        int iBefore = iMost;
        while (iBefore < iNow && !iMost.compare_exchange_weak(iBefore, iNow))
        {
        }
        std::this_thread::yield();
        --iRunning;
        clsEnded.Add();
    };
    for (int i = 0; i < 300; ++i)
    {
        ASSERT_TRUE(clsOwner.Submit(funTask, "task"));
    }
    EXPECT_TRUE(clsEnded.Wait(300));
    EXPECT_LE(iMost, 3);
}

TEST_F(LimitTest, AsManyTasksRunAtOnceAsTheLimitAllows)
{
    CLS_Counter clsStarted;
    CLS_TaskOwner clsOwner(GetPool(), "owner", ST_OwnerOptions{4});
    for (int i = 0; i < 4; ++i)
    {
        ASSERT_TRUE(clsOwner.Submit(
            [&]
            {
                clsStarted.Add();
                EXPECT_TRUE(clsStarted.Wait(4));
            },
            "meet"));
    }
    EXPECT_TRUE(clsStarted.Wait(4));
}

TEST_F(LimitTest, OneAtATimeRunInTheOrderOfSubmissionAndSeeEachOthersWrites)
{
    std::vector<int> vecOrder; // needs no lock: only one task runs at a time
    CLS_Gate clsDone;
    CLS_TaskOwner clsOwner(GetPool(), "owner", ST_OwnerOptions{1});
    for (int i = 0; i < 500; ++i)
    {
        ASSERT_TRUE(clsOwner.Submit([&vecOrder, i] { vecOrder.push_back(i); }, "ordered"));
    }
    ASSERT_TRUE(clsOwner.Submit([&] { clsDone.Open(); }, "last"));
    ASSERT_TRUE(clsDone.Wait());
    std::vector<int> vecWanted(500);
    std::iota(vecWanted.begin(), vecWanted.end(), 0);
    EXPECT_EQ(vecWanted, vecOrder);
}

TEST_F(LimitTest, TheRestWaitsWithoutAWorkerAndIsCancelledAtOnce)
{
    CLS_Gate clsMayEnd;
    CLS_Gate clsStarted;
    CLS_Witness::ST_End stEnd;
    CLS_TaskOwner clsOwner(GetPool(), "owner", ST_OwnerOptions{1});
    ASSERT_TRUE(clsOwner.Submit(
        [&]
        {
            clsStarted.Open();
            EXPECT_TRUE(clsMayEnd.Wait());
        },
        "first"));
    for (int i = 0; i < 100; ++i)
    {
        ASSERT_TRUE(
            clsOwner.Submit([clsWitness = CLS_Witness(stEnd)] { ADD_FAILURE() << "it runs"; }, "rest"));
    }
    ASSERT_TRUE(clsStarted.Wait());
    const ST_PoolSnapshot stSnapshot = GetPool().TakeSnapshot();
    EXPECT_EQ(1, stSnapshot.m_iBusyWorkers);
    EXPECT_LE(stSnapshot.m_iIdleWorkers + stSnapshot.m_iStartingWorkers, 4);
    EXPECT_EQ(100U, stSnapshot.m_uiQueued);
    EXPECT_GT(stSnapshot.m_nsOldestQueued.count(), 0);
    EXPECT_FALSE(clsOwner.RemoveTasks(std::chrono::milliseconds(0)));
    EXPECT_EQ(100, stEnd.m_iEnds);
    EXPECT_EQ(100U, clsOwner.GetCounters().m_uiCancelled);
    clsMayEnd.Open();
    EXPECT_TRUE(clsOwner.RemoveTasks());
    CLS_Gate clsRan;
    EXPECT_TRUE(clsOwner.Submit([&] { clsRan.Open(); }, "next"));
    EXPECT_TRUE(clsRan.Wait());
}

TEST_F(LimitTest, ARunThatIsRemovedLaterKeepsItsPlace)
{
    CLS_Gate clsMayEnd;
    CLS_Gate clsStarted;
    std::atomic<bool> bOver{false};
    CLS_TaskOwner clsOwner(GetPool(), "owner", ST_OwnerOptions{1});
    ASSERT_TRUE(clsOwner.Submit(
        [&]
        {
            clsStarted.Open();
            EXPECT_TRUE(clsMayEnd.Wait());
            bOver = true;
        },
        "old"));
    ASSERT_TRUE(clsStarted.Wait());
    clsOwner.RemoveTasksLater();
    CLS_Gate clsRan;
    ASSERT_TRUE(clsOwner.Submit(
        [&]
        {
            EXPECT_TRUE(bOver);
            clsRan.Open();
        },
        "new"));
    EXPECT_EQ(1U, GetPool().TakeSnapshot().m_vecRuns.size());
    clsMayEnd.Open();
    EXPECT_TRUE(clsRan.Wait());
}

TEST_F(LimitTest, ATaskThatThrowsFreesItsPlaceForTheNext)
{
    CLS_Gate clsRan;
    CLS_TaskOwner clsOwner(GetPool(), "owner", ST_OwnerOptions{1, [](const ST_TaskFailure&) {}});
    ASSERT_TRUE(clsOwner.Submit([] { throw std::runtime_error("mine"); }, "throws"));
    ASSERT_TRUE(clsOwner.Submit([&] { clsRan.Open(); }, "next"));
    EXPECT_TRUE(clsRan.Wait());
}

TEST_F(LimitTest, OtherOwnersAreNotHeldUp)
{
    CLS_Gate clsMayEnd;
    CLS_TaskOwner clsOwner(GetPool(), "owner", ST_OwnerOptions{1});
    for (int i = 0; i < 10; ++i)
    {
        ASSERT_TRUE(clsOwner.Submit([&] { EXPECT_TRUE(clsMayEnd.Wait()); }, "slow"));
    }
    CLS_Gate clsRan;
    CLS_TaskOwner clsOther(GetPool(), "other");
    ASSERT_TRUE(clsOther.Submit([&] { clsRan.Open(); }, "fast"));
    EXPECT_TRUE(clsRan.Wait());
    clsMayEnd.Open();
}

TEST(LimitWorkersTest, TheNextTaskStartsWhileAnObjectThatARemovalKeptIsReleased)
{
    CLS_Gate clsOldStarted;
    CLS_Gate clsOldMayEnd;
    CLS_Gate clsOtherStarted;
    CLS_Gate clsOtherMayEnd;
    CLS_Gate clsNewRan;
    CLS_Gate clsReleased;
    CLS_FewWorkers clsPool(1); // its destructor waits for the run that the removal leaves behind
    CLS_TaskOwner clsOther(clsPool.GetPool(), "other");
    CLS_TaskOwner clsOwner(clsPool.GetPool(), "owner", ST_OwnerOptions{1});
    ASSERT_TRUE(clsOwner.Submit(
        [&]
        {
            clsOldStarted.Open();
            EXPECT_TRUE(clsOldMayEnd.Wait());
        },
        "old"));
    ASSERT_TRUE(clsOldStarted.Wait());
    const auto funRelease = [&](void*)
    {
        EXPECT_TRUE(clsNewRan.Wait());
        clsReleased.Open();
    };
    clsOwner.RemoveTasksLater(std::shared_ptr<void>(nullptr, funRelease));
    // This worker destroys what the removal left behind, and is then too busy to run the new task.
    clsPool.AllowOne();
    ASSERT_TRUE(clsOther.Submit(
        [&]
        {
            clsOtherStarted.Open();
            EXPECT_TRUE(clsOtherMayEnd.Wait());
        },
        "other"));
    ASSERT_TRUE(clsOtherStarted.Wait());
    ASSERT_TRUE(clsOwner.Submit([&] { clsNewRan.Open(); }, "new"));
    clsPool.AllowOne();
    clsOldMayEnd.Open();
    EXPECT_TRUE(clsReleased.Wait(2 * WAIT_LIMIT));
    clsOtherMayEnd.Open();
}
} // namespace
