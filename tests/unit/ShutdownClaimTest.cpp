#include "QuenPlugins/ZelTaskPool/CLS_ShutdownClaim.h"
#include "tests/support/ShutdownClaimView.h"
#include "tests/support/Waiting.h"

#include <cstddef>
#include <gtest/gtest.h>
#include <memory>
#include <thread>

namespace
{
using std::chrono::milliseconds;
using std::chrono::steady_clock;

/// Stands in for a pool: the claims use only its address.
class ShutdownClaimTest : public ::testing::Test
{
protected:
    void SetUp() override { CLS_ShutdownClaim::AddPool(POOL); }

    void TearDown() override
    {
        if (ShutdownClaimView::IsKnown(POOL))
        {
            CLS_ShutdownClaim::RemovePool(POOL);
        }
    }

    static void AddThread(std::thread::id _idThread)
    {
        CLS_ShutdownClaim::AddThread(POOL, _idThread, CLS_ShutdownClaim::ReserveThread());
    }

    /// A thread that requests the claim. It shows whether the answer is immediate, and what it is.
    class CLS_Asker
    {
    public:
        CLS_Asker()
            : m_thAsker(
                  [this]
                  {
                      EXPECT_TRUE(m_clsMayAsk.Wait());
                      m_bGranted = CLS_ShutdownClaim(POOL).IsGranted();
                      m_clsAnswered.Open();
                  })
        {
        }
        ~CLS_Asker() { m_thAsker.join(); }
        CLS_Asker(const CLS_Asker&) = delete;
        CLS_Asker& operator=(const CLS_Asker&) = delete;

        std::thread::id GetId() const { return m_thAsker.get_id(); }
        void Ask() { m_clsMayAsk.Open(); }
        bool IsKeptWaiting() { return !m_clsAnswered.Wait(milliseconds(50)); }
        bool GetAnswer()
        {
            EXPECT_TRUE(m_clsAnswered.Wait());
            return m_bGranted;
        }

    private:
        CLS_Gate m_clsMayAsk;
        CLS_Gate m_clsAnswered;
        bool m_bGranted = false;
        std::thread m_thAsker;
    };

    static std::byte s_bytePool;
    static inline const auto* const POOL = reinterpret_cast<const CLS_QuenTaskPool*>(&s_bytePool);
};

std::byte ShutdownClaimTest::s_bytePool{};

TEST_F(ShutdownClaimTest, IsGrantedForAPoolThatLivesAndIsGivenBack)
{
    EXPECT_TRUE(CLS_ShutdownClaim(POOL).IsGranted());
    EXPECT_TRUE(CLS_ShutdownClaim(POOL).IsGranted());
}

TEST_F(ShutdownClaimTest, IsRefusedForAPoolThatIsGoneOrWasNeverThere)
{
    CLS_ShutdownClaim::RemovePool(POOL);
    EXPECT_FALSE(CLS_ShutdownClaim(POOL).IsGranted());
    EXPECT_FALSE(CLS_ShutdownClaim(nullptr).IsGranted());
}

TEST_F(ShutdownClaimTest, IsRefusedAtOnceToTheThreadThatHasItAlready)
{
    const CLS_ShutdownClaim clsClaim(POOL);
    EXPECT_FALSE(CLS_ShutdownClaim(POOL).IsGranted());
}

TEST_F(ShutdownClaimTest, IsRefusedAtOnceToAThreadOfThePool)
{
    const CLS_ShutdownClaim clsClaim(POOL);
    CLS_Asker clsWorker;
    AddThread(clsWorker.GetId());
    clsWorker.Ask();
    EXPECT_FALSE(clsWorker.GetAnswer());
}

TEST_F(ShutdownClaimTest, IsGrantedToAThreadOfThePoolWhenNoOtherHasIt)
{
    AddThread(std::this_thread::get_id());
    EXPECT_TRUE(CLS_ShutdownClaim(POOL).IsGranted());
}

TEST_F(ShutdownClaimTest, AThreadOutsideWaitsAndFindsNoPool)
{
    CLS_Asker clsHost;
    {
        const CLS_ShutdownClaim clsClaim(POOL);
        clsHost.Ask();
        EXPECT_TRUE(clsHost.IsKeptWaiting());
        CLS_ShutdownClaim::RemovePool(POOL);
        EXPECT_TRUE(clsHost.IsKeptWaiting());
    }
    EXPECT_FALSE(clsHost.GetAnswer());
}

TEST_F(ShutdownClaimTest, AThreadOutsideWaitsAndGetsTheClaimWhenThePoolSurvived)
{
    CLS_Asker clsHost;
    {
        const CLS_ShutdownClaim clsClaim(POOL);
        clsHost.Ask();
        EXPECT_TRUE(clsHost.IsKeptWaiting());
    }
    EXPECT_TRUE(clsHost.GetAnswer());
}

TEST_F(ShutdownClaimTest, AThreadWhoseIdWasTakenBackIsOutsideAgain)
{
    CLS_Asker clsHost;
    AddThread(clsHost.GetId());
    CLS_ShutdownClaim::RemoveThread(POOL, clsHost.GetId());
    {
        const CLS_ShutdownClaim clsClaim(POOL);
        clsHost.Ask();
        EXPECT_TRUE(clsHost.IsKeptWaiting());
    }
    EXPECT_TRUE(clsHost.GetAnswer());
}

// Pins docs/limits.md, "A second shutdown waits 20 s for each step".
TEST_F(ShutdownClaimTest, AThreadOutsideGivesUpWhenAStepTakesTooLong)
{
    const CLS_ShutdownClaim clsClaim(POOL);
    ShutdownClaimView::SetStepLimit(POOL, steady_clock::now() + milliseconds(80));
    CLS_Asker clsHost;
    clsHost.Ask();
    EXPECT_TRUE(clsHost.IsKeptWaiting());
    EXPECT_FALSE(clsHost.GetAnswer());
}

TEST_F(ShutdownClaimTest, EachStepHasTheWholeLimit)
{
    CLS_ShutdownClaim clsClaim(POOL);
    EXPECT_GE(ShutdownClaimView::GetStepLimit(POOL),
              steady_clock::now() + CLS_ShutdownClaim::STEP_LIMIT - milliseconds(5000));
    ShutdownClaimView::SetStepLimit(POOL, {});
    const auto tpBefore = steady_clock::now();
    clsClaim.BeginStep();
    EXPECT_GE(ShutdownClaimView::GetStepLimit(POOL), tpBefore + CLS_ShutdownClaim::STEP_LIMIT);
    EXPECT_LE(ShutdownClaimView::GetStepLimit(POOL), steady_clock::now() + CLS_ShutdownClaim::STEP_LIMIT);
    EXPECT_EQ(std::chrono::seconds(20), CLS_ShutdownClaim::STEP_LIMIT);
}

TEST_F(ShutdownClaimTest, AllThreadsThatWaitAreWoken)
{
    CLS_Asker clsFirst;
    CLS_Asker clsSecond;
    {
        const CLS_ShutdownClaim clsClaim(POOL);
        clsFirst.Ask();
        clsSecond.Ask();
        EXPECT_TRUE(clsFirst.IsKeptWaiting());
        EXPECT_TRUE(clsSecond.IsKeptWaiting());
        CLS_ShutdownClaim::RemovePool(POOL);
    }
    EXPECT_FALSE(clsFirst.GetAnswer());
    EXPECT_FALSE(clsSecond.GetAnswer());
}
} // namespace
