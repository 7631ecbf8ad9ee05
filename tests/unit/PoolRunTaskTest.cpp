#include "tests/support/PoolView.h"
#include "tests/support/RecordMatchers.h"
#include "tests/support/ThrowingTextTask.h"
#include "tests/support/WorkerView.h"
#include "tests/unit/PoolFixture.h"

#include <chrono>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <shared_mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace
{
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Key;
using ::testing::Pair;

/// A still pool with one worker, whose job the tests call themselves.
class PoolRunTaskTest : public CLS_PoolFixture
{
protected:
    void SetUp() override
    {
        CLS_PoolFixture::SetUp();
        m_pPool = &MakeStillPool();
        m_pThread = m_pPool->CreateTaskThread();
        m_pThread->SetOrderId(5);
    }

    /// Runs the task on the calling thread, as the worker does.
    void Run(std::string _strTaskId)
    {
        PoolView::BindTask(*m_pPool, m_pThread, _strTaskId);
        m_pPool->FunRunTask(m_pThread);
    }

    void ExpectWorkerIdle()
    {
        EXPECT_THAT(PoolView::GetWorkers(*m_pPool), ElementsAre(Pair(m_pThread, "")));
        EXPECT_THAT(PoolView::GetIdleWorkers(*m_pPool), ElementsAre(m_pThread));
    }

    CLS_QuenTaskPool* m_pPool = nullptr;
    CLS_TaskThread* m_pThread = nullptr;
};

TEST_F(PoolRunTaskTest, RunsTheBoundTaskAndPutsTheWorkerOnTheIdleList)
{
    std::string strBound;
    std::string strBoundMeanwhile;
    bool bIdleMeanwhile = true;
    n_TaskStatus iStatusMeanwhile = TASK_STATUS_IDLE;
    std::string strTaskId;
    strTaskId = MakeTask(
        [&]
        {
            strBoundMeanwhile = PoolView::ReadBoundTask(*m_pPool, m_pThread).value_or("");
            bIdleMeanwhile = !GetIdleOrder(*m_pPool).empty();
            iStatusMeanwhile = CLS_Task::GetTask(strTaskId).lock()->GetTaskStatus();
        });
    Run(strTaskId);
    EXPECT_EQ(strTaskId, strBoundMeanwhile);
    EXPECT_FALSE(bIdleMeanwhile);
    EXPECT_EQ(TASK_STATUS_RUNNING, iStatusMeanwhile);
    ExpectWorkerIdle();
    EXPECT_EQ(TASK_STATUS_IDLE, CLS_Task::GetTask(strTaskId).lock()->GetTaskStatus());
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

TEST_F(PoolRunTaskTest, RunDoesNotWaitForAnotherReaderOfTheBindings)
{
    CLS_Gate clsRan;
    std::string strTaskId = MakeTask([&] { clsRan.Open(); });
    PoolView::BindTask(*m_pPool, m_pThread, strTaskId);
    std::thread thRun;
    {
        const std::shared_lock<std::shared_mutex> lock(PoolView::GetWorkerLock(*m_pPool));
        thRun = std::thread([this] { m_pPool->FunRunTask(m_pThread); });
        EXPECT_TRUE(clsRan.Wait());
    }
    thRun.join();
    ExpectWorkerIdle();
}

TEST_F(PoolRunTaskTest, JobOfAnAbandonedWorkerDoesNotTouchThePool)
{
    // The worker's own thread ends first, because it would delete an abandoned worker.
    CLS_TaskThread clsWorker;
    clsWorker.Exit();
    CLS_RunGate& clsGate = clsWorker.GetRunGate();
    CLS_Gate clsBegun;
    CLS_Gate clsAbandoned;
    CLS_Gate clsOver;
    std::thread thWorker(
        [&]
        {
            const CLS_RunGate::CLS_JobScope clsJob(clsGate);
            clsBegun.Open();
            EXPECT_TRUE(clsAbandoned.Wait());
            m_pPool->FunRunTask(&clsWorker);
            clsOver.Open();
        });
    EXPECT_TRUE(clsBegun.Wait());
    EXPECT_FALSE(clsGate.Close(std::chrono::steady_clock::now()));
    {
        const std::lock_guard<std::shared_mutex> lock(PoolView::GetWorkerLock(*m_pPool));
        clsAbandoned.Open();
        EXPECT_TRUE(clsOver.Wait());
    }
    thWorker.join();
}

TEST_F(PoolRunTaskTest, RunDropsTheOwnersEntryAndKeepsTheTaskRegistered)
{
    int iOwner = 0;
    ASSERT_TRUE(m_pPool->AddTmpTask([] {}, &iOwner, "call"));
    ASSERT_TRUE(m_pPool->AddTmpTask([] {}, &iOwner, "call"));
    const std::string strFirst = PoolView::GetOwnerLists(*m_pPool)[&iOwner].front();
    const std::string strSecond = PoolView::GetOwnerLists(*m_pPool)[&iOwner].back();
    Run(strFirst);
    EXPECT_THAT(PoolView::GetOwnerLists(*m_pPool), ElementsAre(Pair(&iOwner, ElementsAre(strSecond))));
    EXPECT_THAT(PoolView::GetTaskOwners(*m_pPool), ElementsAre(Key(strSecond)));
    EXPECT_NE(nullptr, CLS_Task::GetTask(strFirst).lock());
}

TEST_F(PoolRunTaskTest, RemovedTaskIsLoggedAndItsWorkerIsIdle)
{
    int iOwner = 0;
    ASSERT_TRUE(m_pPool->AddTmpTask([] { ADD_FAILURE(); }, &iOwner, "call"));
    const std::string strTaskId = PoolView::GetTaskOwners(*m_pPool).begin()->first;
    CLS_Task::DeleteTask(strTaskId);
    PoolView::RunDispatchPass(*m_pPool);
    // The dispatcher found no idle worker, so it made one.
    ASSERT_TRUE(WaitForIdle(*m_pPool, 1));
    EXPECT_THAT(LogRecorder::Take(),
                ElementsAre(IsPoolRecord(2, "FunRunTask", "task id is fail - " + strTaskId)));
    EXPECT_THAT(GetIdleOrder(*m_pPool), ElementsAre(1));
    EXPECT_THAT(PoolView::GetTaskOwners(*m_pPool), IsEmpty());
    EXPECT_THAT(PoolView::GetOwnerLists(*m_pPool), IsEmpty());
}

TEST_F(PoolRunTaskTest, WorkerWithoutATaskIsLoggedWithAnEmptyId)
{
    m_pPool->FunRunTask(m_pThread);
    EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsPoolRecord(2, "FunRunTask", "task id is fail - ")));
    ExpectWorkerIdle();
}

TEST_F(PoolRunTaskTest, ExceptionOfTheCallableIsNotARunError)
{
    const std::string strTaskId = MakeTask([] { throw std::runtime_error("oops"); });
    Run(strTaskId);
    EXPECT_THAT(LogRecorder::Take(),
                ElementsAre(IsTaskRecord(
                    3, "Running", "run function error :oops param :" + MakeParamText(strTaskId, "call"))));
    ExpectWorkerIdle();
}

TEST_F(PoolRunTaskTest, ExceptionAroundTheRunIsLoggedWithTheTasksText)
{
    // The first text describes the task. The others would belong to log records of the callable's failure.
    const std::string strTaskId = CLS_ThrowingTextTask::Make([] { throw std::runtime_error("oops"); }, 2);
    Run(strTaskId);
    EXPECT_THAT(
        LogRecorder::Take(),
        ElementsAre(IsPoolRecord(3, "FunRunTask", "task run error - 5 " + MakeParamText(strTaskId, "call"))));
    EXPECT_EQ(TASK_STATUS_IDLE, CLS_Task::GetTask(strTaskId).lock()->GetTaskStatus());
    ExpectWorkerIdle();
}

// Pins docs/limits.md, "Odd texts".
TEST_F(PoolRunTaskTest, ExceptionBeforeTheDescriptionIsLoggedWithoutOne)
{
    int iRuns = 0;
    Run(CLS_ThrowingTextTask::Make([&] { ++iRuns; }, 1));
    EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsPoolRecord(3, "FunRunTask", "task run error - 5 ")));
    EXPECT_EQ(0, iRuns);
    ExpectWorkerIdle();
}

TEST_F(PoolRunTaskTest, LoopTaskWhoseRunFailedBeforeItBeganIsDueAgain)
{
    const std::string strTaskId = CLS_ThrowingTextTask::Make({}, 1);
    const std::shared_ptr<CLS_Task> pTask = CLS_Task::GetTask(strTaskId).lock();
    pTask->SetLoopInterval(0);
    m_pPool->AddWaitingTasks(strTaskId);
    Run(strTaskId);
    EXPECT_TRUE(pTask->IsUseRun());
}

TEST_F(PoolRunTaskTest, FailedRunDropsTheOwnersEntry)
{
    int iOwner = 0;
    const std::string strTaskId = CLS_ThrowingTextTask::Make({}, 1);
    PoolView::AddOwnedTask(*m_pPool, strTaskId, &iOwner);
    Run(strTaskId);
    EXPECT_THAT(PoolView::GetOwnerLists(*m_pPool), IsEmpty());
    EXPECT_THAT(PoolView::GetTaskOwners(*m_pPool), IsEmpty());
}

TEST_F(PoolRunTaskTest, WorkerStaysUsableAfterEveryFailure)
{
    PoolView::AddIdleWorker(*m_pPool, m_pThread);
    const std::string strRemoved = MakeTask({});
    const std::string strThrowing = CLS_ThrowingTextTask::Make({}, 1);
    const std::string strOops = MakeTask([] { throw 1; });
    std::thread::id idRan;
    const std::string strLast = MakeTask([&] { idRan = std::this_thread::get_id(); });
    for (const std::string& strTaskId : {strRemoved, strThrowing, strOops, strLast})
    {
        m_pPool->AddWaitingTasks(strTaskId);
        CLS_Task::DeleteTask(strRemoved);
        PoolView::RunDispatchPass(*m_pPool);
        ASSERT_TRUE(WaitForIdle(*m_pPool, 1));
        ExpectWorkerIdle();
    }
    EXPECT_EQ(WorkerView::GetThread(*m_pThread)->get_id(), idRan);
    EXPECT_THAT(
        LogRecorder::Take(),
        ElementsAre(IsPoolRecord(2, "FunRunTask", "task id is fail - " + strRemoved),
                    IsPoolRecord(3, "FunRunTask", "task run error - 5 "),
                    IsTaskRecord(3, "Running", "run function error " + MakeParamText(strOops, "call"))));
}

TEST_F(PoolRunTaskTest, EndingPoolNeitherTakesTheWorkerBackNorTouchesTheOwners)
{
    int iOwner = 0;
    int iRuns = 0;
    const std::string strTaskId = MakeTask(
        [&]
        {
            ++iRuns;
            PoolView::GetRunFlag(*m_pPool) = false;
        });
    PoolView::AddOwnedTask(*m_pPool, strTaskId, &iOwner);
    Run(strTaskId);
    EXPECT_EQ(1, iRuns);
    EXPECT_THAT(PoolView::GetWorkers(*m_pPool), ElementsAre(Pair(m_pThread, "")));
    EXPECT_THAT(PoolView::GetIdleWorkers(*m_pPool), IsEmpty());
    EXPECT_THAT(PoolView::GetOwnerLists(*m_pPool), ElementsAre(Pair(&iOwner, ElementsAre(strTaskId))));
    EXPECT_THAT(PoolView::GetTaskOwners(*m_pPool), ElementsAre(Pair(strTaskId, &iOwner)));
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

TEST_F(PoolRunTaskTest, WorkerReturnsToItsPlaceOnTheIdleList)
{
    for (const int iOrderId : {3, 5, 5, 8})
    {
        CLS_TaskThread* const pThread = m_pPool->CreateTaskThread();
        pThread->SetOrderId(iOrderId);
        PoolView::AddIdleWorker(*m_pPool, pThread);
    }
    Run(MakeTask({}));
    EXPECT_THAT(GetIdleOrder(*m_pPool), ElementsAre(3, 5, 5, 5, 8));
    EXPECT_THAT(PoolView::GetIdleWorkers(*m_pPool), ::testing::Contains(m_pThread).Times(1));
}

TEST_F(PoolRunTaskTest, RemovedTaskIsReleasedBeforeTheWorkerIsFree)
{
    std::string strBoundAtRelease;
    bool bIdleAtRelease = true;
    std::shared_ptr<int> pCaptured(new int(0),
                                   [&](const int* _pValue)
                                   {
                                       delete _pValue;
                                       strBoundAtRelease =
                                           PoolView::ReadBoundTask(*m_pPool, m_pThread).value_or("");
                                       bIdleAtRelease = !GetIdleOrder(*m_pPool).empty();
                                   });
    std::string strTaskId;
    strTaskId = MakeTask([pCaptured, &strTaskId] { CLS_Task::DeleteTask(strTaskId); });
    pCaptured.reset();
    Run(strTaskId);
    EXPECT_EQ(strTaskId, strBoundAtRelease);
    EXPECT_FALSE(bIdleAtRelease);
    ExpectWorkerIdle();
}

TEST_F(PoolRunTaskTest, WorkerThatIsNotRegisteredIsARunErrorAndLeavesTheRegistryUnlocked)
{
    PoolView::UnregisterWorker(*m_pPool, m_pThread);
    const std::unique_ptr<CLS_TaskThread> pOwned(m_pThread);
    m_pPool->FunRunTask(m_pThread);
    EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsPoolRecord(3, "FunRunTask", "task run error - 5 ")));
    EXPECT_TRUE(PoolView::GetWorkerLock(*m_pPool).try_lock());
    PoolView::GetWorkerLock(*m_pPool).unlock();
    EXPECT_THAT(PoolView::GetWorkers(*m_pPool), IsEmpty()); // clearing makes no entry
    EXPECT_THAT(PoolView::GetIdleWorkers(*m_pPool), ElementsAre(m_pThread));
    PoolView::GetIdleWorkers(*m_pPool).clear();
}
} // namespace
