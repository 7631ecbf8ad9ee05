// Sweeps of the service threads' passes, each on a thread of its own.

#include "tests/support/PoolView.h"
#include "tests/support/RecordMatchers.h"
#include "verify/sweep/SweepFixture.h"

#include <chrono>

namespace
{
using std::chrono::milliseconds;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* WATCHDOG = "FunTaskThreadWaitingOvertime";

using SweepServicesTest = CLS_SweepFixture;

/// The order of a service thread's allocations must not depend on chance. So its work is queued before it
/// begins.
TEST_F(SweepServicesTest, DispatcherTriesUntilItHasItsWorkersAndEveryTaskRuns)
{
    constexpr int TASKS = 3;
    const auto isFailure = IsPoolRecord(3, "CreateTaskThread", "create task thread error");
    Sweep("the dispatcher's pass", 12,
          [&](CLS_SweepPoint& _clsPoint)
          {
              CLS_QuenTaskPool& clsPool = MakeStillPool();
              const CLS_FastSleep clsFastSleep;
              CLS_Counter clsStarted;
              CLS_Gate clsMayEnd;
              for (int i = 0; i < TASKS; ++i)
              {
                  ASSERT_TRUE(clsPool.AddTmpTask(
                      [&]
                      {
                          clsStarted.Add();
                          EXPECT_TRUE(clsMayEnd.Wait());
                      },
                      this, CALL));
              }
              CLS_Gate clsMayBegin;
              PoolView::GetDispatcher(clsPool) = std::make_unique<std::thread>(
                  [&]
                  {
                      EXPECT_TRUE(clsMayBegin.Wait());
                      clsPool.FunTaskingThread();
                  });
              const bool bFailed = _clsPoint.Fail(
                  [&]
                  {
                      clsMayBegin.Open();
                      EXPECT_TRUE(clsStarted.Wait(TASKS));
                  },
                  PoolView::GetDispatcher(clsPool)->get_id());
              EXPECT_EQ(TASKS, clsPool.GetTaskThreadNum());
              clsMayEnd.Open();
              EXPECT_TRUE(PoolView::WaitForAllIdle(clsPool));
              EXPECT_EQ(TASKS, clsStarted.Get());
              EXPECT_THAT(PoolView::GetOwners(clsPool), IsEmpty());
              ExpectConsistent(clsPool);
              EXPECT_EQ(bFailed ? 1U : 0U, LogRecorder::Peek().size());
              EXPECT_THAT(LogRecorder::Take(), ::testing::Each(isFailure));
          });
}

TEST_F(SweepServicesTest, BusyReportLeavesItsRecordAndTheDispatcherGoesOn)
{
    Sweep("the dispatcher's busy report", 6,
          [this](CLS_SweepPoint& _clsPoint)
          {
              CLS_QuenTaskPool& clsPool = MakeStillPool();
              PoolView::GetWorkerLimit(clsPool) = 0;
              StartDispatcher(clsPool);
              const HeldRun pRun = StartHeldRun(clsPool);
              const std::thread::id idDispatcher = PoolView::GetDispatcher(clsPool)->get_id();
              const int iBefore = m_clsRuns.Get();
              const auto isCount = IsPoolRecord(
                  2, "FunTaskingThread", "waiting task count [1] CurrentThreadCount [1] MaxThread [0]");
              const auto isTask = IsPoolRecord(2, "FunTaskingThread",
                                               "runing task info TaskStatus : [" + pRun->m_strTaskId +
                                                   "3] task info :" + pRun->m_strParam);
              const auto isFailure = IsPoolRecord(3, "FunTaskingThread", "*** auto Tasking handler fail ***");
              const CLS_FastSleep clsFastSleep;
              const bool bFailed = _clsPoint.Fail(
                  [&]
                  {
                      ASSERT_TRUE(clsPool.AddTmpTask(MakeCallable(), this, CALL));
                      EXPECT_TRUE(WaitUntil([] { return LogRecorder::Peek().size() >= 2; }));
                  },
                  idDispatcher);
              EndHeldRun(pRun);
              if (bFailed)
              {
                  EXPECT_THAT(LogRecorder::Take(), ElementsAre(isCount, isFailure));
              }
              else
              {
                  // The waiting task runs now. Until then, there may be more reports.
                  EXPECT_TRUE(m_clsRuns.Wait(iBefore + 1));
                  const std::vector<LogRecorder::ST_Record> vecRecords = LogRecorder::Take();
                  ASSERT_GE(vecRecords.size(), 2U);
                  EXPECT_THAT(vecRecords[0], isCount);
                  EXPECT_THAT(vecRecords[1], isTask);
              }
              // The next task is dispatched in either case.
              ASSERT_TRUE(clsPool.AddTmpTask(MakeCallable(), this, CALL));
              EXPECT_TRUE(m_clsRuns.Wait(iBefore + (bFailed ? 1 : 2)));
              EXPECT_TRUE(PoolView::WaitForAllIdle(clsPool));
              EXPECT_EQ(iBefore + (bFailed ? 1 : 2), m_clsRuns.Get());
          });
}

TEST_F(SweepServicesTest, LoopSchedulerLeavesItsRecordAndQueuesEveryDueTaskOnce)
{
    const auto isFailure = IsPoolRecord(3, "FunLoopThread", "*** auto Loop handler fail ***");
    Sweep("the loop scheduler's pass", 5,
          [&](CLS_SweepPoint& _clsPoint)
          {
              CLS_QuenTaskPool& clsPool = MakeStillPool();
              const std::string strFirst = MakeTask(MakeCallable(), 0);
              const std::string strSecond = MakeTask(MakeCallable(), 0);
              PoolView::AddToLoopTasks(clsPool, strFirst);
              PoolView::AddToLoopTasks(clsPool, strSecond);
              CLS_Gate clsMayBegin;
              PoolView::GetLoopScheduler(clsPool) = std::make_unique<std::thread>(
                  [&]
                  {
                      EXPECT_TRUE(clsMayBegin.Wait());
                      clsPool.FunLoopThread();
                  });
              const bool bFailed = _clsPoint.Fail(
                  [&]
                  {
                      clsMayBegin.Open();
                      EXPECT_TRUE(WaitUntil([&] { return PoolView::GetQueue(clsPool).size() == 2; },
                                            std::chrono::seconds(10)));
                  },
                  PoolView::GetLoopScheduler(clsPool)->get_id());
              EXPECT_THAT(PoolView::GetQueue(clsPool), ::testing::UnorderedElementsAre(strFirst, strSecond));
              EXPECT_EQ(bFailed && !HasOverflow(clsPool) ? 1U : 0U, LogRecorder::Peek().size());
              EXPECT_THAT(LogRecorder::Take(), ::testing::Each(isFailure));
              ExpectConsistent(clsPool);
          });
}

TEST_F(SweepServicesTest, WatchdogLeavesItsRecordAndRetiresEveryOverrunWorker)
{
    const auto isPass = IsPoolRecord(1, WATCHDOG, "delete pThread **************");
    const auto isPassFailure = IsPoolRecord(3, WATCHDOG, "*** auto delete handler fail");
    const auto isRetired0 = IsPoolRecord(0, WATCHDOG, "delete pThread - 0");
    const auto isRetired1 = IsPoolRecord(0, WATCHDOG, "delete pThread - 1");
    Sweep("the watchdog's pass", 2,
          [&](CLS_SweepPoint& _clsPoint)
          {
              const int iThreads = CountThreads();
              CLS_QuenTaskPool& clsPool = MakeStillPool();
              CLS_TaskThread::SetWaitingOvertime(0);
              CLS_TaskThread* const pFirst = clsPool.CreateTaskThread();
              CLS_TaskThread* const pSecond = clsPool.CreateTaskThread();
              PoolView::AddIdleWorker(clsPool, pFirst);
              PoolView::AddIdleWorker(clsPool, pSecond);
              // The second worker is idle and bound, which the watchdog must report.
              const std::string strTaskId = MakeTask({});
              std::string strBound = strTaskId;
              PoolView::BindTask(clsPool, pSecond, strBound);
              const auto isBound = IsPoolRecord(3, WATCHDOG,
                                                "OvertimeThread is fail taskId - " + strTaskId + " " +
                                                    MakeParamText(strTaskId, "call"));
              CLS_Gate clsMayBegin;
              PoolView::GetWatchdog(clsPool) = std::make_unique<std::thread>(
                  [&]
                  {
                      EXPECT_TRUE(clsMayBegin.Wait());
                      clsPool.FunTaskThreadWaitingOvertime();
                  });
              LogRecorder::SetHook(
                  [&](const LogRecorder::ST_Record& _stRecord)
                  {
                      PoolView::GetRunFlag(clsPool) =
                          PoolView::GetRunFlag(clsPool) && _stRecord.m_strMessage != "delete pThread - 0";
                  });
              {
                  const CLS_FastSleep clsFastSleep;
                  _clsPoint.Fail(
                      [&]
                      {
                          clsMayBegin.Open();
                          EXPECT_TRUE(WaitUntil([&] { return !PoolView::GetRunFlag(clsPool); }));
                      },
                      PoolView::GetWatchdog(clsPool)->get_id());
              }
              PoolView::EndServiceThreads(clsPool);
              LogRecorder::SetHook({});
              PoolView::GetRunFlag(clsPool) = true;
              const std::vector<LogRecorder::ST_Record> vecRecords = LogRecorder::Take();
              if (!_clsPoint.HasFailed())
              {
                  EXPECT_THAT(vecRecords, ElementsAre(isPass, isBound, isRetired1, isRetired0));
              }
              else
              {
                  EXPECT_THAT(
                      vecRecords,
                      ::testing::AnyOf(
                          ElementsAre(isPass, isPassFailure, isPass, isBound, isRetired1, isRetired0),
                          ElementsAre(isPass, IsPoolRecord(3, WATCHDOG, "delete pThread fail"), isRetired0)));
              }
              EXPECT_EQ(0, clsPool.GetTaskThreadNum());
              EXPECT_THAT(GetIdleOrder(clsPool), IsEmpty());
              EXPECT_TRUE(WaitForThreads(iThreads));
              EXPECT_EQ(TASK_STATUS_IDLE, PoolView::GetTask(strTaskId)->GetTaskStatus());
              EXPECT_TRUE(RunsATask(clsPool));
          });
}
} // namespace
