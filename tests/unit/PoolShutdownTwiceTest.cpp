#include "tests/support/PoolView.h"
#include "tests/unit/ShutdownFixture.h"

#include <algorithm>

namespace
{
using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// The ways in which two threads shut down the same pool.
struct ST_Ends
{
    const char* m_szName;
    void (CLS_QuenTaskPool::*m_funFirst)();
    void (CLS_QuenTaskPool::*m_funSecond)();
};

void PrintTo(const ST_Ends& _stEnds, std::ostream* _pOut)
{
    *_pOut << _stEnds.m_szName;
}

class PoolShutdownTwiceTest : public CLS_ShutdownFixture, public ::testing::WithParamInterface<ST_Ends>
{
protected:
    void SetUp() override
    {
        CLS_ShutdownFixture::SetUp();
        m_iThreads = CountThreads();
    }

    static bool HasBegun()
    {
        const auto vecRecords = LogRecorder::Peek();
        return std::any_of(vecRecords.begin(), vecRecords.end(),
                           [](const LogRecorder::ST_Record& _stRecord) {
                               return _stRecord.m_strMessage == "----- TaskPool m_mapAllThreads start -----";
                           });
    }

    /// Expects that the pool shut down only once and left nothing behind.
    void ExpectEndedOnce()
    {
        EXPECT_EQ(nullptr, CLS_QuenTaskPool::m_pInstance);
        int iBeginnings = 0;
        int iEnds = 0;
        for (const LogRecorder::ST_Record& stRecord : LogRecorder::Take())
        {
            iBeginnings += stRecord.m_strMessage == "----- TaskPool UnInit begin -----" ? 1 : 0;
            iEnds += stRecord.m_strMessage == "----- TaskPool UnInit end -----" ? 1 : 0;
        }
        EXPECT_EQ(1, iBeginnings);
        EXPECT_EQ(1, iEnds);
        EXPECT_TRUE(WaitForThreads(m_iThreads));
    }

    int m_iThreads = 0;
};

// Pins docs/limits.md, "A second shutdown waits 20 s for each step".
TEST_P(PoolShutdownTwiceTest, AHostWaitsUntilAnotherHostHasEndedThePool)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    const HeldRun pRun = StartHeldRun(clsPool);
    {
        CLS_Side clsFirst([&] { (clsPool.*GetParam().m_funFirst)(); });
        EXPECT_TRUE(WaitUntil(HasBegun));
        CLS_Side clsSecond(
            [&]
            {
                (clsPool.*GetParam().m_funSecond)();
                EXPECT_TRUE(pRun->m_clsOver.IsOpen());
                EXPECT_EQ(nullptr, PoolView::LoadInstance());
            });
        EXPECT_TRUE(clsSecond.IsStillRunning());
        EXPECT_FALSE(clsFirst.HasReturned());
        pRun->m_clsMayEnd.Open();
    }
    ExpectEndedOnce();
}

// Pins docs/limits.md, "A shutdown during a shutdown".
TEST_P(PoolShutdownTwiceTest, AHostWaitsUntilATaskHasEndedThePool)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    const CLS_FastSleep clsFastSleep(SlowPollsDown);
    const HeldRun pOther = StartHeldRun(clsPool);
    const HeldRun pRun = StartHeldRun(clsPool, [&] { (clsPool.*GetParam().m_funFirst)(); });
    pRun->m_clsMayEnd.Open();
    EXPECT_TRUE(WaitUntil(HasBegun));
    {
        CLS_Side clsHost(
            [&]
            {
                (clsPool.*GetParam().m_funSecond)();
                EXPECT_EQ(nullptr, PoolView::LoadInstance());
            });
        EXPECT_TRUE(clsHost.IsStillRunning());
        EXPECT_FALSE(pOther->m_clsOver.IsOpen());
        pOther->m_clsMayEnd.Open();
    }
    EXPECT_TRUE(pRun->m_clsOver.Wait());
    ExpectEndedOnce();
}

// Pins docs/limits.md, "A shutdown during a shutdown".
TEST_P(PoolShutdownTwiceTest, ATaskDoesNotWaitForTheHostThatWaitsForIt)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    CLS_QuenTaskPool* pSeen = nullptr;
    const HeldRun pRun = StartHeldRun(clsPool,
                                      [&]
                                      {
                                          (clsPool.*GetParam().m_funSecond)();
                                          pSeen = PoolView::LoadInstance();
                                      });
    {
        CLS_Side clsHost([&] { (clsPool.*GetParam().m_funFirst)(); });
        EXPECT_TRUE(WaitUntil(HasBegun));
        pRun->m_clsMayEnd.Open();
    }
    EXPECT_TRUE(pRun->m_clsOver.IsOpen());
    EXPECT_EQ(&clsPool, pSeen);
    ExpectEndedOnce();
}

TEST_P(PoolShutdownTwiceTest, FourTasksThatEndThePoolAtOnceEndItOnce)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    const CLS_FastSleep clsFastSleep;
    std::vector<HeldRun> vecRuns;
    for (int i = 0; i < 4; ++i)
    {
        const auto funEnd = i % 2 == 0 ? GetParam().m_funFirst : GetParam().m_funSecond;
        vecRuns.push_back(StartHeldRun(clsPool, [&clsPool, funEnd] { (clsPool.*funEnd)(); }));
    }
    for (const HeldRun& pRun : vecRuns)
    {
        pRun->m_clsMayEnd.Open();
    }
    for (const HeldRun& pRun : vecRuns)
    {
        EXPECT_TRUE(pRun->m_clsOver.Wait());
    }
    ExpectEndedOnce();
}

TEST_P(PoolShutdownTwiceTest, ACallOnAPoolThatIsGoneTouchesNothing)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    (clsPool.*GetParam().m_funFirst)();
    ExpectEndedOnce();
    (clsPool.*GetParam().m_funSecond)();
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
    EXPECT_EQ(nullptr, CLS_QuenTaskPool::m_pInstance);
}

constexpr auto UN_INIT = &CLS_QuenTaskPool::UnInit;
constexpr auto KILL_ALL = &CLS_QuenTaskPool::KillTaskAll;

INSTANTIATE_TEST_SUITE_P(Ends, PoolShutdownTwiceTest,
                         ::testing::Values(ST_Ends{"UnInitTwice", UN_INIT, UN_INIT},
                                           ST_Ends{"UnInitThenKillTaskAll", UN_INIT, KILL_ALL},
                                           ST_Ends{"KillTaskAllThenUnInit", KILL_ALL, UN_INIT},
                                           ST_Ends{"KillTaskAllTwice", KILL_ALL, KILL_ALL}),
                         [](const auto& _stInfo) { return std::string(_stInfo.param.m_szName); });
} // namespace
