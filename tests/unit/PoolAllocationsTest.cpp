// The allocations of a task from submission to end. The end frees nothing under a lock that threads share.

#include "QuenPlugins/ZelTaskPool/CLS_LoopSchedule.h"
#include "tests/support/FailingMemory.h"
#include "tests/support/PoolView.h"
#include "tests/support/Waiting.h"
#include "tests/unit/PoolFixture.h"

#include <algorithm>
#include <atomic>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

namespace
{
/// The most that one task may allocate, from its submission until its worker is idle again.
constexpr long MOST_ALLOCATIONS = 18;

class PoolAllocationsTest : public CLS_PoolFixture
{
protected:
    void SetUp() override
    {
        if (!FailingMemory::REACHES_ALL)
        {
            GTEST_SKIP() << FailingMemory::WHY_NOT;
        }
        CLS_PoolFixture::SetUp();
    }

    void TearDown() override
    {
        FailingMemory::WatchFrees({});
        CLS_PoolFixture::TearDown();
    }

    /// From now on, checks that the calling thread holds no lock of the pool whenever it frees a block.
    void CheckFrees(CLS_QuenTaskPool& _clsPool)
    {
        m_iFrees = 0;
        FailingMemory::WatchFrees(
            [&]
            {
                ++m_iFrees;
                EXPECT_TRUE(PoolView::AreLocksFree(_clsPool));
            });
    }

    int m_iFrees = 0;
    int m_iOwner = 0; ///< its address serves as an owner
};

TEST_F(PoolAllocationsTest, SmallTaskTakesFewAllocations)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    PoolView::AddOwnedTask(clsPool, "another task of the owner, still queued", &m_iOwner);
    std::atomic<int> iRuns{0};
    const std::function<void()> funTask = [&iRuns] { ++iRuns; };
    const std::string strCallInfo(40, 'c');
    long iMost = 0;
    for (int i = 0; i < 40; ++i)
    {
        const int iWorkers = clsPool.GetTaskThreadNum();
        const long iBefore = FailingMemory::GetAllocations();
        EXPECT_TRUE(clsPool.AddTmpTask(funTask, &m_iOwner, strCallInfo));
        FailingMemory::EnterExempt();
        ASSERT_TRUE(WaitUntil([&] { return iRuns > i; }));
        ASSERT_TRUE(PoolView::WaitForAllIdle(clsPool));
        FailingMemory::LeaveExempt();
        // The first tasks allocate memory that later tasks reuse. On a slow machine, later tasks make a
        // worker.
        if (i >= 20 && clsPool.GetTaskThreadNum() == iWorkers)
        {
            iMost = std::max(iMost, FailingMemory::GetAllocations() - iBefore);
        }
    }
    EXPECT_LE(iMost, MOST_ALLOCATIONS);
    EXPECT_GT(iMost, 5) << "the pool's threads are not counted";
}

TEST_F(PoolAllocationsTest, EndOfATaskFreesNothingUnderTheOwnersLock)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    const std::string strFirst = "an id that is too long for its object";
    const std::string strSecond = "another id that is too long for its object";
    PoolView::AddOwnedTask(clsPool, strFirst, &m_iOwner);
    PoolView::AddOwnedTask(clsPool, strSecond, &m_iOwner);
    CheckFrees(clsPool);
    clsPool.RemoveTmpTask(strFirst);
    EXPECT_EQ(4, m_iFrees); // two map entries with their texts
    clsPool.RemoveTmpTask(strSecond);
    EXPECT_EQ(10, m_iFrees); // also the owner's list and its cursor
    FailingMemory::WatchFrees({});
    EXPECT_TRUE(PoolView::GetOwned(clsPool).empty());
    EXPECT_TRUE(PoolView::GetOwners(clsPool).empty());
    EXPECT_TRUE(PoolView::GetCursorOwners(clsPool).empty());
}

TEST_F(PoolAllocationsTest, WorkerIsBoundAndUnboundWithoutFreeingUnderTheLock)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    CLS_TaskThread* const pThread = clsPool.CreateTaskThread();
    for (int i = 0; i < 2; ++i)
    {
        std::string strTaskId;
        std::weak_ptr<CLS_Task> pTask = CLS_Task::CreatePoolTask([] {}, -1, "call", strTaskId);
        const std::string strDeleted = strTaskId;
        CheckFrees(clsPool);
        PoolView::BindTask(clsPool, pThread, strTaskId, pTask);
        EXPECT_EQ(0, m_iFrees);
        FailingMemory::WatchFrees({});
        CLS_Task::DeleteTask(strDeleted);
        CheckFrees(clsPool);
        PoolView::UnbindTask(clsPool, pThread);
        EXPECT_EQ(1, m_iFrees) << "only the task record's memory, whose last reference the worker held";
        FailingMemory::WatchFrees({});
    }
}

TEST_F(PoolAllocationsTest, ScheduleOfLoopTasksIsRebuiltWithOneAllocation)
{
    // The texts are short enough to need no memory of their own.
    const std::vector<std::string> vecTaskIds(50, "id");
    CLS_LoopSchedule clsSchedule;
    clsSchedule.NoteListChange();
    const long iBefore = FailingMemory::GetAllocations();
    clsSchedule.Refresh(vecTaskIds);
    EXPECT_EQ(1, FailingMemory::GetAllocations() - iBefore);
    EXPECT_EQ(vecTaskIds.size(), clsSchedule.GetEntries().size());
}
} // namespace
