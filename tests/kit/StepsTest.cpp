#include "QuenHost/CLS_Steps.h"
#include "tests/kit/FewWorkers.h"
#include "tests/kit/HostLoop.h"
#include "tests/kit/PoolTest.h"
#include "tests/support/FailingMemory.h"

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace
{
class StepsTest : public CLS_PoolTest
{
protected:
    /// Makes steps that return the numbers from 0 on, one each.
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

TEST_F(StepsTest, WhenAllOfNoStepsIsOverAtOnce)
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

TEST_F(StepsTest, AFailureSkipsTheNextStepsToTheirFailureCallable)
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

TEST_F(StepsTest, WithoutAFailureCallableTheOwnersHandlerIsCalled)
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

TEST_F(StepsTest, WhenSeveralStepsThrowTheFirstInOrderIsReportedAfterAllAreOver)
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

TEST_F(StepsTest, AllAreOverWhenOneHasItsOwnFailureCallable)
{
    CLS_TaskOwner clsOwner(GetPool(), "owner",
                           [](const ST_TaskFailure&) { ADD_FAILURE() << "the failure is reported, too"; });
    std::vector<std::string> vecHeard;
    const auto funHear = [&](const std::string& _strWhere)
    {
        return [&vecHeard, _strWhere](const ST_TaskFailure& _stFailure)
        { vecHeard.push_back(_strWhere + ": " + _stFailure.m_strCallInfo); };
    };
    std::vector<CLS_Steps<int>> vecSteps = MakeNumbers(2);
    vecSteps.push_back(FirstStep([]() -> int { throw std::runtime_error("mine"); }, "throws")
                           .OnFailure(m_clsLoop.GetThread(), funHear("inner"), "inner")
                           .Then([](int _iNumber) { return _iNumber; }, "never")
                           .OnFailure(m_clsLoop.GetThread(), funHear("second"), "second"));
    ASSERT_TRUE(WhenAll(std::move(vecSteps), "all")
                    .Then([](const std::vector<int>&) { ADD_FAILURE() << "it runs"; }, "never")
                    .OnFailure(m_clsLoop.GetThread(), funHear("outer"), "outer")
                    .Submit(clsOwner));
    EXPECT_TRUE(m_clsLoop.RunUntil([&] { return vecHeard.size() >= 2; }));
    EXPECT_EQ((std::vector<std::string>{"inner: throws", "outer: throws"}), vecHeard);
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

TEST_F(StepsTest, ARemovalCancelsAStepThatWaitsForAll)
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

TEST_F(StepsTest, StepsWithAnEmptyCallableAreRefused)
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

TEST_F(StepsTest, AnOwnerThatRefusesTheStepsDestroysThem)
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

/// Steps whose first one lets a later allocation of its worker fail. The only worker also runs what is posted
/// to the host, so everything runs in order.
class StepsMemoryTest : public ::testing::Test
{
protected:
    /// The outcome of the steps.
    struct ST_Heard
    {
        int m_iResults = 0;
        int m_iOnFailures = 0;
        int m_iReports = 0;
        bool m_bFailed = false; ///< whether an allocation failed

        int GetCount() const { return m_iResults + m_iOnFailures + m_iReports; }
    };

    static constexpr char LONG_INFO[] = "a call information that is too long to be stored without memory";

    /// Makes the first step, which returns 7.
    static CLS_Steps<int> MakeFirst(int _iAllocation)
    {
        const auto funFirst = [_iAllocation]
        {
            FailingMemory::FailAt(_iAllocation);
            return 7;
        };
        return FirstStep(funFirst, LONG_INFO);
    }

    /// Makes a callable that counts its calls.
    auto MakeCount(int ST_Heard::*_pCount)
    {
        return [this, _pCount](auto&&...)
        {
            m_stHeard.m_bFailed |= FailingMemory::Stop();
            ++(m_stHeard.*_pCount);
        };
    }

    CLS_HostThread GetHost() const
    {
        return CLS_HostThread([](const std::function<void()>& _funCall) { _funCall(); });
    }

    /// Lets the first allocation fail, then the second, and so on until none fails. Each time, submits the
    /// steps that _funMake returns, and checks their outcome.
    template <typename T_Make>
    void FailEachAllocation(T_Make _funMake)
    {
        CLS_FewWorkers clsPool(1);
        CLS_TaskOwner clsOwner(clsPool.GetPool(), "owner", MakeCount(&ST_Heard::m_iReports));
        int iAllocation = 0;
        do
        {
            m_stHeard = {};
            ASSERT_TRUE(_funMake(++iAllocation)
                            .OnFailure(GetHost(), MakeCount(&ST_Heard::m_iOnFailures), LONG_INFO)
                            .Submit(clsOwner));
            WaitForWorker(clsOwner);
            EXPECT_EQ(1, m_stHeard.GetCount()) << "allocation " << iAllocation;
            EXPECT_EQ(0, m_stHeard.m_iReports) << "allocation " << iAllocation;
        } while (m_stHeard.m_bFailed);
        EXPECT_EQ(1, m_stHeard.m_iResults);
        EXPECT_GT(iAllocation, 3) << "starting a step allocates more often";
    }

private:
    /// Waits until the only worker has run all tasks, including those that they submit.
    static void WaitForWorker(CLS_TaskOwner& _clsOwner)
    {
        for (int i = 0; i < 10; ++i)
        {
            CLS_Gate clsDone;
            ASSERT_TRUE(_clsOwner.Submit([&] { clsDone.Open(); }, "done"));
            ASSERT_TRUE(clsDone.Wait());
        }
    }

    ST_Heard m_stHeard; ///< written by the worker, and read while it is idle
};

TEST_F(StepsMemoryTest, AStepThatCannotBeStartedIsAFailureOfTheSteps)
{
    FailEachAllocation([this](int _iAllocation)
                       { return MakeFirst(_iAllocation).Then(MakeCount(&ST_Heard::m_iResults), LONG_INFO); });
}

TEST_F(StepsMemoryTest, ADeliveryThatCannotBeStartedIsAFailureOfTheSteps)
{
    FailEachAllocation(
        [this](int _iAllocation)
        { return MakeFirst(_iAllocation).Deliver(GetHost(), MakeCount(&ST_Heard::m_iResults), LONG_INFO); });
}

TEST_F(StepsMemoryTest, AllAreOverWhenTheNextStepOfOneCannotBeStarted)
{
    FailEachAllocation(
        [this](int _iAllocation)
        {
            std::vector<CLS_Steps<int>> vecSteps;
            vecSteps.push_back(FirstStep([] { return 1; }, LONG_INFO));
            vecSteps.push_back(
                MakeFirst(_iAllocation).Then([](int _iNumber) { return _iNumber; }, LONG_INFO));
            vecSteps.push_back(FirstStep([] { return 3; }, LONG_INFO));
            return WhenAll(std::move(vecSteps), LONG_INFO).Then(MakeCount(&ST_Heard::m_iResults), LONG_INFO);
        });
}

TEST_F(StepsMemoryTest, NestedJoinsAreOverWhenAnythingBelowCannotBeStarted)
{
    int iInner = 0; // only the worker counts
    const auto funInner = [&iInner](const ST_TaskFailure&) { ++iInner; };
    FailEachAllocation(
        [&](int _iAllocation)
        {
            EXPECT_LE(std::exchange(iInner, 0), 2);
            std::vector<CLS_Steps<int>> vecLow;
            vecLow.push_back(FirstStep([] { return 1; }, LONG_INFO));
            vecLow.push_back(MakeFirst(_iAllocation)
                                 .Deliver(
                                     GetHost(), [](int _iNumber) { return _iNumber; }, LONG_INFO)
                                 .OnFailure(GetHost(), funInner, LONG_INFO));
            std::vector<CLS_Steps<std::size_t>> vecHigh;
            vecHigh.push_back(
                WhenAll(std::move(vecLow), LONG_INFO)
                    .Then([](const std::vector<int>& _vecNumbers) { return _vecNumbers.size(); }, LONG_INFO)
                    .OnFailure(GetHost(), funInner, LONG_INFO));
            vecHigh.push_back(
                WhenAll(std::vector<CLS_Steps<int>>(), LONG_INFO)
                    .Then([](const std::vector<int>& _vecNumbers) { return _vecNumbers.size(); }, LONG_INFO));
            return WhenAll(std::move(vecHigh), LONG_INFO)
                .OnFailure(GetHost(), MakeCount(&ST_Heard::m_iOnFailures), LONG_INFO)
                .Then(MakeCount(&ST_Heard::m_iResults), LONG_INFO);
        });
}

TEST_F(StepsMemoryTest, AJoinIsOverWhenNoneOfItsStepsCanBeStarted)
{
    FailEachAllocation(
        [this](int _iAllocation)
        {
            // Starting the joined steps allocates memory for their own task first.
            std::vector<CLS_Steps<int>> vecSteps;
            vecSteps.push_back(MakeFirst(_iAllocation));
            std::vector<CLS_Steps<std::vector<int>>> vecJoins;
            vecJoins.push_back(WhenAll(std::move(vecSteps), LONG_INFO));
            return WhenAll(std::move(vecJoins), LONG_INFO).Then(MakeCount(&ST_Heard::m_iResults), LONG_INFO);
        });
}
} // namespace
