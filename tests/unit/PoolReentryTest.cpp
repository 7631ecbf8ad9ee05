#include "tests/support/PoolView.h"
#include "tests/support/RecordMatchers.h"
#include "tests/support/WatchedJoins.h"
#include "tests/unit/PoolFixture.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <gmock/gmock.h>

namespace
{
using ::testing::Contains;
using ::testing::IsEmpty;

/// The pool is ended, or given work, in the middle of its own operations.
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

    std::array<int, 2> m_arrOwners{}; ///< their addresses serve as owners
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
    // The first poll of the removal lets the runs end, and takes until they have.
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
    clsPool.DispatchPass();
    ASSERT_TRUE(clsStarted.Wait());
    const CLS_Task* const pRunning = CLS_Task::m_mapTaskData.begin()->second.get();
    // The first poll of the removal lets the task submit, and takes until it has ended.
    const CLS_FastSleep clsFastSleep(
        [&](const ST_Sleep&)
        {
            clsRemoving.Open();
            EXPECT_TRUE(WaitUntil([&] { return pRunning->m_iTaskStatus == TASK_STATUS_IDLE; }));
        });
    clsPool.RemoveTmpTask(pOwner, "call");
    EXPECT_THAT(PoolView::GetRegistered(), IsEmpty());
    EXPECT_EQ(0U, PoolView::GetOwned(clsPool).count(pOwner));
    clsPool.DispatchPass(); // the late one was queued: its worker finds nothing to run
    EXPECT_TRUE(WaitForIdle(clsPool, static_cast<std::size_t>(clsPool.GetTaskThreadNum())));
}

TEST_F(PoolReentryTest, OwnerThatIsGivenTasksForEverIsNotRemovedForEver)
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

TEST_F(PoolReentryTest, EndOfThePoolWithinItsEndDoesNothing)
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

TEST_F(PoolReentryTest, KillTaskAllWithinTheEndOfThePoolDoesNothing)
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

TEST_F(PoolReentryTest, ThePoolSurvivesAnEndThatOneOfItsOwnThreadsAsksFor)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    CLS_Gate clsAsked;
    std::atomic<bool> bAsk{true};
    // The watchdog's wait for itself comes after those for the dispatcher and the scheduler.
    const CLS_WatchedJoins clsJoins(3);
    LogRecorder::SetHook(
        [&](const LogRecorder::ST_Record& _stRecord)
        {
            if (_stRecord.m_strMessage == "delete pThread **************" && bAsk.exchange(false))
            {
                clsPool.KillTaskAll();
                clsAsked.Open();
            }
        });
    {
        const CLS_FastSleep clsFastSleep;
        ASSERT_TRUE(clsAsked.Wait());
    }
    EXPECT_EQ(&clsPool, CLS_QuenTaskPool::m_pInstance);
    EXPECT_THAT(LogRecorder::Take(), Contains(IsPoolRecord(3, "UnInit", "UnInit error ")));
    clsPool.UnInit();
    EXPECT_EQ(nullptr, CLS_QuenTaskPool::m_pInstance);
}
} // namespace
