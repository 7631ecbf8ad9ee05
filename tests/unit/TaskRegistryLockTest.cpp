#include "QuenPlugins/ZelTaskPool/CLS_Task.h"
#include "tests/support/FailingRandom.h"
#include "tests/support/FastSleep.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/RecordMatchers.h"
#include "tests/support/TaskFixture.h"
#include "tests/support/Waiting.h"

#include <atomic>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <shared_mutex>
#include <stdexcept>
#include <string>
#include <thread>

namespace
{
using ::testing::IsEmpty;

using TaskRegistryLockTest = CLS_TaskFixture;

/// Whether another thread gets the registry lock without waiting, in exclusive or shared mode.
bool IsRegistryFree(bool _bExclusive)
{
    bool bFree = false;
    std::thread(
        [&]
        {
            std::shared_mutex& smLock = CLS_Task::m_smTaskDataLock;
            bFree = _bExclusive ? smLock.try_lock() : smLock.try_lock_shared();
            if (bFree)
            {
                _bExclusive ? smLock.unlock() : smLock.unlock_shared();
            }
        })
        .join();
    return bFree;
}

/// Holds the registry lock on another thread until a call that waits for it has had time to begin.
class CLS_LockHolder
{
public:
    explicit CLS_LockHolder(bool _bExclusive) : m_thHolder([this, _bExclusive] { Hold(_bExclusive); })
    {
        EXPECT_TRUE(m_clsHeld.Wait());
    }
    ~CLS_LockHolder()
    {
        m_clsCalled.Open();
        m_thHolder.join();
    }

    /// Makes the call and returns whether it waited for the lock.
    template <typename T_Call>
    bool IsWaitedForBy(T_Call _funCall)
    {
        _funCall();
        const bool bWaited = m_bGivenBack;
        m_clsCalled.Open();
        return bWaited;
    }

private:
    void Hold(bool _bExclusive)
    {
        std::shared_mutex& smLock = CLS_Task::m_smTaskDataLock;
        _bExclusive ? smLock.lock() : smLock.lock_shared();
        m_clsHeld.Open();
        EXPECT_FALSE(m_clsCalled.Wait(std::chrono::milliseconds(100)));
        m_bGivenBack = true;
        _bExclusive ? smLock.unlock() : smLock.unlock_shared();
    }

    CLS_Gate m_clsHeld;
    CLS_Gate m_clsCalled;
    std::atomic<bool> m_bGivenBack{false};
    std::thread m_thHolder;
};

// Pins docs/limits.md, "Deleting a task record without a reference".
TEST_F(TaskRegistryLockTest, LastReferenceIsDroppedUnderTheExclusiveLock)
{
    bool bEnded = false;
    const std::string strId = CLS_Task::CreateTask([pHook = MakeEndHook(
                                                        [&]
                                                        {
                                                            bEnded = true;
                                                            EXPECT_FALSE(IsRegistryFree(true));
                                                            EXPECT_FALSE(IsRegistryFree(false));
                                                        })] {},
                                                   -1, "")
                                  ->GetId();
    CLS_Task::DeleteTask(strId);
    EXPECT_TRUE(bEnded);
    EXPECT_TRUE(IsRegistryFree(true));
}

TEST_F(TaskRegistryLockTest, LastReferenceWaitsForTheRunUnderTheExclusiveLock)
{
    const std::string strId = CLS_Task::CreateTask([] {}, -1, "long")->GetId();
    CLS_Task::GetTask(strId).lock()->SetTaskStatus(TASK_STATUS_RUNNING);
    int iSleeps = 0;
    const CLS_FastSleep clsFast(
        [&](const ST_Sleep&)
        {
            if (++iSleeps == 1)
            {
                EXPECT_FALSE(IsRegistryFree(false));
            }
        });
    CLS_Task::DeleteTask(strId);
    EXPECT_EQ(30, iSleeps);
    const std::string strParam = MakeParamText(strId, "long");
    EXPECT_THAT(
        LogRecorder::Take(),
        ::testing::ElementsAre(IsTaskRecord(2, "Stop", "Stop Task waiting task info : [" + strParam + "] 11"),
                               IsTaskRecord(2, "Stop", "Stop Task waiting task info : [" + strParam + "] 21"),
                               IsTaskRecord(2, "Stop", "Stop Task waiting task info : [" + strParam + "] 31"),
                               IsTaskRecord(3, "Stop", "StopTask overtime task info : [" + strParam + "]")));
}

TEST_F(TaskRegistryLockTest, CallerWithAReferenceDestroysTheTaskOutsideTheLock)
{
    bool bEnded = false;
    std::shared_ptr<CLS_Task> pTask = CLS_Task::CreateTask([pHook = MakeEndHook(
                                                                [&]
                                                                {
                                                                    bEnded = true;
                                                                    EXPECT_TRUE(IsRegistryFree(true));
                                                                })] {},
                                                           -1, "");
    CLS_Task::DeleteTask(pTask->GetId());
    EXPECT_FALSE(bEnded);
    pTask.reset();
    EXPECT_TRUE(bEnded);
}

TEST_F(TaskRegistryLockTest, ReadersShareTheLockAndWritersDoNot)
{
    const std::string strId = CLS_Task::CreateTask([] {}, -1, "")->GetId();
    {
        const std::shared_lock<std::shared_mutex> lock(CLS_Task::m_smTaskDataLock);
        std::thread([&] { EXPECT_FALSE(CLS_Task::GetTask(strId).expired()); }).join();
    }
    EXPECT_TRUE(
        CLS_LockHolder(true).IsWaitedForBy([&] { EXPECT_FALSE(CLS_Task::GetTask(strId).expired()); }));
    EXPECT_TRUE(CLS_LockHolder(false).IsWaitedForBy([] { CLS_Task::CreateTask([] {}, -1, ""); }));
    EXPECT_TRUE(CLS_LockHolder(false).IsWaitedForBy([&] { CLS_Task::DeleteTask(strId); }));
    EXPECT_EQ(1U, CLS_Task::m_mapTaskData.size());
}

/// A callable whose copies call a function, which may throw.
struct ST_CopyHook
{
    explicit ST_CopyHook(const std::function<void()>& _funCopy) : m_funCopy(_funCopy) {}
    ST_CopyHook(const ST_CopyHook& _stOther) : m_funCopy(_stOther.m_funCopy) { m_funCopy(); }
    ST_CopyHook& operator=(const ST_CopyHook&) = delete;
    void operator()() const {}

    std::function<void()> m_funCopy;
};

TEST_F(TaskRegistryLockTest, CallableIsCopiedOutsideTheLock)
{
    bool bFailed = false;
    int iCopies = 0;
    const std::function<void()> funTask = ST_CopyHook(
        [&]
        {
            ++iCopies;
            bFailed = bFailed || !IsRegistryFree(true);
        });
    iCopies = 0;
    CLS_Task::CreateTask(funTask, -1, "");
    EXPECT_EQ(1, iCopies);
    EXPECT_FALSE(bFailed);
}

TEST_F(TaskRegistryLockTest, IdIsDrawnOutsideTheLock)
{
    int iDrawn = 0;
    const CLS_WatchedRandom clsRandom(
        [&]
        {
            ++iDrawn;
            EXPECT_TRUE(IsRegistryFree(true));
        });
    const std::shared_ptr<CLS_Task> pTask = CLS_Task::CreateTask([] {}, -1, "");
    EXPECT_EQ(1, iDrawn);
    EXPECT_EQ(pTask, CLS_Task::GetTask(pTask->GetId()).lock());
    EXPECT_EQ(1, iDrawn);
}

TEST_F(TaskRegistryLockTest, CallableThatCannotBeCopiedLeavesNothingBehind)
{
    bool bThrow = false;
    const std::function<void()> funTask = ST_CopyHook(
        [&]
        {
            if (bThrow)
            {
                throw std::runtime_error("no copy");
            }
        });
    bThrow = true;
    EXPECT_THROW(CLS_Task::CreateTask(funTask, -1, ""), std::runtime_error);
    EXPECT_THAT(CLS_Task::m_mapTaskData, IsEmpty());
    EXPECT_TRUE(IsRegistryFree(true));
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

TEST_F(TaskRegistryLockTest, TaskWithoutAnIdLeavesNothingBehind)
{
    bool bEnded = false;
    const std::function<void()> funTask = [pHook = MakeEndHook([&] { bEnded = true; })] {};
    {
        const CLS_FailingRandom clsRandom;
        EXPECT_ANY_THROW(CLS_Task::CreateTask(funTask, -1, ""));
    }

    EXPECT_THAT(CLS_Task::m_mapTaskData, IsEmpty());
    EXPECT_TRUE(IsRegistryFree(true));
    EXPECT_FALSE(bEnded);
    EXPECT_NE(nullptr, CLS_Task::CreateTask([] {}, -1, ""));
}

} // namespace
