#include "tests/support/PoolView.h"
#include "tests/support/WatchedJoins.h"
#include "tests/unit/ShutdownFixture.h"

#include <stdexcept>

namespace
{
using ::testing::ElementsAre;

/// A task whose parameters cannot be printed while m_bUnprintable is set.
class CLS_SwitchedTextTask final : public CLS_Task
{
public:
    using CLS_Task::CLS_Task;

    std::string ParamToString() override
    {
        if (m_bUnprintable)
        {
            throw std::runtime_error("unprintable");
        }
        return CLS_Task::ParamToString();
    }

    std::atomic<bool> m_bUnprintable{false};
};

class PoolShutdownFailureTest : public CLS_ShutdownFixture
{
protected:
    /// Starts a run whose stop fails at its first log record, after the tenth poll.
    void StartUnprintableRun(CLS_QuenTaskPool& _clsPool)
    {
        const auto funTask = [this]
        {
            m_clsStarted.Open();
            EXPECT_TRUE(m_clsMayEnd.Wait());
        };
        m_pTask = std::make_shared<CLS_SwitchedTextTask>(funTask, -1, "unprintable");
        {
            const std::unique_lock<std::shared_mutex> lock(CLS_Task::m_smTaskDataLock);
            CLS_Task::m_mapTaskData[m_pTask->GetId()] = m_pTask;
        }
        _clsPool.AddWaitingTasks(m_pTask->GetId());
        ASSERT_TRUE(m_clsStarted.Wait());
        m_pTask->m_bUnprintable = true;
    }

    void EndUnprintableRun()
    {
        m_pTask->m_bUnprintable = false;
        m_clsMayEnd.Open();
        EXPECT_TRUE(WaitUntil([this] { return m_pTask->GetTaskStatus() == TASK_STATUS_IDLE; }));
    }

    void TearDown() override
    {
        m_clsMayEnd.Open();
        CLS_ShutdownFixture::TearDown();
    }

    CLS_Gate m_clsStarted;
    CLS_Gate m_clsMayEnd;
    std::shared_ptr<CLS_SwitchedTextTask> m_pTask;
};

// Pins docs/limits.md, "Odd texts".
TEST_F(PoolShutdownFailureTest, AFailedStepIsRecordedBetweenBeginAndEndAndThePoolSurvives)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    StartUnprintableRun(clsPool);
    {
        const CLS_FastSleep clsFastSleep;
        EXPECT_NO_THROW(clsPool.UnInit());
    }
    EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsBegin(), IsStart(), IsError(), IsEnd()));
    ASSERT_EQ(&clsPool, CLS_QuenTaskPool::m_pInstance);
    EXPECT_FALSE(PoolView::GetRunFlag(clsPool));
    EXPECT_FALSE(PoolView::GetDispatcher(clsPool));
    EXPECT_FALSE(PoolView::GetLoopScheduler(clsPool));
    EXPECT_FALSE(PoolView::GetWatchdog(clsPool));
    EXPECT_EQ(1, clsPool.GetTaskThreadNum());
    EndUnprintableRun();
}

TEST_F(PoolShutdownFailureTest, ASecondCallFinishesWhatTheFirstBegan)
{
    const int iThreads = CountThreads();
    CLS_QuenTaskPool& clsPool = MakePool();
    StartUnprintableRun(clsPool);
    {
        const CLS_FastSleep clsFastSleep;
        clsPool.UnInit();
    }
    ASSERT_EQ(&clsPool, CLS_QuenTaskPool::m_pInstance);
    LogRecorder::Clear();

    const CLS_StopPolls clsPolls(2, [this] { EndUnprintableRun(); });
    clsPool.UnInit();

    EXPECT_EQ(nullptr, CLS_QuenTaskPool::m_pInstance);
    EXPECT_EQ(2, clsPolls.GetPolls(std::this_thread::get_id()));
    EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsBegin(), IsStart(), IsEnd()));
    EXPECT_TRUE(WaitForThreads(iThreads));
}

TEST_F(PoolShutdownFailureTest, TheExportedFunctionAlsoFinishesAFailedShutdown)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    StartUnprintableRun(clsPool);
    {
        const CLS_FastSleep clsFastSleep;
        UnInit();
    }
    ASSERT_EQ(&clsPool, CLS_QuenTaskPool::m_pInstance);
    EndUnprintableRun();
    UnInit();
    EXPECT_EQ(nullptr, CLS_QuenTaskPool::m_pInstance);
    EXPECT_THAT(LogRecorder::Take(),
                ElementsAre(IsBegin(), IsStart(), IsError(), IsEnd(), IsBegin(), IsStart(), IsEnd()));
}

TEST_F(PoolShutdownFailureTest, KillTaskAllStillDestroysThePool)
{
    const int iThreads = CountThreads();
    CLS_QuenTaskPool& clsPool = MakePool();
    StartUnprintableRun(clsPool);
    // The run ends once UnInit has failed. The destructor waits for it.
    LogRecorder::SetHook(
        [this](const LogRecorder::ST_Record& _stRecord)
        {
            if (_stRecord.m_strMessage == "UnInit error ")
            {
                EndUnprintableRun();
            }
        });
    const CLS_FastSleep clsFastSleep;
    clsPool.KillTaskAll();

    EXPECT_EQ(nullptr, CLS_QuenTaskPool::m_pInstance);
    EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsBegin(), IsStart(), IsError(), IsEnd()));
    EXPECT_TRUE(WaitForThreads(iThreads));
}

TEST_F(PoolShutdownFailureTest, SecondCallAbandonsARunThatOutlastedTheFirst)
{
    const int iThreads = CountThreads();
    CLS_QuenTaskPool& clsPool = MakePool();
    StartUnprintableRun(clsPool);
    const CLS_FastSleep clsFastSleep;
    clsPool.UnInit();
    m_pTask->m_bUnprintable = false;
    clsPool.UnInit();
    EXPECT_EQ(nullptr, CLS_QuenTaskPool::m_pInstance);
    EXPECT_EQ(iThreads + 1, CountThreads());
    EndUnprintableRun();
    EXPECT_TRUE(WaitForThreads(iThreads));
}

/// The parameter selects the join that fails: 1 dispatcher, 2 loop scheduler, 3 watchdog.
class PoolShutdownJoinTest : public CLS_ShutdownFixture, public ::testing::WithParamInterface<int>
{
};

TEST_P(PoolShutdownJoinTest, AServiceThreadThatCannotBeJoinedLeavesThePoolForASecondCall)
{
    const int iThreads = CountThreads();
    CLS_QuenTaskPool& clsPool = MakePool();
    const pthread_t idRefused = GetParam() == 1   ? PoolView::GetDispatcher(clsPool)->native_handle()
                                : GetParam() == 2 ? PoolView::GetLoopScheduler(clsPool)->native_handle()
                                                  : PoolView::GetWatchdog(clsPool)->native_handle();
    {
        const CLS_WatchedJoins clsJoins(GetParam());
        EXPECT_NO_THROW(clsPool.UnInit());
        ASSERT_EQ(static_cast<std::size_t>(GetParam()), clsJoins.GetThreads().size());
        EXPECT_EQ(idRefused, clsJoins.GetThreads().back());
    }
    EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsBegin(), IsError(), IsEnd()));
    ASSERT_EQ(&clsPool, CLS_QuenTaskPool::m_pInstance);
    EXPECT_FALSE(PoolView::GetRunFlag(clsPool));
    EXPECT_EQ(GetParam() == 1, static_cast<bool>(PoolView::GetDispatcher(clsPool)));
    EXPECT_EQ(GetParam() <= 2, static_cast<bool>(PoolView::GetLoopScheduler(clsPool)));
    EXPECT_TRUE(PoolView::GetWatchdog(clsPool));

    clsPool.UnInit();
    EXPECT_EQ(nullptr, CLS_QuenTaskPool::m_pInstance);
    EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsBegin(), IsStart(), IsEnd()));
    EXPECT_TRUE(WaitForThreads(iThreads));
}

TEST_P(PoolShutdownJoinTest, KillTaskAllEndsTheRemainingThreads)
{
    const int iThreads = CountThreads();
    CLS_QuenTaskPool& clsPool = MakePool();
    {
        const CLS_WatchedJoins clsJoins(GetParam());
        clsPool.KillTaskAll();
    }
    EXPECT_EQ(nullptr, CLS_QuenTaskPool::m_pInstance);
    EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsBegin(), IsError(), IsEnd()));
    EXPECT_TRUE(WaitForThreads(iThreads));
}

INSTANTIATE_TEST_SUITE_P(Services, PoolShutdownJoinTest, ::testing::Values(1, 2, 3),
                         ::testing::PrintToStringParamName());

TEST_F(PoolShutdownFailureTest, AWorkerThatCannotBeJoinedIsEndedByTheSecondCall)
{
    const int iThreads = CountThreads();
    CLS_QuenTaskPool& clsPool = MakePool();
    RunShortTask(clsPool);
    {
        const CLS_WatchedJoins clsJoins(4);
        clsPool.UnInit();
    }
    EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsBegin(), IsStart(), IsError(), IsEnd()));
    ASSERT_EQ(&clsPool, CLS_QuenTaskPool::m_pInstance);
    EXPECT_EQ(1, clsPool.GetTaskThreadNum());
    clsPool.UnInit();
    EXPECT_EQ(nullptr, CLS_QuenTaskPool::m_pInstance);
    EXPECT_TRUE(WaitForThreads(iThreads));
}
} // namespace
