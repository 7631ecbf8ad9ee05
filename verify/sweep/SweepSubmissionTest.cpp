// Sweeps of the operations that create and queue tasks.

#include "tests/support/PoolView.h"
#include "tests/support/RecordMatchers.h"
#include "verify/sweep/SweepFixture.h"

namespace
{
using ::testing::ElementsAre;
using ::testing::IsEmpty;

const std::string CALL_TEXT = std::string("[") + CLS_SweepFixture::CALL + "]";

class SweepSubmissionTest : public CLS_SweepFixture
{
protected:
    /// Expects the log records of an operation at a point: one if it failed, none if it succeeded.
    static void ExpectRecord(bool _bFailed, const std::string& _strFunction, const std::string& _strMessage)
    {
        if (_bFailed)
        {
            EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsPoolRecord(3, _strFunction, _strMessage)));
        }
        else
        {
            EXPECT_THAT(LogRecorder::Take(), IsEmpty());
        }
    }

    const std::function<void()> m_funTask = MakeCallable();
    const std::string m_strCall = CALL;
};

TEST_F(SweepSubmissionTest, CreateTaskThrowsAndRegistersNothing)
{
    Sweep("CLS_Task::CreateTask", 8,
          [this](CLS_SweepPoint& _clsPoint)
          {
              std::shared_ptr<CLS_Task> pTask;
              const bool bFailed =
                  _clsPoint.FailAndThrow([&] { pTask = CLS_Task::CreateTask(m_funTask, 5, m_strCall); });
              EXPECT_EQ(bFailed, pTask == nullptr);
              EXPECT_EQ(bFailed ? 0U : 1U, PoolView::GetRegistered().size());
              pTask = CLS_Task::CreateTask(m_funTask, 5, m_strCall);
              EXPECT_EQ(pTask, PoolView::GetTask(pTask->GetId()));
              EXPECT_EQ(bFailed ? 1U : 2U, PoolView::GetRegistered().size());
              EXPECT_EQ(MakeParamText(pTask->GetId(), CALL), pTask->ParamToString());
          });
}

TEST_F(SweepSubmissionTest, GetTaskAndDeleteTaskNeedNoMemory)
{
    Sweep("CLS_Task::GetTask and DeleteTask", 0,
          [this](CLS_SweepPoint& _clsPoint)
          {
              const std::string strTaskId = CLS_Task::CreateTask(m_funTask, 5, m_strCall)->GetId();
              EXPECT_FALSE(_clsPoint.Fail(
                  [&]
                  {
                      EXPECT_NE(nullptr, CLS_Task::GetTask(strTaskId).lock());
                      CLS_Task::DeleteTask(strTaskId);
                  }));
              EXPECT_THAT(PoolView::GetRegistered(), IsEmpty());
          });
}

TEST_F(SweepSubmissionTest, AddTmpTaskReturnsFalseWithItsRecordAndHalfNotesNothing)
{
    Sweep("AddTmpTask", 12,
          [this](CLS_SweepPoint& _clsPoint)
          {
              CLS_QuenTaskPool& clsPool = MakeStillPool();
              bool bAdded = false;
              const bool bFailed =
                  _clsPoint.Fail([&] { bAdded = clsPool.AddTmpTask(m_funTask, this, m_strCall); }) &&
                  !HasOverflow(clsPool);
              EXPECT_EQ(!bFailed, bAdded);
              ExpectRecord(bFailed, "AddTmpTask", "AddTmpTask error " + CALL_TEXT);
              ExpectConsistent(clsPool);
              const auto iQueued = static_cast<int>(PoolView::GetQueue(clsPool).size());

              EXPECT_TRUE(clsPool.AddTmpTask(m_funTask, this, m_strCall));
              EXPECT_EQ(bAdded ? 2U : 1U, PoolView::GetOwners(clsPool).size());
              EXPECT_EQ(static_cast<std::size_t>(iQueued) + 1, PoolView::GetQueue(clsPool).size());
              ExpectConsistent(clsPool);

              // A queued task runs even if its owner could not be noted.
              const int iBefore = m_clsRuns.Get();
              PoolView::RunDispatchPass(clsPool);
              EXPECT_TRUE(PoolView::WaitForAllIdle(clsPool));
              EXPECT_EQ(iBefore + iQueued + 1, m_clsRuns.Get());
              EXPECT_THAT(PoolView::GetOwners(clsPool), IsEmpty());
              ExpectConsistent(clsPool);
              EXPECT_THAT(LogRecorder::Take(), IsEmpty());
          });
}

TEST_F(SweepSubmissionTest, AddTmpTaskForAnOwnerThatHasTasksLeavesThose)
{
    Sweep("AddTmpTask for an owner of others", 12,
          [this](CLS_SweepPoint& _clsPoint)
          {
              CLS_QuenTaskPool& clsPool = MakeStillPool();
              ASSERT_TRUE(clsPool.AddTmpTask(m_funTask, this, m_strCall));
              const auto mapBefore = PoolView::GetOwned(clsPool);
              const bool bFailed = _clsPoint.Fail([&] { clsPool.AddTmpTask(m_funTask, this, m_strCall); }) &&
                                   !HasOverflow(clsPool);
              ExpectRecord(bFailed, "AddTmpTask", "AddTmpTask error " + CALL_TEXT);
              EXPECT_EQ(bFailed, mapBefore == PoolView::GetOwned(clsPool));
              EXPECT_EQ(mapBefore.at(this).front(), PoolView::GetOwned(clsPool).at(this).front());
              ExpectConsistent(clsPool);
              EXPECT_TRUE(clsPool.AddTmpTask(m_funTask, this, m_strCall));
              ExpectConsistent(clsPool);
              clsPool.RemoveTmpTask(this, m_strCall);
              EXPECT_THAT(PoolView::GetOwned(clsPool), IsEmpty());
              EXPECT_THAT(LogRecorder::Take(), IsEmpty());
          });
}

TEST_F(SweepSubmissionTest, AddTmpTaskWithoutAnOwnerNeedsNoMemory)
{
    Sweep("AddTmpTask without an owner", 0,
          [this](CLS_SweepPoint& _clsPoint)
          {
              CLS_QuenTaskPool& clsPool = MakeStillPool();
              EXPECT_FALSE(
                  _clsPoint.Fail([&] { EXPECT_FALSE(clsPool.AddTmpTask(m_funTask, nullptr, m_strCall)); }));
              ExpectRecord(true, "AddTmpTask", "AddTmpTask error, nullptr == _pObj " + CALL_TEXT);
              EXPECT_THAT(PoolView::GetRegistered(), IsEmpty());
          });
}

TEST_F(SweepSubmissionTest, AddLoopTaskLeavesItsRecordAndAnIdThatIsOldOrRegistered)
{
    Sweep("AddLoopTask", 12,
          [this](CLS_SweepPoint& _clsPoint)
          {
              CLS_QuenTaskPool& clsPool = MakeStillPool();
              std::string strTaskId = "before";
              const bool bFailed =
                  _clsPoint.Fail([&] { clsPool.AddLoopTask(m_funTask, 0, strTaskId, m_strCall); }) &&
                  !HasOverflow(clsPool);
              ExpectRecord(bFailed, "AddLoopTask", "AddLoopTask error " + CALL_TEXT);
              EXPECT_NE(strTaskId == "before", PoolView::IsRegistered(strTaskId));
              EXPECT_EQ(bFailed ? 0U : 1U, PoolView::GetLoopTasks(clsPool).size());
              ExpectConsistent(clsPool);
              const auto iQueued = static_cast<int>(PoolView::GetQueue(clsPool).size());

              std::string strAgain;
              clsPool.AddLoopTask(m_funTask, 0, strAgain, m_strCall);
              EXPECT_EQ(strAgain, PoolView::GetLoopTasks(clsPool).back());
              ExpectConsistent(clsPool);

              const int iBefore = m_clsRuns.Get();
              PoolView::RunDispatchPass(clsPool);
              EXPECT_TRUE(PoolView::WaitForAllIdle(clsPool));
              EXPECT_EQ(iBefore + iQueued + 1, m_clsRuns.Get());
              clsPool.RemoveTask(strTaskId, m_strCall);
              clsPool.RemoveTask(strAgain, m_strCall);
              EXPECT_THAT(PoolView::GetLoopTasks(clsPool), IsEmpty());
              EXPECT_FALSE(PoolView::IsRegistered(strTaskId));
              EXPECT_THAT(LogRecorder::Take(), IsEmpty());
          });
}

TEST_F(SweepSubmissionTest, AddWaitingTasksThrowsAndTheTaskIsNotWaiting)
{
    Sweep("AddWaitingTasks", 2,
          [this](CLS_SweepPoint& _clsPoint)
          {
              CLS_QuenTaskPool& clsPool = MakeStillPool();
              const std::string strTaskId = MakeTask(m_funTask);
              bool bFailed = false;
              _clsPoint.FailAndPerhapsThrow([&] { clsPool.AddWaitingTasks(strTaskId); }, bFailed);
              EXPECT_EQ(_clsPoint.HasFailed() && !HasOverflow(clsPool), bFailed);
              EXPECT_EQ(bFailed ? 0U : 1U, PoolView::GetQueue(clsPool).size());
              ExpectConsistent(clsPool);
              EXPECT_THAT(LogRecorder::Take(), IsEmpty());
              if (bFailed)
              {
                  clsPool.AddWaitingTasks(strTaskId);
              }
              EXPECT_THAT(PoolView::GetQueue(clsPool), ElementsAre(strTaskId));
              ExpectConsistent(clsPool);
              const int iBefore = m_clsRuns.Get();
              PoolView::RunDispatchPass(clsPool);
              EXPECT_TRUE(PoolView::WaitForAllIdle(clsPool));
              EXPECT_EQ(iBefore + 1, m_clsRuns.Get());
          });
}
} // namespace
