#include "tests/support/PoolView.h"
#include "tests/support/RecordMatchers.h"
#include "tests/support/ThrowingTextTask.h"
#include "tests/unit/PoolFixture.h"

#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace
{
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;
using ::testing::Matcher;
using ::testing::SizeIs;

using Record = LogRecorder::ST_Record;

Matcher<Record> IsReport(const std::string& _strMessage)
{
    return IsPoolRecord(2, "FunTaskingThread", _strMessage);
}

/// The report's text about a registered task.
Matcher<Record> IsTaskReport(const std::string& _strTaskId, int _iStatus)
{
    return IsReport("runing task info TaskStatus : [" + _strTaskId + std::to_string(_iStatus) +
                    "] task info :" + MakeParamText(_strTaskId, "call"));
}

n_TaskStatus GetStatus(const std::string& _strTaskId)
{
    return CLS_Task::GetTask(_strTaskId).lock()->GetTaskStatus();
}

/// A still pool that creates no worker, so its dispatcher must wait for one.
class PoolBusyReportTest : public CLS_PoolFixture
{
protected:
    void SetUp() override
    {
        CLS_PoolFixture::SetUp();
        m_pPool = &MakeStillPool();
        PoolView::GetWorkerLimit(*m_pPool) = -1;
    }

    void TearDown() override
    {
        m_clsFree.Open();
        for (CLS_TaskThread* const pThread : m_vecBound)
        {
            PoolView::UnbindTask(*m_pPool, pThread);
        }
        CLS_PoolFixture::TearDown();
    }

    /// Makes a worker that appears to run the task.
    CLS_TaskThread* MakeBusyWorker(std::string _strTaskId)
    {
        m_vecBound.push_back(m_pPool->CreateTaskThread());
        PoolView::BindTask(*m_pPool, m_vecBound.back(), _strTaskId);
        return m_vecBound.back();
    }

    /// Queues a task that runs until m_clsFree is opened; returns its id.
    std::string QueueTask()
    {
        const std::string strTaskId = MakeTask(
            [this]
            {
                m_clsStarted.Add();
                EXPECT_TRUE(m_clsFree.Wait());
            });
        m_pPool->AddWaitingTasks(strTaskId);
        return strTaskId;
    }

    /// Runs one dispatcher pass on this thread. The hook receives the number of failed attempts so far.
    void Dispatch(const std::function<void(int)>& _funHook)
    {
        int iFailed = 0;
        const CLS_FastSleep clsFastSleep([&](const ST_Sleep&) { _funHook(++iFailed); });
        PoolView::RunDispatchPass(*m_pPool);
    }

    CLS_QuenTaskPool* m_pPool = nullptr;
    std::vector<CLS_TaskThread*> m_vecBound;
    CLS_Counter m_clsStarted;
    CLS_Gate m_clsFree;
};

// Pins docs/limits.md, "A full pool reports every 9 s".
TEST_F(PoolBusyReportTest, IsWrittenOnEveryNinetiethFailedAttempt)
{
    QueueTask();
    std::vector<int> vecReports;
    Dispatch(
        [&](int _iFailed)
        {
            for (const Record& stRecord : LogRecorder::Take())
            {
                EXPECT_THAT(stRecord,
                            IsReport("waiting task count [1] CurrentThreadCount [0] MaxThread [-1]"));
                vecReports.push_back(_iFailed);
            }
            PoolView::GetRunFlag(*m_pPool) = _iFailed < 300;
        });
    EXPECT_THAT(vecReports, ElementsAre(90, 180, 270));
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

// Pins docs/limits.md, "A full pool reports every 9 s".
TEST_F(PoolBusyReportTest, AttemptsAreCountedForEachId)
{
    for (int i = 0; i < 3; ++i)
    {
        QueueTask();
    }
    Dispatch(
        [&](int _iFailed)
        {
            if (_iFailed % 89 == 0)
            {
                PoolView::AddIdleWorker(*m_pPool, m_pPool->CreateTaskThread());
            }
        });
    EXPECT_TRUE(m_clsStarted.Wait(3));
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
    m_clsFree.Open();
    EXPECT_TRUE(WaitForIdle(*m_pPool, 3));
}

// Pins docs/limits.md, "Odd texts".
TEST_F(PoolBusyReportTest, SaysWhatEveryWorkerDoes)
{
    const std::string strIdle = MakeTask({});
    const std::string strWaiting = MakeTask({});
    CLS_Task::GetTask(strWaiting).lock()->SetTaskIsWaiting();
    MakeBusyWorker("gone");
    MakeBusyWorker(strIdle);
    MakeBusyWorker("");
    MakeBusyWorker(strWaiting);
    PoolView::AddIdleWorker(*m_pPool, m_pPool->CreateTaskThread());
    const std::string strRunning = QueueTask();
    QueueTask();
    QueueTask();
    Dispatch(
        [&](int _iFailed)
        {
            if (_iFailed == 1)
            {
                EXPECT_TRUE(m_clsStarted.Wait(1));
                EXPECT_EQ(TASK_STATUS_RUNNING, GetStatus(strRunning));
                QueueTask();
                QueueTask();
                QueueTask();
            }
            PoolView::GetRunFlag(*m_pPool) = _iFailed < 90;
        });
    PoolView::GetRunFlag(*m_pPool) = true;

    const std::map<std::string, Matcher<Record>> mapTexts{{"gone", IsReport("runing task info - gone0x0")},
                                                          {"", IsReport("runing task info - 0x0")},
                                                          {strIdle, IsTaskReport(strIdle, 0)},
                                                          {strWaiting, IsTaskReport(strWaiting, 1)},
                                                          {strRunning, IsTaskReport(strRunning, 3)}};
    std::vector<Matcher<Record>> vecExpected{
        IsReport("waiting task count [5] CurrentThreadCount [5] MaxThread [-1]")};
    for (const auto& [pThread, strTaskId] : PoolView::CopyWorkers(*m_pPool))
    {
        vecExpected.push_back(mapTexts.at(strTaskId));
    }
    EXPECT_THAT(LogRecorder::Take(), ElementsAreArray(vecExpected));
}

TEST_F(PoolBusyReportTest, HoldsNoLockWhileItIsWritten)
{
    MakeBusyWorker("gone");
    int iRecords = 0;
    LogRecorder::SetHook(
        [&](const Record&)
        {
            ++iRecords;
            EXPECT_TRUE(PoolView::AreLocksFree(*m_pPool));
        });
    PoolView::ReportBusy(*m_pPool, 1);
    LogRecorder::SetHook({});
    EXPECT_EQ(2, iRecords);
}

TEST_F(PoolBusyReportTest, CountsTheIdsThatDidNotFitTheQueue)
{
    QueueTask();
    {
        const std::lock_guard<std::mutex> lock(PoolView::GetQueueLock(*m_pPool));
        PoolView::PushOverflowId(*m_pPool, "first");
        PoolView::PushOverflowId(*m_pPool, "second");
    }
    PoolView::ReportBusy(*m_pPool, 3);
    EXPECT_THAT(LogRecorder::Take(),
                ElementsAre(IsReport("waiting task count [6] CurrentThreadCount [0] MaxThread [-1]")));
}

// Pins docs/limits.md, "A failed dispatcher pass drops its batch".
TEST_F(PoolBusyReportTest, FailureEndsThePassAndDropsTheRestOfItsBatch)
{
    CLS_TaskThread* const pBusy = MakeBusyWorker(CLS_ThrowingTextTask::Make({}, 1));
    const std::string strFirst = QueueTask();
    const std::string strSecond = QueueTask();
    {
        const CLS_FastSleep clsFastSleep;
        StartDispatcher(*m_pPool);
        ASSERT_TRUE(WaitUntil([] { return LogRecorder::Peek().size() >= 2; }));
        EXPECT_THAT(clsFastSleep.GetSleeps(), SizeIs(89));
    }
    EXPECT_THAT(LogRecorder::Take(),
                ElementsAre(IsReport("waiting task count [2] CurrentThreadCount [1] MaxThread [-1]"),
                            IsPoolRecord(3, "FunTaskingThread", "*** auto Tasking handler fail ***")));
    EXPECT_TRUE(PoolView::GetRunFlag(*m_pPool));

    PoolView::AddIdleWorker(*m_pPool, pBusy);
    const std::string strThird = QueueTask();
    EXPECT_TRUE(m_clsStarted.Wait(1));
    EXPECT_EQ(TASK_STATUS_RUNNING, GetStatus(strThird));
    m_clsFree.Open();
    EXPECT_TRUE(WaitForIdle(*m_pPool, 1));
    EXPECT_EQ(1, m_clsStarted.Get());
    for (const std::string& strTaskId : {strFirst, strSecond})
    {
        EXPECT_EQ(TASK_STATUS_WAITING, GetStatus(strTaskId));
    }
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

// Pins docs/limits.md, "At most 301 workers".
TEST_F(PoolBusyReportTest, TasksAfterThe301stWaitForAWorkerAndAreReported)
{
    PoolView::GetWorkerLimit(*m_pPool) = 300;
    CLS_Gate clsFirstMayEnd;
    std::vector<std::string> vecTaskIds{MakeTask(
        [&]
        {
            m_clsStarted.Add();
            EXPECT_TRUE(clsFirstMayEnd.Wait());
        })};
    m_pPool->AddWaitingTasks(vecTaskIds[0]);
    while (vecTaskIds.size() < 302)
    {
        vecTaskIds.push_back(QueueTask());
    }
    Dispatch(
        [&](int _iFailed)
        {
            if (_iFailed == 1)
            {
                EXPECT_TRUE(m_clsStarted.Wait(301));
                EXPECT_EQ(TASK_STATUS_WAITING, GetStatus(vecTaskIds.back()));
            }
            if (_iFailed == 180)
            {
                clsFirstMayEnd.Open();
                EXPECT_TRUE(WaitForIdle(*m_pPool, 1));
            }
        });
    EXPECT_TRUE(m_clsStarted.Wait(302));
    EXPECT_EQ(301, m_pPool->GetTaskThreadNum());

    // The same report appears twice, because the first task was still running.
    std::vector<Matcher<Record>> vecExpected;
    for (int i = 0; i < 2; ++i)
    {
        vecExpected.push_back(IsReport("waiting task count [1] CurrentThreadCount [301] MaxThread [300]"));
        for (const auto& [pThread, strTaskId] : PoolView::CopyWorkers(*m_pPool))
        {
            const bool bReused = strTaskId == vecTaskIds.back();
            vecExpected.push_back(IsTaskReport(bReused ? vecTaskIds.front() : strTaskId, 3));
        }
    }
    EXPECT_THAT(LogRecorder::Take(), ElementsAreArray(vecExpected));

    // The order ids follow the queue. The freed worker has the last task.
    std::vector<std::string> vecByOrder(301);
    for (const auto& [pThread, strTaskId] : PoolView::CopyWorkers(*m_pPool))
    {
        vecByOrder.at(static_cast<std::size_t>(pThread->GetOrderId())) = strTaskId;
    }
    vecTaskIds.front() = vecTaskIds.back();
    vecTaskIds.pop_back();
    EXPECT_EQ(vecTaskIds, vecByOrder);
    m_clsFree.Open();
    EXPECT_TRUE(WaitForIdle(*m_pPool, 301));
}
} // namespace
