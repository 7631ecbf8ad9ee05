// Sweeps of the start and the shutdown of the pool.

#include "tests/support/PoolView.h"
#include "tests/support/RecordMatchers.h"
#include "verify/sweep/SweepFixture.h"

namespace
{
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class SweepLifeTest : public CLS_SweepFixture
{
protected:
    /// Whether the pool runs a loop task, and its watchdog exists.
    static bool IsAtWork()
    {
        CLS_QuenTaskPool* const pPool = CLS_QuenTaskPool::m_pInstance;
        CLS_Counter clsRuns;
        std::string strTaskId;
        pPool->AddLoopTask([&clsRuns] { clsRuns.Add(); }, 0, strTaskId, CALL);
        const bool bRuns = clsRuns.Wait(2);
        pPool->RemoveTask(strTaskId, CALL);
        return bRuns && PoolView::GetWatchdog(*pPool);
    }

    /// Makes a pool with an idle worker and a second worker whose run outlasts the shutdown.
    HeldRun MakeBusyPool()
    {
        CLS_QuenTaskPool& clsPool = MakePool();
        RunShortTask(clsPool);
        const HeldRun pRun = StartHeldRun(clsPool);
        CLS_Gate clsOver;
        EXPECT_TRUE(clsPool.AddTmpTask([&clsOver] { clsOver.Open(); }, &clsOver, CALL));
        EXPECT_TRUE(clsOver.Wait());
        EXPECT_TRUE(WaitForIdle(clsPool, 1));
        LogRecorder::Clear();
        return pRun;
    }

    /// Expects the log records of a shutdown that fails at some point. Those in the middle are from Stop.
    static void ExpectFailedEnd()
    {
        const std::vector<LogRecorder::ST_Record> vecRecords = LogRecorder::Take();
        ASSERT_GE(vecRecords.size(), 4U);
        EXPECT_THAT(vecRecords.front(), IsBegin());
        EXPECT_THAT(vecRecords[1], IsStart());
        for (std::size_t i = 2; i + 2 < vecRecords.size(); ++i)
        {
            EXPECT_EQ("Stop", vecRecords[i].m_strFunction);
        }
        EXPECT_THAT(vecRecords.end()[-2], IsError());
        EXPECT_THAT(vecRecords.back(), IsEnd());
    }
};

TEST_F(SweepLifeTest, ConstructionThrowsAndLeavesNoThreadAndNoPool)
{
    Sweep("GetInstance, first construction", 7,
          [](CLS_SweepPoint& _clsPoint)
          {
              const int iThreads = CountThreads();
              bool bFailed = false;
              {
                  const CLS_FastSleep clsFastSleep;
                  bFailed = _clsPoint.FailAndThrow([] { CLS_QuenTaskPool::GetInstance(); });
              }
              EXPECT_EQ(bFailed, CLS_QuenTaskPool::m_pInstance == nullptr);
              EXPECT_TRUE(WaitForThreads(iThreads + (bFailed ? 0 : 3)));
              EXPECT_THAT(LogRecorder::Take(), IsEmpty());
              MakePool();
              EXPECT_TRUE(IsAtWork());
          });
}

TEST_F(SweepLifeTest, FirstCallOfAPlainFunctionThrowsWhileThePoolIsBuiltAndReturnsFalseAfterwards)
{
    const std::function<void()> funTask = MakeCallable();
    const std::string strCall = CALL;
    int iSurvived = 0; // attempts in which a vector of the queue could not grow, and the call succeeded
    Sweep("the plain AddTmpTask as the first call", 19,
          [&](CLS_SweepPoint& _clsPoint)
          {
              const int iThreads = CountThreads();
              bool bAdded = false;
              bool bThrown = false;
              {
                  const CLS_FastSleep clsFastSleep;
                  _clsPoint.FailAndPerhapsThrow([&] { bAdded = AddTmpTask(funTask, this, strCall); },
                                                bThrown);
              }
              EXPECT_TRUE(bAdded || _clsPoint.HasFailed());
              iSurvived += bAdded && _clsPoint.HasFailed() ? 1 : 0;
              EXPECT_EQ(bThrown, CLS_QuenTaskPool::m_pInstance == nullptr);
              if (bThrown)
              {
                  EXPECT_TRUE(WaitForThreads(iThreads));
              }
              const auto isFailure =
                  IsPoolRecord(3, "AddTmpTask", std::string("AddTmpTask error [") + CALL + "]");
              EXPECT_EQ(bAdded || bThrown ? 0U : 1U, LogRecorder::Peek().size());
              EXPECT_THAT(LogRecorder::Take(), ::testing::Each(isFailure));
              EXPECT_TRUE(AddTmpTask(funTask, this, strCall));
              EXPECT_TRUE(IsAtWork());
              EXPECT_TRUE(PoolView::WaitForAllIdle(*CLS_QuenTaskPool::m_pInstance));
          });
    EXPECT_EQ(2, iSurvived);
}

TEST_F(SweepLifeTest, UnInitLeavesItsRecordAndThePoolAndWorksWhenTriedAgain)
{
    Sweep("UnInit of a busy pool", 7,
          [this](CLS_SweepPoint& _clsPoint)
          {
              const int iThreads = CountThreads();
              const HeldRun pRun = MakeBusyPool();
              CLS_QuenTaskPool* const pPool = CLS_QuenTaskPool::m_pInstance;
              const CLS_FastSleep clsFastSleep;
              const bool bFailed = _clsPoint.Fail([&] { pPool->UnInit(); });
              if (bFailed)
              {
                  ExpectFailedEnd();
                  ASSERT_EQ(pPool, CLS_QuenTaskPool::m_pInstance);
                  EXPECT_EQ(2, pPool->GetTaskThreadNum());
                  EndHeldRun(pRun);
                  pPool->UnInit();
                  EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsBegin(), IsStart(), IsEnd()));
              }
              else
              {
                  EXPECT_THAT(LogRecorder::Take(),
                              ElementsAre(IsBegin(), IsStart(), IsWaiting(pRun, 11), IsWaiting(pRun, 21),
                                          IsWaiting(pRun, 31), IsOvertime(pRun), IsEnd()));
                  EndHeldRun(pRun);
              }
              EXPECT_EQ(nullptr, CLS_QuenTaskPool::m_pInstance);
              EXPECT_TRUE(WaitForThreads(iThreads));
          });
}

TEST_F(SweepLifeTest, KillTaskAllLeavesNoPoolWhateverFails)
{
    Sweep("KillTaskAll of a busy pool", 7,
          [this](CLS_SweepPoint& _clsPoint)
          {
              const int iThreads = CountThreads();
              const HeldRun pRun = MakeBusyPool();
              // The run ends when UnInit has failed. The destructor waits for it.
              LogRecorder::SetHook(
                  [&](const LogRecorder::ST_Record& _stRecord)
                  {
                      if (_stRecord.m_strMessage == "UnInit error ")
                      {
                          EndHeldRun(pRun);
                      }
                  });
              const CLS_FastSleep clsFastSleep;
              const bool bFailed = _clsPoint.Fail([] { CLS_QuenTaskPool::m_pInstance->KillTaskAll(); });
              LogRecorder::SetHook({});
              EXPECT_EQ(nullptr, CLS_QuenTaskPool::m_pInstance);
              if (bFailed)
              {
                  ExpectFailedEnd();
              }
              else
              {
                  EndHeldRun(pRun);
              }
              EXPECT_TRUE(WaitForThreads(iThreads));
          });
}

TEST_F(SweepLifeTest, UnInitOfAnIdlePoolEndsItWheneverTried)
{
    Sweep("UnInit of an idle pool", 1,
          [](CLS_SweepPoint& _clsPoint)
          {
              const int iThreads = CountThreads();
              CLS_QuenTaskPool* const pPool = &MakePool();
              RunShortTask(*pPool);
              const CLS_FastSleep clsFastSleep;
              if (_clsPoint.Fail([&] { pPool->UnInit(); }))
              {
                  ExpectFailedEnd();
                  ASSERT_EQ(pPool, CLS_QuenTaskPool::m_pInstance);
                  pPool->UnInit();
              }
              EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsBegin(), IsStart(), IsEnd()));
              EXPECT_EQ(nullptr, CLS_QuenTaskPool::m_pInstance);
              EXPECT_TRUE(WaitForThreads(iThreads));
          });
}
} // namespace
