#include "QuenHost/SubmitForResult.h"

#include "tests/kit/PoolTest.h"
#include "tests/kit/StandIn.h"
#include "tests/support/Waiting.h"

#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>

namespace
{
using SubmitForResultTest = CLS_PoolTest;

/// An exception type of the host.
class CLS_HostError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

template <typename T_Result>
void ExpectBroken(std::future<T_Result>& _futResult)
{
    ASSERT_EQ(std::future_status::ready, _futResult.wait_for(WAIT_LIMIT));
    try
    {
        _futResult.get();
        ADD_FAILURE() << "there is a result";
    }
    catch (const std::future_error& error)
    {
        EXPECT_EQ(std::make_error_code(std::future_errc::broken_promise), error.code());
    }
}

TEST_F(SubmitForResultTest, TheFutureHasTheValue)
{
    CLS_TaskOwner clsOwner(GetPool(), "owner");
    std::future<std::string> futText = SubmitForResult(
        clsOwner, [] { return std::string("text"); }, "text");
    EXPECT_EQ("text", futText.get());
}

TEST_F(SubmitForResultTest, ARemovalWaitsUntilAResultWithoutAFutureIsDestroyed)
{
    CLS_Witness::ST_End stEnd;
    CLS_TaskOwner clsOwner(GetPool(), "owner");
    CLS_Gate clsDestroying;
    const auto funRelease = [&](const int* _pResult)
    {
        clsDestroying.Open();
        const CLS_Witness clsWitness(stEnd);
        std::this_thread::sleep_for(std::chrono::milliseconds(20)); // exposes a removal that does not wait
        delete _pResult;
    };
    static_cast<void>(SubmitForResult(
        clsOwner, [&] { return std::unique_ptr<const int, decltype(funRelease)>(new int(1), funRelease); },
        "result"));
    ASSERT_TRUE(clsDestroying.Wait());
    EXPECT_TRUE(clsOwner.RemoveTasks());
    EXPECT_EQ(1, stEnd.m_iEnds);
}

TEST_F(SubmitForResultTest, ValuesMayBeVoidReferencesOrMoveOnly)
{
    CLS_TaskOwner clsOwner(GetPool(), "owner");
    int iValue = 1;
    SubmitForResult(
        clsOwner, [&] { iValue = 2; }, "nothing")
        .get();
    EXPECT_EQ(2, iValue);
    std::future<int&> futReference = SubmitForResult(
        clsOwner, [&]() -> int& { return iValue; }, "reference");
    EXPECT_EQ(&iValue, &futReference.get());
    EXPECT_EQ(3, *SubmitForResult(
                      clsOwner, [] { return std::make_unique<int>(3); }, "move-only")
                      .get());
}

TEST_F(SubmitForResultTest, TheCallableMayBeMoveOnly)
{
    CLS_TaskOwner clsOwner(GetPool(), "owner");
    auto funTask = [pValue = std::make_unique<int>(4)] { return *pValue; };
    EXPECT_EQ(4, SubmitForResult(clsOwner, std::move(funTask), "move-only").get());
} // NOLINT(clang-analyzer-cplusplus.NewDeleteLeaks): the queue owns it

TEST_F(SubmitForResultTest, TheCallableMayBeKeptByTheCaller)
{
    CLS_TaskOwner clsOwner(GetPool(), "owner");
    int iRuns = 0;
    const auto funTask = [&iRuns] { return ++iRuns; };
    EXPECT_EQ(1, SubmitForResult(clsOwner, funTask, "first").get());
    EXPECT_EQ(2, SubmitForResult(clsOwner, funTask, "second").get());
}

TEST_F(SubmitForResultTest, AnExceptionReachesTheFuture)
{
    CLS_TaskOwner clsOwner(GetPool(), "owner");
    std::future<int> futResult = SubmitForResult(
        clsOwner, []() -> int { throw CLS_HostError("mine"); }, "throwing");
    try
    {
        futResult.get();
        FAIL() << "there is a result";
    }
    catch (const CLS_HostError& error)
    {
        EXPECT_STREQ("mine", error.what());
    }
}

TEST_F(SubmitForResultTest, CapturesAreDestroyedBeforeTheFutureIsReady)
{
    CLS_TaskOwner clsOwner(GetPool(), "owner");
    auto pValue = std::make_shared<int>(5);
    const std::weak_ptr<int> pCaptured = pValue;
    std::future<int> futValue = SubmitForResult(
        clsOwner, [pValue = std::move(pValue)] { return *pValue; }, "value");
    ASSERT_EQ(std::future_status::ready, futValue.wait_for(WAIT_LIMIT));
    EXPECT_TRUE(pCaptured.expired());
    EXPECT_EQ(5, futValue.get());
}

TEST_F(SubmitForResultTest, ATaskThatWasRemovedBeforeItRanBreaksItsPromise)
{
    // The last ones submitted cannot have started.
    CLS_Gate clsMayEnd;
    CLS_TaskOwner clsOthers(GetPool(), "others");
    KeepEveryWorkerBusy(clsOthers, clsMayEnd);
    std::optional<CLS_TaskOwner> clsOwner(std::in_place, GetPool(), "owner");
    std::future<int> futResult = SubmitForResult(
        *clsOwner, [] { return 6; }, "queued");
    EXPECT_EQ(std::future_status::timeout, futResult.wait_for(std::chrono::seconds(0)));
    clsOwner.reset();
    ExpectBroken(futResult);
    clsMayEnd.Open();
}

TEST_F(SubmitForResultTest, TheFutureOutlivesTheOwner)
{
    std::future<int> futResult;
    {
        CLS_Gate clsRan;
        CLS_TaskOwner clsOwner(GetPool(), "owner");
        futResult = SubmitForResult(
            clsOwner,
            [&]
            {
                clsRan.Open();
                return 7;
            },
            "value");
        ASSERT_TRUE(clsRan.Wait());
    }
    EXPECT_EQ(7, futResult.get());
}

TEST_F(SubmitForResultTest, ATaskMayTakeAToken)
{
    CLS_TaskOwner clsOwner(GetPool(), "owner");
    EXPECT_FALSE(
        SubmitForResult(
            clsOwner, [](const CLS_StopToken& _clsToken) { return _clsToken.IsStopRequested(); }, "token")
            .get());
}

TEST_F(SubmitForResultTest, TheResultIsDestroyedWithTheFuture)
{
    CLS_Witness::ST_End stResult;
    CLS_TaskOwner clsOwner(GetPool(), "owner");
    {
        const auto futResult = SubmitForResult(
            clsOwner, [&stResult] { return std::make_unique<CLS_Witness>(stResult); }, "result");
        ASSERT_EQ(std::future_status::ready, futResult.wait_for(WAIT_LIMIT));
        EXPECT_EQ(0, stResult.m_iEnds);
    }
    // The worker may still be making the future ready.
    EXPECT_TRUE(WaitUntil([&] { return stResult.m_iEnds == 1; }));
}

TEST_F(SubmitForResultTest, AResultAfterTheEndOfTheFutureIsNotKept)
{
    CLS_Witness::ST_End stResult;
    CLS_Gate clsMayEnd;
    CLS_TaskOwner clsOwner(GetPool(), "owner");
    static_cast<void>(SubmitForResult(
        clsOwner,
        [&]
        {
            EXPECT_TRUE(clsMayEnd.Wait());
            return std::make_unique<CLS_Witness>(stResult);
        },
        "result"));
    clsMayEnd.Open();
    EXPECT_TRUE(WaitUntil([&] { return stResult.m_iEnds == 1; }));
}

TEST_F(SubmitForResultTest, AnEmptyCallableBreaksItsPromise)
{
    CLS_TaskOwner clsOwner(GetPool(), "owner");
    std::future<int> futResult = SubmitForResult(clsOwner, std::function<int()>(), "empty");
    ExpectBroken(futResult);
}

TEST_F(SubmitForResultTest, AThrowingTaskCountsAsFailedAndIsReportedThroughItsFutureAlone)
{
    CLS_TaskOwner clsOwner(GetPool(), "owner",
                           [](const ST_TaskFailure&) { ADD_FAILURE() << "the failure is reported twice"; });
    std::future<void> futResult = SubmitForResult(
        clsOwner, [] { throw CLS_HostError("mine"); }, "throwing");
    EXPECT_THROW(futResult.get(), CLS_HostError);
    EXPECT_TRUE(WaitUntil([&] { return clsOwner.GetCounters().m_uiFailed == 1; }));
}

TEST(SubmitForResultRefusedTest, ARefusedTaskBreaksItsPromiseAndNeverRuns)
{
    const CLS_StandIn clsStandIn(STAND_IN);
    const CLS_PoolScope clsPool{CLS_PoolLibrary(STAND_IN)};
    CLS_TaskOwner clsOwner(clsPool, "owner");
    auto pValue = std::make_shared<int>(8);
    const std::weak_ptr<int> pCaptured = pValue;
    std::future<void> futResult = SubmitForResult(
        clsOwner, [pValue = std::move(pValue)] { ADD_FAILURE() << "it runs"; }, "refused");
    EXPECT_TRUE(pCaptured.expired());
    ExpectBroken(futResult);
}
} // namespace
