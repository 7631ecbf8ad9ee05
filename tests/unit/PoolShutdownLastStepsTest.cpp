#include "tests/support/PoolView.h"
#include "tests/support/RunGateView.h"
#include "tests/support/WorkerView.h"
#include "tests/unit/ShutdownFixture.h"

#include <future>

namespace
{
using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// Tests that shut down while a worker uses the pool outside a run: its task has not begun or is already
/// idle.
class PoolShutdownLastStepsTest : public CLS_ShutdownFixture
{
protected:
    void SetUp() override
    {
        CLS_ShutdownFixture::SetUp();
        m_iThreads = CountThreads();
    }

    void ExpectNothingLeft()
    {
        EXPECT_EQ(nullptr, CLS_QuenTaskPool::m_pInstance);
        EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsBegin(), IsStart(), IsEnd()));
        EXPECT_TRUE(WaitForThreads(m_iThreads));
    }

    /// Whether a thread that holds no lock could read the table of workers without waiting.
    static bool CanReadWorkers(CLS_QuenTaskPool& _clsPool)
    {
        const auto funRead = [&_clsPool]
        {
            return std::shared_lock<std::shared_mutex>(PoolView::GetWorkerLock(_clsPool), std::try_to_lock)
                .owns_lock();
        };
        return std::async(std::launch::async, funRead).get();
    }

    int m_iThreads = 0;
};

TEST_F(PoolShutdownLastStepsTest, WaitsForAWorkerThatIsAboutToClearItsEntry)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    const HeldRun pRun = StartHeldRun(clsPool);
    CLS_TaskThread* const pThread = FindWorker(clsPool, pRun->m_strTaskId);
    ASSERT_NE(nullptr, pThread);
    {
        // The worker's step waits for the exclusive lock. The shutdown only reads: it gets the lock. Where a
        // waiting writer blocks readers, it waits behind the worker.
        std::shared_lock<std::shared_mutex> lock(PoolView::GetWorkerLock(clsPool));
        EndHeldRun(pRun);
        CLS_Side clsEnd([&] { clsPool.UnInit(); });
        EXPECT_TRUE(WaitUntil([&] { return IsGateClosed(*pThread) || !CanReadWorkers(clsPool); }));
        EXPECT_TRUE(clsEnd.IsStillRunning());
        lock.unlock();
        EXPECT_TRUE(clsEnd.Wait());
    }
    ExpectNothingLeft();
}

TEST_F(PoolShutdownLastStepsTest, WaitsForAWorkerThatIsAboutToReturnToTheIdleList)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    const HeldRun pRun = StartHeldRun(clsPool);
    CLS_TaskThread* const pThread = FindWorker(clsPool, pRun->m_strTaskId);
    ASSERT_NE(nullptr, pThread);
    {
        std::unique_lock<std::mutex> lock(PoolView::GetIdleLock(clsPool));
        EndHeldRun(pRun);
        // The worker forgets the owner once it has seen that the pool is not shutting down. Only the idle
        // list is left.
        ASSERT_TRUE(WaitUntil(
            [&]
            {
                const std::lock_guard<std::mutex> lockTasks(PoolView::GetOwnerLock(clsPool));
                return PoolView::GetTaskOwners(clsPool).empty();
            }));
        CLS_Side clsEnd([&] { clsPool.UnInit(); });
        EXPECT_TRUE(WaitUntil([&] { return IsGateClosed(*pThread); }));
        EXPECT_TRUE(clsEnd.IsStillRunning());
        lock.unlock();
        EXPECT_TRUE(clsEnd.Wait());
    }
    ExpectNothingLeft();
}

TEST_F(PoolShutdownLastStepsTest, WaitsForAWorkerThatIsAboutToForgetTheOwner)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    const HeldRun pRun = StartHeldRun(clsPool);
    CLS_TaskThread* const pThread = FindWorker(clsPool, pRun->m_strTaskId);
    ASSERT_NE(nullptr, pThread);
    {
        std::unique_lock<std::mutex> lock(PoolView::GetOwnerLock(clsPool));
        EndHeldRun(pRun);
        ASSERT_TRUE(WaitUntil([&] { return CopyWorkers(clsPool).at(pThread).empty(); }));
        CLS_Side clsEnd([&] { clsPool.UnInit(); });
        EXPECT_TRUE(WaitUntil([&] { return !PoolView::GetRunFlag(clsPool); }));
        lock.unlock();
        EXPECT_TRUE(clsEnd.Wait());
    }
    ExpectNothingLeft();
}

TEST_F(PoolShutdownLastStepsTest, WaitsForTheCapturedObjectsOfATaskThatWasRemovedDuringItsRun)
{
    struct ST_Captured
    {
        CLS_Gate m_clsDying;
        CLS_Gate m_clsMayDie;
    };
    ST_Captured stCaptured;
    CLS_QuenTaskPool& clsPool = MakePool();
    CLS_Gate clsStarted;
    CLS_Gate clsMayEnd;
    std::string strTaskId;
    {
        const std::shared_ptr<void> pDying(nullptr,
                                           [&stCaptured](void*)
                                           {
                                               stCaptured.m_clsDying.Open();
                                               EXPECT_TRUE(stCaptured.m_clsMayDie.Wait());
                                           });
        strTaskId = MakeTask(
            [pDying, &clsStarted, &clsMayEnd]
            {
                clsStarted.Open();
                EXPECT_TRUE(clsMayEnd.Wait());
            });
    }
    clsPool.AddWaitingTasks(strTaskId);
    ASSERT_TRUE(clsStarted.Wait());
    CLS_TaskThread* const pThread = FindWorker(clsPool, strTaskId);
    ASSERT_NE(nullptr, pThread);
    CLS_Task::DeleteTask(strTaskId);
    clsMayEnd.Open();
    ASSERT_TRUE(stCaptured.m_clsDying.Wait()); // on the worker, while the task is idle
    {
        CLS_Side clsEnd([&] { clsPool.UnInit(); });
        EXPECT_TRUE(WaitUntil([&] { return IsGateClosed(*pThread); }));
        EXPECT_TRUE(clsEnd.IsStillRunning());
        stCaptured.m_clsMayDie.Open();
        EXPECT_TRUE(clsEnd.Wait());
    }
    ExpectNothingLeft();
}

TEST_F(PoolShutdownLastStepsTest, AWorkerThatEndsDuringShutdownDoesNotReturnToTheIdleList)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    const HeldRun pRun = StartHeldRun(clsPool);
    const HeldRun pOther = StartHeldRun(clsPool);
    std::vector<int> vecIdle{-1};
    std::size_t uiOwned = 0;
    bool bCleared = false;
    const CLS_StopPolls clsPolls(
        1,
        [&]
        {
            EndHeldRun(pRun);
            bCleared = WaitUntil([&] { return FindWorker(clsPool, pRun->m_strTaskId) == nullptr; });
            vecIdle = GetIdleOrder(clsPool);
            {
                const std::lock_guard<std::mutex> lock(PoolView::GetOwnerLock(clsPool));
                uiOwned = PoolView::GetTaskOwners(clsPool).size();
            }
            EndHeldRun(pOther);
        });
    clsPool.UnInit();
    EXPECT_TRUE(bCleared);
    EXPECT_THAT(vecIdle, IsEmpty());
    EXPECT_EQ(2u, uiOwned); // the worker does not touch the owners either
    ExpectNothingLeft();
}

// The worker has received a task but has not begun it.
TEST_F(PoolShutdownLastStepsTest, WaitsForAWorkerThatHasNotBegunItsJob)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    CLS_TaskThread* const pThread = clsPool.CreateTaskThread();
    CLS_Counter clsRuns;
    CLS_Gate clsBegun;
    CLS_Gate clsMayEnter;
    std::string strTaskId = MakeTask([&] { clsRuns.Add(); });
    const std::shared_ptr<CLS_Task> pTask = CLS_Task::GetTask(strTaskId).lock();
    pTask->SetTaskIsWaiting();
    PoolView::BindTask(clsPool, pThread, strTaskId);
    {
        pThread->AddFunction(
            [&](CLS_TaskThread* _pWorker)
            {
                clsBegun.Open();
                EXPECT_TRUE(clsMayEnter.Wait());
                clsPool.FunRunTask(_pWorker);
            });
        ASSERT_TRUE(clsBegun.Wait());
        CLS_Side clsEnd([&] { clsPool.UnInit(); });
        EXPECT_TRUE(WaitUntil([&] { return IsGateClosed(*pThread); }));
        EXPECT_FALSE(pTask->GetValid());
        EXPECT_TRUE(clsEnd.IsStillRunning());
        clsMayEnter.Open();
        EXPECT_TRUE(clsEnd.Wait());
    }
    EXPECT_EQ(0, clsRuns.Get());
    ExpectNothingLeft();
}

TEST_F(PoolShutdownLastStepsTest, DropsAJobThatWasHandedOverWhenTheGateIsClosedAlready)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    CLS_TaskThread* const pThread = clsPool.CreateTaskThread();
    CLS_Counter clsRuns;
    std::string strTaskId = MakeTask([&] { clsRuns.Add(); });
    const std::string strKept = strTaskId;
    PoolView::BindTask(clsPool, pThread, strTaskId);
    ASSERT_TRUE(pThread->GetRunGate().Close(std::chrono::steady_clock::now() + std::chrono::nanoseconds(0)));
    clsPool.FunRunTask(pThread);
    EXPECT_EQ(0, clsRuns.Get());
    EXPECT_EQ(strKept, CopyWorkers(clsPool).at(pThread)); // the worker touches nothing of the pool
    EXPECT_THAT(GetIdleOrder(clsPool), IsEmpty());
}

TEST_F(PoolShutdownLastStepsTest, WaitsForADispatcherThatIsHandingAJobOver)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    RunShortTask(clsPool);
    CLS_TaskThread* const pThread = CopyWorkers(clsPool).begin()->first;
    CLS_Counter clsRuns;
    const std::string strTaskId = MakeTask([&] { clsRuns.Add(); });
    {
        std::unique_lock<std::mutex> lock(WorkerView::GetJobLock(*pThread));
        clsPool.AddWaitingTasks(strTaskId);
        ASSERT_TRUE(WaitUntil([&] { return FindWorker(clsPool, strTaskId) == pThread; }));
        CLS_Side clsEnd([&] { clsPool.UnInit(); });
        EXPECT_TRUE(WaitUntil([&] { return !PoolView::GetRunFlag(clsPool); }));
        EXPECT_TRUE(clsEnd.IsStillRunning());
        lock.unlock();
        EXPECT_TRUE(clsEnd.Wait());
    }
    ExpectNothingLeft();
}

TEST_F(PoolShutdownLastStepsTest, SurvivesAShutdownAtAnyMomentOfAShortRun)
{
    const CLS_FastSleep clsFastSleep(SlowPollsDown);
    for (int i = 0; i < 300; ++i)
    {
        CLS_QuenTaskPool& clsPool = MakePool();
        const auto pRuns = std::make_shared<CLS_Counter>();
        for (int iTask = 0; iTask < 4; ++iTask)
        {
            ASSERT_TRUE(clsPool.AddTmpTask([pRuns] { pRuns->Add(); }, pRuns.get(), "short"));
        }
        // The moment differs each time: none, one or two of the tasks have run.
        ASSERT_TRUE(pRuns->Wait(i % 3));
        clsPool.UnInit();
        const int iRuns = pRuns->Get();
        EXPECT_LE(iRuns, 4);
        EXPECT_GE(iRuns, i % 3);
    }
    EXPECT_TRUE(WaitForThreads(m_iThreads));
}
} // namespace
