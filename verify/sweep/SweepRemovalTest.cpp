// Sweeps of the operations that stop and remove tasks.

#include "tests/support/RecordMatchers.h"
#include "verify/sweep/SweepFixture.h"

namespace
{
using ::testing::ElementsAre;
using ::testing::IsEmpty;

const std::string CALL_TEXT = std::string("[") + CLS_SweepFixture::CALL + "]";

class SweepRemovalTest : public CLS_SweepFixture
{
protected:
    /// The pool with its dispatcher at work, so that runs can be started.
    CLS_QuenTaskPool& MakeDispatchingPool()
    {
        CLS_QuenTaskPool& clsPool = MakeStillPool();
        StartDispatcher(clsPool);
        return clsPool;
    }

    /// Expects the log records of Stop about a run that outlasts it. After a failure, those of _vecFailure
    /// replace the first log record that could not be made and all later ones.
    static void
    ExpectStopRecords(const HeldRun& _pRun, bool _bFailed,
                      const std::vector<::testing::Matcher<const LogRecorder::ST_Record&>>& _vecFailure)
    {
        using Records = std::vector<::testing::Matcher<const LogRecorder::ST_Record&>>;
        Records vecExpected{IsWaiting(_pRun, 11), IsWaiting(_pRun, 21), IsWaiting(_pRun, 31),
                            IsOvertime(_pRun)};
        const std::vector<LogRecorder::ST_Record> vecRecords = LogRecorder::Take();
        if (_bFailed)
        {
            ASSERT_GE(vecRecords.size(), _vecFailure.size());
            vecExpected.resize(vecRecords.size() - _vecFailure.size(), ::testing::_);
            ASSERT_LT(vecExpected.size(), 4U);
            vecExpected.insert(vecExpected.end(), _vecFailure.begin(), _vecFailure.end());
        }
        EXPECT_THAT(vecRecords, ::testing::ElementsAreArray(vecExpected));
    }

    const std::function<void()> m_funTask = MakeCallable();
    const std::string m_strCall = CALL;
};

TEST_F(SweepRemovalTest, RemovalByIdFromTheOwnerMapsNeedsNoMemory)
{
    Sweep("RemoveTmpTask by id", 0,
          [this](CLS_SweepPoint& _clsPoint)
          {
              CLS_QuenTaskPool& clsPool = MakeStillPool();
              ASSERT_TRUE(clsPool.AddTmpTask(m_funTask, this, m_strCall));
              const std::string strTaskId = PoolView::GetQueue(clsPool).back();
              EXPECT_FALSE(_clsPoint.Fail([&] { clsPool.RemoveTmpTask(strTaskId); }));
              EXPECT_THAT(PoolView::GetOwned(clsPool), IsEmpty());
              ExpectConsistent(clsPool);
              EXPECT_THAT(LogRecorder::Take(), IsEmpty());
          });
}

TEST_F(SweepRemovalTest, RemovalOfWhatDoesNotRunNeedsNoMemory)
{
    Sweep("RemoveTmpTask by owner, RemoveTask, KillTask and StopTask of tasks that do not run", 0,
          [this](CLS_SweepPoint& _clsPoint)
          {
              CLS_QuenTaskPool& clsPool = MakeStillPool();
              std::array<std::string, 3> arrTaskIds;
              for (std::string& strTaskId : arrTaskIds)
              {
                  ASSERT_TRUE(clsPool.AddTmpTask(m_funTask, this, m_strCall));
                  clsPool.AddLoopTask(m_funTask, 0, strTaskId, m_strCall);
              }
              PoolView::ClearQueue(clsPool);
              EXPECT_FALSE(_clsPoint.Fail(
                  [&]
                  {
                      clsPool.RemoveTmpTask(this, m_strCall);
                      clsPool.RemoveTask(arrTaskIds[0], m_strCall);
                      clsPool.KillTask(arrTaskIds[1], m_strCall);
                      clsPool.StopTask(arrTaskIds[2]);
                  }));
              EXPECT_THAT(PoolView::GetOwners(clsPool), IsEmpty());
              EXPECT_THAT(PoolView::GetLoopTasks(clsPool), ElementsAre(arrTaskIds[2]));
              EXPECT_THAT(PoolView::GetRegistered(), ElementsAre(arrTaskIds[2]));
              EXPECT_THAT(LogRecorder::Take(), IsEmpty());
          });
}

TEST_F(SweepRemovalTest, RemovalByOwnerOfALongRunLeavesItsRecordAndAgreeingMaps)
{
    Sweep("RemoveTmpTask by owner of a long run", 4,
          [this](CLS_SweepPoint& _clsPoint)
          {
              CLS_QuenTaskPool& clsPool = MakeDispatchingPool();
              const HeldRun pRun = StartHeldRun(clsPool);
              const CLS_FastSleep clsFastSleep;
              const bool bFailed = _clsPoint.Fail([&] { clsPool.RemoveTmpTask(pRun.get(), m_strCall); });
              ExpectStopRecords(pRun, bFailed,
                                {IsPoolRecord(3, "RemoveTmpTask", "RemoveTmpTask error " + CALL_TEXT)});
              EXPECT_EQ(bFailed, PoolView::IsRegistered(pRun->m_strTaskId));
              EXPECT_THAT(PoolView::GetOwned(clsPool), IsEmpty());
              ExpectConsistent(clsPool);
              EndHeldRun(pRun);
              ASSERT_TRUE(PoolView::WaitForAllIdle(clsPool));

              ASSERT_TRUE(clsPool.AddTmpTask(m_funTask, pRun.get(), m_strCall));
              clsPool.RemoveTmpTask(pRun.get(), m_strCall);
              clsPool.RemoveTask(pRun->m_strTaskId, m_strCall);
              EXPECT_THAT(PoolView::GetOwned(clsPool), IsEmpty());
              ASSERT_TRUE(PoolView::WaitForAllIdle(clsPool));
          });
}

/// The operations that take one id.
struct ST_ById
{
    const char* m_szName;
    void (CLS_QuenTaskPool::*m_pOperation)(const std::string&, const std::string&);
};

class SweepRemovalByIdTest : public SweepRemovalTest, public ::testing::WithParamInterface<ST_ById>
{
};

TEST_P(SweepRemovalByIdTest, RemovalOfALongRunLeavesItsRecordAndWorksWhenTriedAgain)
{
    Sweep(GetParam().m_szName + std::string(" of a long run"), 4,
          [this](CLS_SweepPoint& _clsPoint)
          {
              CLS_QuenTaskPool& clsPool = MakeDispatchingPool();
              const HeldRun pRun = StartHeldRun(clsPool);
              PoolView::AddToLoopTasks(clsPool, pRun->m_strTaskId);
              const CLS_FastSleep clsFastSleep;
              const bool bFailed =
                  _clsPoint.Fail([&] { (clsPool.*GetParam().m_pOperation)(pRun->m_strTaskId, m_strCall); });
              ExpectStopRecords(pRun, bFailed,
                                {IsPoolRecord(3, "RemoveTask", "RemoveTask error " + CALL_TEXT)});
              EXPECT_THAT(PoolView::GetLoopTasks(clsPool), IsEmpty());
              EXPECT_EQ(bFailed, PoolView::IsRegistered(pRun->m_strTaskId));
              ExpectConsistent(clsPool);
              EndHeldRun(pRun);
              ASSERT_TRUE(PoolView::WaitForAllIdle(clsPool));

              (clsPool.*GetParam().m_pOperation)(pRun->m_strTaskId, m_strCall);
              EXPECT_THAT(PoolView::GetRegistered(), IsEmpty());
              ExpectConsistent(clsPool);
              EXPECT_THAT(LogRecorder::Take(), IsEmpty());
          });
}

INSTANTIATE_TEST_SUITE_P(Operations, SweepRemovalByIdTest,
                         ::testing::Values(ST_ById{"RemoveTask", &CLS_QuenTaskPool::RemoveTask},
                                           ST_ById{"KillTask", &CLS_QuenTaskPool::KillTask}),
                         [](const ::testing::TestParamInfo<ST_ById>& _stInfo)
                         { return _stInfo.param.m_szName; });

TEST_F(SweepRemovalTest, StopTaskOfALongRunThrowsAndTheTaskIsStillInvalid)
{
    Sweep("StopTask of a long run", 4,
          [this](CLS_SweepPoint& _clsPoint)
          {
              CLS_QuenTaskPool& clsPool = MakeDispatchingPool();
              const HeldRun pRun = StartHeldRun(clsPool);
              const CLS_FastSleep clsFastSleep;
              const bool bFailed = _clsPoint.FailAndThrow([&] { clsPool.StopTask(pRun->m_strTaskId); });
              ExpectStopRecords(pRun, bFailed, {});
              EXPECT_FALSE(PoolView::GetTask(pRun->m_strTaskId)->GetValid());
              ExpectConsistent(clsPool);
              EndHeldRun(pRun);
              ASSERT_TRUE(PoolView::WaitForAllIdle(clsPool));

              clsPool.StopTask(pRun->m_strTaskId);
              EXPECT_FALSE(PoolView::GetTask(pRun->m_strTaskId)->GetValid());
              EXPECT_THAT(LogRecorder::Take(), IsEmpty());
          });
}
} // namespace
