#include "tests/support/PoolView.h"
#include "tests/unit/ShutdownFixture.h"

namespace
{
/// Tests the time limit of a removal by owner with the real clock.
class RemovalRealTimeTest : public CLS_ShutdownFixture
{
protected:
    static constexpr std::chrono::seconds BOUND{9};
    /// Two consecutive bounds would take several seconds longer.
    static constexpr std::chrono::seconds ONE_BOUND_AT_MOST{15};
};

// Pins docs/limits.md, "A removal does not chase new tasks for ever".
TEST_F(RemovalRealTimeTest, TasksSubmittedDuringTheRemovalShareOneBound)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    int iOwner = 0;
    CLS_Gate clsFirstRuns;
    CLS_Gate clsRemoving;
    CLS_Counter clsLate;
    CLS_Gate clsMayEnd;
    CLS_Counter clsEnded;
    ASSERT_TRUE(clsPool.AddTmpTask(
        [&]
        {
            clsFirstRuns.Open();
            EXPECT_TRUE(clsRemoving.Wait());
            for (int i = 0; i < 2; ++i)
            {
                EXPECT_TRUE(clsPool.AddTmpTask(
                    [&]
                    {
                        clsLate.Add();
                        EXPECT_TRUE(clsMayEnd.Wait());
                        clsEnded.Add();
                    },
                    &iOwner, "late"));
            }
            EXPECT_TRUE(clsLate.Wait(2));
        },
        &iOwner, "first"));
    ASSERT_TRUE(clsFirstRuns.Wait());
    const std::string strFirst = PoolView::GetOwned(clsPool).at(&iOwner).front();
    const auto tpStart = std::chrono::steady_clock::now();
    {
        CLS_Side clsRemoval([&] { clsPool.RemoveTmpTask(&iOwner, "test"); });
        EXPECT_TRUE(WaitUntil([&] { return !CLS_Task::GetTask(strFirst).lock()->GetValid(); }));
        clsRemoving.Open();
    }
    const auto nsTaken = std::chrono::steady_clock::now() - tpStart;
    EXPECT_GE(nsTaken, BOUND);
    EXPECT_LT(nsTaken, ONE_BOUND_AT_MOST);
    EXPECT_EQ(0, clsEnded.Get());
    clsMayEnd.Open();
    EXPECT_TRUE(clsEnded.Wait(2));
}
} // namespace
