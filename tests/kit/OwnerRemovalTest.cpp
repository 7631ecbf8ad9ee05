#include "QuenHost/CLS_TaskOwner.h"
#include "QuenHost/SubmitForResult.h"
#include "tests/kit/PoolTest.h"
#include "tests/support/FailingMemory.h"
#include "tests/support/Waiting.h"

#include <functional>
#include <gmock/gmock.h>
#include <memory>
#include <optional>
#include <type_traits>
#include <vector>

namespace
{
using std::chrono::milliseconds;
using std::chrono::steady_clock;
using OwnerRemovalTest = CLS_PoolTest;

/// A task that ignores stop requests and runs until the gate opens.
struct ST_Stubborn
{
    CLS_Gate m_clsStarted;
    CLS_Gate m_clsMayEnd;
    std::atomic<bool> m_bEnded{false};

    std::function<void()> MakeTask()
    {
        return [this]
        {
            m_clsStarted.Open();
            EXPECT_TRUE(m_clsMayEnd.Wait());
            m_bEnded = true;
        };
    }

    void StartIn(CLS_TaskOwner& _clsOwner)
    {
        ASSERT_TRUE(_clsOwner.Submit(MakeTask(), "stubborn"));
        ASSERT_TRUE(m_clsStarted.Wait());
    }
};

TEST_F(OwnerRemovalTest, NoTaskStartsOrIsAcceptedDuringTheRemoval)
{
    ST_Stubborn stStubborn;
    CLS_Gate clsRemoving;
    CLS_TaskOwner clsOwner(GetPool(), "owner");
    stStubborn.StartIn(clsOwner);
    ASSERT_TRUE(clsOwner.Submit(
        [&](const CLS_StopToken& _clsToken)
        {
            EXPECT_FALSE(_clsToken.SleepFor(WAIT_LIMIT));
            clsRemoving.Open();
        },
        "signal"));
    ASSERT_TRUE(WaitUntil([&] { return GetPool().TakeSnapshot().m_vecRuns.size() == 2; }));
    std::thread thRemover([&] { EXPECT_TRUE(clsOwner.RemoveTasks()); });
    ASSERT_TRUE(clsRemoving.Wait());
    EXPECT_FALSE(clsOwner.Submit([] { ADD_FAILURE() << "it runs"; }, "late"));
    EXPECT_FALSE(stStubborn.m_bEnded);
    stStubborn.m_clsMayEnd.Open();
    thRemover.join();
    EXPECT_TRUE(stStubborn.m_bEnded);
    CLS_Gate clsRan;
    EXPECT_TRUE(clsOwner.Submit([&] { clsRan.Open(); }, "again"));
    EXPECT_TRUE(clsRan.Wait());
}

TEST_F(OwnerRemovalTest, ATaskCannotSubmitForAnOwnerThatRemovesIt)
{
    CLS_TaskOwner clsOwner(GetPool(), "owner");
    std::atomic<int> iRuns{0};
    std::function<void()> funChain = [&]
    {
        ++iRuns;
        static_cast<void>(clsOwner.Submit(funChain, "chain"));
    };
    ASSERT_TRUE(clsOwner.Submit(funChain, "chain"));
    ASSERT_TRUE(WaitUntil([&] { return iRuns > 10; }));
    EXPECT_TRUE(clsOwner.RemoveTasks());
    const int iRunsThen = iRuns;
    EXPECT_EQ(0U, GetPool().TakeSnapshot().m_uiQueued);
    EXPECT_EQ(iRunsThen, iRuns);
}

TEST_F(OwnerRemovalTest, ReportsATaskThatOutlastsTheTimeoutAndWaitsAgain)
{
    ST_Stubborn stStubborn;
    CLS_TaskOwner clsOwner(GetPool(), "owner");
    stStubborn.StartIn(clsOwner);
    EXPECT_FALSE(clsOwner.RemoveTasks(milliseconds(1)));
    stStubborn.m_clsMayEnd.Open();
    EXPECT_TRUE(clsOwner.RemoveTasks());
    EXPECT_TRUE(stStubborn.m_bEnded);
}

TEST_F(OwnerRemovalTest, ReportsThatAnotherRemovalHasNotDestroyedItsCancelledTasks)
{
    CLS_Gate clsMayEnd;
    CLS_TaskOwner clsOthers(GetPool(), "others");
    KeepEveryWorkerBusy(clsOthers, clsMayEnd);
    CLS_Gate clsDestroying;
    CLS_Gate clsMayDestroy;
    std::shared_ptr<void> pCaptured(nullptr,
                                    [&](void*)
                                    {
                                        clsDestroying.Open();
                                        EXPECT_TRUE(clsMayDestroy.Wait());
                                    });
    CLS_TaskOwner clsOwner(GetPool(), "owner");
    ASSERT_TRUE(clsOwner.Submit([pCaptured = std::move(pCaptured)] {}, "queued"));
    std::thread thRemover([&] { EXPECT_TRUE(clsOwner.RemoveTasks()); });
    ASSERT_TRUE(clsDestroying.Wait());
    EXPECT_FALSE(clsOwner.RemoveTasks(milliseconds(1)));
    clsMayDestroy.Open();
    EXPECT_TRUE(clsOwner.RemoveTasks());
    thRemover.join();
    clsMayEnd.Open();
}

TEST_F(OwnerRemovalTest, TheLongestTimeoutDoesNotOverflow)
{
    CLS_Gate clsStarted;
    CLS_TaskOwner clsOwner(GetPool(), "owner");
    std::atomic<bool> bOver{false};
    ASSERT_TRUE(clsOwner.Submit(
        [&](const CLS_StopToken& _clsToken)
        {
            clsStarted.Open();
            EXPECT_FALSE(_clsToken.SleepFor(WAIT_LIMIT));
            std::this_thread::sleep_for(
                std::chrono::milliseconds(50)); // the removal is likely to wait by then
            bOver = true;
        },
        "task"));
    ASSERT_TRUE(clsStarted.Wait());
    EXPECT_TRUE(clsOwner.RemoveTasks(std::chrono::milliseconds::max()));
    EXPECT_TRUE(bOver);
}

TEST_F(OwnerRemovalTest, TwoThreadsAtOnceBothWaitForTheRun)
{
    ST_Stubborn stStubborn;
    std::optional<CLS_TaskOwner> clsOwner(std::in_place, GetPool(), "owner");
    stStubborn.StartIn(*clsOwner);
    const auto funRemove = [&]
    {
        EXPECT_TRUE(clsOwner->RemoveTasks());
        EXPECT_TRUE(stStubborn.m_bEnded);
    };
    std::thread thFirst(funRemove);
    std::thread thSecond(funRemove);
    stStubborn.m_clsMayEnd.Open();
    thFirst.join();
    thSecond.join();
    clsOwner.reset();
}

TEST_F(OwnerRemovalTest, ATaskMayRemoveItsOwnersTasksAndDoesNotWaitForItself)
{
    CLS_TaskOwner clsOwner(GetPool(), "owner");
    EXPECT_TRUE(SubmitForResult(
                    clsOwner, [&] { return clsOwner.RemoveTasks(); }, "self")
                    .get());
}

TEST_F(OwnerRemovalTest, TwoTasksThatRemoveEachOtherDoNotWaitForEachOther)
{
    CLS_TaskOwner clsOwner(GetPool(), "owner");
    CLS_Counter clsStarted;
    const auto funRemove = [&]
    {
        clsStarted.Add();
        EXPECT_TRUE(clsStarted.Wait(2));
        return clsOwner.RemoveTasks();
    };
    std::future<bool> futFirst = SubmitForResult(clsOwner, funRemove, "first");
    std::future<bool> futSecond = SubmitForResult(clsOwner, funRemove, "second");
    EXPECT_TRUE(futFirst.get());
    EXPECT_TRUE(futSecond.get());
}

TEST_F(OwnerRemovalTest, ATaskMayEndItsOwner)
{
    CLS_Gate clsMade;
    CLS_Witness::ST_End stEnd;
    auto pOwner = std::make_unique<CLS_TaskOwner>(GetPool(), "owner");
    CLS_TaskOwner& clsOwner = *pOwner;
    CLS_Gate clsGone;
    ASSERT_TRUE(clsOwner.Submit(
        [&, clsWitness = CLS_Witness(stEnd)]
        {
            EXPECT_TRUE(clsMade.Wait());
            pOwner.reset();
            EXPECT_EQ(0, stEnd.m_iEnds) << "the callable is destroyed while it runs";
            clsGone.Open();
        },
        "self"));
    clsMade.Open();
    EXPECT_TRUE(clsGone.Wait());
    EXPECT_TRUE(WaitUntil([&] { return stEnd.m_iEnds == 1; }));
}

TEST_F(OwnerRemovalTest, OutsideATaskTheEndAlsoWaitsForATaskThatIsItselfInARemoval)
{
    ST_Stubborn stStubborn;
    CLS_TaskOwner clsOther(GetPool(), "other");
    stStubborn.StartIn(clsOther);
    CLS_Gate clsInside;
    std::atomic<bool> bEnded{false};
    CLS_TaskOwner clsOwner(GetPool(), "owner");
    ASSERT_TRUE(clsOwner.Submit(
        [&]
        {
            clsInside.Open();
            EXPECT_TRUE(clsOwner.RemoveTasks());
            EXPECT_TRUE(stStubborn.m_clsMayEnd.Wait());
            bEnded = true;
        },
        "self"));
    ASSERT_TRUE(clsInside.Wait());
    std::thread thRemover(
        [&]
        {
            EXPECT_TRUE(clsOwner.RemoveTasks());
            EXPECT_TRUE(bEnded);
        });
    stStubborn.m_clsMayEnd.Open();
    thRemover.join();
}

TEST_F(OwnerRemovalTest, RemovingLaterDoesNotWaitAndReleasesTheKeptObjectWithTheLastRun)
{
    ST_Stubborn stStubborn;
    CLS_Witness::ST_End stKept;
    auto pKept = std::make_shared<CLS_Witness>(stKept);
    {
        CLS_TaskOwner clsOwner(GetPool(), "owner");
        stStubborn.StartIn(clsOwner);
        clsOwner.RemoveTasksLater(std::move(pKept));
        // The owner's destructor does not wait either.
    }
    EXPECT_FALSE(stStubborn.m_bEnded);
    EXPECT_EQ(0, stKept.m_iEnds);
    stStubborn.m_clsMayEnd.Open();
    EXPECT_TRUE(WaitUntil([&] { return stKept.m_iEnds == 1; }));
    EXPECT_TRUE(stStubborn.m_bEnded);
    EXPECT_NE(std::this_thread::get_id(), stKept.m_idThread.load());
}

static_assert(noexcept(std::declval<CLS_TaskOwner&>().RemoveTasksLater()));

TEST_F(OwnerRemovalTest, RemovingLaterHasTheSameEffectWhicheverAllocationFails)
{
    bool bFailed = true;
    for (int iAllocation = 1; bFailed; ++iAllocation)
    {
        ST_Stubborn stStubborn;
        CLS_Witness::ST_End stQueued;
        CLS_Witness::ST_End stKept;
        CLS_TaskOwner clsOwner(GetPool(), "owner", ST_OwnerOptions{1});
        stStubborn.StartIn(clsOwner);
        ASSERT_TRUE(
            clsOwner.Submit([clsWitness = CLS_Witness(stQueued)] { ADD_FAILURE() << "it runs"; }, "queued"));
        auto pKept = std::make_shared<CLS_Witness>(stKept);
        FailingMemory::FailAt(iAllocation);
        clsOwner.RemoveTasksLater(std::move(pKept));
        bFailed = FailingMemory::Stop();
        EXPECT_EQ(1U, clsOwner.GetCounters().m_uiCancelled);
        EXPECT_TRUE(WaitUntil([&] { return stQueued.m_iEnds == 1; }));
        EXPECT_NE(std::this_thread::get_id(), stQueued.m_idThread.load());
        EXPECT_EQ(0, stKept.m_iEnds);
        stStubborn.m_clsMayEnd.Open();
        EXPECT_TRUE(WaitUntil([&] { return stKept.m_iEnds == 1; }));
        EXPECT_TRUE(stStubborn.m_bEnded);
    }
}

TEST_F(OwnerRemovalTest, RemovingLaterAgainAndAgainNeedsNoMemory)
{
    const auto funRemoveWithoutMemory = [](CLS_TaskOwner& _clsOwner, std::shared_ptr<const void> _pKept)
    {
        FailingMemory::FailAt(1);
        _clsOwner.RemoveTasksLater(std::move(_pKept));
        EXPECT_TRUE(FailingMemory::Stop());
    };
    CLS_TaskOwner clsOwner(GetPool(), "owner");
    for (int i = 0; i < 3; ++i)
    {
        ST_Stubborn stStubborn;
        CLS_Witness::ST_End stKept;
        CLS_Witness::ST_End stUnused;
        stStubborn.StartIn(clsOwner);
        funRemoveWithoutMemory(clsOwner, std::make_shared<CLS_Witness>(stKept));
        funRemoveWithoutMemory(clsOwner, std::make_shared<CLS_Witness>(stUnused));
        EXPECT_EQ(1, stUnused.m_iEnds) << "there was nothing left to remove";
        EXPECT_EQ(0, stKept.m_iEnds);
        stStubborn.m_clsMayEnd.Open();
        EXPECT_TRUE(WaitUntil([&] { return stKept.m_iEnds == 1; }));
    }
}

TEST_F(OwnerRemovalTest, RemovingLaterDestroysQueuedTasksOnAWorker)
{
    CLS_Gate clsMayEnd;
    CLS_TaskOwner clsOthers(GetPool(), "others");
    KeepEveryWorkerBusy(clsOthers, clsMayEnd);
    CLS_Witness::ST_End stQueued;
    CLS_Witness::ST_End stKept;
    CLS_TaskOwner clsOwner(GetPool(), "owner");
    ASSERT_TRUE(
        clsOwner.Submit([clsWitness = CLS_Witness(stQueued)] { ADD_FAILURE() << "it runs"; }, "queued"));
    clsOwner.RemoveTasksLater(std::make_shared<CLS_Witness>(stKept));
    EXPECT_EQ(0U, GetPool().TakeSnapshot().m_uiQueued);
    EXPECT_EQ(0, stQueued.m_iEnds + stKept.m_iEnds);
    clsMayEnd.Open();
    EXPECT_TRUE(WaitUntil([&] { return stQueued.m_iEnds == 1 && stKept.m_iEnds == 1; }));
    EXPECT_NE(std::this_thread::get_id(), stQueued.m_idThread.load());
    CLS_Gate clsRan;
    EXPECT_TRUE(clsOwner.Submit([&] { clsRan.Open(); }, "again"));
    EXPECT_TRUE(clsRan.Wait());
}

TEST_F(OwnerRemovalTest, AnObjectMayKeepItselfUntilItsLastRunAndEndItsOwnerThere)
{
    struct ST_Window
    {
        explicit ST_Window(const CLS_PoolScope& _clsPool) : m_clsTasks(_clsPool, "window") {}
        ST_Stubborn m_stStubborn;
        CLS_TaskOwner m_clsTasks;
    };
    auto pWindow = std::make_shared<ST_Window>(GetPool());
    const std::weak_ptr<ST_Window> pWatched = pWindow;
    pWindow->m_stStubborn.StartIn(pWindow->m_clsTasks);
    ST_Window& stWindow = *pWindow;
    stWindow.m_clsTasks.RemoveTasksLater(std::move(pWindow));
    EXPECT_FALSE(pWatched.expired());
    stWindow.m_stStubborn.m_clsMayEnd.Open();
    EXPECT_TRUE(WaitUntil([&] { return pWatched.expired(); }));
}

TEST_F(OwnerRemovalTest, AHundredTasksThatPollTheirTokenAndTenThousandThatWaitEndAtOnce)
{
    CLS_Counter clsStarted;
    std::atomic<int> iLate{0};
    {
        CLS_TaskOwner clsOwner(GetPool(), "owner");
        CLS_Gate clsMayEnd;
        CLS_TaskOwner clsOthers(GetPool(), "others");
        for (int i = 0; i < CLS_PoolHub::MOST_CARRIERS; ++i)
        {
            ASSERT_TRUE(clsOwner.Submit(
                [&](const CLS_StopToken& _clsToken)
                {
                    clsStarted.Add();
                    EXPECT_FALSE(_clsToken.SleepFor(WAIT_LIMIT));
                },
                "sleeper"));
        }
        ASSERT_TRUE(clsStarted.Wait(CLS_PoolHub::MOST_CARRIERS));
        for (int i = 0; i < 10000; ++i)
        {
            ASSERT_TRUE(clsOwner.Submit([&] { ++iLate; }, "queued"));
        }
        EXPECT_TRUE(clsOwner.RemoveTasks());
        EXPECT_EQ(10000U, clsOwner.GetCounters().m_uiCancelled);
    }
    EXPECT_EQ(0, iLate);
}

TEST_F(OwnerRemovalTest, ARunThatOutlastsTheNineSecondsIsReportedAndWaitedForOnce)
{
    ST_Stubborn stStubborn;
    std::vector<ST_TaskFailure> vecFailures;
    {
        CLS_TaskOwner clsOwner(GetPool(), "owner",
                               [&](const ST_TaskFailure& _stFailure) { vecFailures.push_back(_stFailure); });
        stStubborn.StartIn(clsOwner);
        const auto tpBegin = steady_clock::now();
        EXPECT_FALSE(clsOwner.RemoveTasks());
        EXPECT_GE(steady_clock::now() - tpBegin, std::chrono::seconds(9));
        const auto tpAgain = steady_clock::now();
        EXPECT_FALSE(clsOwner.RemoveTasks());
        EXPECT_LT(steady_clock::now() - tpAgain, std::chrono::seconds(5));
    }
    ASSERT_EQ(1U, vecFailures.size());
    EXPECT_EQ(n_FailureKind::Outlasted, vecFailures.front().m_enKind);
    EXPECT_EQ("owner", vecFailures.front().m_strOwner);
    EXPECT_EQ("stubborn", vecFailures.front().m_strCallInfo);
    EXPECT_EQ(nullptr, vecFailures.front().m_pException);
    stStubborn.m_clsMayEnd.Open();
    EXPECT_TRUE(WaitUntil([&] { return stStubborn.m_bEnded.load(); }));
}
} // namespace
