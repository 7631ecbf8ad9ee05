#include "tests/support/PoolView.h"
#include "tests/support/RecordMatchers.h"
#include "tests/unit/PoolFixture.h"

#include <array>
#include <atomic>
#include <climits>
#include <gmock/gmock.h>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <stdexcept>
#include <thread>
#include <type_traits>

namespace
{
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;
using ::testing::UnorderedElementsAre;

using Callable = std::function<void()>;

/// AddTmpTask does not return an id: only the pool knows the id of a one-shot task.
static_assert(std::is_same_v<decltype(&CLS_QuenTaskPool::AddTmpTask),
                             bool (CLS_QuenTaskPool::*)(const Callable&, void*, const std::string&)>);
static_assert(
    std::is_same_v<decltype(&CLS_QuenTaskPool::AddLoopTask),
                   void (CLS_QuenTaskPool::*)(const Callable&, int, std::string&, const std::string&)>);

class PoolSubmissionTest : public CLS_PoolFixture
{
protected:
    /// Expects that nothing is queued, noted or registered.
    static void ExpectNothing(CLS_QuenTaskPool& _clsPool)
    {
        EXPECT_THAT(PoolView::GetQueue(_clsPool), IsEmpty());
        EXPECT_THAT(PoolView::GetLoopTasks(_clsPool), IsEmpty());
        EXPECT_THAT(PoolView::GetOwned(_clsPool), IsEmpty());
        EXPECT_THAT(PoolView::GetOwners(_clsPool), IsEmpty());
        EXPECT_THAT(PoolView::GetRegistered(), IsEmpty());
    }

    std::array<int, 3> m_arrOwners{}; ///< their addresses serve as owners
};

// Pins docs/limits.md, "The first call is not synchronised".
TEST_F(PoolSubmissionTest, ASecondPoolTakesTasks)
{
    CLS_Counter clsRuns;
    std::string strTaskId;
    const auto pSecond = std::make_unique<CLS_QuenTaskPool>();
    EXPECT_TRUE(pSecond->AddTmpTask([&] { clsRuns.Add(); }, &clsRuns, "call"));
    pSecond->AddLoopTask([&] { clsRuns.Add(); }, 3600000, strTaskId, "call");
    EXPECT_TRUE(clsRuns.Wait(2));
    pSecond->RemoveTmpTask(&clsRuns, "call");
    pSecond->RemoveTask(strTaskId, "call");
}

TEST_F(PoolSubmissionTest, LoopTaskMayChangeTheCallersTextBeforeItIsListed)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    std::string strTaskId;
    std::string strWritten;
    std::unique_lock<std::shared_mutex> lock(PoolView::GetLoopListLock(clsPool));
    std::thread thCaller(
        [&]
        {
            clsPool.AddLoopTask(
                [&]
                {
                    strWritten = strTaskId;
                    strTaskId.clear();
                },
                3600000, strTaskId, "call");
        });
    // The submission waits at the list until the task has run.
    EXPECT_TRUE(WaitUntil([&] { return !PoolView::GetQueue(clsPool).empty(); }));
    PoolView::RunDispatchPass(clsPool);
    EXPECT_TRUE(WaitForIdle(clsPool, 1));
    lock.unlock();
    thCaller.join();
    EXPECT_EQ("", strTaskId);
    EXPECT_THAT(PoolView::GetLoopTasks(clsPool), ElementsAre(strWritten));
    EXPECT_THAT(PoolView::GetRegistered(), ElementsAre(strWritten));
}

TEST_F(PoolSubmissionTest, NullOwnerIsRefusedWithARecord)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    EXPECT_FALSE(clsPool.AddTmpTask([] { ADD_FAILURE(); }, nullptr, "who calls"));
    EXPECT_FALSE(clsPool.AddTmpTask({}, nullptr, ""));
    EXPECT_THAT(LogRecorder::Take(),
                ElementsAre(IsPoolRecord(3, "AddTmpTask", "AddTmpTask error, nullptr == _pObj [who calls]"),
                            IsPoolRecord(3, "AddTmpTask", "AddTmpTask error, nullptr == _pObj []")));
    ExpectNothing(clsPool);
}

TEST_F(PoolSubmissionTest, TmpTaskIsRegisteredQueuedAndNotedUnderItsOwner)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    void* const pOwner = &m_arrOwners[0];
    EXPECT_TRUE(clsPool.AddTmpTask([] {}, pOwner, "who calls"));
    const std::vector<std::string> vecQueue = PoolView::GetQueue(clsPool);
    ASSERT_EQ(1U, vecQueue.size());
    const std::string& strTaskId = vecQueue[0];
    EXPECT_THAT(PoolView::GetRegistered(), ElementsAre(strTaskId));
    EXPECT_THAT(PoolView::GetOwned(clsPool), ElementsAre(Pair(pOwner, ElementsAre(strTaskId))));
    EXPECT_THAT(PoolView::GetOwners(clsPool), ElementsAre(Pair(strTaskId, pOwner)));
    EXPECT_THAT(PoolView::GetLoopTasks(clsPool), IsEmpty());
    const std::shared_ptr<CLS_Task> pTask = CLS_Task::GetTask(strTaskId).lock();
    EXPECT_EQ(strTaskId, pTask->GetId());
    EXPECT_EQ(-1, pTask->GetLoopInterval());
    EXPECT_FALSE(pTask->IsLoop());
    EXPECT_TRUE(pTask->GetValid());
    EXPECT_EQ(TASK_STATUS_WAITING, pTask->GetTaskStatus());
    EXPECT_EQ(MakeParamText(strTaskId, "who calls"), pTask->ParamToString());
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

TEST_F(PoolSubmissionTest, TasksOfOneOwnerAreOnOneListInOrder)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    void* const pFirst = &m_arrOwners[0];
    void* const pSecond = &m_arrOwners[1];
    for (void* const pOwner : {pSecond, pFirst, pSecond, pSecond})
    {
        EXPECT_TRUE(clsPool.AddTmpTask([] {}, pOwner, "same"));
    }
    const std::vector<std::string> vecIds = PoolView::GetQueue(clsPool);
    ASSERT_EQ(4U, vecIds.size());
    EXPECT_EQ(4U, PoolView::GetRegistered().size()) << "two tasks have the same id";
    EXPECT_THAT(PoolView::GetOwned(clsPool),
                ElementsAre(Pair(pFirst, ElementsAre(vecIds[1])),
                            Pair(pSecond, ElementsAre(vecIds[0], vecIds[2], vecIds[3]))));
    EXPECT_THAT(PoolView::GetOwners(clsPool),
                UnorderedElementsAre(Pair(vecIds[0], pSecond), Pair(vecIds[1], pFirst),
                                     Pair(vecIds[2], pSecond), Pair(vecIds[3], pSecond)));
}

TEST_F(PoolSubmissionTest, AnIdThatIsNotedAgainGoesToTheLaterOwner)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    PoolView::AddOwnedTask(clsPool, "id", &m_arrOwners[0]);
    PoolView::AddOwnedTask(clsPool, "id", &m_arrOwners[1]);
    EXPECT_THAT(PoolView::GetOwners(clsPool), ElementsAre(Pair("id", &m_arrOwners[1])));
}

// Pins docs/limits.md, "A finished task stays registered".
TEST_F(PoolSubmissionTest, TmpTaskThatHasRunLeavesTheOwnerMapsAndStaysRegistered)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    void* const pOwner = &m_arrOwners[0];
    int iRuns = 0;
    CLS_Gate clsMayEnd;
    ASSERT_TRUE(clsPool.AddTmpTask([&] { EXPECT_TRUE(clsMayEnd.Wait()); }, pOwner, "long"));
    ASSERT_TRUE(clsPool.AddTmpTask([&] { ++iRuns; }, pOwner, "short"));
    const std::vector<std::string> vecIds = PoolView::GetQueue(clsPool);
    ASSERT_EQ(2U, vecIds.size());
    PoolView::RunDispatchPass(clsPool);
    ASSERT_TRUE(WaitForIdle(clsPool, 1));
    EXPECT_EQ(1, iRuns);
    EXPECT_THAT(PoolView::GetOwned(clsPool), ElementsAre(Pair(pOwner, ElementsAre(vecIds[0]))));
    EXPECT_THAT(PoolView::GetOwners(clsPool), ElementsAre(Pair(vecIds[0], pOwner)));
    clsMayEnd.Open();
    ASSERT_TRUE(WaitForIdle(clsPool, 2));
    EXPECT_THAT(PoolView::GetOwned(clsPool), IsEmpty());
    EXPECT_THAT(PoolView::GetOwners(clsPool), IsEmpty());
    for (const std::string& strTaskId : vecIds)
    {
        const std::shared_ptr<CLS_Task> pTask = CLS_Task::GetTask(strTaskId).lock();
        ASSERT_TRUE(pTask);
        EXPECT_EQ(TASK_STATUS_IDLE, pTask->GetTaskStatus());
        EXPECT_TRUE(pTask->GetValid());
    }
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

TEST_F(PoolSubmissionTest, TmpTaskMayRunBeforeTheCallReturns)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    CLS_Gate clsRan;
    std::atomic<bool> bReturned{false};
    std::unique_lock<std::mutex> lock(PoolView::GetOwnerLock(clsPool));
    std::thread thHost(
        [&]
        {
            EXPECT_TRUE(clsPool.AddTmpTask([&] { clsRan.Open(); }, &m_arrOwners[0], ""));
            bReturned = true;
        });
    StartDispatcher(clsPool);
    EXPECT_TRUE(clsRan.Wait());
    EXPECT_FALSE(bReturned);
    lock.unlock();
    thHost.join();
    EXPECT_TRUE(WaitForIdle(clsPool, 1));
    EXPECT_EQ(1U, PoolView::GetRegistered().size());
}

TEST_F(PoolSubmissionTest, LoopTaskMayRunBeforeTheCallReturns)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    CLS_Gate clsRan;
    std::atomic<bool> bReturned{false};
    std::string strTaskId;
    std::unique_lock<std::shared_mutex> lock(PoolView::GetLoopListLock(clsPool));
    std::thread thHost(
        [&]
        {
            clsPool.AddLoopTask([&] { clsRan.Open(); }, 0, strTaskId, "");
            bReturned = true;
        });
    StartDispatcher(clsPool);
    EXPECT_TRUE(clsRan.Wait());
    EXPECT_TRUE(WaitForIdle(clsPool, 1));
    EXPECT_FALSE(bReturned);
    lock.unlock();
    thHost.join();
    EXPECT_THAT(PoolView::GetLoopTasks(clsPool), ElementsAre(strTaskId));
}

// Pins docs/limits.md, "An owner is noted after the queueing".
TEST_F(PoolSubmissionTest, OwnerIsNotedEvenWhenTheTaskHasRunAlready)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    void* const pOwner = &m_arrOwners[0];
    const std::string strTaskId = MakeTask([] {});
    clsPool.AddWaitingTasks(strTaskId);
    PoolView::RunDispatchPass(clsPool);
    ASSERT_TRUE(WaitForIdle(clsPool, 1));
    PoolView::AddOwnedTask(clsPool, strTaskId, pOwner);
    EXPECT_THAT(PoolView::GetOwned(clsPool), ElementsAre(Pair(pOwner, ElementsAre(strTaskId))));
    EXPECT_THAT(PoolView::GetOwners(clsPool), ElementsAre(Pair(strTaskId, pOwner)));
    clsPool.RemoveTmpTask(pOwner, "");
    ExpectNothing(clsPool);
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

TEST_F(PoolSubmissionTest, LoopTaskIsRegisteredQueuedAndListed)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    std::string strFirst = "what stood here before";
    std::string strSecond = strFirst;
    clsPool.AddLoopTask([] {}, 250, strFirst, "same");
    clsPool.AddLoopTask([] {}, 250, strSecond, "same");
    EXPECT_NE(strFirst, strSecond);
    EXPECT_THAT(PoolView::GetRegistered(), UnorderedElementsAre(strFirst, strSecond));
    EXPECT_THAT(PoolView::GetQueue(clsPool), ElementsAre(strFirst, strSecond));
    EXPECT_THAT(PoolView::GetLoopTasks(clsPool), ElementsAre(strFirst, strSecond));
    EXPECT_THAT(PoolView::GetOwned(clsPool), IsEmpty());
    EXPECT_THAT(PoolView::GetOwners(clsPool), IsEmpty());
    const std::shared_ptr<CLS_Task> pTask = CLS_Task::GetTask(strFirst).lock();
    EXPECT_EQ(250, pTask->GetLoopInterval());
    EXPECT_TRUE(pTask->GetValid());
    EXPECT_EQ(TASK_STATUS_WAITING, pTask->GetTaskStatus());
    EXPECT_EQ(MakeParamText(strFirst, "same"), pTask->ParamToString());
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

// Pins docs/limits.md, "The first run of a loop task comes at once".
TEST_F(PoolSubmissionTest, EveryIntervalIsPassedOnAndFirstRunStartsAtOnce)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    std::vector<std::string> vecIds;
    CLS_Counter clsRuns;
    for (const int iInterval : {0, 1, -1, -7, INT_MIN, INT_MAX})
    {
        std::string strTaskId;
        clsPool.AddLoopTask([&] { clsRuns.Add(); }, iInterval, strTaskId, "");
        EXPECT_EQ(iInterval, CLS_Task::GetTask(strTaskId).lock()->GetLoopInterval());
        vecIds.push_back(strTaskId);
    }
    EXPECT_EQ(vecIds, PoolView::GetLoopTasks(clsPool));
    EXPECT_EQ(vecIds, PoolView::GetQueue(clsPool));
    PoolView::RunDispatchPass(clsPool);
    EXPECT_TRUE(clsRuns.Wait(6));
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
    EXPECT_TRUE(PoolView::WaitForAllIdle(clsPool));
    EXPECT_EQ(6, clsRuns.Get());
}

TEST_F(PoolSubmissionTest, EmptyCallableIsAccepted)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    std::string strTaskId;
    EXPECT_TRUE(clsPool.AddTmpTask({}, &m_arrOwners[0], "nothing"));
    clsPool.AddLoopTask({}, 0, strTaskId, "nothing");
    PoolView::RunDispatchPass(clsPool);
    EXPECT_TRUE(PoolView::WaitForAllIdle(clsPool));
    EXPECT_THAT(PoolView::GetLoopTasks(clsPool), ElementsAre(strTaskId));
    EXPECT_THAT(PoolView::GetOwned(clsPool), IsEmpty());
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

/// A callable whose copy throws once it is armed.
template <typename T_Thrown>
class CLS_Uncopyable
{
public:
    explicit CLS_Uncopyable(const std::atomic<bool>& _bArmed) : m_bArmed(_bArmed) {}
    CLS_Uncopyable(const CLS_Uncopyable& _clsOther) : m_bArmed(_clsOther.m_bArmed)
    {
        if (m_bArmed)
        {
            throw T_Thrown();
        }
    }
    CLS_Uncopyable& operator=(const CLS_Uncopyable&) = delete;
    void operator()() const { ADD_FAILURE() << "a task that was refused has run"; }

private:
    const std::atomic<bool>& m_bArmed;
};

TEST_F(PoolSubmissionTest, FailedSubmissionIsRecordedAndLeavesNothingBehind)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    std::atomic<bool> bArmed{false};
    const std::vector<Callable> vecCallables{CLS_Uncopyable<std::bad_alloc>(bArmed),
                                             CLS_Uncopyable<int>(bArmed)};
    bArmed = true;
    for (const Callable& funTask : vecCallables)
    {
        std::string strTaskId = "what stood here before";
        EXPECT_FALSE(clsPool.AddTmpTask(funTask, &m_arrOwners[0], "who calls"));
        clsPool.AddLoopTask(funTask, 10, strTaskId, "who loops");
        EXPECT_EQ("what stood here before", strTaskId);
        EXPECT_THAT(LogRecorder::Take(),
                    ElementsAre(IsPoolRecord(3, "AddTmpTask", "AddTmpTask error [who calls]"),
                                IsPoolRecord(3, "AddLoopTask", "AddLoopTask error [who loops]")));
        ExpectNothing(clsPool);
    }
    bArmed = false;
}

TEST_F(PoolSubmissionTest, OneTextMayBeBothTheLoopTasksIdAndItsCallInformation)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    std::string strText = "who loops";
    {
        std::atomic<bool> bArmed{false};
        const Callable funTask = CLS_Uncopyable<int>(bArmed);
        bArmed = true;
        clsPool.AddLoopTask(funTask, 250, strText, strText);
        EXPECT_EQ("who loops", strText);
        EXPECT_THAT(LogRecorder::Take(),
                    ElementsAre(IsPoolRecord(3, "AddLoopTask", "AddLoopTask error [who loops]")));
    }
    clsPool.AddLoopTask([] {}, 250, strText, strText);
    EXPECT_THAT(PoolView::GetRegistered(), ElementsAre(strText));
    EXPECT_THAT(PoolView::GetQueue(clsPool), ElementsAre(strText));
    EXPECT_THAT(PoolView::GetLoopTasks(clsPool), ElementsAre(strText));
    EXPECT_EQ(MakeParamText(strText, "who loops"), PoolView::GetTask(strText)->ParamToString());
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

TEST_F(PoolSubmissionTest, TasksSubmitTasks)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    CLS_Gate clsTmpRan;
    CLS_Counter clsLoopRuns;
    CLS_Gate clsSubmitted;
    std::string strTaskId;
    ASSERT_TRUE(clsPool.AddTmpTask(
        [&]
        {
            EXPECT_TRUE(clsPool.AddTmpTask([&] { clsTmpRan.Open(); }, &m_arrOwners[0], "inner"));
            clsPool.AddLoopTask([&] { clsLoopRuns.Add(); }, 0, strTaskId, "inner");
            // Both tasks run while this one runs.
            EXPECT_TRUE(clsTmpRan.Wait());
            EXPECT_TRUE(clsLoopRuns.Wait(2));
            clsSubmitted.Open();
        },
        &m_arrOwners[0], "outer"));
    ASSERT_TRUE(clsSubmitted.Wait());
    clsPool.RemoveTask(strTaskId, "");
    // The owner maps are not checked: a task that ends before its owner is noted stays noted.
    EXPECT_EQ(2U, PoolView::GetRegistered().size());
}

TEST_F(PoolSubmissionTest, FirstSubmissionNeedsNoStart)
{
    ASSERT_EQ(nullptr, CLS_QuenTaskPool::m_pInstance);
    CLS_Gate clsRan;
    EXPECT_TRUE(AddTmpTask([&] { clsRan.Open(); }, &m_arrOwners[0], ""));
    EXPECT_TRUE(clsRan.Wait());
}

TEST_F(PoolSubmissionTest, ThreadsSubmitForOneOwnerAtOnce)
{
    constexpr std::size_t THREADS = 4;
    constexpr std::size_t TASKS = 250;
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    std::vector<std::thread> vecHosts;
    std::vector<std::vector<std::string>> vecLoopIds(THREADS);
    for (std::size_t iHost = 0; iHost < THREADS; ++iHost)
    {
        vecHosts.emplace_back(
            [&, iHost]
            {
                for (std::size_t iTask = 0; iTask < TASKS; ++iTask)
                {
                    EXPECT_TRUE(clsPool.AddTmpTask([] {}, &m_arrOwners[0], ""));
                    vecLoopIds[iHost].emplace_back();
                    clsPool.AddLoopTask([] {}, 0, vecLoopIds[iHost].back(), "");
                }
            });
    }
    std::set<std::string> setIds;
    for (std::size_t iHost = 0; iHost < THREADS; ++iHost)
    {
        vecHosts[iHost].join();
        setIds.insert(vecLoopIds[iHost].begin(), vecLoopIds[iHost].end());
    }
    EXPECT_EQ(THREADS * TASKS, setIds.size());
    EXPECT_EQ(THREADS * TASKS, PoolView::GetLoopTasks(clsPool).size());
    EXPECT_EQ(THREADS * TASKS, PoolView::GetOwned(clsPool).at(&m_arrOwners[0]).size());
    EXPECT_EQ(THREADS * TASKS, PoolView::GetOwners(clsPool).size());
    EXPECT_EQ(2 * THREADS * TASKS, PoolView::GetQueue(clsPool).size());
    EXPECT_EQ(2 * THREADS * TASKS, PoolView::GetRegistered().size());
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}
TEST_F(PoolSubmissionTest, LoopTaskThatWasRemovedBeforeItWasListedLeavesNoIdBehind)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    std::string strTaskId;
    std::unique_lock<std::shared_mutex> lock(PoolView::GetLoopListLock(clsPool));
    std::thread thSubmitter([&] { clsPool.AddLoopTask([] {}, 1000, strTaskId, "call"); });
    EXPECT_TRUE(WaitUntil([&] { return PoolView::GetQueue(clsPool).size() == 1; }));
    // Acts like a removal that has already searched the list.
    PoolView::GetTask(PoolView::GetQueue(clsPool).front())->SetRemoved();
    lock.unlock();
    thSubmitter.join();
    EXPECT_THAT(PoolView::GetLoopTasks(clsPool), IsEmpty());
}

} // namespace
