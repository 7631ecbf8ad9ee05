#include "tests/support/PoolView.h"
#include "tests/support/RecordMatchers.h"
#include "tests/unit/PoolFixture.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <gmock/gmock.h>

namespace
{
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

/// An operation that removes the task with this id, of this owner.
struct ST_Removal
{
    const char* m_szName;
    std::function<void(const std::string& _strTaskId, void* _pOwner)> m_funRemove;
};

class PoolRemovalHostileTest : public CLS_PoolFixture, public ::testing::WithParamInterface<ST_Removal>
{
protected:
    /// Submits _funTask for the owner and lists it as a loop task too, so that every operation finds it.
    static std::string AddTask(const std::function<void()>& _funTask, void* _pOwner)
    {
        CLS_QuenTaskPool& clsPool = MakePool();
        EXPECT_TRUE(clsPool.AddTmpTask(_funTask, _pOwner, "call"));
        const std::string strTaskId = PoolView::GetQueue(clsPool).back();
        PoolView::AddToLoopTasks(clsPool, strTaskId);
        return strTaskId;
    }

    /// An object for captures. Its destructor calls every operation of the pool.
    std::shared_ptr<void> MakeHostile()
    {
        return MakeEndHook(
            [this]
            {
                CLS_QuenTaskPool& clsPool = MakePool();
                m_idDestroyer = std::this_thread::get_id();
                m_bLocksFree = PoolView::AreLocksFree(clsPool);
                if (m_bLocksFree) // otherwise the calls below would not return
                {
                    std::string strLoopId;
                    clsPool.AddLoopTask([] {}, 3600000, strLoopId, "destructor");
                    EXPECT_TRUE(clsPool.AddTmpTask([] {}, &m_arrOwners[1], "destructor"));
                    EXPECT_TRUE(clsPool.AddTmpTask([] {}, &m_arrOwners[0], "destructor"));
                    clsPool.StopTask(strLoopId);
                    clsPool.RemoveTask(strLoopId, "destructor");
                    clsPool.RemoveTmpTask(&m_arrOwners[1], "destructor");
                    clsPool.RemoveTmpTask(&m_arrOwners[0], "destructor");
                }
                ++m_iDestroyed;
            });
    }

    std::array<int, 2> m_arrOwners{}; ///< their addresses serve as owners
    std::atomic<int> m_iDestroyed{0};
    std::atomic<bool> m_bLocksFree{false};
    std::atomic<std::thread::id> m_idDestroyer{};
};

// Pins docs/limits.md, "Tasks may use the pool".
TEST_P(PoolRemovalHostileTest, CapturedObjectOfAQueuedTaskMayCallThePoolWhenItIsDestroyed)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    const std::string strTaskId = AddTask([pHostile = MakeHostile()] { ADD_FAILURE(); }, &m_arrOwners[0]);
    EXPECT_EQ(0, m_iDestroyed);
    GetParam().m_funRemove(strTaskId, &m_arrOwners[0]);
    EXPECT_EQ(1, m_iDestroyed);
    EXPECT_TRUE(m_bLocksFree);
    EXPECT_EQ(std::this_thread::get_id(), m_idDestroyer.load());
    EXPECT_THAT(PoolView::GetRegistered(), IsEmpty());
    EXPECT_THAT(PoolView::GetOwned(clsPool).count(&m_arrOwners[1]), 0U);
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

// Pins docs/limits.md, "A run may outlast its removal".
TEST_P(PoolRemovalHostileTest, RunThatOutlastsTheRemovalEndsAndIsDestroyedByItsWorker)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    CLS_Gate clsStarted;
    CLS_Gate clsMayEnd;
    std::atomic<bool> bCompleted{false};
    std::atomic<std::thread::id> idWorker{};
    const std::string strTaskId = AddTask(
        [&, pHostile = MakeHostile()]
        {
            idWorker = std::this_thread::get_id();
            clsStarted.Open();
            EXPECT_TRUE(clsMayEnd.Wait());
            EXPECT_EQ(0, m_iDestroyed);
            bCompleted = true;
        },
        &m_arrOwners[0]);
    PoolView::RunDispatchPass(clsPool);
    ASSERT_TRUE(clsStarted.Wait());
    {
        const CLS_FastSleep clsFast;
        GetParam().m_funRemove(strTaskId, &m_arrOwners[0]);
        EXPECT_THAT(clsFast.GetSleeps(), SizeIs(30));
    }
    EXPECT_FALSE(PoolView::IsRegistered(strTaskId));
    EXPECT_EQ(0, m_iDestroyed);
    EXPECT_FALSE(bCompleted);
    EXPECT_THAT(LogRecorder::Take(), SizeIs(4));
    clsMayEnd.Open();
    EXPECT_TRUE(WaitForIdle(clsPool, 1));
    EXPECT_TRUE(bCompleted);
    EXPECT_EQ(1, m_iDestroyed);
    EXPECT_TRUE(m_bLocksFree);
    EXPECT_EQ(idWorker.load(), m_idDestroyer.load());
    EXPECT_THAT(PoolView::GetRegistered(), IsEmpty());
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

// Pins docs/limits.md, "A task that removes itself".
TEST_P(PoolRemovalHostileTest, TaskThatRemovesItselfWaitsTheWholeBoundAndCompletes)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    std::string strTaskId;
    CLS_Gate clsMayStart;
    std::atomic<bool> bCompleted{false};
    std::atomic<std::thread::id> idWorker{};
    strTaskId = AddTask(
        [&, pHostile = MakeHostile()]
        {
            EXPECT_TRUE(clsMayStart.Wait());
            idWorker = std::this_thread::get_id();
            GetParam().m_funRemove(strTaskId, &m_arrOwners[0]);
            EXPECT_FALSE(PoolView::IsRegistered(strTaskId));
            EXPECT_EQ(0, m_iDestroyed);
            bCompleted = true;
        },
        &m_arrOwners[0]);
    PoolView::RunDispatchPass(clsPool);
    {
        const CLS_FastSleep clsFast;
        clsMayStart.Open();
        EXPECT_TRUE(WaitForIdle(clsPool, 1));
        EXPECT_THAT(clsFast.GetSleeps(idWorker), SizeIs(30));
    }
    EXPECT_TRUE(bCompleted);
    EXPECT_EQ(1, m_iDestroyed);
    EXPECT_TRUE(m_bLocksFree);
    const std::string strParam = MakeParamText(strTaskId, "call");
    EXPECT_THAT(LogRecorder::Take(),
                ElementsAre(IsTaskRecord(2, "Stop", "Stop Task waiting task info : [" + strParam + "] 11"),
                            IsTaskRecord(2, "Stop", "Stop Task waiting task info : [" + strParam + "] 21"),
                            IsTaskRecord(2, "Stop", "Stop Task waiting task info : [" + strParam + "] 31"),
                            IsTaskRecord(3, "Stop", "StopTask overtime task info : [" + strParam + "]")));
    EXPECT_THAT(PoolView::GetRegistered(), IsEmpty());
    EXPECT_EQ(0U, PoolView::GetOwners(clsPool).count(strTaskId));
    PoolView::RunLoopPass(clsPool);
    EXPECT_EQ(0, std::count(PoolView::GetWaitingIds(clsPool).begin(), PoolView::GetWaitingIds(clsPool).end(),
                            strTaskId));
}

const ST_Removal REMOVALS[] = {
    {"ByOwner", [](const std::string&, void* _pOwner)
     { CLS_QuenTaskPool::m_pInstance->RemoveTmpTask(_pOwner, "remove"); }},
    {"RemoveTask", [](const std::string& _strTaskId, void*)
     { CLS_QuenTaskPool::m_pInstance->RemoveTask(_strTaskId, "remove"); }},
    {"KillTask", [](const std::string& _strTaskId, void*)
     { CLS_QuenTaskPool::m_pInstance->KillTask(_strTaskId, "remove"); }},
};
INSTANTIATE_TEST_SUITE_P(Operations, PoolRemovalHostileTest, ::testing::ValuesIn(REMOVALS),
                         [](const auto& _stInfo) { return std::string(_stInfo.param.m_szName); });

using PoolRemovalLoadTest = CLS_PoolFixture;

TEST_F(PoolRemovalLoadTest, TenThousandOwnersComeAndGo)
{
    constexpr std::size_t OWNERS = 10000;
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    std::vector<std::atomic<int>> vecOwners(OWNERS); // each is an owner and counts its runs
    for (std::atomic<int>& iRuns : vecOwners)
    {
        ASSERT_TRUE(clsPool.AddTmpTask([&iRuns] { ++iRuns; }, &iRuns, ""));
    }
    EXPECT_EQ(OWNERS, PoolView::GetOwned(clsPool).size());
    for (std::size_t i = 0; i < OWNERS; i += 2)
    {
        clsPool.RemoveTmpTask(&vecOwners[i], "");
    }
    EXPECT_EQ(OWNERS / 2, PoolView::GetOwned(clsPool).size());
    EXPECT_EQ(OWNERS / 2, PoolView::GetOwners(clsPool).size());
    EXPECT_EQ(OWNERS / 2, PoolView::GetRegistered().size());
    StartDispatcher(clsPool);
    EXPECT_TRUE(WaitUntil([&] { return PoolView::GetOwned(clsPool).empty(); }));
    EXPECT_THAT(PoolView::GetOwners(clsPool), IsEmpty());
    for (std::size_t i = 0; i < OWNERS; ++i)
    {
        ASSERT_EQ(static_cast<int>(i % 2), vecOwners[i]) << "owner " << i;
    }
    EXPECT_EQ(OWNERS / 2, PoolView::GetRegistered().size());
}

TEST_F(PoolRemovalLoadTest, OneOwnerWithManyQueuedTasksIsRemoved)
{
    constexpr int TASKS = MANY_TASKS;
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    int iOwner = 0;
    std::atomic<int> iRuns{0};
    const auto pCaptured = std::make_shared<int>();
    for (int i = 0; i < TASKS; ++i)
    {
        ASSERT_TRUE(clsPool.AddTmpTask([&iRuns, pCaptured] { ++iRuns; }, &iOwner, ""));
    }
    EXPECT_THAT(PoolView::GetOwned(clsPool).at(&iOwner), SizeIs(TASKS));
    clsPool.RemoveTmpTask(&iOwner, "");
    EXPECT_THAT(PoolView::GetRegistered(), IsEmpty());
    EXPECT_THAT(PoolView::GetOwned(clsPool), IsEmpty());
    EXPECT_THAT(PoolView::GetOwners(clsPool), IsEmpty());
    EXPECT_EQ(1, pCaptured.use_count());
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
    EXPECT_THAT(PoolView::GetQueue(clsPool), SizeIs(TASKS));
    CLS_Counter clsReports;
    LogRecorder::SetHook([&](const LogRecorder::ST_Record&) { clsReports.Add(); });
    StartDispatcher(clsPool);
    EXPECT_TRUE(clsReports.Wait(TASKS)); // a worker receives each id and does not find the task
    EXPECT_TRUE(PoolView::WaitForAllIdle(clsPool));
    LogRecorder::SetHook({});
    EXPECT_EQ(0, iRuns);
}

TEST_F(PoolRemovalLoadTest, OneOwnerWithManyTasksSeesEachRunOnce)
{
    constexpr int TASKS = MANY_TASKS;
    CLS_QuenTaskPool& clsPool = MakePool();
    int iOwner = 0;
    std::vector<std::atomic<int>> vecRuns(TASKS);
    for (std::atomic<int>& iRuns : vecRuns)
    {
        ASSERT_TRUE(clsPool.AddTmpTask([&iRuns] { ++iRuns; }, &iOwner, ""));
    }
    EXPECT_TRUE(WaitUntil([&] { return vecRuns.back() == 1 && PoolView::GetQueue(clsPool).empty(); }));
    EXPECT_TRUE(PoolView::WaitForAllIdle(clsPool));
    EXPECT_TRUE(std::all_of(vecRuns.begin(), vecRuns.end(), [](const auto& _iRuns) { return _iRuns == 1; }));
    EXPECT_THAT(PoolView::GetRegistered(), SizeIs(TASKS));
    // A task that ran before its owner was noted is still in the owner maps.
    clsPool.RemoveTmpTask(&iOwner, "");
    EXPECT_THAT(PoolView::GetOwned(clsPool), IsEmpty());
    EXPECT_THAT(PoolView::GetOwners(clsPool), IsEmpty());
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

/// An owner in the stress test. The test writes the plain flag after the owner's removal, and the tasks read
/// it. So a task that runs later also causes a data race.
struct ST_WatchedOwner
{
    bool m_bRemoved = false;
    std::atomic<int> m_iRuns{0};
};

TEST_F(PoolRemovalLoadTest, NoTaskOfAnOwnerRunsAfterItsRemovalWhateverOtherThreadsDo)
{
    constexpr std::size_t HOSTS = 4;
    constexpr std::size_t OWNERS = 60;
    CLS_QuenTaskPool& clsPool = MakePool();
    std::array<std::array<ST_WatchedOwner, OWNERS>, HOSTS> arrOwners;
    std::atomic<int> iLateRuns{0};
    std::vector<std::thread> vecHosts;
    for (std::size_t iHost = 0; iHost < HOSTS; ++iHost)
    {
        vecHosts.emplace_back(
            [&, iHost]
            {
                for (ST_WatchedOwner& stOwner : arrOwners[iHost])
                {
                    const auto funTask = [&]
                    {
                        iLateRuns += stOwner.m_bRemoved ? 1 : 0;
                        ++stOwner.m_iRuns;
                    };
                    std::string strLoopId;
                    clsPool.AddLoopTask(funTask, 0, strLoopId, "");
                    for (int iTask = 0; iTask < 8; ++iTask)
                    {
                        EXPECT_TRUE(clsPool.AddTmpTask(funTask, &stOwner, ""));
                    }
                    clsPool.RemoveTask(strLoopId, "");
                    clsPool.RemoveTmpTask(&stOwner, "");
                    stOwner.m_bRemoved = true;
                }
            });
    }
    for (std::thread& thHost : vecHosts)
    {
        thHost.join();
    }
    EXPECT_TRUE(WaitUntil([&] { return PoolView::GetQueue(clsPool).empty(); }));
    EXPECT_TRUE(PoolView::WaitForAllIdle(clsPool));
    EXPECT_EQ(0, iLateRuns);
    EXPECT_THAT(PoolView::GetOwned(clsPool), IsEmpty());
    EXPECT_THAT(PoolView::GetOwners(clsPool), IsEmpty());
    EXPECT_THAT(PoolView::GetLoopTasks(clsPool), IsEmpty());
    clsPool.UnInit();
    EXPECT_EQ(0, iLateRuns);
}

TEST_F(PoolRemovalLoadTest, ThreadsRemoveTheSameTasksAtOnce)
{
    constexpr int ROUNDS = 200;
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    for (int iRound = 0; iRound < ROUNDS; ++iRound)
    {
        int iOwner = 0;
        std::string strLoopId;
        clsPool.AddLoopTask([] {}, 0, strLoopId, "");
        for (int iTask = 0; iTask < 3; ++iTask)
        {
            ASSERT_TRUE(clsPool.AddTmpTask([] {}, &iOwner, ""));
        }
        const auto funRemove = [&]
        {
            clsPool.RemoveTmpTask(&iOwner, "");
            clsPool.RemoveTask(strLoopId, "");
        };
        std::thread thOther(funRemove);
        funRemove();
        thOther.join();
        ASSERT_THAT(PoolView::GetRegistered(), IsEmpty());
        ASSERT_THAT(PoolView::GetOwners(clsPool), IsEmpty());
    }
    EXPECT_THAT(PoolView::GetOwned(clsPool), IsEmpty());
    EXPECT_THAT(PoolView::GetLoopTasks(clsPool), IsEmpty());
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}
} // namespace
