#include "QuenInclude/CLS_LoadTurn.h"
#include "tests/support/LoadTurnView.h"
#include "tests/support/Waiting.h"

#include <gtest/gtest.h>
#include <thread>

namespace
{
TEST(LoadTurnTest, GivesTheTurnToOneThreadAfterTheOther)
{
    CLS_LoadTurn clsTurn;
    for (int i = 0; i < 3; ++i)
    {
        const CLS_LoadTurn::CLS_Scope clsScope(clsTurn);
        EXPECT_TRUE(clsScope.IsTaken());
    }
}

TEST(LoadTurnTest, TurnsTheHolderAwayAtOnceAndKeepsItsTurn)
{
    CLS_LoadTurn clsTurn;
    const CLS_LoadTurn::CLS_Scope clsOuter(clsTurn);
    ASSERT_TRUE(clsOuter.IsTaken());
    {
        const CLS_LoadTurn::CLS_Scope clsInner(clsTurn);
        EXPECT_FALSE(clsInner.IsTaken());
    }
    EXPECT_EQ(std::this_thread::get_id(), LoadTurnView::GetHolder(clsTurn));
}

TEST(LoadTurnTest, LetsAWaitingThreadInWhenTheTurnIsGivenBack)
{
    CLS_LoadTurn clsTurn;
    CLS_Gate clsHolds;
    CLS_Gate clsMayGive;
    std::thread thHolder(
        [&]
        {
            const CLS_LoadTurn::CLS_Scope clsScope(clsTurn);
            clsHolds.Open();
            EXPECT_TRUE(clsMayGive.Wait());
        });
    ASSERT_TRUE(clsHolds.Wait());
    clsMayGive.Open();
    const CLS_LoadTurn::CLS_Scope clsScope(clsTurn);
    EXPECT_TRUE(clsScope.IsTaken());
    thHolder.join();
}

TEST(LoadTurnTest, TurnsAnotherThreadAwayAfterTheLimit)
{
    CLS_LoadTurn clsTurn;
    const CLS_LoadTurn::CLS_Scope clsScope(clsTurn);
    std::thread(
        [&]
        {
            const auto tpStart = std::chrono::steady_clock::now();
            const CLS_LoadTurn::CLS_Scope clsLate(clsTurn);
            EXPECT_FALSE(clsLate.IsTaken());
            EXPECT_GE(std::chrono::steady_clock::now() - tpStart, CLS_LoadTurn::WAIT_LIMIT);
        })
        .join();
}

TEST(LoadTurnTest, TurnsAThreadThatDoesNotWaitAwayAtOnce)
{
    CLS_LoadTurn clsTurn;
    {
        const CLS_LoadTurn::CLS_Scope clsScope(clsTurn, std::try_to_lock);
        ASSERT_TRUE(clsScope.IsTaken());
        EXPECT_FALSE(CLS_LoadTurn::CLS_Scope(clsTurn, std::try_to_lock).IsTaken());
        std::thread([&clsTurn]
                    { EXPECT_FALSE(CLS_LoadTurn::CLS_Scope(clsTurn, std::try_to_lock).IsTaken()); })
            .join();
        EXPECT_FALSE(LoadTurnView::GetOverdueFlag(clsTurn));
        EXPECT_EQ(std::this_thread::get_id(), LoadTurnView::GetHolder(clsTurn));
    }
    EXPECT_TRUE(CLS_LoadTurn::CLS_Scope(clsTurn).IsTaken());
}

TEST(LoadTurnTest, WakeUpsDoNotProlongTheWait)
{
    CLS_LoadTurn clsTurn;
    const CLS_LoadTurn::CLS_Scope clsScope(clsTurn);
    CLS_Gate clsTurnedAway;
    std::thread thLate(
        [&]
        {
            EXPECT_FALSE(CLS_LoadTurn::CLS_Scope(clsTurn).IsTaken());
            clsTurnedAway.Open();
        });
    // Each wake-up would restart the wait if the elapsed time did not count.
    EXPECT_TRUE(WaitUntil(
        [&]
        {
            LoadTurnView::GetSignal(clsTurn).notify_one();
            return clsTurnedAway.IsOpen();
        }));
    thLate.join();
}

TEST(LoadTurnTest, NoThreadWaitsForAHolderAfterATimeout)
{
    constexpr int CALLS = 20;
    CLS_LoadTurn clsTurn;
    {
        const CLS_LoadTurn::CLS_Scope clsScope(clsTurn);
        std::thread(
            [&]
            {
                const auto tpStart = std::chrono::steady_clock::now();
                for (int i = 0; i < CALLS; ++i)
                {
                    EXPECT_FALSE(CLS_LoadTurn::CLS_Scope(clsTurn).IsTaken());
                }
                EXPECT_LT(std::chrono::steady_clock::now() - tpStart, CALLS * CLS_LoadTurn::WAIT_LIMIT / 2);
            })
            .join();
    }
    EXPECT_TRUE(CLS_LoadTurn::CLS_Scope(clsTurn).IsTaken());
}
} // namespace
