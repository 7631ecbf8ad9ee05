#include "tests/support/PoolView.h"
#include "tests/support/RecordMatchers.h"
#include "tests/support/ShutdownClaimView.h"
#include "tests/support/ThrowingTextTask.h"
#include "tests/support/WorkerView.h"
#include "tests/unit/PoolFixture.h"

#include <atomic>
#include <chrono>
#include <gmock/gmock.h>
#include <thread>

namespace
{
using std::chrono::milliseconds;
using std::chrono::steady_clock;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* FUNCTION = "FunTaskThreadWaitingOvertime";
constexpr milliseconds STEP{180};
constexpr int STEPS = 1000;
constexpr milliseconds THRESHOLD{300000};

auto IsPassBegin()
{
    return IsPoolRecord(1, FUNCTION, "delete pThread **************");
}

auto IsRetirement(int _iOrderId)
{
    return IsPoolRecord(0, FUNCTION, "delete pThread - " + std::to_string(_iOrderId));
}

auto IsBoundTask(const std::string& _strText)
{
    return IsPoolRecord(3, FUNCTION, "OvertimeThread is fail taskId - " + _strText);
}

class PoolWatchdogTest : public CLS_PoolFixture
{
protected:
    /// A registered worker that never had a job and has been idle for the given time.
    static CLS_TaskThread* MakeIdleThread(CLS_QuenTaskPool& _clsPool, milliseconds _msIdle = THRESHOLD)
    {
        CLS_TaskThread* const pThread = _clsPool.CreateTaskThread();
        WorkerView::GetLastActive(*pThread) = steady_clock::now() - _msIdle;
        PoolView::AddIdleWorker(_clsPool, pThread);
        return pThread;
    }

    static void Bind(CLS_QuenTaskPool& _clsPool, CLS_TaskThread* _pThread, std::string _strTaskId)
    {
        PoolView::BindTask(_clsPool, _pThread, _strTaskId);
    }

    /// Gives an idle worker a job that makes the worker's thread count its own end in m_iEnded.
    void CountEnd(CLS_TaskThread* _pThread)
    {
        CLS_Gate clsDone;
        _pThread->AddFunction(
            [this, &clsDone](CLS_TaskThread*)
            {
                thread_local ST_AtEnd t_stAtEnd;
                t_stAtEnd.m_pEnded = &m_iEnded;
                clsDone.Open();
            });
        ASSERT_TRUE(clsDone.Wait());
    }

    std::atomic<int> m_iEnded{0}; ///< threads that have ended

private:
    struct ST_AtEnd
    {
        std::atomic<int>* m_pEnded = nullptr;
        ~ST_AtEnd() { ++*m_pEnded; }
    };
};

// Pins docs/limits.md, "Idle workers retire after 5 minutes".
TEST_F(PoolWatchdogTest, EachPassComesAfterAThousandStepsAndIsRecorded)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    std::vector<std::size_t> vecSleeps;
    {
        const CLS_FastSleep clsFast;
        LogRecorder::SetHook(
            [&](const LogRecorder::ST_Record&)
            {
                vecSleeps.push_back(clsFast.GetSleeps(std::this_thread::get_id()).size());
                PoolView::GetRunFlag(clsPool) = vecSleeps.size() < 3;
            });
        clsPool.FunTaskThreadWaitingOvertime();
        LogRecorder::SetHook({});
        std::vector<milliseconds> vecLengths;
        for (const ST_Sleep& stSleep : clsFast.GetSleeps(std::this_thread::get_id()))
        {
            vecLengths.push_back(stSleep.m_msAsked);
        }
        EXPECT_THAT(vecLengths, Each(STEP));
    }
    EXPECT_THAT(vecSleeps, ElementsAre(STEPS, 2 * STEPS, 3 * STEPS));
    EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsPassBegin(), IsPassBegin(), IsPassBegin()));
}

// Pins docs/limits.md, "The watchdog notices a shutdown within 180 ms".
TEST_F(PoolWatchdogTest, ShutdownIsNoticedAfterEachStep)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    for (const int iEndsInStep : {0, 1, 7, STEPS})
    {
        int iSteps = 0;
        const CLS_FastSleep clsFast([&](const ST_Sleep&)
                                    { PoolView::GetRunFlag(clsPool) = ++iSteps < iEndsInStep; });
        PoolView::GetRunFlag(clsPool) = iEndsInStep > 0;
        clsPool.FunTaskThreadWaitingOvertime();
        EXPECT_EQ(iEndsInStep, iSteps);
    }
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

TEST_F(PoolWatchdogTest, PassWithoutIdleWorkersIsRecorded)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    PoolView::RunWatchdogPass(clsPool);
    EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsPassBegin()));
}

TEST_F(PoolWatchdogTest, OverrunWorkersAreRetiredHighestOrderIdFirst)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    for (int i = 0; i < 3; ++i)
    {
        CountEnd(MakeIdleThread(clsPool));
    }
    CLS_TaskThread::SetWaitingOvertime(0);
    std::vector<int> vecEnded;
    std::vector<int> vecThreads;
    LogRecorder::SetHook(
        [&](const LogRecorder::ST_Record& _stRecord)
        {
            if (_stRecord.m_iLevel == 0)
            {
                EXPECT_TRUE(PoolView::AreLocksFree(clsPool));
                vecEnded.push_back(m_iEnded);
                vecThreads.push_back(clsPool.GetTaskThreadNum());
            }
        });
    PoolView::RunWatchdogPass(clsPool);
    LogRecorder::SetHook({});
    EXPECT_THAT(LogRecorder::Take(),
                ElementsAre(IsPassBegin(), IsRetirement(2), IsRetirement(1), IsRetirement(0)));
    // Each log record appears after its worker is unregistered and before it ends. By then, the worker before
    // it has ended.
    EXPECT_THAT(vecThreads, ElementsAre(2, 1, 0));
    EXPECT_THAT(vecEnded, ElementsAre(0, 1, 2));
    EXPECT_EQ(3, m_iEnded);
    EXPECT_EQ(0, clsPool.GetTaskThreadNum());
    EXPECT_THAT(GetIdleOrder(clsPool), IsEmpty());
}

TEST_F(PoolWatchdogTest, WorkerIsRetiredFromTheThresholdOn)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    CLS_TaskThread* const pThread = MakeIdleThread(clsPool, THRESHOLD - std::chrono::minutes(2));
    PoolView::RunWatchdogPass(clsPool);
    EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsPassBegin()));
    EXPECT_THAT(GetIdleOrder(clsPool), ElementsAre(0));
    WorkerView::GetLastActive(*pThread) = steady_clock::now() - THRESHOLD;
    PoolView::RunWatchdogPass(clsPool);
    EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsPassBegin(), IsRetirement(0)));
    EXPECT_THAT(GetIdleOrder(clsPool), IsEmpty());
}

// Pins docs/limits.md, "A recently used worker protects the ones before it".
TEST_F(PoolWatchdogTest, RecentlyActiveWorkerProtectsAllBeforeIt)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    MakeIdleThread(clsPool);
    CLS_TaskThread* const pActive = MakeIdleThread(clsPool, milliseconds(0));
    MakeIdleThread(clsPool);
    MakeIdleThread(clsPool);
    PoolView::RunWatchdogPass(clsPool);
    EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsPassBegin(), IsRetirement(3), IsRetirement(2)));
    EXPECT_THAT(GetIdleOrder(clsPool), ElementsAre(0, 1));
    PoolView::RunWatchdogPass(clsPool);
    EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsPassBegin()));
    EXPECT_THAT(GetIdleOrder(clsPool), ElementsAre(0, 1));
    EXPECT_EQ(2, clsPool.GetTaskThreadNum());
    WorkerView::GetLastActive(*pActive) = steady_clock::now() - THRESHOLD;
    PoolView::RunWatchdogPass(clsPool);
    EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsPassBegin(), IsRetirement(1), IsRetirement(0)));
}

TEST_F(PoolWatchdogTest, EmptySlotsAreDropped)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    CLS_TaskThread* const pActive = MakeIdleThread(clsPool, milliseconds(0));
    CLS_TaskThread* const pOverrun = MakeIdleThread(clsPool);
    PoolView::GetIdleWorkers(clsPool) = {nullptr, pActive, nullptr, pOverrun, nullptr, nullptr};
    PoolView::RunWatchdogPass(clsPool);
    EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsPassBegin(), IsRetirement(1)));
    EXPECT_THAT(GetIdleOrder(clsPool), ElementsAre(-1, 0));
    EXPECT_EQ(1, clsPool.GetTaskThreadNum());
    WorkerView::GetLastActive(*pActive) = steady_clock::now() - THRESHOLD;
    PoolView::RunWatchdogPass(clsPool);
    EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsPassBegin(), IsRetirement(0)));
    EXPECT_THAT(GetIdleOrder(clsPool), IsEmpty());
}

TEST_F(PoolWatchdogTest, BoundTaskOfARetiredWorkerIsReportedAndLeftAlone)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    const std::string strTaskId = MakeTask([] {});
    CLS_Task::GetTask(strTaskId).lock()->SetTaskIsWaiting();
    Bind(clsPool, MakeIdleThread(clsPool), "nobody's id");
    Bind(clsPool, MakeIdleThread(clsPool), strTaskId);
    LogRecorder::SetHook([&](const LogRecorder::ST_Record&)
                         { EXPECT_TRUE(PoolView::AreLocksFree(clsPool)); });
    PoolView::RunWatchdogPass(clsPool);
    LogRecorder::SetHook({});
    EXPECT_THAT(LogRecorder::Take(),
                ElementsAre(IsPassBegin(), IsBoundTask(strTaskId + " " + MakeParamText(strTaskId, "call")),
                            IsRetirement(1), IsBoundTask("nobody's id "), IsRetirement(0)));
    EXPECT_EQ(0, clsPool.GetTaskThreadNum());
    const std::shared_ptr<CLS_Task> pTask = CLS_Task::GetTask(strTaskId).lock();
    ASSERT_TRUE(pTask);
    EXPECT_TRUE(pTask->GetValid());
    EXPECT_EQ(TASK_STATUS_WAITING, pTask->GetTaskStatus());
}

TEST_F(PoolWatchdogTest, ThreadOfARetiredWorkerIsNoLongerThePools)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    const std::thread::id idThread = MakeIdleThread(clsPool)->GetThreadId();
    EXPECT_TRUE(ShutdownClaimView::IsOwnThread(&clsPool, idThread));
    PoolView::RunWatchdogPass(clsPool);
    EXPECT_FALSE(ShutdownClaimView::IsOwnThread(&clsPool, idThread));
}

TEST_F(PoolWatchdogTest, UnregisteredWorkerIsStillRetired)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    CLS_TaskThread* const pThread = MakeIdleThread(clsPool);
    PoolView::UnregisterWorker(clsPool, pThread);
    PoolView::RunWatchdogPass(clsPool);
    EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsPassBegin(), IsRetirement(0)));
}

TEST_F(PoolWatchdogTest, FailureWithOneWorkerDoesNotStopTheOthers)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    const std::string strTaskId = CLS_ThrowingTextTask::Make([] {}, 1);
    for (int i = 0; i < 3; ++i)
    {
        CLS_TaskThread* const pThread = MakeIdleThread(clsPool);
        CountEnd(pThread);
        Bind(clsPool, pThread, i == 1 ? strTaskId : "");
    }
    CLS_TaskThread::SetWaitingOvertime(0);
    PoolView::RunWatchdogPass(clsPool);
    EXPECT_THAT(LogRecorder::Take(),
                ElementsAre(IsPassBegin(), IsRetirement(2), IsPoolRecord(3, FUNCTION, "delete pThread fail"),
                            IsRetirement(0)));
    EXPECT_EQ(0, clsPool.GetTaskThreadNum());
    EXPECT_THAT(GetIdleOrder(clsPool), IsEmpty());
    EXPECT_EQ(3, m_iEnded);
    EXPECT_TRUE(PoolView::IsRegistered(strTaskId));
}

TEST_F(PoolWatchdogTest, BusyWorkerIsNeverRetiredAndItsTaskNeverStopped)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    CLS_Gate clsStarted;
    CLS_Gate clsMayEnd;
    const std::string strTaskId = MakeTask(
        [&]
        {
            clsStarted.Open();
            EXPECT_TRUE(clsMayEnd.Wait());
        });
    clsPool.AddWaitingTasks(strTaskId);
    PoolView::RunDispatchPass(clsPool);
    ASSERT_TRUE(clsStarted.Wait());
    WorkerView::GetLastActive(*PoolView::GetWorkers(clsPool).begin()->first) =
        steady_clock::now() - std::chrono::hours(1);
    PoolView::RunWatchdogPass(clsPool);
    EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsPassBegin()));
    EXPECT_EQ(1, clsPool.GetTaskThreadNum());
    EXPECT_TRUE(CLS_Task::GetTask(strTaskId).lock()->GetValid());
    clsMayEnd.Open();
    EXPECT_TRUE(WaitForIdle(clsPool, 1));
}

TEST_F(PoolWatchdogTest, NewWorkerReplacesARetiredOne)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    PoolView::GetWorkerLimit(clsPool) = 0; // one worker at most
    CLS_TaskThread* const pRetired = MakeIdleThread(clsPool);
    ASSERT_EQ(pRetired, clsPool.GetTaskThread());
    EXPECT_EQ(nullptr, clsPool.GetTaskThread());
    PoolView::AddIdleWorker(clsPool, pRetired);
    CLS_TaskThread* pNew = nullptr;
    LogRecorder::SetHook(
        [&](const LogRecorder::ST_Record& _stRecord)
        {
            if (_stRecord.m_iLevel == 0)
            {
                pNew = clsPool.GetTaskThread(); // the old worker still exists but is not handed out
                EXPECT_NE(pRetired, pNew);
            }
        });
    PoolView::RunWatchdogPass(clsPool);
    LogRecorder::SetHook({});
    ASSERT_NE(nullptr, pNew);
    EXPECT_EQ(0, pNew->GetOrderId());
    EXPECT_EQ(1, clsPool.GetTaskThreadNum());
}

TEST_F(PoolWatchdogTest, WatchdogWaitsForAWorkerInItsLastSteps)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    CLS_Gate clsIdle;
    CLS_Gate clsMayReturn;
    std::atomic<bool> bReturned{false};
    std::atomic<bool> bPassed{false};
    std::atomic<bool> bReturnedFirst{false};
    CLS_TaskThread* const pThread = clsPool.CreateTaskThread();
    CountEnd(pThread);
    Bind(clsPool, pThread, MakeTask([] {}));
    CLS_TaskThread::SetWaitingOvertime(0);
    pThread->AddFunction(
        [&](CLS_TaskThread* _pThread)
        {
            clsPool.FunRunTask(_pThread); // puts the worker on the idle list
            clsIdle.Open();
            EXPECT_TRUE(clsMayReturn.Wait());
            bReturned = true;
        });
    ASSERT_TRUE(clsIdle.Wait());
    std::thread thPass(
        [&]
        {
            PoolView::RunWatchdogPass(clsPool);
            bReturnedFirst = bReturned.load();
            bPassed = true;
        });
    EXPECT_TRUE(WaitUntil([] { return LogRecorder::Peek().size() == 2; }));
    EXPECT_TRUE(PoolView::AreLocksFree(clsPool));
    EXPECT_EQ(0, clsPool.GetTaskThreadNum());
    EXPECT_EQ(0, m_iEnded);
    EXPECT_FALSE(bPassed);
    clsMayReturn.Open();
    thPass.join();
    EXPECT_TRUE(bReturnedFirst);
    EXPECT_EQ(1, m_iEnded);
    EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsPassBegin(), IsRetirement(0)));
}

// Pins docs/limits.md, "Idle workers retire after 5 minutes".
TEST_F(PoolWatchdogTest, ThresholdOfZeroRetiresEveryIdleWorkerAndThePoolGoesOn)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    CLS_Counter clsStarted;
    CLS_Gate clsMayEnd;
    const auto funTask = [&]
    {
        clsStarted.Add();
        EXPECT_TRUE(clsMayEnd.Wait());
    };
    for (int i = 0; i < 5; ++i)
    {
        ASSERT_TRUE(clsPool.AddTmpTask(funTask, &clsPool, ""));
    }
    PoolView::RunDispatchPass(clsPool);
    ASSERT_TRUE(clsStarted.Wait(5));
    clsMayEnd.Open();
    ASSERT_TRUE(WaitForIdle(clsPool, 5));
    PoolView::RunWatchdogPass(clsPool);
    EXPECT_EQ(5, clsPool.GetTaskThreadNum());
    CLS_TaskThread::SetWaitingOvertime(0);
    PoolView::RunWatchdogPass(clsPool);
    EXPECT_EQ(0, clsPool.GetTaskThreadNum());
    EXPECT_THAT(GetIdleOrder(clsPool), IsEmpty());
    ASSERT_TRUE(clsPool.AddTmpTask(funTask, &clsPool, ""));
    PoolView::RunDispatchPass(clsPool);
    EXPECT_TRUE(clsStarted.Wait(6));
    EXPECT_TRUE(WaitForIdle(clsPool, 1));
}

TEST_F(PoolWatchdogTest, ThreadOfThePoolRetiresWorkers)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    CLS_Gate clsRan;
    CLS_TaskThread::SetWaitingOvertime(0);
    ASSERT_TRUE(clsPool.AddTmpTask([&] { clsRan.Open(); }, &clsPool, ""));
    ASSERT_TRUE(clsRan.Wait());
    ASSERT_TRUE(WaitForIdle(clsPool, 1));
    const CLS_FastSleep clsFast; // the three minutes take no real time
    EXPECT_TRUE(WaitUntil([&] { return clsPool.GetTaskThreadNum() == 0; }));
}
} // namespace
