#include "tests/support/RecordMatchers.h"
#include "tests/unit/PoolFixture.h"

#include <atomic>
#include <gmock/gmock.h>

namespace
{
using std::chrono::milliseconds;
using ::testing::IsEmpty;

/// An object for captures that records which thread destroys it.
std::shared_ptr<void> MakeCaptured(std::atomic<std::thread::id>& _idDestroyer)
{
    return MakeEndHook([&_idDestroyer] { _idDestroyer = std::this_thread::get_id(); });
}

/// Removals while another thread uses the task.
class PoolRemovalReferenceTest : public CLS_PoolFixture
{
protected:
    std::string AddTask(CLS_QuenTaskPool& _clsPool)
    {
        std::string strTaskId;
        _clsPool.AddLoopTask([pCaptured = MakeCaptured(m_idDestroyer)] {}, 3600000, strTaskId, "call");
        return strTaskId;
    }

    std::atomic<std::thread::id> m_idDestroyer{};
};

TEST_F(PoolRemovalReferenceTest, CapturedObjectsAreGoneWhenTheRemovalReturns)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    const std::string strTaskId = AddTask(clsPool);
    CLS_Gate clsHolds;
    std::thread thUser(
        [&]
        {
            const std::shared_ptr<CLS_Task> pTask = CLS_Task::GetTask(strTaskId).lock();
            clsHolds.Open();
            EXPECT_TRUE(WaitUntil([&] { return CLS_Task::GetTask(strTaskId).expired(); }));
        });
    ASSERT_TRUE(clsHolds.Wait());
    clsPool.RemoveTask(strTaskId, "call");
    EXPECT_EQ(std::this_thread::get_id(), m_idDestroyer.load());
    thUser.join();
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

TEST_F(PoolRemovalReferenceTest, CapturedObjectsAreGoneThoughTheRecordIsTakenAtTheLastMoment)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    std::string strTaskId;
    std::weak_ptr<CLS_Task> pKnown;
    std::shared_ptr<CLS_Task> pTaken;
    bool bRan = false;
    clsPool.AddLoopTask([&bRan, pCaptured = MakeEndHook([&] { pTaken = pKnown.lock(); })] { bRan = true; },
                        3600000, strTaskId, "call");
    pKnown = CLS_Task::GetTask(strTaskId);
    clsPool.RemoveTask(strTaskId, "call");
    ASSERT_NE(nullptr, pTaken) << "the captured object outlived the task record";
    pTaken->SetValid(true);
    EXPECT_TRUE(pTaken->Running());
    EXPECT_FALSE(bRan);
}

// The task is queued twice, so it appears idle after its first run.
TEST_F(PoolRemovalReferenceTest, CapturedObjectsSeeTheEffectsOfARunThatWasNotStopped)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    // Relaxed, because the removal orders the run before the destruction.
    std::atomic<int> iRuns{0};
    std::atomic<int> iSeen{0};
    const auto funDestroy = [&iSeen](int* _pValue)
    {
        iSeen.store(*_pValue, std::memory_order_relaxed);
        delete _pValue;
    };
    std::string strTaskId;
    clsPool.AddLoopTask(
        [&, pValue = std::shared_ptr<int>(new int(1), funDestroy)]
        {
            if (iRuns.fetch_add(1, std::memory_order_relaxed) == 0)
            {
                EXPECT_TRUE(WaitUntil([&] { return iRuns.load(std::memory_order_relaxed) == 2; }));
                return;
            }
            EXPECT_TRUE(WaitUntil([&] { return CLS_Task::GetTask(strTaskId).expired(); }));
            *pValue = 2;
        },
        3600000, strTaskId, "call");
    clsPool.AddWaitingTasks(strTaskId);
    ASSERT_TRUE(WaitUntil(
        [&]
        {
            return iRuns.load(std::memory_order_relaxed) == 2 &&
                   CLS_Task::GetTask(strTaskId).lock()->GetTaskStatus() == TASK_STATUS_IDLE;
        }));
    clsPool.RemoveTask(strTaskId, "call");
    EXPECT_TRUE(WaitUntil([&] { return iSeen.load(std::memory_order_relaxed) == 2; }));
}

TEST_F(PoolRemovalReferenceTest, RemovalStopsWaitingForAReferenceThatTheHostKeeps)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    const std::string strTaskId = AddTask(clsPool);
    std::shared_ptr<CLS_Task> pKept = CLS_Task::GetTask(strTaskId).lock();
    clsPool.RemoveTask(strTaskId, "call");
    EXPECT_EQ(std::thread::id(), m_idDestroyer.load());
    EXPECT_EQ(1, pKept.use_count());
    pKept.reset();
    EXPECT_EQ(std::this_thread::get_id(), m_idDestroyer.load());
}

// Pins docs/limits.md, "A removal waits 300 ms for references".
TEST_F(PoolRemovalReferenceTest, AKeptReferenceIsPolledEveryMillisecondThreeHundredTimes)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    const std::string strTaskId = AddTask(clsPool);
    const std::shared_ptr<CLS_Task> pKept = CLS_Task::GetTask(strTaskId).lock();
    const CLS_FastSleep clsFastSleep({}, milliseconds(1));
    clsPool.RemoveTask(strTaskId, "call");
    std::vector<milliseconds> vecSleeps;
    for (const ST_Sleep& stSleep : clsFastSleep.GetSleeps(std::this_thread::get_id()))
    {
        vecSleeps.push_back(stSleep.m_msAsked);
    }
    EXPECT_EQ(std::vector<milliseconds>(300, milliseconds(1)), vecSleeps);
}

TEST_F(PoolRemovalReferenceTest, CapturedObjectsOfABusyLoopTaskAreGoneWhenTheRemovalReturns)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    const CLS_FastSleep clsFastSleep;
    for (int i = 0; i < 200; ++i)
    {
        CLS_Counter clsRuns;
        std::atomic<std::thread::id> idDestroyer{};
        std::string strTaskId;
        clsPool.AddLoopTask([&, pCaptured = MakeCaptured(idDestroyer)] { clsRuns.Add(); }, 0, strTaskId,
                            "call");
        ASSERT_TRUE(clsRuns.Wait(1));
        clsPool.RemoveTask(strTaskId, "call");
        ASSERT_EQ(std::this_thread::get_id(), idDestroyer.load());
    }
}
} // namespace
