#include "tests/support/PoolView.h"
#include "tests/support/WatchedJoins.h"
#include "tests/support/WorkerView.h"
#include "tests/unit/ShutdownFixture.h"

namespace
{
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class PoolShutdownTest : public CLS_ShutdownFixture
{
protected:
    /// Shuts the pool down, without waiting for the watchdog's real sleep.
    static void EndPool()
    {
        const CLS_FastSleep clsFastSleep(SlowPollsDown);
        CLS_QuenTaskPool::m_pInstance->UnInit();
    }
};

// Pins docs/limits.md, "Odd texts".
TEST_F(PoolShutdownTest, RecordsItsStepsOnAnIdlePoolAndLeavesNoPool)
{
    MakePool().UnInit();

    EXPECT_EQ(nullptr, CLS_QuenTaskPool::m_pInstance);
    EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsBegin(), IsStart(), IsEnd()));
}

TEST_F(PoolShutdownTest, ReturnsPromptlyOnAnIdlePoolWithIdleWorkers)
{
    // Idle threads wait for 1 or 3 seconds at a time. The shutdown must not wait for that timeout.
    const CLS_FastSleep clsFastSleep(SlowPollsDown);
    const auto tpStart = std::chrono::steady_clock::now();
    for (int i = 0; i < 12; ++i)
    {
        RunShortTask(MakePool());
        CLS_QuenTaskPool::m_pInstance->UnInit();
    }
    EXPECT_LT(std::chrono::steady_clock::now() - tpStart, std::chrono::seconds(9));
}

TEST_F(PoolShutdownTest, JoinsTheServiceThreadsInOrderAndThenTheWorkers)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    RunShortTask(clsPool);
    const std::map<pthread_t, std::string> mapNames{
        {PoolView::GetDispatcher(clsPool)->native_handle(), "dispatcher"},
        {PoolView::GetLoopScheduler(clsPool)->native_handle(), "loop scheduler"},
        {PoolView::GetWatchdog(clsPool)->native_handle(), "watchdog"},
        {WorkerView::GetThread(*CopyWorkers(clsPool).begin()->first)->native_handle(), "worker"}};
    std::vector<std::string> vecSteps;
    LogRecorder::Clear();
    LogRecorder::SetHook([&](const LogRecorder::ST_Record& _stRecord)
                         { vecSteps.push_back(_stRecord.m_strMessage); });
    {
        const CLS_WatchedJoins clsJoins(0, [&](pthread_t _idThread)
                                        { vecSteps.push_back(mapNames.at(_idThread)); });
        clsPool.UnInit();
    }
    EXPECT_THAT(vecSteps, ElementsAre("----- TaskPool UnInit begin -----", "dispatcher", "loop scheduler",
                                      "watchdog", "----- TaskPool m_mapAllThreads start -----", "worker",
                                      "----- TaskPool UnInit end -----"));
}

TEST_F(PoolShutdownTest, FreesTheServiceThreadsBeforeItStopsTasks)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    std::vector<std::string> vecSeen;
    LogRecorder::SetHook(
        [&](const LogRecorder::ST_Record& _stRecord)
        {
            if (_stRecord.m_strMessage == "----- TaskPool UnInit begin -----")
            {
                vecSeen.push_back(PoolView::GetRunFlag(clsPool) ? "begins running" : "begins ended");
            }
            if (_stRecord.m_strMessage == "----- TaskPool m_mapAllThreads start -----")
            {
                const bool bFreed = !PoolView::GetDispatcher(clsPool) &&
                                    !PoolView::GetLoopScheduler(clsPool) && !PoolView::GetWatchdog(clsPool);
                vecSeen.push_back(bFreed && !PoolView::GetRunFlag(clsPool) ? "freed" : "not freed");
            }
        });
    clsPool.UnInit();
    EXPECT_THAT(vecSeen, ElementsAre("begins running", "freed"));
}

TEST_F(PoolShutdownTest, AServiceThreadThatHasBeenJoinedIsNotJoinedAgain)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    PoolView::GetRunFlag(clsPool) = false;
    PoolView::GetLoopScheduler(clsPool)->join();

    clsPool.UnInit();

    EXPECT_EQ(nullptr, CLS_QuenTaskPool::m_pInstance);
    EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsBegin(), IsStart(), IsEnd()));
}

TEST_F(PoolShutdownTest, ClearsTheFlagUnderTheLockThatTheDispatcherWaitsWith)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    std::unique_lock<std::mutex> lock(PoolView::GetQueueLock(clsPool));
    CLS_Side clsEnd([&clsPool] { clsPool.UnInit(); });
    EXPECT_TRUE(clsEnd.IsStillRunning());
    EXPECT_TRUE(PoolView::GetRunFlag(clsPool));
    lock.unlock();
    EXPECT_TRUE(clsEnd.Wait());
}

TEST_F(PoolShutdownTest, WaitsInPollsUntilTheRunHasEnded)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    const HeldRun pRun = StartHeldRun(clsPool);
    bool bPoolThere = false;
    // A run of 2 seconds ends between the sixth and the seventh poll.
    const CLS_StopPolls clsPolls(7,
                                 [&]
                                 {
                                     bPoolThere = CLS_QuenTaskPool::m_pInstance == &clsPool;
                                     EndHeldRun(pRun);
                                 });

    clsPool.UnInit();

    EXPECT_TRUE(bPoolThere);
    EXPECT_TRUE(pRun->m_clsOver.IsOpen());
    EXPECT_EQ(7, clsPolls.GetPolls(std::this_thread::get_id()));
    EXPECT_EQ(nullptr, CLS_QuenTaskPool::m_pInstance);
    EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsBegin(), IsStart(), IsEnd()));
}

TEST_F(PoolShutdownTest, LeavesAStoppedTaskInvalidAndRegistered)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    const HeldRun pRun = StartHeldRun(clsPool);
    {
        const CLS_StopPolls clsPolls(1, [&] { EndHeldRun(pRun); });
        clsPool.UnInit();
    }
    const std::shared_ptr<CLS_Task> pTask = CLS_Task::GetTask(pRun->m_strTaskId).lock();
    ASSERT_TRUE(pTask);
    EXPECT_FALSE(pTask->GetValid());
    EXPECT_EQ(TASK_STATUS_IDLE, pTask->GetTaskStatus());
}

TEST_F(PoolShutdownTest, StopsTheRunningTasksOneAfterTheOtherInTheOrderOfTheirWorkers)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    std::map<std::string, HeldRun> mapRuns;
    for (int i = 0; i < 3; ++i)
    {
        const HeldRun pRun = StartHeldRun(clsPool);
        mapRuns[pRun->m_strTaskId] = pRun;
    }
    std::vector<HeldRun> vecInOrder;
    for (const auto& [pThread, strTaskId] : CopyWorkers(clsPool))
    {
        vecInOrder.push_back(mapRuns.at(strTaskId));
    }
    // Each run may end when the log record about the wait for it appears.
    LogRecorder::SetHook(
        [&](const LogRecorder::ST_Record& _stRecord)
        {
            for (const HeldRun& pRun : vecInOrder)
            {
                if (_stRecord.m_strMessage.find(pRun->m_strTaskId) != std::string::npos)
                {
                    EndHeldRun(pRun);
                }
            }
        });
    const CLS_StopPolls clsPolls(0, {});
    clsPool.UnInit();

    EXPECT_THAT(LogRecorder::Take(),
                ElementsAre(IsBegin(), IsStart(), IsWaiting(vecInOrder[0], 11), IsWaiting(vecInOrder[1], 11),
                            IsWaiting(vecInOrder[2], 11), IsEnd()));
    EXPECT_EQ(30, clsPolls.GetPolls(std::this_thread::get_id()));
}

TEST_F(PoolShutdownTest, HoldsNoLockOfThePoolWhileItWaitsForARun)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    const HeldRun pRun = StartHeldRun(clsPool);
    int iFree = 0;
    const CLS_StopPolls clsPolls(
        1,
        [&]
        {
            // Another thread checks, because a thread must not try a lock that it holds.
            const CLS_Side clsSide(
                [&]
                {
                    const auto funTry = [&iFree](auto& _mtxLock)
                    {
                        const std::unique_lock<std::decay_t<decltype(_mtxLock)>> lock(_mtxLock,
                                                                                      std::try_to_lock);
                        iFree += lock.owns_lock() ? 1 : 0;
                    };
                    funTry(PoolView::GetQueueLock(clsPool));
                    funTry(PoolView::GetLoopListLock(clsPool));
                    funTry(PoolView::GetOwnerLock(clsPool));
                    funTry(PoolView::GetIdleLock(clsPool));
                    funTry(PoolView::GetWorkerLock(clsPool));
                    funTry(CLS_Task::m_smTaskDataLock);
                });
            EndHeldRun(pRun);
        });
    clsPool.UnInit();
    EXPECT_EQ(6, iFree);
}

TEST_F(PoolShutdownTest, ForgetsTheLoopTasksBeforeItStopsTasks)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    std::string strTaskId;
    clsPool.AddLoopTask([] {}, 3600000, strTaskId, "loop");
    const HeldRun pRun = StartHeldRun(clsPool);
    std::vector<std::vector<std::string>> vecLists;
    LogRecorder::SetHook(
        [&](const LogRecorder::ST_Record& _stRecord)
        {
            if (_stRecord.m_strMessage == "----- TaskPool m_mapAllThreads start -----")
            {
                vecLists.push_back(PoolView::GetLoopIds(clsPool));
            }
        });
    const CLS_StopPolls clsPolls(1,
                                 [&]
                                 {
                                     vecLists.push_back(PoolView::GetLoopIds(clsPool));
                                     EndHeldRun(pRun);
                                 });
    clsPool.UnInit();
    EXPECT_THAT(vecLists, ElementsAre(ElementsAre(strTaskId), IsEmpty()));
}

TEST_F(PoolShutdownTest, LeavesAStoppedLoopTaskRegisteredWhileANewOneRuns)
{
    CLS_Counter clsOld;
    std::string strOld;
    MakePool().AddLoopTask([&] { clsOld.Add(); }, 0, strOld, "old");
    ASSERT_TRUE(clsOld.Wait(2));
    EndPool();
    const int iRuns = clsOld.Get();

    CLS_Counter clsNew;
    std::string strNew;
    AddLoopTask([&] { clsNew.Add(); }, 0, strNew, "new");

    ASSERT_NE(nullptr, CLS_QuenTaskPool::m_pInstance);
    EXPECT_THAT(PoolView::GetLoopIds(*CLS_QuenTaskPool::m_pInstance), ElementsAre(strNew));
    EXPECT_TRUE(clsNew.Wait(5));
    EXPECT_EQ(iRuns, clsOld.Get());
    EXPECT_TRUE(CLS_Task::GetTask(strOld).lock());
    EXPECT_TRUE(CLS_Task::GetTask(strNew).lock());
    EndPool();
}

TEST_F(PoolShutdownTest, NeitherStopsNorRemovesAnIdleLoopTask)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    CLS_Counter clsRuns;
    std::string strTaskId;
    clsPool.AddLoopTask([&] { clsRuns.Add(); }, 3600000, strTaskId, "loop");
    ASSERT_TRUE(clsRuns.Wait(1));
    ASSERT_TRUE(WaitForIdle(clsPool, 1));
    EndPool();
    const std::shared_ptr<CLS_Task> pTask = CLS_Task::GetTask(strTaskId).lock();
    ASSERT_TRUE(pTask);
    EXPECT_TRUE(pTask->GetValid());
    EXPECT_EQ(TASK_STATUS_IDLE, pTask->GetTaskStatus());
}

TEST_F(PoolShutdownTest, DropsQueuedTasksAndLeavesTheirRecordsWaiting)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    PoolView::GetWorkerLimit(clsPool) = 0; // one worker
    const HeldRun pRun = StartHeldRun(clsPool);
    CLS_Counter clsRuns;
    std::vector<std::string> vecQueued;
    for (int i = 0; i < 3; ++i)
    {
        vecQueued.push_back(MakeTask([&] { clsRuns.Add(); }));
        clsPool.AddWaitingTasks(vecQueued.back());
    }
    {
        const CLS_StopPolls clsPolls(1, [&] { EndHeldRun(pRun); });
        clsPool.UnInit();
    }
    RunShortTask(MakePool()); // a new pool would have run the dropped tasks by now
    EXPECT_EQ(0, clsRuns.Get());
    for (const std::string& strTaskId : vecQueued)
    {
        const std::shared_ptr<CLS_Task> pTask = CLS_Task::GetTask(strTaskId).lock();
        ASSERT_TRUE(pTask);
        EXPECT_EQ(TASK_STATUS_WAITING, pTask->GetTaskStatus());
        EXPECT_TRUE(pTask->GetValid());
    }
    EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsBegin(), IsStart(), IsEnd()));
}

// Pins docs/limits.md, "The next call after a shutdown creates a new pool".
TEST_F(PoolShutdownTest, ANewPoolStartsEmptyWithTheOldRegistry)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    PoolView::GetWorkerLimit(clsPool) = 0;
    const HeldRun pRun = StartHeldRun(clsPool);
    int iOwner = 0;
    ASSERT_TRUE(clsPool.AddTmpTask([] {}, &iOwner, "queued"));
    std::string strLoop;
    clsPool.AddLoopTask([] {}, 10, strLoop, "queued loop");
    {
        const CLS_StopPolls clsPolls(1, [&] { EndHeldRun(pRun); });
        clsPool.UnInit();
    }
    ASSERT_EQ(3u, CLS_Task::m_mapTaskData.size());

    CLS_QuenTaskPool& clsNew = MakePool();
    EXPECT_EQ(300, PoolView::GetWorkerLimit(clsNew));
    EXPECT_TRUE(PoolView::GetRunFlag(clsNew));
    EXPECT_EQ(0, clsNew.GetTaskThreadNum());
    EXPECT_THAT(GetIdleOrder(clsNew), IsEmpty());
    EXPECT_THAT(PoolView::GetLoopIds(clsNew), IsEmpty());
    EXPECT_THAT(PoolView::GetOwnerLists(clsNew), IsEmpty());
    EXPECT_THAT(PoolView::GetTaskOwners(clsNew), IsEmpty());
    EXPECT_EQ(3u, CLS_Task::m_mapTaskData.size());
    EXPECT_EQ(1u, CLS_Task::m_mapTaskData.count(strLoop));
    RunShortTask(clsNew);
}

TEST_F(PoolShutdownTest, KillTaskAllDoesTheSameOnAnIdlePool)
{
    MakePool().KillTaskAll();
    EXPECT_EQ(nullptr, CLS_QuenTaskPool::m_pInstance);
    EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsBegin(), IsStart(), IsEnd()));
    RunShortTask(MakePool());
}

TEST_F(PoolShutdownTest, KillTaskAllWaitsForTheRunInProgress)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    const HeldRun pRun = StartHeldRun(clsPool);
    const CLS_StopPolls clsPolls(3, [&] { EndHeldRun(pRun); });
    clsPool.KillTaskAll();
    EXPECT_TRUE(pRun->m_clsOver.IsOpen());
    EXPECT_EQ(3, clsPolls.GetPolls(std::this_thread::get_id()));
    EXPECT_EQ(nullptr, CLS_QuenTaskPool::m_pInstance);
}

TEST_F(PoolShutdownTest, TheDestructorForgetsTheInstance)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    delete &clsPool;
    EXPECT_EQ(nullptr, CLS_QuenTaskPool::m_pInstance);
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}
TEST_F(PoolShutdownTest, ASecondPoolEndsItsThreadsAndDestroysTheInstance)
{
    const int iThreads = CountThreads();
    const auto pSecond = std::make_unique<CLS_QuenTaskPool>();
    MakePool();
    pSecond->UnInit();
    EXPECT_EQ(nullptr, CLS_QuenTaskPool::m_pInstance);
    EXPECT_FALSE(PoolView::GetDispatcher(*pSecond));
    EXPECT_TRUE(WaitForThreads(iThreads));
}

} // namespace
