#include "QuenHost/CLS_LoopTask.h"
#include "QuenHost/CLS_StopToken.h"
#include "tests/kit/PoolTest.h"
#include "tests/support/Waiting.h"

#include <memory>
#include <optional>

namespace
{
using StopTokenTest = CLS_PoolTest;

TEST(StopTokenAloneTest, ADefaultTokenIsNeverAskedToStop)
{
    const CLS_StopToken clsToken;
    EXPECT_FALSE(clsToken.IsStopRequested());
    EXPECT_TRUE(clsToken.SleepFor(std::chrono::nanoseconds(1)));
    bool bCalled = false;
    {
        const CLS_StopCallback clsCallback(clsToken, [&] { bCalled = true; });
    }
    EXPECT_FALSE(bCalled);
}

TEST(StopTokenAloneTest, SleepsTheWholeTimeWithoutARequest)
{
    const CLS_StopToken clsToken(std::make_shared<CLS_StopState>());
    const auto tpBegin = std::chrono::steady_clock::now();
    EXPECT_TRUE(clsToken.SleepFor(std::chrono::milliseconds(20)));
    EXPECT_GE(std::chrono::steady_clock::now() - tpBegin, std::chrono::milliseconds(20));
}

TEST(StopTokenAloneTest, TheRequestWakesASleepThatIsLongerThanTheClocksRange)
{
    const auto pState = std::make_shared<CLS_StopState>();
    const CLS_StopToken clsToken(pState);
    std::thread thSleeper([&] { EXPECT_FALSE(clsToken.SleepFor(std::chrono::nanoseconds::max())); });
    pState->Request();
    thSleeper.join();
    EXPECT_TRUE(clsToken.IsStopRequested());
    EXPECT_FALSE(clsToken.SleepFor(WAIT_LIMIT));
}

TEST(StopTokenAloneTest, CallbacksAreCalledOnceAndAfterTheRequestAtOnce)
{
    const auto pState = std::make_shared<CLS_StopState>();
    const CLS_StopToken clsToken(pState);
    int iFirst = 0;
    int iGone = 0;
    const CLS_StopCallback clsFirst(clsToken, [&] { ++iFirst; });
    {
        const CLS_StopCallback clsGone(clsToken, [&] { ++iGone; });
    }
    pState->Request();
    pState->Request();
    EXPECT_EQ(1, iFirst);
    EXPECT_EQ(0, iGone);
    int iLate = 0;
    const CLS_StopCallback clsLate(clsToken, [&] { ++iLate; });
    EXPECT_EQ(1, iLate);
}

TEST(StopTokenAloneTest, TheEndOfACallbackWaitsForItsCallOnAnotherThread)
{
    const auto pState = std::make_shared<CLS_StopState>();
    CLS_Gate clsCalled;
    std::atomic<bool> bEnded{false};
    auto pCallback = std::make_unique<CLS_StopCallback>(CLS_StopToken(pState),
                                                        [&]
                                                        {
                                                            clsCalled.Open();
                                                            std::this_thread::yield();
                                                            bEnded = true;
                                                        });
    std::thread thRequest([&] { pState->Request(); });
    ASSERT_TRUE(clsCalled.Wait());
    pCallback.reset();
    EXPECT_TRUE(bEnded);
    thRequest.join();
}

TEST(StopTokenAloneTest, ACallbackMayEndItself)
{
    const auto pState = std::make_shared<CLS_StopState>();
    std::unique_ptr<CLS_StopCallback> pCallback;
    bool bCalled = false;
    pCallback =
        std::make_unique<CLS_StopCallback>(CLS_StopToken(pState),
                                           [&]
                                           {
                                               bCalled = true;
                                               auto pMine = std::move(pCallback);
                                               pMine.release(); // NOLINT(bugprone-unused-return-value)
                                           });
    CLS_StopCallback* const pRaw = pCallback.get();
    pState->Request();
    EXPECT_TRUE(bCalled);
    delete pRaw;
}

TEST_F(StopTokenTest, StopIsRequestedBeforeTheRemovalWaits)
{
    CLS_Gate clsStarted;
    CLS_TaskOwner clsOwner(GetPool(), "owner");
    ASSERT_TRUE(clsOwner.Submit(
        [&](const CLS_StopToken& _clsToken)
        {
            clsStarted.Open();
            EXPECT_TRUE(WaitUntil([&] { return _clsToken.IsStopRequested(); }));
        },
        "run"));
    ASSERT_TRUE(clsStarted.Wait());
    EXPECT_TRUE(clsOwner.RemoveTasks());
}

TEST_F(StopTokenTest, TasksAfterARemovalHaveATokenOfTheirOwn)
{
    CLS_TaskOwner clsOwner(GetPool(), "owner");
    clsOwner.RemoveTasks();
    CLS_Gate clsRan;
    ASSERT_TRUE(clsOwner.Submit(
        [&](CLS_StopToken _clsToken)
        {
            EXPECT_FALSE(_clsToken.IsStopRequested());
            clsRan.Open();
        },
        "run"));
    EXPECT_TRUE(clsRan.Wait());
}

TEST_F(StopTokenTest, ATokenMayOutliveItsTaskAndItsOwner)
{
    CLS_StopToken clsKept;
    {
        CLS_Gate clsRan;
        CLS_TaskOwner clsOwner(GetPool(), "owner");
        ASSERT_TRUE(clsOwner.Submit(
            [&](const CLS_StopToken& _clsToken)
            {
                clsKept = _clsToken;
                clsRan.Open();
            },
            "run"));
        EXPECT_TRUE(clsRan.Wait());
        EXPECT_FALSE(clsKept.IsStopRequested());
    }
    EXPECT_TRUE(clsKept.IsStopRequested());
}

TEST_F(StopTokenTest, ACallbackWakesATaskThatWaitsForSomethingElse)
{
    CLS_Gate clsStarted;
    CLS_TaskOwner clsOwner(GetPool(), "owner");
    ASSERT_TRUE(clsOwner.Submit(
        [&](const CLS_StopToken& _clsToken)
        {
            CLS_Gate clsWork;
            const CLS_StopCallback clsWake(_clsToken, [&] { clsWork.Open(); });
            clsStarted.Open();
            EXPECT_TRUE(clsWork.Wait());
        },
        "run"));
    ASSERT_TRUE(clsStarted.Wait());
    EXPECT_TRUE(clsOwner.RemoveTasks());
}
} // namespace
