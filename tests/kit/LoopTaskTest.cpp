#include "QuenHost/CLS_LoopTask.h"
#include "tests/kit/PoolTest.h"
#include "tests/support/Waiting.h"

#include <memory>
#include <type_traits>

namespace
{
using LoopTaskTest = CLS_PoolTest;

static_assert(!std::is_copy_constructible_v<CLS_LoopTask> && !std::is_copy_assignable_v<CLS_LoopTask>);
static_assert(std::is_nothrow_move_constructible_v<CLS_LoopTask> &&
              std::is_nothrow_move_assignable_v<CLS_LoopTask>);

/// A callable that counts its runs, and can be watched: a removed task lets go of it.
struct ST_Watched
{
    std::shared_ptr<CLS_Counter> m_pRuns = std::make_shared<CLS_Counter>();

    std::function<void()> MakeTask() const
    {
        return [pRuns = m_pRuns] { pRuns->Add(); };
    }

    /// Whether a task has the callable.
    bool IsHeld() const { return m_pRuns.use_count() > 1; }
};

TEST_F(LoopTaskTest, RunsAgainUntilItIsDestroyed)
{
    const ST_Watched stWatched;
    {
        const CLS_LoopTask clsTask(Functions(), stWatched.MakeTask(), 1, "loop");
        EXPECT_TRUE(clsTask.IsAdded());
        EXPECT_TRUE(stWatched.m_pRuns->Wait(3));
        EXPECT_TRUE(stWatched.IsHeld());
    }
    EXPECT_FALSE(stWatched.IsHeld());
}

TEST_F(LoopTaskTest, IsRemovedOnce)
{
    const ST_Watched stWatched;
    CLS_LoopTask clsTask(Functions(), stWatched.MakeTask(), 1, "loop");
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
    const CLS_LoopTask clsTask(Functions(), stWatched.MakeTask(), 100, "loop");
    EXPECT_TRUE(stWatched.m_pRuns->Wait(3));
    EXPECT_GE(std::chrono::steady_clock::now() - tpBegin, std::chrono::milliseconds(200));
}

TEST_F(LoopTaskTest, MovingTakesTheTaskAlong)
{
    const ST_Watched stWatched;
    auto pFirst = std::make_unique<CLS_LoopTask>(Functions(), stWatched.MakeTask(), 1, "loop");
    {
        const CLS_LoopTask clsSecond(std::move(*pFirst));
        EXPECT_FALSE(pFirst->IsAdded());
        EXPECT_TRUE(clsSecond.IsAdded());
        pFirst.reset();
        EXPECT_TRUE(stWatched.m_pRuns->Wait(stWatched.m_pRuns->Get() + 2));
    }
    EXPECT_FALSE(stWatched.IsHeld());
}

TEST_F(LoopTaskTest, AssigningRemovesTheTaskThatWasThere)
{
    const ST_Watched stOld;
    const ST_Watched stNew;
    {
        CLS_LoopTask clsTask(Functions(), stOld.MakeTask(), 1, "old");
        CLS_LoopTask clsOther(Functions(), stNew.MakeTask(), 1, "new");
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
    CLS_LoopTask clsTask(Functions(), stWatched.MakeTask(), 1, "loop");
    CLS_LoopTask& clsSame = clsTask;
    clsTask = std::move(clsSame);
    EXPECT_TRUE(clsTask.IsAdded());
    EXPECT_TRUE(stWatched.m_pRuns->Wait(stWatched.m_pRuns->Get() + 2));
}

TEST(LoopTaskRefusedTest, HasNoTaskAndRemovesNone)
{
    CLS_LoopTask clsTask(
        MakeRefusingPool(), [] {}, 1, "loop");
    EXPECT_FALSE(clsTask.IsAdded());
    // The pool's removal is not there to be called.
    clsTask.Remove();
}
} // namespace
