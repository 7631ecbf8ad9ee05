// Delivery of results and progress to the host's thread.

#include "QuenHost/CLS_Delivery.h"
#include "QuenHost/SubmitAndDeliver.h"
#include "tests/kit/HostLoop.h"
#include "tests/kit/PoolTest.h"

#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <vector>

namespace
{
class DeliveryTest : public CLS_PoolTest
{
protected:
    /// Posts a delivery that counts its calls, and waits until it is queued.
    void PostOne(const CLS_TaskOwner& _clsOwner)
    {
        ASSERT_TRUE(SubmitAndDeliver(
            _clsOwner, m_clsLoop.GetThread(), [] { return 1; }, [this](int) { ++m_iDelivered; }, "posted"));
        ASSERT_TRUE(m_clsLoop.WaitForCalls(1));
    }

    CLS_HostLoop m_clsLoop;
    std::atomic<int> m_iDelivered{0};
};

TEST_F(DeliveryTest, TheResultIsDeliveredOnTheHostsThread)
{
    CLS_TaskOwner clsOwner(GetPool(), "owner");
    std::thread::id idWorker;
    std::thread::id idHost;
    std::string strResult;
    ASSERT_TRUE(SubmitAndDeliver(
        clsOwner, m_clsLoop.GetThread(),
        [&]
        {
            idWorker = std::this_thread::get_id();
            return std::string("result");
        },
        [&](const std::string& _strResult)
        {
            idHost = std::this_thread::get_id();
            strResult = _strResult;
        },
        "work"));
    ASSERT_TRUE(m_clsLoop.RunUntil([&] { return !strResult.empty(); }));
    EXPECT_EQ("result", strResult);
    EXPECT_EQ(std::this_thread::get_id(), idHost);
    EXPECT_NE(std::this_thread::get_id(), idWorker);
}

TEST_F(DeliveryTest, WorkWithoutAResultIsDeliveredWithoutAnArgument)
{
    CLS_TaskOwner clsOwner(GetPool(), "owner");
    bool bDelivered = false;
    ASSERT_TRUE(SubmitAndDeliver(
        clsOwner, m_clsLoop.GetThread(), [](const CLS_StopToken&) {}, [&] { bDelivered = true; }, "work"));
    EXPECT_TRUE(m_clsLoop.RunUntil([&] { return bDelivered; }));
}

TEST_F(DeliveryTest, ResultsAndCallablesMayBeMoveOnly)
{
    CLS_TaskOwner clsOwner(GetPool(), "owner");
    int iSum = 0;
    ASSERT_TRUE(SubmitAndDeliver(
        clsOwner, m_clsLoop.GetThread(),
        [pValue = std::make_unique<int>(1)]() mutable { return std::move(pValue); },
        [pOther = std::make_unique<int>(2), &iSum](std::unique_ptr<int> _pValue)
        { iSum = *pOther + *_pValue; },
        "work"));
    EXPECT_TRUE(m_clsLoop.RunUntil([&] { return iSum == 3; }));
}

TEST_F(DeliveryTest, NothingPostedIsDeliveredAfterARemoval)
{
    CLS_TaskOwner clsOwner(GetPool(), "owner");
    PostOne(clsOwner);
    EXPECT_TRUE(clsOwner.RemoveTasks());
    m_clsLoop.RunAll();
    EXPECT_EQ(0, m_iDelivered);
    PostOne(clsOwner);
    m_clsLoop.RunAll();
    EXPECT_EQ(1, m_iDelivered) << "after the removal, results are delivered again";
}

TEST_F(DeliveryTest, NothingIsDeliveredAfterTheEndOfTheOwnerOrThePool)
{
    {
        const CLS_PoolScope clsPool{CLS_PoolLibrary(POOL_LIBRARY)};
        const CLS_TaskOwner clsOwner(clsPool, "owner");
        PostOne(clsOwner);
    }
    m_clsLoop.RunAll();
    EXPECT_EQ(0, m_iDelivered);
}

TEST_F(DeliveryTest, TheRemovalDestroysTheCapturesOfACancelledDeliveryOnce)
{
    CLS_Witness::ST_End stResult;
    CLS_Witness::ST_End stDeliver;
    CLS_TaskOwner clsOwner(GetPool(), "owner");
    ASSERT_TRUE(SubmitAndDeliver(
        clsOwner, m_clsLoop.GetThread(), [&] { return std::make_unique<CLS_Witness>(stResult); },
        [clsWitness = CLS_Witness(stDeliver)](const std::unique_ptr<CLS_Witness>&) {}, "work"));
    ASSERT_TRUE(m_clsLoop.WaitForCalls(1));
    EXPECT_EQ(0, stResult.m_iEnds + stDeliver.m_iEnds);
    EXPECT_TRUE(clsOwner.RemoveTasks());
    EXPECT_EQ(1, stResult.m_iEnds);
    EXPECT_EQ(1, stDeliver.m_iEnds);
    EXPECT_EQ(std::this_thread::get_id(), stDeliver.m_idThread.load());
}

TEST_F(DeliveryTest, CapturesOfTheWorkAreDestroyedBeforeTheResultIsPosted)
{
    CLS_Witness::ST_End stWork;
    CLS_Witness::ST_End stDeliver;
    CLS_TaskOwner clsOwner(GetPool(), "owner");
    ASSERT_TRUE(SubmitAndDeliver(
        clsOwner, m_clsLoop.GetThread(), [clsWitness = CLS_Witness(stWork)] {},
        [clsWitness = CLS_Witness(stDeliver)] {}, "work"));
    ASSERT_TRUE(m_clsLoop.WaitForCalls(1));
    EXPECT_EQ(1, stWork.m_iEnds);
    m_clsLoop.RunAll();
    EXPECT_EQ(1, stDeliver.m_iEnds);
    EXPECT_EQ(std::this_thread::get_id(), stDeliver.m_idThread.load());
}

TEST_F(DeliveryTest, ADeliveryMayEndItsOwnerAndTheRestIsNotDelivered)
{
    std::optional<CLS_TaskOwner> clsOwner(std::in_place, GetPool(), "owner");
    for (int i = 0; i < 3; ++i)
    {
        ASSERT_TRUE(SubmitAndDeliver(
            *clsOwner, m_clsLoop.GetThread(), [] {},
            [&]
            {
                ++m_iDelivered;
                clsOwner.reset();
            },
            "work"));
    }
    ASSERT_TRUE(m_clsLoop.WaitForCalls(3));
    m_clsLoop.RunAll();
    EXPECT_EQ(1, m_iDelivered);
}

TEST_F(DeliveryTest, ARemovalOnAnotherThreadWaitsForTheDeliveryInProgress)
{
    CLS_Gate clsStarted;
    CLS_Gate clsMayEnd;
    std::atomic<bool> bOver{false};
    CLS_TaskOwner clsOwner(GetPool(), "owner");
    const CLS_Delivery clsDelivery(clsOwner, m_clsLoop.GetThread());
    ASSERT_TRUE(clsDelivery.Post(
        [&]
        {
            clsStarted.Open();
            EXPECT_TRUE(clsMayEnd.Wait());
            bOver = true;
        },
        "long"));
    std::thread thHost([&] { m_clsLoop.RunAll(); });
    ASSERT_TRUE(clsStarted.Wait());
    EXPECT_FALSE(clsOwner.RemoveTasks(std::chrono::milliseconds(1)));
    const ST_PoolSnapshot stSnapshot = GetPool().TakeSnapshot();
    ASSERT_EQ(1U, stSnapshot.m_vecRuns.size());
    EXPECT_EQ("long", stSnapshot.m_vecRuns.front().m_strCallInfo);
    EXPECT_EQ(0, stSnapshot.m_iBusyWorkers);
    clsMayEnd.Open();
    EXPECT_TRUE(clsOwner.RemoveTasks());
    EXPECT_TRUE(bOver);
    thHost.join();
}

TEST_F(DeliveryTest, RemovingLaterCancelsDeliveriesAndDestroysThemOnAWorker)
{
    CLS_Witness::ST_End stEnd;
    CLS_TaskOwner clsOwner(GetPool(), "owner");
    const CLS_Delivery clsDelivery(clsOwner, m_clsLoop.GetThread());
    ASSERT_TRUE(clsDelivery.Post([clsWitness = CLS_Witness(stEnd), this] { ++m_iDelivered; }, "posted"));
    clsOwner.RemoveTasksLater();
    m_clsLoop.RunAll();
    EXPECT_EQ(0, m_iDelivered);
    EXPECT_TRUE(WaitUntil([&] { return stEnd.m_iEnds == 1; }));
    EXPECT_NE(std::this_thread::get_id(), stEnd.m_idThread.load());
}

TEST_F(DeliveryTest, ARunThatWasRemovedLaterDeliversNothingWhileItsOwnerTakesTasks)
{
    CLS_Gate clsStarted;
    CLS_Gate clsMayEnd;
    CLS_TaskOwner clsOwner(GetPool(), "owner");
    ASSERT_TRUE(SubmitAndDeliver(
        clsOwner, m_clsLoop.GetThread(),
        [&]
        {
            clsStarted.Open();
            EXPECT_TRUE(clsMayEnd.Wait());
        },
        [] { ADD_FAILURE() << "it is delivered"; }, "old"));
    ASSERT_TRUE(clsStarted.Wait());
    clsOwner.RemoveTasksLater();
    PostOne(clsOwner);
    clsMayEnd.Open();
    EXPECT_TRUE(WaitUntil([&] { return clsOwner.GetCounters().m_uiRun == 2; }));
    m_clsLoop.RunAll();
    EXPECT_EQ(1, m_iDelivered);
}

TEST_F(DeliveryTest, NewsOfATaskIsDeliveredInOrderBeforeItsResult)
{
    std::vector<int> vecNews;
    CLS_TaskOwner clsOwner(GetPool(), "owner");
    const CLS_Delivery clsNews(clsOwner, m_clsLoop.GetThread());
    const auto funWork = [clsNews, &vecNews]
    {
        for (int i = 0; i < 5; ++i)
        {
            EXPECT_TRUE(clsNews.Post([&vecNews, i] { vecNews.push_back(i); }, "news"));
        }
    };
    ASSERT_TRUE(SubmitAndDeliver(
        clsOwner, m_clsLoop.GetThread(), funWork, [&] { vecNews.push_back(5); }, "work"));
    ASSERT_TRUE(m_clsLoop.RunUntil([&] { return vecNews.size() == 6; }));
    EXPECT_EQ((std::vector<int>{0, 1, 2, 3, 4, 5}), vecNews);
}

TEST_F(DeliveryTest, ADeliveryObjectPostsNothingAfterTheNextRemoval)
{
    std::optional<CLS_TaskOwner> clsOwner(std::in_place, GetPool(), "owner");
    const CLS_Delivery clsFirst(*clsOwner, m_clsLoop.GetThread());
    EXPECT_TRUE(clsFirst.Post([] {}, "news"));
    clsOwner->RemoveTasks();
    EXPECT_FALSE(clsFirst.Post([] {}, "news"));
    const CLS_Delivery clsSecond(*clsOwner, m_clsLoop.GetThread());
    EXPECT_TRUE(clsSecond.Post([] {}, "news"));
    clsOwner.reset();
    EXPECT_FALSE(clsSecond.Post([] {}, "news"));
}

TEST_F(DeliveryTest, AnExceptionIsAFailureOfTheOwner)
{
    CLS_Failures clsWork;
    CLS_TaskOwner clsWorker(GetPool(), "work", clsWork.MakeHandler());
    ASSERT_TRUE(SubmitAndDeliver(
        clsWorker, m_clsLoop.GetThread(), [] { throw std::runtime_error("mine"); },
        [] { ADD_FAILURE() << "it is delivered"; }, "throws"));
    EXPECT_EQ("throws", clsWork.WaitForOne().m_strCallInfo);
    CLS_Failures clsDelivered;
    CLS_TaskOwner clsOwner(GetPool(), "owner", clsDelivered.MakeHandler());
    EXPECT_TRUE(CLS_Delivery(clsOwner, m_clsLoop.GetThread()).Post([] { throw 1; }, "news"));
    m_clsLoop.RunAll();
    EXPECT_EQ(n_FailureKind::Threw, clsDelivered.WaitForOne().m_enKind);
    EXPECT_EQ(1U, clsOwner.GetCounters().m_uiFailed);
}

TEST_F(DeliveryTest, AResultWhoseDeliveryThrowsIsAFailureOnTheHostsThread)
{
    CLS_Failures clsFailures;
    CLS_Witness::ST_End stResult;
    std::thread::id idHandler;
    CLS_TaskOwner clsOwner(GetPool(), "window",
                           [&, funNote = clsFailures.MakeHandler()](const ST_TaskFailure& _stFailure)
                           {
                               idHandler = std::this_thread::get_id();
                               funNote(_stFailure);
                           });
    ASSERT_TRUE(SubmitAndDeliver(
        clsOwner, m_clsLoop.GetThread(), [&] { return std::make_unique<CLS_Witness>(stResult); },
        [](const std::unique_ptr<CLS_Witness>&) { throw std::runtime_error("not shown"); }, "thumbnail"));
    ASSERT_TRUE(m_clsLoop.RunUntil([&] { return !clsFailures.GetAll().empty(); }));
    const ST_TaskFailure stFailure = clsFailures.WaitForOne();
    EXPECT_EQ(n_FailureKind::Threw, stFailure.m_enKind);
    EXPECT_EQ("window", stFailure.m_strOwner);
    EXPECT_EQ("thumbnail", stFailure.m_strCallInfo);
    EXPECT_THROW(std::rethrow_exception(stFailure.m_pException), std::runtime_error);
    EXPECT_EQ(std::this_thread::get_id(), idHandler);
    EXPECT_EQ(1, stResult.m_iEnds);
    EXPECT_EQ(1U, clsOwner.GetCounters().m_uiFailed);
}

TEST_F(DeliveryTest, ADeliveryThatCannotBePostedIsAFailureAndIsDestroyed)
{
    CLS_Failures clsFailures;
    CLS_Witness::ST_End stEnd;
    CLS_TaskOwner clsOwner(GetPool(), "owner", clsFailures.MakeHandler());
    const CLS_HostThread clsThrowing([](const std::function<void()>&) { throw std::runtime_error("full"); });
    EXPECT_FALSE(CLS_Delivery(clsOwner, clsThrowing).Post([clsWitness = CLS_Witness(stEnd)] {}, "news"));
    EXPECT_EQ(1, stEnd.m_iEnds);
    const ST_TaskFailure stFailure = clsFailures.WaitForOne();
    EXPECT_EQ(n_FailureKind::NotDelivered, stFailure.m_enKind);
    EXPECT_EQ("news", stFailure.m_strCallInfo);
    EXPECT_THROW(std::rethrow_exception(stFailure.m_pException), std::runtime_error);
}

TEST_F(DeliveryTest, ADeliveryThatTheHostDropsIsAFailureAndIsDestroyedThere)
{
    CLS_Failures clsFailures;
    CLS_Witness::ST_End stEnd;
    CLS_TaskOwner clsOwner(GetPool(), "owner", clsFailures.MakeHandler());
    const CLS_Delivery clsDelivery(clsOwner, m_clsLoop.GetThread());
    ASSERT_TRUE(clsDelivery.Post([clsWitness = CLS_Witness(stEnd)] {}, "news"));
    EXPECT_EQ(0U, clsFailures.GetAll().size());
    m_clsLoop.TakeAll().clear();
    EXPECT_EQ(n_FailureKind::NotDelivered, clsFailures.WaitForOne().m_enKind);
    EXPECT_EQ(nullptr, clsFailures.WaitForOne().m_pException);
    EXPECT_EQ(1, stEnd.m_iEnds);
}

TEST_F(DeliveryTest, ADeliveryThatTheHostDropsAfterARemovalIsNoFailure)
{
    CLS_TaskOwner clsOwner(GetPool(), "owner",
                           [](const ST_TaskFailure&) { ADD_FAILURE() << "a failure is reported"; });
    PostOne(clsOwner);
    clsOwner.RemoveTasks();
    m_clsLoop.TakeAll().clear();
}

TEST_F(DeliveryTest, AnEmptyPostFunctionIsAFailure)
{
    CLS_Failures clsFailures;
    CLS_TaskOwner clsOwner(GetPool(), "owner", clsFailures.MakeHandler());
    EXPECT_FALSE(CLS_Delivery(clsOwner, CLS_HostThread(nullptr)).Post([] {}, "news"));
    EXPECT_EQ(n_FailureKind::NotDelivered, clsFailures.WaitForOne().m_enKind);
}

TEST_F(DeliveryTest, ADeliveryThatTheHostCallsTwiceRunsOnce)
{
    CLS_TaskOwner clsOwner(GetPool(), "owner");
    PostOne(clsOwner);
    const std::function<void()> funCall = m_clsLoop.TakeAll().front();
    funCall();
    funCall();
    EXPECT_EQ(1, m_iDelivered);
}

TEST_F(DeliveryTest, EmptyCallablesAreRefused)
{
    CLS_TaskOwner clsOwner(GetPool(), "owner");
    const CLS_HostThread clsHost = m_clsLoop.GetThread();
    EXPECT_FALSE(SubmitAndDeliver(
        clsOwner, clsHost, std::function<int()>(), [](int) {}, "work"));
    EXPECT_FALSE(SubmitAndDeliver(
        clsOwner, clsHost, [] { return 1; }, std::function<void(int)>(), "work"));
    EXPECT_FALSE(CLS_Delivery(clsOwner, clsHost).Post(std::function<void()>(), "news"));
    EXPECT_EQ(0U, clsOwner.GetCounters().m_uiSubmitted);
}
} // namespace
