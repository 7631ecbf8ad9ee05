// Sweeps of the workers: their creation, and runs on their own threads.

#include "tests/support/PoolView.h"
#include "tests/support/RecordMatchers.h"
#include "tests/support/WorkerView.h"
#include "verify/sweep/SweepFixture.h"

#include <stdexcept>

namespace
{
using ::testing::AnyOf;
using ::testing::Contains;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* REASON = "a reason that is too long for the text object itself";

class SweepWorkersTest : public CLS_SweepFixture
{
protected:
    /// Lets a worker run a task, as the dispatcher would, and waits until the worker is idle again.
    static void Run(CLS_QuenTaskPool& _clsPool, CLS_TaskThread* _pThread, std::string _strTaskId)
    {
        PoolView::BindTask(_clsPool, _pThread, _strTaskId);
        _pThread->AddFunction([&_clsPool](CLS_TaskThread* _pSelf) { _clsPool.FunRunTask(_pSelf); });
        EXPECT_TRUE(WaitForIdle(_clsPool, 1));
        // With the job's lock free, the worker has written its last log record of this job.
        const std::lock_guard<std::mutex> lock(WorkerView::GetJobLock(*_pThread));
    }

    static std::thread::id GetThread(CLS_TaskThread* _pThread)
    {
        return WorkerView::GetThread(*_pThread)->get_id();
    }

    /// The log records of a run that fails in the worker's own steps.
    static auto IsRunError() { return IsPoolRecord(3, "FunRunTask", "task run error - 0 "); }
    static auto IsJobError() { return IsThreadRecord(3, "FunTask", "thread handler error - 0"); }
    static auto IsGone() { return IsPoolRecord(2, "FunRunTask", "task id is fail - "); }
};

TEST_F(SweepWorkersTest, GetTaskThreadLeavesItsRecordAndIsNull)
{
    // Counts only once, because a thread that has ended is counted for a moment longer.
    const int iThreads = CountThreads();
    Sweep("GetTaskThread", 4,
          [this, iThreads](CLS_SweepPoint& _clsPoint)
          {
              CLS_QuenTaskPool& clsPool = MakeStillPool();
              CLS_TaskThread* pThread = nullptr;
              const bool bFailed = _clsPoint.Fail([&] { pThread = clsPool.GetTaskThread(); });
              EXPECT_EQ(bFailed, pThread == nullptr);
              EXPECT_EQ(bFailed ? 0 : 1, clsPool.GetTaskThreadNum());
              EXPECT_TRUE(WaitForThreads(iThreads + (bFailed ? 0 : 1)));
              if (bFailed)
              {
                  EXPECT_THAT(LogRecorder::Take(),
                              ElementsAre(IsPoolRecord(3, "CreateTaskThread", "create task thread error")));
                  pThread = clsPool.GetTaskThread();
              }
              EXPECT_THAT(LogRecorder::Take(), IsEmpty());
              ASSERT_NE(nullptr, pThread);
              EXPECT_EQ(0, pThread->GetOrderId());
              EXPECT_EQ(1, clsPool.GetTaskThreadNum());
              PoolView::AddIdleWorker(clsPool, pThread);
              EXPECT_FALSE(_clsPoint.HasFailed() &&
                           CLS_SweepPoint(1).Fail([&] { EXPECT_EQ(pThread, clsPool.GetTaskThread()); }))
                  << "an idle worker needs no memory";
              if (bFailed)
              {
                  PoolView::AddIdleWorker(clsPool, pThread);
              }
              EXPECT_TRUE(RunsATask(clsPool));
          });
}

TEST_F(SweepWorkersTest, AJobThatCannotBeCopiedLeavesTheWorkerIdle)
{
    Sweep("CLS_TaskThread::AddFunction", 1,
          [this](CLS_SweepPoint& _clsPoint)
          {
              CLS_TaskThread clsThread;
              const std::function<void(CLS_TaskThread*)> funJob = [funRun = MakeCallable()](CLS_TaskThread*)
              { funRun(); };
              const int iBefore = m_clsRuns.Get();
              const bool bFailed = _clsPoint.FailAndThrow([&] { clsThread.AddFunction(funJob); });
              if (bFailed)
              {
                  clsThread.AddFunction(funJob);
              }
              EXPECT_TRUE(m_clsRuns.Wait(iBefore + 1));
              clsThread.Exit();
              EXPECT_EQ(iBefore + 1, m_clsRuns.Get());
              EXPECT_THAT(LogRecorder::Take(), IsEmpty());
          });
}

TEST_F(SweepWorkersTest, RunOfATmpTaskLeavesItsRecordAndAnIdleWorker)
{
    Sweep("a worker's run of a one-shot task", 3,
          [this](CLS_SweepPoint& _clsPoint)
          {
              CLS_QuenTaskPool& clsPool = MakeStillPool();
              CLS_TaskThread* const pThread = clsPool.CreateTaskThread();
              const std::string strTaskId = MakeTask(MakeCallable());
              PoolView::AddOwnedTask(clsPool, strTaskId, this);
              const int iBefore = m_clsRuns.Get();
              const bool bFailed =
                  _clsPoint.Fail([&] { Run(clsPool, pThread, strTaskId); }, GetThread(pThread));
              const std::vector<LogRecorder::ST_Record> vecRecords = LogRecorder::Take();
              const bool bRan = m_clsRuns.Get() == iBefore + 1;
              EXPECT_TRUE(bFailed || (bRan && vecRecords.empty()));
              if (!bRan)
              {
                  EXPECT_THAT(vecRecords, ElementsAre(IsRunError()));
              }
              else if (!vecRecords.empty())
              {
                  // The idle list could not grow. The job ran again, with no task bound.
                  EXPECT_THAT(vecRecords, ElementsAre(IsJobError(), IsGone()));
              }
              ExpectConsistent(clsPool);
              EXPECT_EQ(pThread, PoolView::TakeIdleWorker(clsPool));

              Run(clsPool, pThread, strTaskId);
              EXPECT_EQ(iBefore + (bRan ? 2 : 1), m_clsRuns.Get());
              EXPECT_THAT(PoolView::GetOwned(clsPool), IsEmpty());
              ExpectConsistent(clsPool);
              EXPECT_THAT(LogRecorder::Take(), IsEmpty());
          });
}

TEST_F(SweepWorkersTest, RunOfATaskThatThrowsLeavesItsRecordsAndAnIdleWorker)
{
    // In GNU's library, exceptions and short texts need more allocations.
#ifdef _LIBCPP_VERSION
    constexpr int LEAST_POINTS = 7;
#else
    constexpr int LEAST_POINTS = 10;
#endif
    Sweep("a worker's run of a task that throws", LEAST_POINTS,
          [](CLS_SweepPoint& _clsPoint)
          {
              CLS_QuenTaskPool& clsPool = MakeStillPool();
              CLS_TaskThread* const pThread = clsPool.CreateTaskThread();
              const std::string strTaskId = MakeTask([] { throw std::runtime_error(REASON); });
              const auto funIsRunning = [&](const std::string& _strText)
              { return IsTaskRecord(3, "Running", _strText + MakeParamText(strTaskId, "call")); };
              const auto isThrown = funIsRunning(std::string("run function error :") + REASON + " param :");
              const bool bFailed =
                  _clsPoint.Fail([&] { Run(clsPool, pThread, strTaskId); }, GetThread(pThread));
              const std::vector<LogRecorder::ST_Record> vecRecords = LogRecorder::Take();
              if (bFailed)
              {
                  const auto isOwn = funIsRunning("run function error :std::bad_alloc param :");
                  const auto isOuter = funIsRunning("Running error :std::bad_alloc param :");
                  EXPECT_THAT(vecRecords,
                              AnyOf(ElementsAre(IsRunError()), ElementsAre(isOwn), ElementsAre(isOuter),
                                    ElementsAre(isThrown), ElementsAre(isThrown, IsJobError(), IsGone())));
              }
              else
              {
                  EXPECT_THAT(vecRecords, ElementsAre(isThrown));
              }
              ExpectConsistent(clsPool);
              EXPECT_EQ(pThread, PoolView::TakeIdleWorker(clsPool));

              Run(clsPool, pThread, strTaskId);
              EXPECT_THAT(LogRecorder::Take(), ElementsAre(isThrown));
              EXPECT_EQ(TASK_STATUS_IDLE, PoolView::GetTask(strTaskId)->GetTaskStatus());
              ExpectConsistent(clsPool);
          });
}

TEST_F(SweepWorkersTest, LoopTaskWhoseRunFailedIsQueuedAgain)
{
    Sweep("a worker's run of a loop task", 3,
          [this](CLS_SweepPoint& _clsPoint)
          {
              CLS_QuenTaskPool& clsPool = MakeStillPool();
              CLS_TaskThread* const pThread = clsPool.CreateTaskThread();
              const std::string strTaskId = MakeTask(MakeCallable(), 0);
              PoolView::AddToLoopTasks(clsPool, strTaskId);
              PoolView::RunLoopPass(clsPool);
              PoolView::ClearQueue(clsPool);
              _clsPoint.Fail([&] { Run(clsPool, pThread, strTaskId); }, GetThread(pThread));
              LogRecorder::Clear();
              PoolView::RunLoopPass(clsPool);
              EXPECT_THAT(PoolView::GetQueue(clsPool), ElementsAre(strTaskId));
              ExpectConsistent(clsPool);
          });
}
} // namespace
