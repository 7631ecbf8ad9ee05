#include "QuenPlugins/ZelTaskPool/CLS_TaskThread.h"
#include "tests/support/ClassLayout.h"
#include "tests/support/FailingThreads.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/RecordMatchers.h"
#include "tests/support/ThreadFixture.h"
#include "tests/support/Waiting.h"
#include "tests/support/WorkerView.h"

#include <atomic>
#include <chrono>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <type_traits>

namespace
{
using std::chrono::hours;
using std::chrono::milliseconds;
using std::chrono::steady_clock;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

using TaskThreadTest = CLS_ThreadFixture;

/// Whether the worker has no job. Waits while one runs.
bool IsIdle(CLS_TaskThread& _clsWorker)
{
    const std::lock_guard<std::mutex> lock(WorkerView::GetJobLock(_clsWorker));
    return !WorkerView::GetJob(_clsWorker);
}

TEST_F(TaskThreadTest, HasNoBaseAndItsMembersInTheirOrder)
{
    struct ST_Plain
    {
    };
    EXPECT_TRUE((ClassLayout::HaveAlikeBases<CLS_TaskThread, ST_Plain>()));
    EXPECT_FALSE(std::is_polymorphic_v<CLS_TaskThread>);
    const CLS_TaskThread clsWorker;
    EXPECT_TRUE(ClassLayout::AreInOrder(WorkerView::ListMembers(clsWorker)));
}

TEST_F(TaskThreadTest, NewWorkerIsIdleAndRunning)
{
    const auto tpBefore = steady_clock::now();
    CLS_TaskThread clsWorker;
    EXPECT_EQ(-1, clsWorker.GetOrderId());
    EXPECT_TRUE(WorkerView::GetRunFlag(clsWorker));
    EXPECT_TRUE(IsIdle(clsWorker));
    ASSERT_NE(nullptr, WorkerView::GetThread(clsWorker));
    EXPECT_TRUE(WorkerView::GetThread(clsWorker)->joinable());
    EXPECT_NE(std::this_thread::get_id(), WorkerView::GetThread(clsWorker)->get_id());
    EXPECT_GE(WorkerView::GetLastActive(clsWorker).load(), tpBefore);
    EXPECT_LE(WorkerView::GetLastActive(clsWorker).load(), steady_clock::now());
    EXPECT_FALSE(clsWorker.GetRunGate().IsAbandoned());
    EXPECT_TRUE(clsWorker.Exit());
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

TEST_F(TaskThreadTest, OrderIdIsKept)
{
    CLS_TaskThread clsWorker;
    for (const int iOrderId : {0, 300, -7})
    {
        clsWorker.SetOrderId(iOrderId);
        EXPECT_EQ(iOrderId, clsWorker.GetOrderId());
    }
}

TEST_F(TaskThreadTest, JobRunsOnceOnTheWorkersThreadAndIsGivenTheWorker)
{
    CLS_TaskThread clsWorker;
    CLS_Counter clsCalls;
    CLS_TaskThread* pGiven = nullptr;
    std::thread::id idRunner;
    EXPECT_TRUE(clsWorker.AddFunction(
        [&](CLS_TaskThread* _pWorker)
        {
            pGiven = _pWorker;
            idRunner = std::this_thread::get_id();
            clsCalls.Add();
        }));
    ASSERT_TRUE(clsCalls.Wait(1));
    EXPECT_TRUE(WaitUntil([&] { return IsIdle(clsWorker); }));
    EXPECT_EQ(WorkerView::GetThread(clsWorker)->get_id(), idRunner);
    EXPECT_TRUE(clsWorker.Exit());
    EXPECT_EQ(&clsWorker, pGiven);
    EXPECT_EQ(1, clsCalls.Get());
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

TEST_F(TaskThreadTest, JobsRunOneAfterTheOther)
{
    CLS_TaskThread clsWorker;
    CLS_Counter clsCalls;
    for (int i = 1; i <= 50; ++i)
    {
        EXPECT_TRUE(clsWorker.AddFunction([&](CLS_TaskThread*) { clsCalls.Add(); }));
        ASSERT_TRUE(clsCalls.Wait(i));
    }
    EXPECT_TRUE(clsWorker.Exit());
    EXPECT_EQ(50, clsCalls.Get());
}

TEST_F(TaskThreadTest, WorkerKeepsACopyOfTheJobUntilItIsDone)
{
    CLS_TaskThread clsWorker;
    CLS_Gate clsMayEnd;
    const auto pCaptured = std::make_shared<int>(0);
    std::function<void(CLS_TaskThread*)> funJob = [&clsMayEnd, pCaptured](CLS_TaskThread*)
    { EXPECT_TRUE(clsMayEnd.Wait()); };
    EXPECT_TRUE(clsWorker.AddFunction(funJob));
    funJob = nullptr;
    EXPECT_EQ(2, pCaptured.use_count());
    clsMayEnd.Open();
    EXPECT_TRUE(WaitUntil([&] { return pCaptured.use_count() == 1; }));
    EXPECT_TRUE(IsIdle(clsWorker));
}

TEST_F(TaskThreadTest, AddFunctionOfAnEmptyJobLeavesTheWorkerIdle)
{
    CLS_TaskThread clsWorker;
    CLS_Counter clsCalls;
    EXPECT_TRUE(clsWorker.AddFunction({}));
    EXPECT_TRUE(IsIdle(clsWorker));
    EXPECT_TRUE(clsWorker.AddFunction([&](CLS_TaskThread*) { clsCalls.Add(); }));
    EXPECT_TRUE(clsCalls.Wait(1));
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

/// A worker in the middle of a job. The job ends a short time after the test begins an operation that must
/// wait for it. If the operation does not wait, the job ends immediately.
class CLS_BusyWorker
{
public:
    CLS_BusyWorker() : m_pWorker(std::make_unique<CLS_TaskThread>())
    {
        m_pWorker->AddFunction(
            [this](CLS_TaskThread*)
            {
                m_clsStarted.Open();
                m_bDidNotWait = m_clsReturned.Wait(milliseconds(100));
                m_bEnded = true;
            });
        EXPECT_TRUE(m_clsStarted.Wait());
    }

    /// Makes the call and returns whether the job had ended by then.
    template <typename T_Call>
    bool IsWaitedForBy(T_Call _funCall)
    {
        _funCall();
        const bool bEnded = m_bEnded;
        m_clsReturned.Open();
        if (m_pWorker)
        {
            m_pWorker->Exit();
        }
        return bEnded && !m_bDidNotWait;
    }

    CLS_Gate m_clsStarted;
    CLS_Gate m_clsReturned;
    std::atomic<bool> m_bEnded{false};
    std::atomic<bool> m_bDidNotWait{false};
    std::unique_ptr<CLS_TaskThread> m_pWorker;
};

TEST_F(TaskThreadTest, AddFunctionWaitsForTheRunningJob)
{
    CLS_BusyWorker clsBusy;
    CLS_Gate clsNextRan;
    EXPECT_TRUE(clsBusy.IsWaitedForBy(
        [&]
        {
            EXPECT_TRUE(clsBusy.m_pWorker->AddFunction([&](CLS_TaskThread*) { clsNextRan.Open(); }));
            EXPECT_TRUE(clsBusy.m_bEnded);
            EXPECT_TRUE(clsNextRan.Wait());
        }));
}

TEST_F(TaskThreadTest, ExitWaitsForTheRunningJob)
{
    CLS_BusyWorker clsBusy;
    EXPECT_TRUE(clsBusy.IsWaitedForBy([&] { EXPECT_TRUE(clsBusy.m_pWorker->Exit()); }));
    EXPECT_EQ(nullptr, WorkerView::GetThread(*clsBusy.m_pWorker));
}

TEST_F(TaskThreadTest, DestructorWaitsForTheRunningJob)
{
    CLS_BusyWorker clsBusy;
    EXPECT_TRUE(clsBusy.IsWaitedForBy([&] { clsBusy.m_pWorker.reset(); }));
}

TEST_F(TaskThreadTest, ExitDropsAJobThatWasNotBegun)
{
    CLS_TaskThread clsWorker;
    const steady_clock::time_point tpMarker = steady_clock::now() - hours(1);
    WorkerView::GetLastActive(clsWorker) = tpMarker;
    EXPECT_TRUE(clsWorker.AddFunction([](CLS_TaskThread*) {}));
    // After its first pass, the worker waits for the next job.
    ASSERT_TRUE(WaitUntil([&] { return WorkerView::GetLastActive(clsWorker).load() != tpMarker; }));
    bool bRan = false;
    {
        // The worker's thread cannot check before it has both the job and the order to end.
        const std::lock_guard<std::mutex> lock(WorkerView::GetJobLock(clsWorker));
        WorkerView::GetJob(clsWorker) = [&](CLS_TaskThread*) { bRan = true; };
        WorkerView::GetRunFlag(clsWorker) = false;
        WorkerView::GetJobSignal(clsWorker).notify_one();
    }
    EXPECT_TRUE(clsWorker.Exit());
    EXPECT_FALSE(bRan);
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

TEST_F(TaskThreadTest, EndedWorkerIsInertButValid)
{
    CLS_TaskThread clsWorker;
    EXPECT_TRUE(clsWorker.Exit());
    EXPECT_EQ(nullptr, WorkerView::GetThread(clsWorker));
    EXPECT_FALSE(WorkerView::GetRunFlag(clsWorker));
    EXPECT_TRUE(clsWorker.Exit());
    bool bRan = false;
    EXPECT_TRUE(clsWorker.AddFunction([&](CLS_TaskThread*) { bRan = true; }));
    clsWorker.SetOrderId(4);
    EXPECT_EQ(4, clsWorker.GetOrderId());
    EXPECT_FALSE(clsWorker.IsWaitingOvertime());
    EXPECT_TRUE(clsWorker.Exit());
    EXPECT_FALSE(bRan);
}

TEST_F(TaskThreadTest, ExitLeavesAThreadThatCannotBeJoinedAlone)
{
    CLS_TaskThread clsWorker;
    EXPECT_TRUE(clsWorker.Exit());
    WorkerView::GetThread(clsWorker) = std::make_unique<std::thread>();
    EXPECT_TRUE(clsWorker.Exit());
    EXPECT_NE(nullptr, WorkerView::GetThread(clsWorker));
}

TEST_F(TaskThreadTest, DestructorLeavesAThreadThatCannotBeJoinedAlone)
{
    auto pWorker = std::make_unique<CLS_TaskThread>();
    EXPECT_TRUE(pWorker->Exit());
    WorkerView::GetThread(*pWorker) = std::make_unique<std::thread>();
    pWorker.reset(); // joining it would end the process
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

// Pins docs/limits.md, "A job that throws runs again".
TEST_F(TaskThreadTest, FailingJobIsRetriedUntilItReturns)
{
    CLS_TaskThread clsWorker;
    clsWorker.SetOrderId(12);
    CLS_Gate clsReturned;
    int iCalls = 0;
    EXPECT_TRUE(clsWorker.AddFunction(
        [&](CLS_TaskThread*)
        {
            ++iCalls;
            if (iCalls == 1)
            {
                throw std::runtime_error("first");
            }
            if (iCalls == 2)
            {
                throw 2;
            }
            clsReturned.Open();
        }));
    ASSERT_TRUE(clsReturned.Wait());
    EXPECT_TRUE(WaitUntil([&] { return IsIdle(clsWorker); }));
    EXPECT_TRUE(clsWorker.Exit());
    EXPECT_EQ(3, iCalls);
    EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsThreadRecord(3, "FunTask", "thread handler error - 12"),
                                                 IsThreadRecord(3, "FunTask", "thread handler error - 12")));
}

TEST_F(TaskThreadTest, JobThatFailsAfterTheWorkerWasToldToEndIsNotRetried)
{
    CLS_TaskThread clsWorker;
    CLS_Gate clsStarted;
    bool bTold = false;
    int iCalls = 0;
    EXPECT_TRUE(clsWorker.AddFunction(
        [&](CLS_TaskThread* _pWorker)
        {
            if (++iCalls == 1)
            {
                clsStarted.Open();
                bTold =
                    WaitUntil([&] { return !WorkerView::GetRunFlag(*_pWorker); }, std::chrono::seconds(2));
            }
            if (iCalls <= 3) // so that a failing test does not hang
            {
                throw 1;
            }
        }));
    ASSERT_TRUE(clsStarted.Wait());
    EXPECT_TRUE(clsWorker.Exit());
    EXPECT_TRUE(bTold); // during the job, not after it
    EXPECT_EQ(1, iCalls);
    EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsThreadRecord(3, "FunTask", "thread handler error - -1")));
}

TEST_F(TaskThreadTest, IdleWorkersEndWithoutTheRestOfTheirWait)
{
    constexpr int WORKERS = 50; // 150 s of waits
    const auto tpStart = steady_clock::now();
    for (int i = 0; i < WORKERS; ++i)
    {
        auto pWorker = std::make_unique<CLS_TaskThread>();
        const steady_clock::time_point tpMarker = steady_clock::now() - hours(1);
        WorkerView::GetLastActive(*pWorker) = tpMarker;
        EXPECT_TRUE(pWorker->AddFunction([](CLS_TaskThread*) {}));
        // After its first pass, the worker waits for the next job.
        ASSERT_TRUE(WaitUntil([&] { return WorkerView::GetLastActive(*pWorker).load() != tpMarker; }));
        if (i % 2 == 0)
        {
            EXPECT_TRUE(pWorker->Exit());
        }
        pWorker.reset();
    }
    EXPECT_LT(steady_clock::now() - tpStart, std::chrono::seconds(60));
}

TEST_F(TaskThreadTest, WorkersEndWhenManyAreEndedAtOnce)
{
    const auto tpStart = steady_clock::now();
    for (int i = 0; i < 50; ++i)
    {
        const CLS_TaskThread clsWorker;
    }
    EXPECT_LT(steady_clock::now() - tpStart, std::chrono::seconds(60));
}

TEST_F(TaskThreadTest, WorkerWithoutAThreadIsNotConstructed)
{
    {
        const CLS_FailingThreads clsFailing(2);
        CLS_TaskThread clsFirst;
        EXPECT_THROW(CLS_TaskThread(), std::system_error);
        CLS_TaskThread clsThird;
        CLS_Counter clsCalls;
        EXPECT_TRUE(clsFirst.AddFunction([&](CLS_TaskThread*) { clsCalls.Add(); }));
        EXPECT_TRUE(clsThird.AddFunction([&](CLS_TaskThread*) { clsCalls.Add(); }));
        EXPECT_TRUE(clsCalls.Wait(2));
        EXPECT_EQ(3, clsFailing.GetRequests());
    }
    const CLS_FailingThreads clsCounting(0);
    const CLS_TaskThread clsWorker;
    EXPECT_EQ(1, clsCounting.GetRequests());
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}
} // namespace
