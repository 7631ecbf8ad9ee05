#include "QuenHost/CLS_LoopTask.h"
#include "tests/kit/PoolTest.h"
#include "tests/kit/StandIn.h"
#include "tests/support/FailingMemory.h"
#include "tests/support/Waiting.h"

#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <type_traits>

namespace
{
using LoopTaskTest = CLS_PoolTest;

static_assert(!std::is_copy_constructible_v<CLS_LoopTask> && !std::is_copy_assignable_v<CLS_LoopTask>);
static_assert(std::is_nothrow_move_constructible_v<CLS_LoopTask> &&
              std::is_nothrow_move_assignable_v<CLS_LoopTask>);

/// Makes a callable that counts its runs, and tells whether a task still holds it.
struct ST_Watched
{
    std::shared_ptr<CLS_Counter> m_pRuns = std::make_shared<CLS_Counter>();

    std::function<void()> MakeTask() const
    {
        return [pRuns = m_pRuns] { pRuns->Add(); };
    }

    /// Whether a task holds the callable.
    bool IsHeld() const { return m_pRuns.use_count() > 1; }
};

TEST_F(LoopTaskTest, RunsAgainUntilItIsDestroyed)
{
    const ST_Watched stWatched;
    {
        const CLS_LoopTask clsTask(GetPool(), stWatched.MakeTask(), 1, "loop");
        EXPECT_TRUE(clsTask.IsAdded());
        EXPECT_TRUE(stWatched.m_pRuns->Wait(3));
        EXPECT_TRUE(stWatched.IsHeld());
    }
    EXPECT_FALSE(stWatched.IsHeld());
}

TEST_F(LoopTaskTest, IsRemovedOnce)
{
    const ST_Watched stWatched;
    CLS_LoopTask clsTask(GetPool(), stWatched.MakeTask(), 1, "loop");
    EXPECT_TRUE(stWatched.m_pRuns->Wait(1));
    clsTask.Remove();
    EXPECT_FALSE(clsTask.IsAdded());
    EXPECT_FALSE(stWatched.IsHeld());
    clsTask.Remove();
    EXPECT_FALSE(clsTask.IsAdded());
}

TEST_F(LoopTaskTest, TheIntervalIsThePoolsMilliseconds)
{
    const ST_Watched stWatched;
    const auto tpBegin = std::chrono::steady_clock::now();
    const CLS_LoopTask clsTask(GetPool(), stWatched.MakeTask(), 100, "loop");
    EXPECT_TRUE(stWatched.m_pRuns->Wait(3));
    EXPECT_GE(std::chrono::steady_clock::now() - tpBegin, std::chrono::milliseconds(200));
}

TEST_F(LoopTaskTest, MovingTakesTheTaskAlong)
{
    const ST_Watched stWatched;
    auto pFirst = std::make_unique<CLS_LoopTask>(GetPool(), stWatched.MakeTask(), 1, "loop");
    {
        const CLS_LoopTask clsSecond(std::move(*pFirst));
        EXPECT_FALSE(pFirst->IsAdded());
        EXPECT_TRUE(clsSecond.IsAdded());
        pFirst.reset();
        EXPECT_TRUE(stWatched.m_pRuns->Wait(stWatched.m_pRuns->Get() + 2));
    }
    EXPECT_FALSE(stWatched.IsHeld());
}

TEST_F(LoopTaskTest, AssigningRemovesTheFormerTask)
{
    const ST_Watched stOld;
    const ST_Watched stNew;
    {
        CLS_LoopTask clsTask(GetPool(), stOld.MakeTask(), 1, "old");
        CLS_LoopTask clsOther(GetPool(), stNew.MakeTask(), 1, "new");
        clsTask = std::move(clsOther);
        EXPECT_FALSE(stOld.IsHeld());
        EXPECT_TRUE(clsTask.IsAdded());
        EXPECT_FALSE(clsOther.IsAdded()); // NOLINT(bugprone-use-after-move)
        EXPECT_TRUE(stNew.m_pRuns->Wait(stNew.m_pRuns->Get() + 2));
    }
    EXPECT_FALSE(stNew.IsHeld());
}

TEST_F(LoopTaskTest, AssignedToItselfItKeepsItsTask)
{
    const ST_Watched stWatched;
    CLS_LoopTask clsTask(GetPool(), stWatched.MakeTask(), 1, "loop");
    CLS_LoopTask& clsSame = clsTask;
    clsTask = std::move(clsSame);
    EXPECT_TRUE(clsTask.IsAdded());
    EXPECT_TRUE(stWatched.m_pRuns->Wait(stWatched.m_pRuns->Get() + 2));
}

TEST_F(LoopTaskTest, TheEndWaitsForTheRunAndNoLonger)
{
    CLS_Gate clsStarted;
    std::optional<CLS_LoopTask> clsTask(
        std::in_place, GetPool(),
        [&](const CLS_StopToken& _clsToken)
        {
            clsStarted.Open();
            EXPECT_FALSE(_clsToken.SleepFor(WAIT_LIMIT));
        },
        1, "loop");
    ASSERT_TRUE(clsStarted.Wait());
    EXPECT_TRUE(clsTask->Remove());
    EXPECT_FALSE(clsTask->IsAdded());
}

TEST_F(LoopTaskTest, MayEndItselfInItsOwnRun)
{
    CLS_Gate clsRemoved;
    CLS_Witness::ST_End stEnd;
    std::thread::id idWorker;
    std::atomic<int> iRuns{0};
    std::optional<CLS_LoopTask> clsTask;
    CLS_Gate clsMade;
    clsTask.emplace(
        GetPool(),
        [&, clsWitness = CLS_Witness(stEnd)]
        {
            EXPECT_TRUE(clsMade.Wait());
            ++iRuns;
            idWorker = std::this_thread::get_id();
            clsTask.reset();
            EXPECT_EQ(0, stEnd.m_iEnds) << "the callable is destroyed while it runs";
            clsRemoved.Open();
        },
        1, "loop");
    clsMade.Open();
    ASSERT_TRUE(clsRemoved.Wait());
    EXPECT_TRUE(WaitUntil([&] { return stEnd.m_iEnds == 1; }));
    EXPECT_EQ(idWorker, stEnd.m_idThread.load());
    EXPECT_EQ(1, iRuns);
}

TEST_F(LoopTaskTest, TheEndWaitsForARunThatHasRemovedItsTaskAndForItsCallable)
{
    CLS_Gate clsRemoved;
    CLS_Gate clsMayEnd;
    CLS_Witness::ST_End stEnd;
    std::atomic<bool> bOver{false};
    std::optional<CLS_LoopTask> clsTask;
    CLS_Gate clsMade;
    clsTask.emplace(
        GetPool(),
        [&, clsWitness = CLS_Witness(stEnd)]
        {
            EXPECT_TRUE(clsMade.Wait());
            EXPECT_TRUE(clsTask->Remove());
            EXPECT_FALSE(clsTask->IsAdded());
            clsRemoved.Open();
            EXPECT_TRUE(clsMayEnd.Wait());
            bOver = true;
        },
        1, "loop");
    clsMade.Open();
    ASSERT_TRUE(clsRemoved.Wait());
    std::thread thOpener(
        [&]
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(50)); // the end is likely to wait by then
            clsMayEnd.Open();
        });
    clsTask.reset();
    EXPECT_TRUE(bOver);
    EXPECT_EQ(1, stEnd.m_iEnds);
    thOpener.join();
}

TEST_F(LoopTaskTest, TwoThreadsThatRemoveAtOnceBothWaitForTheRunAndTheCallable)
{
    CLS_Gate clsStarted;
    CLS_Gate clsMayEnd;
    CLS_Witness::ST_End stEnd;
    CLS_LoopTask clsTask(
        GetPool(),
        [&, clsWitness = CLS_Witness(stEnd)]
        {
            clsStarted.Open();
            EXPECT_TRUE(clsMayEnd.Wait());
        },
        1, "loop");
    ASSERT_TRUE(clsStarted.Wait());
    const auto funRemove = [&]
    {
        EXPECT_TRUE(clsTask.Remove());
        EXPECT_EQ(1, stEnd.m_iEnds);
    };
    std::thread thFirst(funRemove);
    std::thread thSecond(funRemove);
    ASSERT_TRUE(WaitUntil([&] { return !clsTask.IsAdded(); }));
    clsMayEnd.Open();
    thFirst.join();
    thSecond.join();
}

TEST_F(LoopTaskTest, TakesACallableThatCanOnlyBeMovedAndDestroysItOnceOnTheRemovingThread)
{
    CLS_Witness::ST_End stEnd;
    CLS_Counter clsRuns;
    {
        const CLS_LoopTask clsTask(
            GetPool(), [clsWitness = CLS_Witness(stEnd), &clsRuns] { clsRuns.Add(); }, 0, "loop");
        EXPECT_TRUE(clsRuns.Wait(2));
        EXPECT_EQ(0, stEnd.m_iEnds);
    }
    EXPECT_EQ(1, stEnd.m_iEnds);
    EXPECT_EQ(std::this_thread::get_id(), stEnd.m_idThread.load());
}

TEST_F(LoopTaskTest, RemovingLaterDoesNotWaitAndKeepsWhatTheRunUses)
{
    CLS_Gate clsStarted;
    CLS_Gate clsMayEnd;
    CLS_Witness::ST_End stEnd;
    CLS_Witness::ST_End stKept;
    auto pKept = std::make_shared<CLS_Witness>(stKept);
    CLS_LoopTask clsTask(
        GetPool(),
        [&, clsWitness = CLS_Witness(stEnd)]
        {
            clsStarted.Open();
            EXPECT_TRUE(clsMayEnd.Wait());
        },
        1, "loop");
    ASSERT_TRUE(clsStarted.Wait());
    clsTask.RemoveLater(std::move(pKept));
    EXPECT_FALSE(clsTask.IsAdded());
    EXPECT_EQ(0, stEnd.m_iEnds + stKept.m_iEnds);
    clsMayEnd.Open();
    EXPECT_TRUE(WaitUntil([&] { return stEnd.m_iEnds == 1 && stKept.m_iEnds == 1; }));
    EXPECT_NE(std::this_thread::get_id(), stKept.m_idThread.load());
}

TEST_F(LoopTaskTest, RemovingLaterBetweenRunsDestroysTheCallableOnAWorker)
{
    CLS_Witness::ST_End stEnd;
    CLS_Counter clsRuns;
    CLS_LoopTask clsTask(
        GetPool(), [&, clsWitness = CLS_Witness(stEnd)] { clsRuns.Add(); }, 3600000, "loop");
    ASSERT_TRUE(clsRuns.Wait(1));
    ASSERT_TRUE(WaitUntil([&] { return GetPool().TakeSnapshot().m_vecRuns.empty(); }));
    clsTask.RemoveLater();
    EXPECT_TRUE(WaitUntil([&] { return stEnd.m_iEnds == 1; }));
    EXPECT_NE(std::this_thread::get_id(), stEnd.m_idThread.load());
}

static_assert(noexcept(std::declval<CLS_LoopTask&>().RemoveLater()));

TEST_F(LoopTaskTest, RemovingLaterHasTheSameEffectWhicheverAllocationFails)
{
    bool bFailed = true;
    for (int iAllocation = 1; bFailed; ++iAllocation)
    {
        CLS_Witness::ST_End stEnd;
        CLS_Counter clsRuns;
        CLS_LoopTask clsTask(
            GetPool(), [&, clsWitness = CLS_Witness(stEnd)] { clsRuns.Add(); }, 3600000, "loop");
        ASSERT_TRUE(clsRuns.Wait(1));
        ASSERT_TRUE(WaitUntil([&] { return GetPool().TakeSnapshot().m_vecRuns.empty(); }));
        FailingMemory::FailAt(iAllocation);
        clsTask.RemoveLater();
        bFailed = FailingMemory::Stop();
        EXPECT_FALSE(clsTask.IsAdded());
        EXPECT_TRUE(WaitUntil([&] { return stEnd.m_iEnds == 1; }));
        EXPECT_NE(std::this_thread::get_id(), stEnd.m_idThread.load());
        for (int i = 0; i < 2; ++i)
        {
            FailingMemory::FailAt(1);
            clsTask.RemoveLater();
            EXPECT_TRUE(FailingMemory::Stop());
        }
    }
}

TEST_F(LoopTaskTest, AnEmptyCallableIsNotAdded)
{
    CLS_LoopTask clsTask(GetPool(), std::function<void()>(), 1, "loop");
    EXPECT_FALSE(clsTask.IsAdded());
    EXPECT_TRUE(clsTask.Remove());
}

TEST_F(LoopTaskTest, ContinuesAfterARunThatThrows)
{
    CLS_Counter clsFailures;
    CLS_LoopTask clsTask(
        GetPool(), [] { throw std::runtime_error("each time"); }, 1, "loop",
        [&](const ST_TaskFailure& _stFailure)
        {
            EXPECT_EQ("loop", _stFailure.m_strCallInfo);
            clsFailures.Add();
        });
    EXPECT_TRUE(clsFailures.Wait(3));
}

TEST(LoopTaskRefusedTest, HasNoTaskAndDestroysTheCallable)
{
    const CLS_StandIn clsStandIn(STAND_IN);
    const CLS_PoolScope clsPool{CLS_PoolLibrary(STAND_IN)};
    CLS_Witness::ST_End stEnd;
    CLS_LoopTask clsTask(
        clsPool, [clsWitness = CLS_Witness(stEnd)] {}, 1, "loop");
    EXPECT_FALSE(clsTask.IsAdded());
    EXPECT_EQ(1, stEnd.m_iEnds);
    EXPECT_TRUE(clsTask.Remove());
}
} // namespace
