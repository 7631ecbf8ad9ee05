#include "QuenHost/CLS_TaskOwner.h"
#include "tests/kit/PoolTest.h"
#include "tests/support/Waiting.h"

#include <memory>
#include <optional>
#include <stdexcept>
#include <type_traits>

namespace
{
using TaskOwnerTest = CLS_PoolTest;

static_assert(!std::is_copy_constructible_v<CLS_TaskOwner> && !std::is_move_constructible_v<CLS_TaskOwner> &&
              !std::is_copy_assignable_v<CLS_TaskOwner> && !std::is_move_assignable_v<CLS_TaskOwner>);

TEST_F(TaskOwnerTest, RunsWhatIsSubmitted)
{
    CLS_Counter clsRuns;
    CLS_TaskOwner clsOwner(Functions(), "owner");
    EXPECT_TRUE(clsOwner.Submit([&] { clsRuns.Add(); }, "one"));
    EXPECT_TRUE(clsOwner.Submit([&] { clsRuns.Add(); }, "two"));
    EXPECT_TRUE(clsRuns.Wait(2));
}

TEST_F(TaskOwnerTest, TheDestructorWaitsForWhatIsRunning)
{
    CLS_Gate clsStarted;
    CLS_Gate clsMayEnd;
    std::atomic<bool> bEnded{false};
    std::optional<CLS_TaskOwner> clsOwner(std::in_place, Functions(), "owner");
    ASSERT_TRUE(clsOwner->Submit(
        [&]
        {
            clsStarted.Open();
            bEnded = clsMayEnd.Wait();
        },
        "run"));
    ASSERT_TRUE(clsStarted.Wait());
    std::thread thDestroyer([&] { clsOwner.reset(); });
    clsMayEnd.Open();
    thDestroyer.join();
    EXPECT_TRUE(bEnded);
}

TEST_F(TaskOwnerTest, TheDestructorRemovesTheOwnersTasksAlone)
{
    // The last ones submitted cannot have started.
    CLS_Gate clsMayEnd;
    CLS_TaskOwner clsOthers(Functions(), "others");
    KeepEveryWorkerBusy(clsOthers, clsMayEnd);
    CLS_Counter clsLater;
    std::atomic<bool> bRemovedRan{false};
    std::weak_ptr<int> pCaptured;
    {
        CLS_TaskOwner clsOwner(Functions(), "owner");
        auto pValue = std::make_shared<int>(1);
        pCaptured = pValue;
        ASSERT_TRUE(clsOwner.Submit([pValue, &bRemovedRan] { bRemovedRan = true; }, "queued"));
    }
    EXPECT_TRUE(pCaptured.expired());
    ASSERT_TRUE(clsOthers.Submit([&] { clsLater.Add(); }, "later"));
    clsMayEnd.Open();
    EXPECT_TRUE(clsLater.Wait(1));
    EXPECT_FALSE(bRemovedRan);
}

TEST_F(TaskOwnerTest, GoesOnAfterItsTasksWereRemoved)
{
    CLS_Counter clsRuns;
    CLS_TaskOwner clsOwner(Functions(), "owner");
    clsOwner.RemoveTasks();
    EXPECT_TRUE(clsOwner.Submit([&] { clsRuns.Add(); }, "again"));
    EXPECT_TRUE(clsRuns.Wait(1));
}

TEST(TaskOwnerRefusedTest, SaysThatATaskWasNotTaken)
{
    CLS_TaskOwner clsOwner(MakeRefusingPool(), "owner");
    EXPECT_FALSE(clsOwner.Submit([] {}, "refused"));
}

TEST(TaskOwnerRefusedTest, ARemovalThatThrowsDoesNotLeaveTheDestructor)
{
    static int s_iRemovals = 0;
    ST_PoolFunctions stFunctions = MakeRefusingPool();
    stFunctions.m_funRemoveTmpTask = [](void*, const std::string&)
    {
        ++s_iRemovals;
        throw std::runtime_error("no pool");
    };
    {
        const CLS_TaskOwner clsOwner(stFunctions, "owner");
    }
    EXPECT_EQ(1, s_iRemovals);
}
} // namespace
