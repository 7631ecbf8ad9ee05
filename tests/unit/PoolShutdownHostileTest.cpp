#include "QuenPlugins/ZelTaskPool/CLS_ShutdownClaim.h"
#include "tests/support/PoolView.h"
#include "tests/support/ShutdownClaimView.h"
#include "tests/unit/ShutdownFixture.h"

#include <list>
#include <memory>
#include <stdexcept>

namespace
{
using ::testing::ElementsAre;
using ::testing::UnorderedElementsAre;

/// Tests that shut the pool down during a run.
class PoolShutdownHostileTest : public CLS_ShutdownFixture
{
protected:
    /// The state that a worker accesses when its run ends.
    struct ST_Snapshot
    {
        std::map<CLS_TaskThread*, std::string> m_mapWorkers;
        std::vector<CLS_TaskThread*> m_vecIdle;
        std::map<void*, std::list<std::string>> m_mapTmpTasks;
        std::map<std::string, void*> m_mapOwners;

        bool operator==(const ST_Snapshot& _stOther) const
        {
            return m_mapWorkers == _stOther.m_mapWorkers && m_vecIdle == _stOther.m_vecIdle &&
                   m_mapTmpTasks == _stOther.m_mapTmpTasks && m_mapOwners == _stOther.m_mapOwners;
        }
    };

    static ST_Snapshot MakeSnapshot(CLS_QuenTaskPool& _clsPool)
    {
        ST_Snapshot stSnapshot;
        stSnapshot.m_mapWorkers = CopyWorkers(_clsPool);
        {
            const std::lock_guard<std::mutex> lock(PoolView::GetIdleLock(_clsPool));
            stSnapshot.m_vecIdle = PoolView::GetIdleWorkers(_clsPool);
        }
        const std::lock_guard<std::mutex> lock(PoolView::GetOwnerLock(_clsPool));
        stSnapshot.m_mapTmpTasks = PoolView::GetOwnerLists(_clsPool);
        stSnapshot.m_mapOwners = PoolView::GetTaskOwners(_clsPool);
        return stSnapshot;
    }

    /// Shuts the pool down without real waits, even while tasks run. Returns the pool's address.
    static std::uintptr_t OutrunPool()
    {
        const auto uiAddress = reinterpret_cast<std::uintptr_t>(CLS_QuenTaskPool::m_pInstance);
        const CLS_FastSleep clsFastSleep;
        CLS_QuenTaskPool::m_pInstance->UnInit();
        return uiAddress;
    }

    /// Makes a new pool. It has the same address if the memory is reused, which sanitizers prevent.
    static CLS_QuenTaskPool& MakePoolAt(std::uintptr_t _uiAddress)
    {
        for (int i = 0; i < 20; ++i)
        {
            if (reinterpret_cast<std::uintptr_t>(&MakePool()) == _uiAddress)
            {
                break;
            }
            OutrunPool();
        }
        LogRecorder::Clear();
        return MakePool();
    }

    static constexpr int SERVICE_THREADS = 3;

    void SetUp() override
    {
        CLS_ShutdownFixture::SetUp();
        m_iThreads = CountThreads();
    }

    int m_iThreads = 0;
};

TEST_F(PoolShutdownHostileTest, ReturnsWhenARunOutlastsTheBound)
{
    const HeldRun pRun = StartHeldRun(MakePool());
    {
        const CLS_StopPolls clsPolls(0, {});
        CLS_QuenTaskPool::m_pInstance->UnInit();
        EXPECT_EQ(30, clsPolls.GetPolls(std::this_thread::get_id()));
    }
    EXPECT_FALSE(pRun->m_clsOver.IsOpen());
    EXPECT_EQ(nullptr, CLS_QuenTaskPool::m_pInstance);
    EXPECT_THAT(LogRecorder::Take(),
                ElementsAre(IsBegin(), IsStart(), IsWaiting(pRun, 11), IsWaiting(pRun, 21),
                            IsWaiting(pRun, 31), IsOvertime(pRun), IsEnd()));
    EXPECT_TRUE(WaitForThreads(m_iThreads + 1));
    EndHeldRun(pRun);
    EXPECT_TRUE(WaitForThreads(m_iThreads));
}

TEST_F(PoolShutdownHostileTest, ALateRunTouchesNothingOfANewPool)
{
    const HeldRun pLate = StartHeldRun(MakePool());
    CLS_QuenTaskPool& clsNew = MakePoolAt(OutrunPool());
    RunShortTask(clsNew);
    const HeldRun pNew = StartHeldRun(clsNew);
    const HeldRun pOther = StartHeldRun(clsNew);
    EndHeldRun(pOther);
    ASSERT_TRUE(WaitForIdle(clsNew, 1));
    const ST_Snapshot stBefore = MakeSnapshot(clsNew);

    EndHeldRun(pLate);

    EXPECT_TRUE(WaitForThreads(m_iThreads + SERVICE_THREADS + 2));
    EXPECT_TRUE(stBefore == MakeSnapshot(clsNew));
    EXPECT_EQ(TASK_STATUS_IDLE, CLS_Task::GetTask(pLate->m_strTaskId).lock()->GetTaskStatus());
    EXPECT_THAT(LogRecorder::Take(), ::testing::IsEmpty());
    EndHeldRun(pNew);
}

TEST_F(PoolShutdownHostileTest, TwoLateRunsAtOnceEndTheirThreads)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    const HeldRun pFirst = StartHeldRun(clsPool);
    const HeldRun pSecond = StartHeldRun(clsPool);
    {
        const CLS_StopPolls clsPolls(0, {});
        clsPool.UnInit();
        EXPECT_EQ(60, clsPolls.GetPolls(std::this_thread::get_id()));
    }
    EXPECT_THAT(LogRecorder::Take(),
                UnorderedElementsAre(IsBegin(), IsStart(), IsWaiting(pFirst, 11), IsWaiting(pFirst, 21),
                                     IsWaiting(pFirst, 31), IsOvertime(pFirst), IsWaiting(pSecond, 11),
                                     IsWaiting(pSecond, 21), IsWaiting(pSecond, 31), IsOvertime(pSecond),
                                     IsEnd()));
    CLS_QuenTaskPool& clsNew = MakePool();
    RunShortTask(clsNew);
    const ST_Snapshot stBefore = MakeSnapshot(clsNew);
    pFirst->m_clsMayEnd.Open();
    EndHeldRun(pSecond);
    EndHeldRun(pFirst);
    EXPECT_TRUE(WaitForThreads(m_iThreads + SERVICE_THREADS + 1));
    EXPECT_TRUE(stBefore == MakeSnapshot(clsNew));
}

TEST_F(PoolShutdownHostileTest, EndsTheOtherWorkersWhenOneIsAbandoned)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    const HeldRun pLate = StartHeldRun(clsPool);
    const HeldRun pIdle = StartHeldRun(clsPool);
    EndHeldRun(pIdle);
    ASSERT_TRUE(WaitForIdle(clsPool, 1));
    OutrunPool();
    EXPECT_TRUE(WaitForThreads(m_iThreads + 1));
    EndHeldRun(pLate);
    EXPECT_TRUE(WaitForThreads(m_iThreads));
}

TEST_F(PoolShutdownHostileTest, ALateRunMayUseTheNewPool)
{
    CLS_Counter clsRuns;
    const HeldRun pLate =
        StartHeldRun(MakePool(),
                     [&clsRuns]
                     {
                         EXPECT_TRUE(AddTmpTask([&clsRuns] { clsRuns.Add(); }, &clsRuns, "late"));
                         EXPECT_TRUE(clsRuns.Wait(1)); // another worker runs it
                         clsRuns.Add();
                     });
    CLS_QuenTaskPool& clsNew = MakePoolAt(OutrunPool());
    EndHeldRun(pLate);
    EXPECT_TRUE(clsRuns.Wait(2));
    EXPECT_EQ(1, clsNew.GetTaskThreadNum());
    ASSERT_TRUE(WaitForIdle(clsNew, 1));
    EXPECT_TRUE(WaitForThreads(m_iThreads + SERVICE_THREADS + 1));
}

TEST_F(PoolShutdownHostileTest, AnExceptionOfALateRunIsStillRecorded)
{
    const HeldRun pLate = StartHeldRun(MakePool(), [] { throw std::runtime_error("too late"); });
    OutrunPool();
    LogRecorder::Clear();
    pLate->m_clsMayEnd.Open();
    EXPECT_TRUE(WaitForThreads(m_iThreads));
    EXPECT_THAT(
        LogRecorder::Take(),
        ElementsAre(IsTaskRecord(3, "Running", "run function error :too late param :" + pLate->m_strParam)));
}

TEST_F(PoolShutdownHostileTest, ALateRunReleasesItsRemovedTask)
{
    const HeldRun pLate = StartHeldRun(MakePool());
    OutrunPool();
    const std::weak_ptr<CLS_Task> pTask = CLS_Task::GetTask(pLate->m_strTaskId);
    CLS_Task::DeleteTask(pLate->m_strTaskId);
    EXPECT_FALSE(pTask.expired());
    EndHeldRun(pLate);
    EXPECT_TRUE(WaitForThreads(m_iThreads));
    EXPECT_TRUE(pTask.expired());
}

TEST_F(PoolShutdownHostileTest, ATaskThatRemovesItselfAndEndsThePoolIsAbandoned)
{
    // Its run can no longer be stopped, and the shutdown does not wait for its own thread.
    std::string strTaskId;
    CLS_Gate clsKnown;
    CLS_Gate clsOver;
    const CLS_FastSleep clsFastSleep;
    AddLoopTask(
        [&]
        {
            EXPECT_TRUE(clsKnown.Wait());
            RemoveTask(strTaskId, "self");
            UnInit();
            EXPECT_EQ(nullptr, CLS_QuenTaskPool::m_pInstance);
            clsOver.Open();
        },
        3600000, strTaskId, "self");
    const auto tpStart = std::chrono::steady_clock::now();
    clsKnown.Open();
    EXPECT_TRUE(clsOver.Wait());
    EXPECT_LT(std::chrono::steady_clock::now() - tpStart, std::chrono::seconds(8));
    EXPECT_TRUE(WaitForThreads(m_iThreads));
    EXPECT_EQ(nullptr, CLS_QuenTaskPool::m_pInstance);
    EXPECT_FALSE(CLS_Task::GetTask(strTaskId).lock());
}

TEST_F(PoolShutdownHostileTest, ReturnsWhenEveryWorkerHangs)
{
    constexpr int WORKERS = 301;
    CLS_QuenTaskPool& clsPool = MakePool();
    // Shared with the workers, which are abandoned: nothing orders their last steps before the test's end.
    struct ST_Hanging
    {
        CLS_Counter m_clsStarted;
        CLS_Gate m_clsMayEnd;
    };
    const auto pHanging = std::make_shared<ST_Hanging>();
    for (int i = 0; i < WORKERS + 10; ++i) // the last tasks never get a worker
    {
        ASSERT_TRUE(clsPool.AddTmpTask(
            [pHanging]
            {
                pHanging->m_clsStarted.Add();
                EXPECT_TRUE(pHanging->m_clsMayEnd.Wait());
            },
            pHanging.get(), "hanging"));
    }
    ASSERT_TRUE(pHanging->m_clsStarted.Wait(WORKERS));
    {
        const CLS_StopPolls clsPolls(0, {});
        clsPool.UnInit();
        EXPECT_EQ(WORKERS * 30, clsPolls.GetPolls(std::this_thread::get_id()));
    }
    EXPECT_EQ(nullptr, CLS_QuenTaskPool::m_pInstance);
    EXPECT_TRUE(WaitForThreads(m_iThreads + WORKERS));
    RunShortTask(MakePool()); // each pool has its own limit
    pHanging->m_clsMayEnd.Open();
    EXPECT_TRUE(WaitForThreads(m_iThreads + SERVICE_THREADS + 1));
    EXPECT_EQ(WORKERS, pHanging->m_clsStarted.Get());
}

TEST_F(PoolShutdownHostileTest, ALateRunMayRemoveItselfAfterItsPoolIsGone)
{
    HeldRun pLate;
    CLS_Gate clsRemoved;
    pLate = StartHeldRun(MakePool(),
                         [&]
                         {
                             const CLS_FastSleep clsFastSleep; // the task waits for itself
                             RemoveTask(pLate->m_strTaskId, "late");
                             clsRemoved.Open();
                         });
    OutrunPool();
    EXPECT_EQ(nullptr, CLS_QuenTaskPool::m_pInstance);
    pLate->m_clsMayEnd.Open();
    EXPECT_TRUE(clsRemoved.Wait());
    EXPECT_TRUE(WaitForThreads(m_iThreads + SERVICE_THREADS));
    EXPECT_FALSE(CLS_Task::GetTask(pLate->m_strTaskId).lock());
    EXPECT_EQ(0, CLS_QuenTaskPool::m_pInstance->GetTaskThreadNum());
}

TEST_F(PoolShutdownHostileTest, CapturedObjectsOfALateRunMayUseThePoolWhenDestroyed)
{
    CLS_Gate clsRan;
    const HeldRun pLate = StartHeldRun(
        MakePool(),
        [pHook = MakeEndHook([&clsRan] { AddTmpTask([&clsRan] { clsRan.Open(); }, &clsRan, "end"); })] {});
    OutrunPool();
    CLS_Task::DeleteTask(pLate->m_strTaskId);
    EXPECT_FALSE(clsRan.IsOpen());
    EndHeldRun(pLate);
    EXPECT_TRUE(clsRan.Wait()); // in a pool that the destructor built
    EXPECT_TRUE(WaitForThreads(m_iThreads + SERVICE_THREADS + 1));
}

TEST_F(PoolShutdownHostileTest, WaitsForAHostsJobOnAWorkerAndThenEndsItsThread)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    CLS_Gate clsBegun;
    CLS_Gate clsMayEnd;
    std::atomic<bool> bOver{false};
    clsPool.CreateTaskThread()->AddFunction(
        [&](CLS_TaskThread*)
        {
            clsBegun.Open();
            EXPECT_TRUE(clsMayEnd.Wait());
            bOver = true;
        });
    ASSERT_TRUE(clsBegun.Wait());
    CLS_Side clsEnd([&clsPool] { clsPool.UnInit(); });
    EXPECT_TRUE(clsEnd.IsStillRunning());
    clsMayEnd.Open();
    EXPECT_TRUE(clsEnd.Wait());
    EXPECT_TRUE(bOver);
}

TEST_F(PoolShutdownHostileTest, AHostsJobOnAWorkerMayEndThePoolAndIsAbandoned)
{
    CLS_Gate clsOver;
    MakePool().CreateTaskThread()->AddFunction(
        [&clsOver](CLS_TaskThread*)
        {
            UnInit();
            EXPECT_EQ(nullptr, CLS_QuenTaskPool::m_pInstance);
            clsOver.Open();
        });
    EXPECT_TRUE(clsOver.Wait());
    EXPECT_TRUE(WaitForThreads(m_iThreads));
}

TEST_F(PoolShutdownHostileTest, AHostsJobThatRunsATaskLeavesThePoolAloneAfterItsEnd)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    CLS_TaskThread* const pThread = clsPool.CreateTaskThread();
    const std::string strTaskId = MakeTask([] { OutrunPool(); });
    {
        const std::lock_guard<std::shared_mutex> lock(PoolView::GetWorkerLock(clsPool));
        PoolView::GetWorkers(clsPool).at(pThread) = strTaskId;
    }
    CLS_Gate clsOver;
    pThread->AddFunction(
        [&](CLS_TaskThread* _pThread)
        {
            clsPool.FunRunTask(_pThread); // the pool shuts down during this call
            clsPool.FunRunTask(_pThread); // touches nothing
            clsOver.Open();
        });
    EXPECT_TRUE(clsOver.Wait());
    EXPECT_TRUE(WaitForThreads(m_iThreads));
    EXPECT_EQ(nullptr, CLS_QuenTaskPool::m_pInstance);
}

TEST_F(PoolShutdownHostileTest, AnAbandonedWorkerIsNoThreadOfThePoolOnceItHasEnded)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    CLS_TaskThread* const pThread = clsPool.CreateTaskThread();
    const std::thread::id idThread = pThread->GetThreadId();
    const auto pRun = std::make_shared<ST_HeldRun>();
    pThread->AddFunction(
        [pRun](CLS_TaskThread*)
        {
            pRun->m_clsStarted.Open();
            EXPECT_TRUE(pRun->m_clsMayEnd.Wait());
        });
    ASSERT_TRUE(pRun->m_clsStarted.Wait());
    EXPECT_FALSE(pThread->GetRunGate().Close(std::chrono::steady_clock::now()));
    // During the shutdown, a host's thread may get the same thread id. That thread must wait.
    PoolView::ForgetWorker(clsPool, pThread);
    pRun->m_clsMayEnd.Open();
    EXPECT_TRUE(WaitForThreads(m_iThreads + SERVICE_THREADS));
    EXPECT_FALSE(ShutdownClaimView::IsOwnThread(&clsPool, idThread));
    clsPool.UnInit();
}

struct ST_WayToEnd
{
    const char* m_szName;
    void (*m_funEnd)();
};

void PrintTo(const ST_WayToEnd& _stEnd, std::ostream* _pOut)
{
    *_pOut << _stEnd.m_szName;
}

/// Tests in which a task shuts its own pool down, in each of the possible ways.
class PoolShutdownSelfTest : public PoolShutdownHostileTest, public ::testing::WithParamInterface<ST_WayToEnd>
{
};

// Pins docs/limits.md, "A shutdown from a task".
TEST_P(PoolShutdownSelfTest, ATaskThatEndsItsPoolIsBoundedAndSurvives)
{
    bool bGone = false;
    const HeldRun pRun = StartHeldRun(MakePool(),
                                      [&bGone]
                                      {
                                          GetParam().m_funEnd();
                                          bGone = CLS_QuenTaskPool::m_pInstance == nullptr;
                                      });
    {
        const CLS_StopPolls clsPolls(0, {});
        EndHeldRun(pRun);
        EXPECT_TRUE(WaitForThreads(m_iThreads));
    }
    EXPECT_TRUE(bGone);
    EXPECT_EQ(nullptr, CLS_QuenTaskPool::m_pInstance);
    EXPECT_THAT(LogRecorder::Take(),
                ElementsAre(IsBegin(), IsStart(), IsWaiting(pRun, 11), IsWaiting(pRun, 21),
                            IsWaiting(pRun, 31), IsOvertime(pRun), IsEnd()));
    RunShortTask(MakePool());
}

TEST_P(PoolShutdownSelfTest, ATaskThatEndsItsPoolMayBuildANewOneAndTouchesNothingOfIt)
{
    ST_Snapshot stBefore;
    const HeldRun pRun = StartHeldRun(MakePool(),
                                      [&stBefore]
                                      {
                                          GetParam().m_funEnd();
                                          CLS_QuenTaskPool& clsNew = MakePool();
                                          RunShortTask(clsNew);
                                          stBefore = MakeSnapshot(clsNew);
                                      });
    {
        const CLS_FastSleep clsFastSleep;
        EndHeldRun(pRun);
    }
    EXPECT_TRUE(WaitForThreads(m_iThreads + SERVICE_THREADS + 1));
    ASSERT_NE(nullptr, CLS_QuenTaskPool::m_pInstance);
    EXPECT_TRUE(stBefore == MakeSnapshot(*CLS_QuenTaskPool::m_pInstance));
}

INSTANTIATE_TEST_SUITE_P(Ends, PoolShutdownSelfTest,
                         ::testing::Values(ST_WayToEnd{"MemberUnInit",
                                                       [] { CLS_QuenTaskPool::GetInstance()->UnInit(); }},
                                           ST_WayToEnd{"MemberKillTaskAll", []
                                                       { CLS_QuenTaskPool::GetInstance()->KillTaskAll(); }},
                                           ST_WayToEnd{"FunctionUnInit", [] { UnInit(); }},
                                           ST_WayToEnd{"FunctionKillTaskAll", [] { KillTaskAll(); }}),
                         [](const ::testing::TestParamInfo<ST_WayToEnd>& _stInfo)
                         { return std::string(_stInfo.param.m_szName); });
} // namespace
