#include "QuenHost/CLS_Steps.h"
#include "tests/kit/HostLoop.h"
#include "tests/kit/PoolTest.h"

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace
{
class StepsTest : public CLS_PoolTest
{
protected:
    /// Numbers from 0 on, each from a step of its own.
    static std::vector<CLS_Steps<int>> MakeNumbers(int _iCount)
    {
        std::vector<CLS_Steps<int>> vecNumbers;
        for (int i = 0; i < _iCount; ++i)
        {
            vecNumbers.push_back(FirstStep([i] { return i; }, "number"));
        }
        return vecNumbers;
    }

    CLS_HostLoop m_clsLoop;
};

TEST_F(StepsTest, EachStepTakesTheResultOfTheOneBefore)
{
    CLS_TaskOwner clsOwner(GetPool(), "owner");
    std::string strText;
    ASSERT_TRUE(
        FirstStep([] { return 4; }, "four")
            .Then([](int _iNumber, const CLS_StopToken&) { return std::to_string(_iNumber); }, "text")
            .Deliver(
                m_clsLoop.GetThread(), [&](std::string _strText) { strText = std::move(_strText); }, "show")
            .Submit(clsOwner));
    ASSERT_TRUE(m_clsLoop.RunUntil([&] { return !strText.empty(); }));
    EXPECT_EQ("4", strText);
}

TEST_F(StepsTest, AfterADeliveryTheNextStepRunsOnAWorker)
{
    CLS_TaskOwner clsOwner(GetPool(), "owner");
    std::atomic<bool> bOnWorker{false};
    CLS_Gate clsDone;
    ASSERT_TRUE(FirstStep([] {}, "first")
                    .Deliver(
                        m_clsLoop.GetThread(), [] { return std::this_thread::get_id(); }, "host")
                    .Then(
                        [&](std::thread::id _idHost)
                        {
                            bOnWorker = _idHost != std::this_thread::get_id();
                            clsDone.Open();
                        },
                        "worker")
                    .Submit(clsOwner));
    EXPECT_TRUE(m_clsLoop.RunUntil([&] { return clsDone.IsOpen(); }));
    EXPECT_TRUE(bOnWorker);
}

TEST_F(StepsTest, StepsTakeTurnsWhereOneTaskMayRunAtOnce)
{
    CLS_TaskOwner clsOwner(GetPool(), "owner", ST_OwnerOptions{1});
    int iSum = 0;
    ASSERT_TRUE(WhenAll(MakeNumbers(10), "all")
                    .Deliver(
                        m_clsLoop.GetThread(),
                        [&](const std::vector<int>& _vecNumbers)
                        {
                            for (const int iNumber : _vecNumbers)
                            {
                                iSum = 10 * iSum + iNumber;
                            }
                        },
                        "sum")
                    .Submit(clsOwner));
    EXPECT_TRUE(m_clsLoop.RunUntil([&] { return iSum == 123456789; }));
}

TEST_F(StepsTest, WhenAllOfNothingIsOverAtOnce)
{
    CLS_TaskOwner clsOwner(GetPool(), "owner");
    bool bDelivered = false;
    ASSERT_TRUE(WhenAll(MakeNumbers(0), "all")
                    .Deliver(
                        m_clsLoop.GetThread(),
                        [&](const std::vector<int>& _vecNumbers) { bDelivered = _vecNumbers.empty(); },
                        "none")
                    .Submit(clsOwner));
    EXPECT_TRUE(m_clsLoop.RunUntil([&] { return bDelivered; }));
}

TEST_F(StepsTest, WhenAllOfStepsWithoutResultsHasNone)
{
    CLS_TaskOwner clsOwner(GetPool(), "owner");
    std::atomic<int> iRuns{0};
    std::vector<CLS_Steps<void>> vecSteps;
    for (int i = 0; i < 3; ++i)
    {
        vecSteps.push_back(FirstStep([&] { ++iRuns; }, "part"));
    }
    int iRunsThen = 0;
    ASSERT_TRUE(WhenAll(std::move(vecSteps), "all")
                    .Deliver(
                        m_clsLoop.GetThread(), [&] { iRunsThen = iRuns; }, "end")
                    .Submit(clsOwner));
    EXPECT_TRUE(m_clsLoop.RunUntil([&] { return iRunsThen == 3; }));
}

TEST_F(StepsTest, AFailureGoesPastTheNextStepsToTheirFailureCallable)
{
    CLS_TaskOwner clsOwner(GetPool(), "owner",
                           [](const ST_TaskFailure&) { ADD_FAILURE() << "the failure is reported twice"; });
    CLS_Failures clsFailures;
    ASSERT_TRUE(FirstStep([]() -> int { throw std::out_of_range("far"); }, "throws")
                    .Then([](int) { ADD_FAILURE() << "it runs"; }, "never")
                    .Deliver(
                        m_clsLoop.GetThread(), [] { ADD_FAILURE() << "it is delivered"; }, "never")
                    .OnFailure(m_clsLoop.GetThread(), clsFailures.MakeHandler(), "failure")
                    .Submit(clsOwner));
    ASSERT_TRUE(m_clsLoop.RunUntil([&] { return !clsFailures.GetAll().empty(); }));
    const ST_TaskFailure stFailure = clsFailures.WaitForOne();
    EXPECT_EQ("throws", stFailure.m_strCallInfo);
    EXPECT_EQ("owner", stFailure.m_strOwner);
    EXPECT_THROW(std::rethrow_exception(stFailure.m_pException), std::out_of_range);
    EXPECT_EQ(1U, clsOwner.GetCounters().m_uiFailed);
}

TEST_F(StepsTest, WithoutAFailureCallableTheOwnersHandlerHears)
{
    CLS_Failures clsFailures;
    CLS_TaskOwner clsOwner(GetPool(), "owner", clsFailures.MakeHandler());
    ASSERT_TRUE(FirstStep([] { return 1; }, "first")
                    .Then([](int) { throw std::runtime_error("mine"); }, "second")
                    .Then([] {}, "third")
                    .Submit(clsOwner));
    EXPECT_EQ("second", clsFailures.WaitForOne().m_strCallInfo);
}

TEST_F(StepsTest, AFailureCallableLetsResultsPass)
{
    CLS_TaskOwner clsOwner(GetPool(), "owner");
    int iResult = 0;
    ASSERT_TRUE(
        FirstStep([] { return 1; }, "first")
            .OnFailure(
                m_clsLoop.GetThread(), [](const ST_TaskFailure&) { ADD_FAILURE() << "called"; }, "failure")
            .Deliver(
                m_clsLoop.GetThread(), [&](int _iResult) { iResult = _iResult; }, "show")
            .Submit(clsOwner));
    EXPECT_TRUE(m_clsLoop.RunUntil([&] { return iResult == 1; }));
}

TEST_F(StepsTest, WhenSomeOfAllThrowTheFirstInOrderIsHeardWhenAllAreOver)
{
    CLS_Failures clsFailures;
    CLS_TaskOwner clsOwner(GetPool(), "owner", clsFailures.MakeHandler());
    CLS_Gate clsMayThrow;
    std::vector<CLS_Steps<void>> vecSteps;
    vecSteps.push_back(FirstStep([] {}, "one"));
    vecSteps.push_back(FirstStep(
        [&]
        {
            EXPECT_TRUE(clsMayThrow.Wait());
            throw std::runtime_error("two");
        },
        "two"));
    vecSteps.push_back(FirstStep(
        [&]
        {
            clsMayThrow.Open();
            throw std::runtime_error("three");
        },
        "three"));
    ASSERT_TRUE(WhenAll(std::move(vecSteps), "all")
                    .Then([] { ADD_FAILURE() << "it runs"; }, "never")
                    .Submit(clsOwner));
    EXPECT_EQ("two", clsFailures.WaitForOne().m_strCallInfo);
}

TEST_F(StepsTest, ARemovalCancelsTheStepsThatHaveNotStartedAndDestroysThem)
{
    CLS_Gate clsStarted;
    CLS_Witness::ST_End stNext;
    CLS_Witness::ST_End stFailure;
    CLS_TaskOwner clsOwner(GetPool(), "owner");
    const auto funNever = [](auto&&...) { ADD_FAILURE() << "it runs"; };
    ASSERT_TRUE(FirstStep(
                    [&](const CLS_StopToken& _clsToken)
                    {
                        clsStarted.Open();
                        EXPECT_FALSE(_clsToken.SleepFor(WAIT_LIMIT));
                    },
                    "first")
                    .Then([clsWitness = CLS_Witness(stNext), funNever] { funNever(); }, "next")
                    .OnFailure(
                        m_clsLoop.GetThread(),
                        [clsWitness = CLS_Witness(stFailure)](const ST_TaskFailure&) {}, "failure")
                    .Submit(clsOwner));
    ASSERT_TRUE(clsStarted.Wait());
    EXPECT_TRUE(clsOwner.RemoveTasks());
    EXPECT_EQ(1, stNext.m_iEnds);
    EXPECT_EQ(1, stFailure.m_iEnds);
}

TEST_F(StepsTest, ARemovalCancelsWhatWaitsForAll)
{
    CLS_Gate clsStarted;
    CLS_Witness::ST_End stEnd;
    CLS_TaskOwner clsOwner(GetPool(), "owner", ST_OwnerOptions{1});
    std::vector<CLS_Steps<void>> vecSteps;
    for (int i = 0; i < 3; ++i)
    {
        vecSteps.push_back(FirstStep(
            [&](const CLS_StopToken& _clsToken)
            {
                clsStarted.Open();
                EXPECT_FALSE(_clsToken.SleepFor(WAIT_LIMIT));
            },
            "part"));
    }
    ASSERT_TRUE(WhenAll(std::move(vecSteps), "all")
                    .Then([clsWitness = CLS_Witness(stEnd)] { ADD_FAILURE() << "it runs"; }, "next")
                    .Submit(clsOwner));
    ASSERT_TRUE(clsStarted.Wait());
    EXPECT_TRUE(clsOwner.RemoveTasks());
    EXPECT_EQ(1, stEnd.m_iEnds);
}

TEST_F(StepsTest, WithAnEmptyCallableNothingIsTaken)
{
    CLS_TaskOwner clsOwner(GetPool(), "owner");
    const CLS_HostThread clsHost = m_clsLoop.GetThread();
    EXPECT_FALSE(FirstStep(std::function<void()>(), "empty").Then([] {}, "next").Submit(clsOwner));
    EXPECT_FALSE(FirstStep([] {}, "first").Then(std::function<void()>(), "empty").Submit(clsOwner));
    EXPECT_FALSE(FirstStep([] {}, "first").OnFailure(clsHost, F_FailureHandler(), "empty").Submit(clsOwner));
    std::vector<CLS_Steps<void>> vecSteps;
    vecSteps.push_back(FirstStep(std::function<void()>(), "empty"));
    EXPECT_FALSE(WhenAll(std::move(vecSteps), "all").Submit(clsOwner));
    EXPECT_EQ(0U, clsOwner.GetCounters().m_uiSubmitted);
}

TEST_F(StepsTest, AnOwnerThatTakesNothingDestroysTheSteps)
{
    CLS_Witness::ST_End stEnd;
    CLS_TaskOwner clsOwner(GetPool(), "owner");
    CLS_Gate clsStarted;
    ASSERT_TRUE(clsOwner.Submit(
        [&](const CLS_StopToken& _clsToken)
        {
            clsStarted.Open();
            EXPECT_FALSE(_clsToken.SleepFor(WAIT_LIMIT));
            EXPECT_FALSE(FirstStep([clsWitness = CLS_Witness(stEnd)] {}, "first").Submit(clsOwner));
        },
        "task"));
    ASSERT_TRUE(clsStarted.Wait());
    EXPECT_TRUE(clsOwner.RemoveTasks());
    EXPECT_EQ(1, stEnd.m_iEnds);
}
} // namespace
