#include "tests/support/FailingMemory.h"
#include "tests/support/FailingThreads.h"
#include "tests/support/PoolView.h"
#include "tests/support/RecordMatchers.h"
#include "tests/support/ThreadCount.h"
#include "tests/support/WatchedJoins.h"
#include "tests/unit/PoolFixture.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <gmock/gmock.h>
#include <new>

namespace
{
using ::testing::Contains;
using ::testing::IsEmpty;

/// The pool is shut down, or gets work, during its own operations.
class PoolReentryTest : public CLS_PoolFixture
{
protected:
    static bool AreAllTasksIdle()
    {
        const std::shared_lock<std::shared_mutex> lock(CLS_Task::m_smTaskDataLock);
        return std::all_of(CLS_Task::m_mapTaskData.begin(), CLS_Task::m_mapTaskData.end(),
                           [](const auto& _pairTask)
                           { return _pairTask.second->GetTaskStatus() == TASK_STATUS_IDLE; });
    }

    /// From now on, "PrintLog" calls KillTaskAll on the first log record with this text.
    void KillWhenRecorded(const std::string& _strMessage)
    {
        CLS_QuenTaskPool* const pPool = CLS_QuenTaskPool::m_pInstance;
        m_idDispatcher = PoolView::GetDispatcher(*pPool)->get_id();
        m_idScheduler = PoolView::GetLoopScheduler(*pPool)->get_id();
        m_idWatchdog = PoolView::GetWatchdog(*pPool)->get_id();
        LogRecorder::SetHook(
            [this, pPool, _strMessage](const LogRecorder::ST_Record& _stRecord)
            {
                if (_stRecord.m_strMessage.rfind(_strMessage, 0) == 0 && !m_bAsked.exchange(true))
                {
                    m_idAsker = std::this_thread::get_id();
                    pPool->KillTaskAll();
                    m_clsReturned.Open();
                }
            });
    }

    /// Expects that KillTaskAll returned on this thread without destroying the pool, and that a host's thread
    /// can shut the pool down.
    void ExpectSurvival(CLS_QuenTaskPool& _clsPool, std::thread::id _idAsker)
    {
        ASSERT_TRUE(m_clsReturned.Wait());
        EXPECT_EQ(_idAsker, m_idAsker.load());
        EXPECT_THAT(LogRecorder::Take(), Contains(IsPoolRecord(3, "UnInit", "UnInit error ")));
        ASSERT_EQ(&_clsPool, CLS_QuenTaskPool::m_pInstance);
        _clsPool.UnInit();
        EXPECT_EQ(nullptr, CLS_QuenTaskPool::m_pInstance);
    }

    std::array<int, 2> m_arrOwners{}; ///< their addresses serve as owners

    CLS_Gate m_clsReturned; ///< opened when KillTaskAll has returned
    std::atomic<std::thread::id> m_idAsker{};
    /// The service threads at the time of KillWhenRecorded.
    std::thread::id m_idDispatcher;
    std::thread::id m_idScheduler;
    std::thread::id m_idWatchdog;

private:
    std::atomic<bool> m_bAsked{false};
};

TEST_F(PoolReentryTest, CapturedObjectMayEndThePoolDuringTheRemovalOfItsOwner)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    CLS_Counter clsStarted;
    CLS_Gate clsMayEnd;
    const auto funRun = [&]
    {
        clsStarted.Add();
        EXPECT_TRUE(clsMayEnd.Wait());
    };
    // The first poll of the removal lets the runs end and waits for them.
    const CLS_FastSleep clsFastSleep(
        [&](const ST_Sleep& _stSleep)
        {
            if (_stSleep.m_msAsked == CLS_Task::STOP_POLL)
            {
                clsMayEnd.Open();
                EXPECT_TRUE(WaitUntil(AreAllTasksIdle));
            }
        });
    auto pFarewell = MakeEndHook([] { CLS_QuenTaskPool::GetInstance()->UnInit(); });
    ASSERT_TRUE(clsPool.AddTmpTask([funRun, pFarewell] { funRun(); }, &m_arrOwners[0], "first"));
    ASSERT_TRUE(clsPool.AddTmpTask(funRun, &m_arrOwners[0], "second"));
    pFarewell.reset();
    ASSERT_TRUE(clsStarted.Wait(2));
    clsPool.RemoveTmpTask(&m_arrOwners[0], "call");
    EXPECT_EQ(nullptr, CLS_QuenTaskPool::m_pInstance);
    EXPECT_THAT(PoolView::GetRegistered(), IsEmpty());
}

TEST_F(PoolReentryTest, TaskThatSubmitsForItsOwnerDuringTheOwnersRemovalLeavesNothingBehind)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    CLS_Gate clsStarted;
    CLS_Gate clsRemoving;
    void* const pOwner = &m_arrOwners[0];
    const auto funSubmit = [&]
    {
        clsStarted.Open();
        EXPECT_TRUE(clsRemoving.Wait());
        EXPECT_TRUE(clsPool.AddTmpTask([] { ADD_FAILURE(); }, pOwner, "late"));
    };
    ASSERT_TRUE(clsPool.AddTmpTask(funSubmit, pOwner, "call"));
    PoolView::RunDispatchPass(clsPool);
    ASSERT_TRUE(clsStarted.Wait());
    CLS_Task* const pRunning = CLS_Task::m_mapTaskData.begin()->second.get();
    // The first poll of the removal lets the task submit and waits until it has ended.
    const CLS_FastSleep clsFastSleep(
        [&](const ST_Sleep&)
        {
            clsRemoving.Open();
            EXPECT_TRUE(WaitUntil([&] { return pRunning->GetTaskStatus() == TASK_STATUS_IDLE; }));
        });
    clsPool.RemoveTmpTask(pOwner, "call");
    EXPECT_THAT(PoolView::GetRegistered(), IsEmpty());
    EXPECT_EQ(0U, PoolView::GetOwned(clsPool).count(pOwner));
    PoolView::RunDispatchPass(clsPool); // the late task was queued, but its worker finds nothing to run
    EXPECT_TRUE(WaitForIdle(clsPool, static_cast<std::size_t>(clsPool.GetTaskThreadNum())));
}

// Pins docs/limits.md, "A removal does not chase new tasks for ever".
TEST_F(PoolReentryTest, RemovalOfAnOwnerThatKeepsGettingTasksEnds)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    void* const pOwner = &m_arrOwners[0];
    int iSubmitted = 0;
    std::function<void()> funSubmit;
    const auto funAdd = [&]
    {
        ++iSubmitted;
        auto pFarewell = MakeEndHook([&] { funSubmit(); });
        ASSERT_TRUE(clsPool.AddTmpTask([pFarewell] {}, pOwner, "call"));
    };
    funSubmit = funAdd;
    funAdd();
    clsPool.RemoveTmpTask(pOwner, "call");
    EXPECT_EQ(31, iSubmitted);
    funSubmit = [] {};
    clsPool.RemoveTmpTask(pOwner, "call");
    EXPECT_THAT(PoolView::GetRegistered(), IsEmpty());
}

// Pins docs/limits.md, "A shutdown during a shutdown".
TEST_F(PoolReentryTest, ShutdownWithinAShutdownDoesNothing)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    CLS_Gate clsStarted;
    CLS_Gate clsEnding;
    std::atomic<bool> bEnded{false};
    const CLS_FastSleep clsFastSleep(
        [](const ST_Sleep& _stSleep)
        {
            if (_stSleep.m_msAsked == CLS_Task::STOP_POLL)
            {
                EXPECT_TRUE(WaitUntil(AreAllTasksIdle));
            }
        });
    LogRecorder::SetHook(
        [&](const LogRecorder::ST_Record& _stRecord)
        {
            if (_stRecord.m_strMessage == "----- TaskPool m_mapAllThreads start -----")
            {
                clsEnding.Open();
            }
        });
    ASSERT_TRUE(clsPool.AddTmpTask(
        [&]
        {
            clsStarted.Open();
            EXPECT_TRUE(clsEnding.Wait());
            clsPool.UnInit();
            bEnded = true;
        },
        &m_arrOwners[0], "call"));
    ASSERT_TRUE(clsStarted.Wait());
    clsPool.UnInit();
    EXPECT_TRUE(bEnded);
    EXPECT_EQ(nullptr, CLS_QuenTaskPool::m_pInstance);
    std::size_t iBegun = 0;
    for (const LogRecorder::ST_Record& stRecord : LogRecorder::Take())
    {
        iBegun += stRecord.m_strMessage == "----- TaskPool UnInit begin -----" ? 1 : 0;
    }
    EXPECT_EQ(1U, iBegun);
}

// Pins docs/limits.md, "A shutdown during a shutdown".
TEST_F(PoolReentryTest, KillTaskAllWithinAShutdownDoesNothing)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    bool bAsked = false;
    LogRecorder::SetHook(
        [&](const LogRecorder::ST_Record& _stRecord)
        {
            if (_stRecord.m_strMessage == "----- TaskPool m_mapAllThreads start -----")
            {
                clsPool.KillTaskAll();
                EXPECT_EQ(&clsPool, CLS_QuenTaskPool::m_pInstance);
                bAsked = true;
            }
        });
    clsPool.UnInit();
    EXPECT_TRUE(bAsked);
    EXPECT_EQ(nullptr, CLS_QuenTaskPool::m_pInstance);
}

TEST_F(PoolReentryTest, KillTaskAllDestroysTheNewPoolThatPrintLogBuildsMeanwhile)
{
    const int iThreads = CountThreads();
    for (const bool bExported : {false, true})
    {
        CLS_QuenTaskPool& clsPool = MakePool();
        // This is allocated while the old pool exists, so the new pool gets another address.
        void* const pMemory = ::operator new(sizeof(CLS_QuenTaskPool));
        bool bBuilt = false;
        LogRecorder::SetHook(
            [&](const LogRecorder::ST_Record& _stRecord)
            {
                if (_stRecord.m_strMessage == "----- TaskPool UnInit end -----" && !bBuilt)
                {
                    EXPECT_EQ(nullptr, CLS_QuenTaskPool::m_pInstance);
                    CLS_QuenTaskPool::m_pInstance = new (pMemory) CLS_QuenTaskPool;
                    bBuilt = true;
                }
            });
        bExported ? KillTaskAll() : clsPool.KillTaskAll();
        EXPECT_TRUE(bBuilt);
        ASSERT_EQ(nullptr, CLS_QuenTaskPool::m_pInstance);
        EXPECT_TRUE(WaitForThreads(iThreads));
    }
}

// Pins docs/limits.md, "A shutdown from PrintLog".
TEST_F(PoolReentryTest, PoolSurvivesAShutdownThatItsWatchdogRequests)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    // The watchdog joins the dispatcher and the scheduler before it tries to join itself.
    const CLS_WatchedJoins clsJoins(3);
    KillWhenRecorded("delete pThread **************");
    {
        const CLS_FastSleep clsFastSleep;
        EXPECT_TRUE(m_clsReturned.Wait());
    }
    ExpectSurvival(clsPool, m_idWatchdog);
}

TEST_F(PoolReentryTest, PoolSurvivesAShutdownThatItsDispatcherRequests)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    const CLS_WatchedJoins clsJoins(1);
    const CLS_FailingThreads clsFailing(1);
    KillWhenRecorded("create task thread error");
    EXPECT_TRUE(clsPool.AddTmpTask([] {}, &m_arrOwners[0], "call"));
    ExpectSurvival(clsPool, m_idDispatcher);
}

TEST_F(PoolReentryTest, PoolSurvivesAShutdownThatItsLoopSchedulerRequests)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    const CLS_WatchedJoins clsJoins(2);
    KillWhenRecorded("*** auto Loop handler fail ***");
    const std::string strTaskId = MakeTask([] {}, 3600000);
    FailingMemory::FailAt(1, m_idScheduler);
    PoolView::AddToLoopTasks(clsPool, strTaskId);
    ExpectSurvival(clsPool, m_idScheduler);
    EXPECT_TRUE(FailingMemory::Stop());
}

TEST_F(PoolReentryTest, PoolSurvivesAFailedShutdownThatAWorkerRequests)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    // UnInit fails on a worker only when one of its steps fails: here, the join of the dispatcher.
    const CLS_WatchedJoins clsJoins(1);
    KillWhenRecorded("run function error ");
    std::atomic<std::thread::id> idWorker{};
    EXPECT_TRUE(clsPool.AddTmpTask(
        [&]
        {
            idWorker = std::this_thread::get_id();
            throw 1;
        },
        &m_arrOwners[0], "call"));
    EXPECT_TRUE(m_clsReturned.Wait());
    ExpectSurvival(clsPool, idWorker);
}
} // namespace
