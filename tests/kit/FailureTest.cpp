#include "QuenHost/CLS_LoopTask.h"
#include "QuenHost/CLS_TaskOwner.h"
#include "tests/kit/PoolTest.h"
#include "tests/support/ChildProcess.h"

#include <csignal>
#include <gmock/gmock.h>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <vector>

namespace
{
using ::testing::HasSubstr;
using ::testing::Not;

/// Stores the reported failures.
class CLS_Listener
{
public:
    F_FailureHandler MakeHandler()
    {
        return [this](const ST_TaskFailure& _stFailure)
        {
            {
                const std::lock_guard<std::mutex> lock(m_mtxFailures);
                m_vecFailures.push_back(_stFailure);
                m_idThread = std::this_thread::get_id();
            }
            m_clsHeard.Add();
        };
    }

    CLS_Counter m_clsHeard;
    std::mutex m_mtxFailures; ///< guards everything below
    std::vector<ST_TaskFailure> m_vecFailures;
    std::thread::id m_idThread;
};

TEST(FailureTest, TheOwnersHandlerGetsCallInformationAndExceptionOnTheWorker)
{
    CLS_Listener clsListener;
    const CLS_PoolScope clsPool{CLS_PoolLibrary(POOL_LIBRARY)};
    CLS_TaskOwner clsOwner(clsPool, "owner", clsListener.MakeHandler());
    std::thread::id idWorker;
    ASSERT_TRUE(clsOwner.Submit(
        [&]
        {
            idWorker = std::this_thread::get_id();
            throw std::out_of_range("too far");
        },
        "thrower"));
    ASSERT_TRUE(clsListener.m_clsHeard.Wait(1));
    clsOwner.RemoveTasks();
    ASSERT_EQ(1U, clsListener.m_vecFailures.size());
    const ST_TaskFailure& stFailure = clsListener.m_vecFailures.front();
    EXPECT_EQ(n_FailureKind::Threw, stFailure.m_enKind);
    EXPECT_EQ("owner", stFailure.m_strOwner);
    EXPECT_EQ("thrower", stFailure.m_strCallInfo);
    EXPECT_THROW(std::rethrow_exception(stFailure.m_pException), std::out_of_range);
    EXPECT_EQ(idWorker, clsListener.m_idThread);
    EXPECT_EQ(1U, clsOwner.GetCounters().m_uiFailed);
}

TEST(FailureTest, WithoutAnOwnersHandlerTheScopesIsCalled)
{
    CLS_Listener clsListener;
    const CLS_PoolScope clsPool{CLS_PoolLibrary(POOL_LIBRARY),
                                ST_ScopeOptions{clsListener.MakeHandler(), {}}};
    CLS_TaskOwner clsOwner(clsPool, "owner");
    ASSERT_TRUE(clsOwner.Submit([] { throw 1; }, "number"));
    EXPECT_TRUE(clsListener.m_clsHeard.Wait(1));
    CLS_LoopTask clsLoop(
        clsPool, [] { throw 2; }, 1, "loop");
    EXPECT_TRUE(clsListener.m_clsHeard.Wait(3));
}

TEST(FailureTest, CapturesOfAHandlerAreDestroyedWithTheOwner)
{
    const CLS_PoolScope clsPool{CLS_PoolLibrary(POOL_LIBRARY)};
    auto pCaptured = std::make_shared<int>(1);
    const std::weak_ptr<int> pWatched = pCaptured;
    {
        const CLS_TaskOwner clsOwner(clsPool, "owner", [pCaptured](const ST_TaskFailure&) {});
        const CLS_LoopTask clsLoop(
            clsPool, [] {}, 1000, "loop", [pCaptured](const ST_TaskFailure&) {});
        pCaptured.reset();
        EXPECT_FALSE(pWatched.expired());
    }
    EXPECT_TRUE(pWatched.expired());
}

TEST(FailureTest, WithoutAnyHandlerEachCallInformationIsWrittenOnceAndThenCounted)
{
    const ST_ChildResult stResult = RunChild(FAILING_HOST, {"failures", POOL_LIBRARY});
    EXPECT_EQ(0, stResult.m_iExit) << ::testing::PrintToString(stResult);
    EXPECT_THAT(stResult.m_strErr, HasSubstr("host kit: task \"often\" of \"owner\" threw: again\n"));
    EXPECT_THAT(stResult.m_strErr,
                HasSubstr("host kit: task \"number\" of \"owner\" threw: unknown exception\n"));
    EXPECT_THAT(stResult.m_strErr, HasSubstr("host kit: task \"often\" failed 4 more times\n"));
    EXPECT_THAT(stResult.m_strErr, Not(HasSubstr("\"number\" failed")));
}

TEST(FailureTest, AHandlerThatThrowsLosesNothing)
{
    const ST_ChildResult stResult = RunChild(FAILING_HOST, {"handler", POOL_LIBRARY});
    EXPECT_EQ(0, stResult.m_iExit) << ::testing::PrintToString(stResult);
    EXPECT_THAT(stResult.m_strErr, HasSubstr("host kit: task \"task\" of \"owner\" threw: mine\n"));
    EXPECT_THAT(stResult.m_strErr,
                HasSubstr("host kit: task \"failure handler\" of \"owner\" threw: the handler's\n"));
}

TEST(FailureTest, BeyondAHundredCallInformationsFailuresAreOnlyCounted)
{
    const ST_ChildResult stResult = RunChild(FAILING_HOST, {"many", POOL_LIBRARY});
    EXPECT_EQ(0, stResult.m_iExit);
    EXPECT_THAT(stResult.m_strErr, HasSubstr("host kit: other tasks failed 20 times\n"));
}

class MisuseTest : public ::testing::TestWithParam<std::pair<const char*, const char*>>
{
};

TEST_P(MisuseTest, EndsTheProcessWhereMistakesAreChecked)
{
    const ST_ChildResult stResult = RunChild(CHECKED_HOST, {GetParam().first, POOL_LIBRARY});
    EXPECT_EQ(SIGABRT, stResult.m_iSignal) << ::testing::PrintToString(stResult);
    EXPECT_THAT(stResult.m_strErr, HasSubstr(GetParam().second));
}

TEST_P(MisuseTest, IsOnlyReportedElsewhere)
{
    const ST_ChildResult stResult = RunChild(FAILING_HOST, {GetParam().first, POOL_LIBRARY});
    EXPECT_EQ(0, stResult.m_iExit) << ::testing::PrintToString(stResult);
    EXPECT_THAT(stResult.m_strErr, HasSubstr(GetParam().second));
}

INSTANTIATE_TEST_SUITE_P(
    All, MisuseTest,
    ::testing::Values(
        std::pair("outlives",
                  "host kit: the scope has ended before what uses it: owner \"late\" loop task \"loop\"\n"),
        std::pair("early", "host kit: \"early\" is made outside of the life of its scope\n"),
        std::pair("moved", "host kit: \"owner\" is made from a scope without a pool\n")),
    [](const auto& _clsInfo) { return std::string(_clsInfo.param.first); });
} // namespace
