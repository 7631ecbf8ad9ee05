#include "QuenPlugins/ZelTaskPool/CLS_TaskThread.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/RecordMatchers.h"
#include "tests/support/ThreadFixture.h"
#include "tests/support/Waiting.h"
#include "tests/support/WatchedYields.h"
#include "tests/support/WorkerView.h"

#include <chrono>
#include <cstdint>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <mutex>
#include <pthread.h>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <vector>

namespace
{
using std::chrono::hours;
using std::chrono::steady_clock;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// A worker whose thread has ended. The tests make its passes themselves, step by step, on their own thread.
class TaskThreadPassTest : public CLS_ThreadFixture
{
protected:
    void SetUp() override
    {
        CLS_ThreadFixture::SetUp();
        m_clsWorker.Exit();
        WorkerView::GetRunFlag(m_clsWorker) = true;
        WorkerView::GetLastActive(m_clsWorker) = m_tpMarker;
    }

    /// Makes a second lock of the worker's mutex on the same thread throw instead of hang.
    void MakeMutexCheckItself()
    {
        pthread_mutexattr_t stAttributes;
        ASSERT_EQ(0, pthread_mutexattr_init(&stAttributes));
        ASSERT_EQ(0, pthread_mutexattr_settype(&stAttributes, PTHREAD_MUTEX_ERRORCHECK));
        pthread_mutex_t* const pMutex = WorkerView::GetJobLock(m_clsWorker).native_handle();
        ASSERT_EQ(0, pthread_mutex_destroy(pMutex));
        ASSERT_EQ(0, pthread_mutex_init(pMutex, &stAttributes));
        ASSERT_EQ(0, pthread_mutexattr_destroy(&stAttributes));
    }

    /// Whether the worker's mutex is free.
    bool IsMutexFree()
    {
        bool bFree = false;
        std::thread(
            [&]
            {
                bFree = WorkerView::GetJobLock(m_clsWorker).try_lock();
                if (bFree)
                {
                    WorkerView::GetJobLock(m_clsWorker).unlock();
                }
            })
            .join();
        return bFree;
    }

    bool RunNextJob() { return WorkerView::RunPass(m_clsWorker, m_iShownId); }

    const steady_clock::time_point m_tpMarker = steady_clock::now() - hours(1);
    CLS_TaskThread m_clsWorker;

private:
    std::int32_t m_iShownId = -1;
};

TEST_F(TaskThreadPassTest, OnlyTheLastJobHandedOverRuns)
{
    int iFirst = 0;
    int iSecond = 0;
    const auto pCaptured = std::make_shared<int>(0);
    EXPECT_TRUE(m_clsWorker.AddFunction([&iFirst, pCaptured](CLS_TaskThread*) { ++iFirst; }));
    EXPECT_EQ(2, pCaptured.use_count());
    EXPECT_TRUE(m_clsWorker.AddFunction([&](CLS_TaskThread*) { ++iSecond; }));
    EXPECT_EQ(1, pCaptured.use_count());
    EXPECT_TRUE(RunNextJob());
    EXPECT_EQ(0, iFirst);
    EXPECT_EQ(1, iSecond);
    EXPECT_FALSE(WorkerView::GetJob(m_clsWorker));
}

TEST_F(TaskThreadPassTest, EmptyJobDiscardsTheOneInHand)
{
    EXPECT_TRUE(m_clsWorker.AddFunction([](CLS_TaskThread*) { ADD_FAILURE(); }));
    EXPECT_TRUE(m_clsWorker.AddFunction({}));
    EXPECT_FALSE(WorkerView::GetJob(m_clsWorker));
}

TEST_F(TaskThreadPassTest, JobRunsWithTheMutexHeldAndWithTheWorker)
{
    bool bFree = true;
    CLS_TaskThread* pGiven = nullptr;
    EXPECT_TRUE(m_clsWorker.AddFunction(
        [&](CLS_TaskThread* _pWorker)
        {
            pGiven = _pWorker;
            bFree = IsMutexFree();
        }));
    EXPECT_TRUE(RunNextJob());
    EXPECT_EQ(&m_clsWorker, pGiven);
    EXPECT_FALSE(bFree);
    EXPECT_TRUE(IsMutexFree());
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

TEST_F(TaskThreadPassTest, JobThatWasNotBegunIsDroppedAtShutdown)
{
    EXPECT_TRUE(m_clsWorker.AddFunction([](CLS_TaskThread*) { ADD_FAILURE(); }));
    EXPECT_TRUE(m_clsWorker.Exit());
    EXPECT_FALSE(RunNextJob());
    EXPECT_TRUE(IsMutexFree());
    m_clsWorker.FunTask();
    EXPECT_EQ(m_tpMarker, WorkerView::GetLastActive(m_clsWorker).load());
}

TEST_F(TaskThreadPassTest, FailingJobIsRetriedUntilANewOneReplacesIt)
{
    int iFailed = 0;
    int iNext = 0;
    bool bFree = true;
    LogRecorder::SetHook([&](const LogRecorder::ST_Record&) { bFree = IsMutexFree(); });
    EXPECT_TRUE(m_clsWorker.AddFunction(
        [&](CLS_TaskThread*)
        {
            ++iFailed;
            throw std::runtime_error("always");
        }));
    for (int i = 1; i <= 3; ++i)
    {
        m_clsWorker.SetOrderId(i);
        EXPECT_TRUE(RunNextJob());
        EXPECT_EQ(i, iFailed);
        EXPECT_FALSE(bFree); // still in the pass
        EXPECT_TRUE(IsMutexFree());
    }
    EXPECT_TRUE(m_clsWorker.AddFunction([&](CLS_TaskThread*) { ++iNext; }));
    EXPECT_TRUE(RunNextJob());
    EXPECT_EQ(3, iFailed);
    EXPECT_EQ(1, iNext);
    EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsThreadRecord(3, "FunTask", "thread handler error - 1"),
                                                 IsThreadRecord(3, "FunTask", "thread handler error - 2"),
                                                 IsThreadRecord(3, "FunTask", "thread handler error - 3")));
}

TEST_F(TaskThreadPassTest, FailingJobIsRetriedUntilTheWorkerIsToldToEnd)
{
    int iCalls = 0;
    EXPECT_TRUE(m_clsWorker.AddFunction(
        [&](CLS_TaskThread* _pWorker)
        {
            if (++iCalls == 4)
            {
                WorkerView::GetRunFlag(*_pWorker) = false;
            }
            throw 1;
        }));
    m_clsWorker.FunTask();
    EXPECT_EQ(4, iCalls);
    const auto funIsRecord = [] { return IsThreadRecord(3, "FunTask", "thread handler error - -1"); };
    EXPECT_THAT(LogRecorder::Take(), ElementsAre(funIsRecord(), funIsRecord(), funIsRecord(), funIsRecord()));
}

TEST_F(TaskThreadPassTest, TimeOfActivityIsRefreshedWhenAPassEnds)
{
    std::vector<steady_clock::time_point> vecSeen;
    std::vector<steady_clock::time_point> vecEnds;
    EXPECT_TRUE(m_clsWorker.AddFunction(
        [&](CLS_TaskThread* _pWorker)
        {
            vecSeen.push_back(WorkerView::GetLastActive(*_pWorker));
            vecEnds.push_back(steady_clock::now());
            if (vecEnds.size() == 1)
            {
                throw 1;
            }
            WorkerView::GetRunFlag(*_pWorker) = false;
        }));
    EXPECT_EQ(m_tpMarker, WorkerView::GetLastActive(m_clsWorker).load()); // not refreshed by the hand-over
    m_clsWorker.FunTask();
    ASSERT_EQ(2U, vecSeen.size());
    EXPECT_EQ(m_tpMarker, vecSeen[0]);
    EXPECT_GE(vecSeen[1], vecEnds[0]); // refreshed after the failure
    EXPECT_LE(vecSeen[1], vecEnds[1]);
    EXPECT_GE(WorkerView::GetLastActive(m_clsWorker).load(),
              vecEnds[1]); // refreshed after the job, even at the end
    EXPECT_FALSE(WorkerView::GetJob(m_clsWorker));
}

TEST_F(TaskThreadPassTest, AnyOtherFailureOfAPassIsRecordedAndTheLoopGoesOn)
{
    MakeMutexCheckItself();
    m_clsWorker.SetOrderId(5);
    EXPECT_TRUE(
        m_clsWorker.AddFunction([](CLS_TaskThread* _pWorker) { WorkerView::GetRunFlag(*_pWorker) = false; }));
    int iRecords = 0;
    std::vector<steady_clock::time_point> vecSeen;
    LogRecorder::SetHook(
        [&](const LogRecorder::ST_Record&)
        {
            vecSeen.push_back(WorkerView::GetLastActive(m_clsWorker));
            if (++iRecords == 2)
            {
                WorkerView::GetJobLock(m_clsWorker).unlock();
            }
        });
    WorkerView::GetJobLock(m_clsWorker).lock();
    m_clsWorker.FunTask(); // cannot lock twice, then can
    EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsThreadRecord(3, "FunTask", "thread handler error - 5"),
                                                 IsThreadRecord(3, "FunTask", "thread handler error - 5")));
    ASSERT_EQ(2U, vecSeen.size());
    EXPECT_EQ(m_tpMarker, vecSeen[0]);
    EXPECT_GT(vecSeen[1], m_tpMarker);
    EXPECT_FALSE(WorkerView::GetJob(m_clsWorker));
}

TEST_F(TaskThreadPassTest, RunFlagIsChangedUnderTheMutexOfItsWaiter)
{
    MakeMutexCheckItself();
    WorkerView::GetJobLock(m_clsWorker).lock();
    EXPECT_THROW(m_clsWorker.Exit(), std::system_error);
    WorkerView::GetJobLock(m_clsWorker).unlock();
    EXPECT_TRUE(m_clsWorker.Exit());
    EXPECT_FALSE(WorkerView::GetRunFlag(m_clsWorker));
    EXPECT_TRUE(IsMutexFree());
}

TEST_F(TaskThreadPassTest, AbandonedWorkerEndsAfterItsJob)
{
    EXPECT_TRUE(m_clsWorker.AddFunction(
        [](CLS_TaskThread* _pWorker)
        {
            EXPECT_TRUE(_pWorker->GetRunGate().EnterRun());
            EXPECT_FALSE(_pWorker->GetRunGate().Close(std::chrono::steady_clock::now() + hours(1)));
            EXPECT_FALSE(_pWorker->GetRunGate().LeaveRun());
            EXPECT_TRUE(WorkerView::GetRunFlag(*_pWorker));
        }));
    const CLS_WatchedYields clsYields;
    m_clsWorker.FunTask();
    EXPECT_EQ(0, clsYields.GetYields());
    EXPECT_FALSE(WorkerView::GetJob(m_clsWorker));
}

TEST_F(TaskThreadPassTest, AbandonedWorkerEndsEvenWhenItsJobFailed)
{
    int iCalls = 0;
    EXPECT_TRUE(m_clsWorker.AddFunction(
        [&](CLS_TaskThread* _pWorker)
        {
            ++iCalls;
            EXPECT_TRUE(_pWorker->GetRunGate().EnterRun());
            EXPECT_FALSE(_pWorker->GetRunGate().Close(std::chrono::steady_clock::now() + hours(1)));
            EXPECT_FALSE(_pWorker->GetRunGate().LeaveRun());
            throw 1;
        }));
    m_clsWorker.FunTask();
    EXPECT_EQ(1, iCalls);
    EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsThreadRecord(3, "FunTask", "thread handler error - -1")));
}

TEST_F(TaskThreadPassTest, YieldsOnceMoreAfterAJobIfMoreTasksWait)
{
    const CLS_WatchedYields clsYields;
    EXPECT_TRUE(m_clsWorker.AddFunction(
        [](CLS_TaskThread* _pWorker)
        {
            _pWorker->SetBacklog(true);
            WorkerView::GetRunFlag(*_pWorker) = false;
        }));
    m_clsWorker.FunTask();
    EXPECT_EQ(1 + MOST_YIELDS_BEFORE_SLEEP, clsYields.GetYields());
}

TEST_F(TaskThreadPassTest, YieldsAFewTimesAfterEachJobAndHoldsNothingMeanwhile)
{
    int iCalls = 0;
    const CLS_WatchedYields clsYields(
        [&]
        {
            EXPECT_TRUE(IsMutexFree());
            EXPECT_NE(m_tpMarker, WorkerView::GetLastActive(m_clsWorker).load());
        });
    EXPECT_TRUE(m_clsWorker.AddFunction(
        [&](CLS_TaskThread* _pWorker)
        {
            EXPECT_EQ(iCalls * MOST_YIELDS_BEFORE_SLEEP, clsYields.GetYields());
            WorkerView::GetLastActive(m_clsWorker) = m_tpMarker;
            if (++iCalls < 3)
            {
                throw 1;
            }
            WorkerView::GetRunFlag(*_pWorker) = false;
        }));
    m_clsWorker.FunTask();
    EXPECT_EQ(3, iCalls);
    EXPECT_EQ(3 * MOST_YIELDS_BEFORE_SLEEP, clsYields.GetYields());
    EXPECT_EQ(2U, LogRecorder::Take().size());
}

TEST_F(TaskThreadPassTest, StopsYieldingOnceAJobIsHandedOver)
{
    int iCalls = 0;
    const auto funEnd = [&](CLS_TaskThread* _pWorker)
    {
        ++iCalls;
        WorkerView::GetRunFlag(*_pWorker) = false;
    };
    const CLS_WatchedYields clsYields(
        [&]
        {
            if (clsYields.GetYields() == 2)
            {
                EXPECT_TRUE(m_clsWorker.AddFunction(funEnd));
            }
            EXPECT_TRUE(iCalls > 0 || clsYields.GetYields() <= 2);
        });
    EXPECT_TRUE(m_clsWorker.AddFunction([](CLS_TaskThread*) {}));
    m_clsWorker.FunTask();
    EXPECT_EQ(1, iCalls);
    EXPECT_EQ(2 + MOST_YIELDS_BEFORE_SLEEP, clsYields.GetYields());
}

TEST_F(TaskThreadPassTest, DoesNotYieldWhileItIsIdle)
{
    const CLS_WatchedYields clsYields;
    std::thread thHost(
        [&]
        {
            for (int i = 0; i < 20; ++i)
            {
                const std::lock_guard<std::mutex> lock(WorkerView::GetJobLock(m_clsWorker));
                WorkerView::GetJobSignal(m_clsWorker).notify_one();
            }
            m_clsWorker.AddFunction([](CLS_TaskThread* _pWorker)
                                    { WorkerView::GetRunFlag(*_pWorker) = false; });
        });
    m_clsWorker.FunTask();
    thHost.join();
    EXPECT_EQ(MOST_YIELDS_BEFORE_SLEEP, clsYields.GetYields()); // after the job
}

TEST_F(TaskThreadPassTest, DoesNotYieldWhenItEndsWithoutAJob)
{
    const CLS_WatchedYields clsYields;
    WorkerView::RequestEnd(m_clsWorker);
    m_clsWorker.FunTask();
    EXPECT_EQ(0, clsYields.GetYields());
}
} // namespace
