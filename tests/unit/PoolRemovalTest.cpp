#include "tests/support/PoolView.h"
#include "tests/support/RecordMatchers.h"
#include "tests/unit/PoolFixture.h"

#include <array>
#include <atomic>
#include <chrono>
#include <gmock/gmock.h>

namespace
{
using PoolView::GetTask;
using std::chrono::milliseconds;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

constexpr milliseconds STOP_POLL{300};

class PoolRemovalTest : public CLS_PoolFixture
{
protected:
    /// Submits _iTasks one-shot tasks that do nothing; returns their ids.
    static std::vector<std::string> AddTmpTasks(CLS_QuenTaskPool& _clsPool, void* _pOwner, int _iTasks)
    {
        const std::size_t uiBefore = PoolView::GetQueue(_clsPool).size();
        for (int i = 0; i < _iTasks; ++i)
        {
            EXPECT_TRUE(_clsPool.AddTmpTask([] {}, _pOwner, "tmp"));
        }
        const std::vector<std::string> vecQueue = PoolView::GetQueue(_clsPool);
        return {vecQueue.begin() + static_cast<std::ptrdiff_t>(uiBefore), vecQueue.end()};
    }

    std::array<int, 3> m_arrOwners{}; ///< their addresses serve as owners
};

/// An operation, and the places that hold the task afterwards.
struct ST_RemovalCase
{
    const char* m_szName;
    std::function<void(CLS_QuenTaskPool& _clsPool, const std::string& _strTaskId, void* _pOwner)> m_funRemove;
    bool m_bValid;
    bool m_bRegistered;
    bool m_bListed;
    bool m_bOwned;
};

void PrintTo(const ST_RemovalCase& _stCase, std::ostream* _pOut)
{
    *_pOut << _stCase.m_szName;
}

class PoolRemovalTableTest : public PoolRemovalTest, public ::testing::WithParamInterface<ST_RemovalCase>
{
};

TEST_P(PoolRemovalTableTest, LeavesTheTaskWhereItBelongs)
{
    const ST_RemovalCase& stCase = GetParam();
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    void* const pOwner = &m_arrOwners[0];
    const std::string strTaskId = AddTmpTasks(clsPool, pOwner, 1).at(0);
    PoolView::AddToLoopTasks(clsPool, strTaskId);
    // Another owner's task, which must not change.
    void* const pNeighbour = &m_arrOwners[1];
    const std::string strNeighbour = AddTmpTasks(clsPool, pNeighbour, 1).at(0);
    PoolView::AddToLoopTasks(clsPool, strNeighbour);
    const std::vector<std::string> vecQueue = PoolView::GetQueue(clsPool);

    const std::shared_ptr<CLS_Task> pTask = GetTask(strTaskId);
    stCase.m_funRemove(clsPool, strTaskId, pOwner);

    EXPECT_EQ(stCase.m_bValid, pTask->GetValid());
    EXPECT_EQ(TASK_STATUS_WAITING, pTask->GetTaskStatus());
    EXPECT_EQ(stCase.m_bRegistered, PoolView::IsRegistered(strTaskId));
    std::vector<std::string> vecListed{strTaskId, strNeighbour};
    std::map<void*, std::list<std::string>> mapOwned{{pOwner, {strTaskId}}, {pNeighbour, {strNeighbour}}};
    std::map<std::string, void*> mapOwners{{strTaskId, pOwner}, {strNeighbour, pNeighbour}};
    if (!stCase.m_bListed)
    {
        vecListed = {strNeighbour};
    }
    if (!stCase.m_bOwned)
    {
        mapOwned.erase(pOwner);
        mapOwners.erase(strTaskId);
    }
    EXPECT_EQ(vecListed, PoolView::GetLoopTasks(clsPool));
    EXPECT_EQ(mapOwned, PoolView::GetOwned(clsPool));
    EXPECT_EQ(mapOwners, PoolView::GetOwners(clsPool));
    EXPECT_EQ(vecQueue, PoolView::GetQueue(clsPool));
    EXPECT_TRUE(GetTask(strNeighbour)->GetValid());
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

using Pool = CLS_QuenTaskPool;
const ST_RemovalCase REMOVAL_CASES[] = {
    {"StopTask", [](Pool& _clsPool, const std::string& _strId, void*) { _clsPool.StopTask(_strId); }, false,
     true, true, true},
    {"RemoveTmpTaskById",
     [](Pool& _clsPool, const std::string& _strId, void*) { _clsPool.RemoveTmpTask(_strId); }, true, true,
     true, false},
    {"RemoveTmpTaskByOwner",
     [](Pool& _clsPool, const std::string&, void* _pOwner) { _clsPool.RemoveTmpTask(_pOwner, "info"); },
     false, false, true, false},
    {"RemoveTask",
     [](Pool& _clsPool, const std::string& _strId, void*) { _clsPool.RemoveTask(_strId, "info"); }, false,
     false, false, true},
    {"KillTask", [](Pool& _clsPool, const std::string& _strId, void*) { _clsPool.KillTask(_strId, "info"); },
     false, false, false, true},
};
INSTANTIATE_TEST_SUITE_P(Operations, PoolRemovalTableTest, ::testing::ValuesIn(REMOVAL_CASES),
                         [](const auto& _stInfo) { return std::string(_stInfo.param.m_szName); });

TEST_F(PoolRemovalTest, UnknownIdsAndOwnersAreIgnored)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    const std::vector<std::string> vecIds = AddTmpTasks(clsPool, &m_arrOwners[0], 1);
    PoolView::AddToLoopTasks(clsPool, vecIds[0]);
    for (const std::string& strUnknown : {std::string("nobody's id"), std::string()})
    {
        clsPool.StopTask(strUnknown);
        clsPool.RemoveTmpTask(strUnknown);
        clsPool.RemoveTask(strUnknown, "info");
        clsPool.KillTask(strUnknown, "info");
    }
    clsPool.RemoveTmpTask(nullptr, "info");
    clsPool.RemoveTmpTask(&m_arrOwners[1], "info");
    EXPECT_TRUE(GetTask(vecIds[0])->GetValid());
    EXPECT_EQ(vecIds, PoolView::GetLoopTasks(clsPool));
    EXPECT_THAT(PoolView::GetOwned(clsPool), ElementsAre(Pair(&m_arrOwners[0], ElementsAre(vecIds[0]))));
    EXPECT_THAT(PoolView::GetOwners(clsPool), ElementsAre(Pair(vecIds[0], &m_arrOwners[0])));
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

TEST_F(PoolRemovalTest, OwnersTasksAreStoppedAndUnregisteredOneAfterTheOtherInOrder)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    const std::vector<std::string> vecIds = AddTmpTasks(clsPool, &m_arrOwners[0], 3);
    std::vector<std::shared_ptr<CLS_Task>> vecTasks;
    for (const std::string& strTaskId : vecIds)
    {
        vecTasks.push_back(GetTask(strTaskId));
        vecTasks.back()->SetTaskStatus(TASK_STATUS_RUNNING);
    }
    std::size_t uiWaitedFor = 0;
    {
        // Each run ends during the first sleep of the wait for it.
        const CLS_FastSleep clsFast(
            [&](const ST_Sleep&)
            {
                EXPECT_TRUE(PoolView::AreLocksFree(clsPool));
                EXPECT_THAT(PoolView::GetOwned(clsPool), IsEmpty());
                EXPECT_THAT(PoolView::GetOwners(clsPool), IsEmpty());
                for (std::size_t i = 0; i < vecIds.size(); ++i)
                {
                    EXPECT_FALSE(vecTasks[i]->GetValid());
                    EXPECT_EQ(i >= uiWaitedFor, PoolView::IsRegistered(vecIds[i]));
                }
                vecTasks.at(uiWaitedFor++)->SetTaskStatus(TASK_STATUS_IDLE);
            });
        clsPool.RemoveTmpTask(&m_arrOwners[0], "info");
        EXPECT_EQ(3U, clsFast.GetSleeps().size());
    }
    EXPECT_EQ(3U, uiWaitedFor);
    EXPECT_THAT(PoolView::GetRegistered(), IsEmpty());
    EXPECT_THAT(PoolView::GetOwned(clsPool), IsEmpty());
    EXPECT_THAT(PoolView::GetOwners(clsPool), IsEmpty());
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

TEST_F(PoolRemovalTest, TasksSubmittedDuringTheRemovalArePolledAsSlowlyAsTheOthers)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    std::vector<std::shared_ptr<CLS_Task>> vecTasks;
    const auto funAddRunning = [&]
    {
        vecTasks.push_back(GetTask(AddTmpTasks(clsPool, &m_arrOwners[0], 1).front()));
        vecTasks.back()->SetTaskStatus(TASK_STATUS_RUNNING);
    };
    funAddRunning();
    std::vector<milliseconds> vecSleeps;
    {
        const CLS_FastSleep clsFast(
            [&](const ST_Sleep& _stSleep)
            {
                vecSleeps.push_back(_stSleep.m_msAsked);
                vecTasks.back()->SetTaskStatus(TASK_STATUS_IDLE);
                if (vecTasks.size() == 1)
                {
                    funAddRunning();
                }
            });
        clsPool.RemoveTmpTask(&m_arrOwners[0], "info");
    }
    EXPECT_THAT(vecSleeps, ElementsAre(STOP_POLL, STOP_POLL));
    EXPECT_THAT(PoolView::GetRegistered(), IsEmpty());
}

TEST_F(PoolRemovalTest, NoTaskOfTheOwnerStartsWhileTheRemovalWaitsForItsFirst)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    CLS_Gate clsStarted;
    CLS_Gate clsMayEnd;
    std::atomic<bool> bEnded{false};
    std::atomic<int> iLateRuns{0};
    ASSERT_TRUE(clsPool.AddTmpTask(
        [&]
        {
            clsStarted.Open();
            EXPECT_TRUE(clsMayEnd.Wait());
            bEnded = true;
        },
        &m_arrOwners[0], ""));
    PoolView::RunDispatchPass(clsPool);
    ASSERT_TRUE(clsStarted.Wait());
    for (int i = 0; i < 2; ++i)
    {
        ASSERT_TRUE(clsPool.AddTmpTask([&] { ++iLateRuns; }, &m_arrOwners[0], ""));
    }
    const std::vector<std::string> vecLate = PoolView::GetQueue(clsPool);
    {
        int iSleeps = 0;
        const CLS_FastSleep clsFast(
            [&](const ST_Sleep&)
            {
                if (++iSleeps == 1)
                {
                    PoolView::RunDispatchPass(
                        clsPool); // workers receive the queued tasks while the first still runs
                    EXPECT_TRUE(WaitUntil(
                        [&] {
                            return GetIdleOrder(clsPool).size() + 1 ==
                                   static_cast<std::size_t>(clsPool.GetTaskThreadNum());
                        }));
                    EXPECT_FALSE(bEnded);
                    clsMayEnd.Open();
                    EXPECT_TRUE(WaitUntil([&] { return bEnded.load(); }));
                    EXPECT_TRUE(PoolView::WaitForAllIdle(clsPool));
                }
            });
        clsPool.RemoveTmpTask(&m_arrOwners[0], "");
        EXPECT_EQ(1, iSleeps);
    }
    EXPECT_TRUE(bEnded);
    EXPECT_EQ(2U, vecLate.size());
    EXPECT_EQ(0, iLateRuns);
    EXPECT_THAT(PoolView::GetRegistered(), IsEmpty());
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

// Pins docs/limits.md, "A removed task that was queued still gets a worker".
TEST_F(PoolRemovalTest, QueuedTaskThatWasRemovedIsReportedByItsWorkerAndNotRun)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    const std::vector<std::string> vecIds = AddTmpTasks(clsPool, &m_arrOwners[0], 1);
    std::string strLoopId;
    clsPool.AddLoopTask([] { ADD_FAILURE(); }, 0, strLoopId, "");
    clsPool.RemoveTask(vecIds[0], "");
    clsPool.RemoveTask(strLoopId, "");
    EXPECT_THAT(PoolView::GetOwners(clsPool), ElementsAre(Pair(vecIds[0], &m_arrOwners[0])));
    PoolView::RunDispatchPass(clsPool);
    EXPECT_TRUE(PoolView::WaitForAllIdle(clsPool));
    EXPECT_THAT(LogRecorder::Take(), ::testing::UnorderedElementsAre(
                                         IsPoolRecord(2, "FunRunTask", "task id is fail - " + vecIds[0]),
                                         IsPoolRecord(2, "FunRunTask", "task id is fail - " + strLoopId)));
    EXPECT_THAT(PoolView::GetOwned(clsPool), IsEmpty());
    EXPECT_THAT(PoolView::GetOwners(clsPool), IsEmpty());
}

TEST_F(PoolRemovalTest, OwnersRemovalClearsWhatARemovalByIdLeftBehind)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    const std::vector<std::string> vecIds = AddTmpTasks(clsPool, &m_arrOwners[0], 2);
    clsPool.RemoveTask(vecIds[0], "");
    EXPECT_THAT(PoolView::GetOwned(clsPool),
                ElementsAre(Pair(&m_arrOwners[0], ElementsAre(vecIds[0], vecIds[1]))));
    clsPool.RemoveTmpTask(&m_arrOwners[0], "");
    EXPECT_THAT(PoolView::GetOwned(clsPool), IsEmpty());
    EXPECT_THAT(PoolView::GetOwners(clsPool), IsEmpty());
    EXPECT_THAT(PoolView::GetRegistered(), IsEmpty());
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

TEST_F(PoolRemovalTest, StoppedLoopTaskThatIsQueuedDoesNotRun)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    std::string strTaskId;
    clsPool.AddLoopTask([] { ADD_FAILURE(); }, 0, strTaskId, "");
    clsPool.StopTask(strTaskId);
    PoolView::RunDispatchPass(clsPool);
    EXPECT_TRUE(WaitForIdle(clsPool, 1));
    PoolView::RunLoopPass(clsPool);
    EXPECT_THAT(PoolView::GetQueue(clsPool), IsEmpty());
    EXPECT_THAT(PoolView::GetLoopTasks(clsPool), ElementsAre(strTaskId));
    EXPECT_TRUE(PoolView::IsRegistered(strTaskId));
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

// Pins docs/limits.md, "A stopped task stays known".
TEST_F(PoolRemovalTest, StopWaitsForTheRunAndForgetsNothing)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    const std::string strTaskId = MakeTask([] {}, 0);
    const std::shared_ptr<CLS_Task> pTask = GetTask(strTaskId);
    pTask->SetTaskStatus(TASK_STATUS_RUNNING);
    {
        int iSleeps = 0;
        const CLS_FastSleep clsFast(
            [&](const ST_Sleep& _stSleep)
            {
                EXPECT_EQ(STOP_POLL, _stSleep.m_msAsked);
                EXPECT_TRUE(PoolView::AreLocksFree(clsPool));
                if (++iSleeps == 4)
                {
                    pTask->SetTaskStatus(TASK_STATUS_IDLE);
                }
            });
        clsPool.StopTask(strTaskId);
        EXPECT_EQ(4, iSleeps);
    }
    EXPECT_TRUE(PoolView::IsRegistered(strTaskId));
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

TEST_F(PoolRemovalTest, NewPoolTakesALoopTaskAfterKillTaskAllAndOldTasksStayRegistered)
{
    CLS_QuenTaskPool& clsOld = MakePool();
    CLS_Counter clsRuns;
    std::string strOld;
    std::string strNew;
    clsOld.AddLoopTask([] {}, 3600000, strOld, "");
    clsOld.KillTaskAll();
    ASSERT_EQ(nullptr, CLS_QuenTaskPool::m_pInstance);
    AddLoopTask([&] { clsRuns.Add(); }, 0, strNew, "");
    EXPECT_TRUE(clsRuns.Wait(3));
    EXPECT_TRUE(PoolView::IsRegistered(strOld));
    EXPECT_THAT(PoolView::GetLoopTasks(MakePool()), ElementsAre(strNew));
    MakePool().KillTaskAll();
}
} // namespace
