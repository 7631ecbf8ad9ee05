// The faults of its logging library that the pool tolerates.

#include "tests/support/FailingMemory.h"
#include "tests/support/FailingThreads.h"
#include "tests/support/PoolView.h"
#include "tests/support/RecordMatchers.h"
#include "tests/unit/PoolFixture.h"

#include <atomic>
#include <csignal>
#include <gmock/gmock.h>
#include <stdexcept>

namespace
{
/// A "PrintLog" that uses the pool when it first receives a given text, and then opens m_clsUsed.
class PoolLogFaultsTest : public CLS_PoolFixture
{
protected:
    /// Arms the hook for the existing pool.
    void UsePoolWhenRecorded(const std::string& _strMessage)
    {
        CLS_QuenTaskPool* const pPool = CLS_QuenTaskPool::m_pInstance;
        LogRecorder::SetHook(
            [this, pPool, _strMessage](const LogRecorder::ST_Record& _stRecord)
            {
                if (_stRecord.m_strMessage.rfind(_strMessage, 0) == 0 && !m_bUsed.exchange(true))
                {
                    m_idUser = std::this_thread::get_id();
                    Use(*pPool);
                    m_clsUsed.Open();
                }
            });
    }

    /// Expects that the hook has used the pool and that its task has run.
    void ExpectUsed()
    {
        EXPECT_TRUE(m_clsUsed.Wait());
        EXPECT_TRUE(m_clsRuns.Wait(1));
        LogRecorder::SetHook({});
    }

    std::atomic<bool> m_bUsed{false};
    std::atomic<std::thread::id> m_idUser{};
    CLS_Gate m_clsUsed;
    CLS_Counter m_clsRuns;

private:
    void Use(CLS_QuenTaskPool& _clsPool)
    {
        std::string strTaskId;
        int iOwner = 0;
        EXPECT_TRUE(_clsPool.AddTmpTask([this] { m_clsRuns.Add(); }, this, "kept"));
        EXPECT_TRUE(_clsPool.AddTmpTask([] {}, &iOwner, "removed"));
        _clsPool.AddLoopTask([] {}, 3600000, strTaskId, "removed");
        _clsPool.StopTask(strTaskId);
        _clsPool.RemoveTask(strTaskId, "removed");
        _clsPool.KillTask(strTaskId, "unknown");
        _clsPool.RemoveTmpTask(&iOwner, "removed");
        _clsPool.RemoveTmpTask(strTaskId);
        EXPECT_FALSE(_clsPool.AddTmpTask([] {}, nullptr, "a record within a record"));
        EXPECT_GE(_clsPool.GetTaskThreadNum(), 0);
    }
};

using PoolLogFaultsDeathTest = PoolLogFaultsTest;

TEST_F(PoolLogFaultsTest, PrintLogMayUseThePoolOnAHostsThread)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    UsePoolWhenRecorded("AddTmpTask error, nullptr == _pObj [host]");
    EXPECT_FALSE(clsPool.AddTmpTask([] {}, nullptr, "host"));
    ExpectUsed();
    EXPECT_EQ(std::this_thread::get_id(), m_idUser.load());
}

// Pins docs/limits.md, "Tasks may use the pool".
TEST_F(PoolLogFaultsTest, PrintLogMayUseThePoolOnAWorker)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    UsePoolWhenRecorded("run function error ");
    EXPECT_TRUE(clsPool.AddTmpTask([] { throw 1; }, this, "call"));
    ExpectUsed();
    EXPECT_TRUE(PoolView::WaitForAllIdle(clsPool));
}

TEST_F(PoolLogFaultsTest, PrintLogMayUseThePoolOnTheDispatcher)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    UsePoolWhenRecorded("create task thread error");
    const CLS_FailingThreads clsFailing(1);
    EXPECT_TRUE(clsPool.AddTmpTask([] {}, this, "call"));
    ExpectUsed();
    EXPECT_EQ(PoolView::GetDispatcher(clsPool)->get_id(), m_idUser.load());
}

TEST_F(PoolLogFaultsTest, PrintLogMayUseThePoolOnTheLoopScheduler)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    UsePoolWhenRecorded("*** auto Loop handler fail ***");
    const std::string strTaskId = MakeTask([] {}, 3600000);
    FailingMemory::FailAt(1, PoolView::GetLoopScheduler(clsPool)->get_id());
    PoolView::AddToLoopTasks(clsPool, strTaskId);
    ExpectUsed();
    EXPECT_TRUE(FailingMemory::Stop());
    EXPECT_EQ(PoolView::GetLoopScheduler(clsPool)->get_id(), m_idUser.load());
}

TEST_F(PoolLogFaultsTest, PrintLogMayUseThePoolOnTheWatchdog)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    UsePoolWhenRecorded("delete pThread **************");
    {
        const CLS_FastSleep clsFastSleep;
        ExpectUsed();
    }
    EXPECT_EQ(PoolView::GetWatchdog(clsPool)->get_id(), m_idUser.load());
}

TEST_F(PoolLogFaultsTest, PrintLogMayUseThePoolWhenTheShutdownBegins)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    UsePoolWhenRecorded("----- TaskPool UnInit begin -----");
    clsPool.UnInit();
    EXPECT_TRUE(m_clsUsed.IsOpen());
    EXPECT_EQ(nullptr, CLS_QuenTaskPool::m_pInstance);
}

TEST_F(PoolLogFaultsTest, APrintLogThatBlocksHoldsUpNoOtherThread)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    CLS_Gate clsRecorded;
    CLS_Gate clsLetGo;
    LogRecorder::SetHook(
        [&](const LogRecorder::ST_Record& _stRecord)
        {
            if (_stRecord.m_strFunction == "Running")
            {
                clsRecorded.Open();
                EXPECT_TRUE(clsLetGo.Wait());
            }
        });
    EXPECT_TRUE(clsPool.AddTmpTask([] { throw 1; }, this, "throwing"));
    ASSERT_TRUE(clsRecorded.Wait());
    EXPECT_TRUE(PoolView::AreLocksFree(clsPool));
    int iOwner = 0;
    std::string strTaskId;
    EXPECT_TRUE(clsPool.AddTmpTask([&] { m_clsRuns.Add(); }, &iOwner, "call"));
    EXPECT_TRUE(m_clsRuns.Wait(1));
    clsPool.AddLoopTask([&] { m_clsRuns.Add(); }, 0, strTaskId, "call");
    EXPECT_TRUE(m_clsRuns.Wait(5));
    clsPool.RemoveTask(strTaskId, "call");
    clsPool.RemoveTmpTask(&iOwner, "call");
    EXPECT_FALSE(clsPool.AddTmpTask([] {}, nullptr, "another record"));
    clsLetGo.Open();
    EXPECT_TRUE(PoolView::WaitForAllIdle(clsPool));
}

TEST_F(PoolLogFaultsDeathTest, APrintLogThatThrowsOnAWorkerEndsTheProcess)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto funThrow = [this]
    {
        LogRecorder::SetHook([](const LogRecorder::ST_Record&)
                             { throw std::runtime_error("out of PrintLog"); });
        CLS_QuenTaskPool& clsPool = MakePool();
        clsPool.AddTmpTask([] { throw 1; }, this, "call");
        EXPECT_TRUE(WaitUntil([] { return false; }));
    };
    EXPECT_EXIT(funThrow(), ::testing::KilledBySignal(SIGABRT), "terminat.*");
}
} // namespace
