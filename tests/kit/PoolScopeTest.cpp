#include "QuenHost/CLS_LoopTask.h"
#include "QuenHost/CLS_PoolScope.h"
#include "QuenHost/CLS_TaskOwner.h"
#include "tests/kit/StandIn.h"
#include "tests/support/Waiting.h"

#include <optional>
#include <type_traits>

namespace
{
using Calls = std::vector<std::string>;

static_assert(!std::is_copy_constructible_v<CLS_PoolScope> && !std::is_copy_assignable_v<CLS_PoolScope>);
static_assert(std::is_nothrow_move_constructible_v<CLS_PoolScope> &&
              !std::is_move_assignable_v<CLS_PoolScope>);

/// A stand-in that only the scope keeps loaded.
CLS_PoolScope OpenNoted(const std::string& _strPath)
{
    const CLS_StandIn clsStandIn(_strPath);
    CLS_PoolScope clsPool{CLS_PoolLibrary(_strPath)};
    CLS_StandIn::GetCalls().clear();
    return clsPool;
}

TEST(PoolScopeTest, EndsThePoolOnceAndKeepsTheLibrary)
{
    const CLS_StandIn clsStandIn(STAND_IN);
    {
        CLS_PoolScope clsPool{CLS_PoolLibrary(STAND_IN)};
        CLS_StandIn::GetCalls().clear();
        clsPool.End();
        EXPECT_EQ(Calls{"KillTaskAll"}, CLS_StandIn::GetCalls());
    }
    EXPECT_EQ(Calls{"KillTaskAll"}, CLS_StandIn::GetCalls());
    EXPECT_TRUE(CLS_StandIn::IsLoaded(STAND_IN));
}

TEST(PoolScopeTest, TheDestructorEndsThePool)
{
    const CLS_StandIn clsStandIn(STAND_IN);
    {
        const CLS_PoolScope clsPool{CLS_PoolLibrary(STAND_IN)};
        CLS_StandIn::GetCalls().clear();
    }
    EXPECT_EQ(Calls{"KillTaskAll"}, CLS_StandIn::GetCalls());
}

TEST(PoolScopeTest, AMovedFromScopeEndsNothing)
{
    const CLS_StandIn clsStandIn(STAND_IN);
    CLS_PoolScope clsFirst{CLS_PoolLibrary(STAND_IN)};
    CLS_StandIn::GetCalls().clear();
    {
        CLS_PoolScope clsSecond(std::move(clsFirst));
        clsFirst.End(); // NOLINT(bugprone-use-after-move)
        EXPECT_EQ(Calls{}, CLS_StandIn::GetCalls());
        EXPECT_NE(nullptr, clsSecond.GetFunctions().m_funUnInit);
    }
    EXPECT_EQ(Calls{"KillTaskAll"}, CLS_StandIn::GetCalls());
}

TEST(PoolScopeTest, AScopeOfAMovedFromLibraryEndsNothing)
{
    const CLS_StandIn clsStandIn(STAND_IN);
    CLS_PoolLibrary clsLibrary(STAND_IN);
    const CLS_PoolLibrary clsTaker(std::move(clsLibrary));
    CLS_StandIn::GetCalls().clear();
    {
        const CLS_PoolScope clsPool(std::move(clsLibrary)); // NOLINT(bugprone-use-after-move)
    }
    EXPECT_EQ(Calls{}, CLS_StandIn::GetCalls());
}

TEST(PoolScopeTest, UnloadsOnceAndAfterThePoolsEnd)
{
    CLS_PoolScope clsPool = OpenNoted(STAND_IN_TO_UNLOAD);
    clsPool.Unload();
    EXPECT_EQ((Calls{"KillTaskAll", "unloaded"}), CLS_StandIn::GetCalls());
    EXPECT_FALSE(CLS_StandIn::IsLoaded(STAND_IN_TO_UNLOAD));
    EXPECT_EQ(nullptr, clsPool.GetFunctions().m_funUnInit);
    clsPool.Unload();
    EXPECT_EQ(2U, CLS_StandIn::GetCalls().size());
}

TEST(PoolScopeTest, UnloadingAfterTheEndEndsNoOtherPool)
{
    CLS_PoolScope clsPool = OpenNoted(STAND_IN_TO_UNLOAD);
    clsPool.End();
    clsPool.Unload();
    EXPECT_EQ((Calls{"KillTaskAll", "unloaded"}), CLS_StandIn::GetCalls());
}

TEST(PoolScopeTest, AnEndThatThrowsDoesNoHarm)
{
    const CLS_StandIn clsStandIn(STAND_IN_UNENDABLE);
    {
        const CLS_PoolScope clsPool{CLS_PoolLibrary(STAND_IN_UNENDABLE)};
        CLS_StandIn::GetCalls().clear();
    }
    EXPECT_EQ(Calls{"KillTaskAll"}, CLS_StandIn::GetCalls());
}

TEST(PoolScopeTest, WithoutTasksThePoolReceivesNoTask)
{
    const CLS_StandIn clsStandIn(STAND_IN);
    {
        const CLS_PoolScope clsPool{CLS_PoolLibrary(STAND_IN)};
        CLS_StandIn::GetCalls().clear();
        const CLS_TaskOwner clsOwner(clsPool, "owner");
    }
    EXPECT_EQ(Calls{"KillTaskAll"}, CLS_StandIn::GetCalls());
}

TEST(PoolScopeTest, OwnersStillWorkAfterTheScopeIsMoved)
{
    CLS_PoolScope clsFirst{CLS_PoolLibrary(POOL_LIBRARY)};
    std::optional<CLS_TaskOwner> clsOwner(std::in_place, clsFirst, "owner");
    const CLS_PoolScope clsSecond(std::move(clsFirst));
    CLS_Gate clsRan;
    EXPECT_TRUE(clsOwner->Submit([&] { clsRan.Open(); }, "task"));
    EXPECT_TRUE(clsRan.Wait());
    clsOwner.reset();
}

TEST(PoolScopeTest, ALinkedOrOpenedLibraryMayBeUsedAgainAfterTheEnd)
{
    for (int i = 0; i < 3; ++i)
    {
        const CLS_PoolScope clsPool{CLS_PoolLibrary(POOL_LIBRARY)};
        CLS_TaskOwner clsOwner(clsPool, "owner");
        CLS_Gate clsRan;
        EXPECT_TRUE(clsOwner.Submit([&] { clsRan.Open(); }, "task"));
        EXPECT_TRUE(clsRan.Wait());
    }
}

TEST(PoolScopeTest, TheEndWaitsForRunningTasks)
{
    CLS_Gate clsStarted;
    CLS_Gate clsMayEnd;
    std::atomic<bool> bEnded{false};
    int iOwner = 0;
    {
        const CLS_PoolScope clsPool{CLS_PoolLibrary(POOL_LIBRARY)};
        const auto funTask = [&]
        {
            clsStarted.Open();
            bEnded = clsMayEnd.Wait();
        };
        ASSERT_TRUE(clsPool.GetFunctions().m_funAddTmpTask(funTask, &iOwner, "run"));
        ASSERT_TRUE(clsStarted.Wait());
        clsMayEnd.Open();
    }
    EXPECT_TRUE(bEnded);
}
} // namespace
