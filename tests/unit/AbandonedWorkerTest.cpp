#include "QuenPlugins/ZelTaskPool/CLS_TaskThread.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/ThreadFixture.h"
#include "tests/support/Waiting.h"

#include <atomic>
#include <chrono>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>

namespace
{
using std::chrono::hours;
using std::chrono::milliseconds;
using ::testing::IsEmpty;

using AbandonedWorkerTest = CLS_ThreadFixture;

/// Opens a gate when its thread ends.
struct ST_ThreadEnd
{
    ~ST_ThreadEnd()
    {
        if (m_pEnded)
        {
            m_pEnded->Open();
        }
    }

    std::shared_ptr<CLS_Gate> m_pEnded;
};
thread_local ST_ThreadEnd t_stThreadEnd;

/// The state that a test and a worker's job share. It lives until both are done.
struct ST_Meeting
{
    CLS_Gate m_clsEntered;
    CLS_Gate m_clsMayLeave;
    std::atomic<int> m_iCalls{0};
    std::atomic<bool> m_bLeft{true}; ///< the result of LeaveRun
    const std::shared_ptr<CLS_Gate> m_pThreadEnded = std::make_shared<CLS_Gate>();
};

/// Starts a worker and a run on it. Once abandoned, the worker alone knows its address.
CLS_TaskThread* StartRun(const std::shared_ptr<ST_Meeting>& _pMeeting)
{
    auto* const pWorker = new CLS_TaskThread;
    pWorker->AddFunction(
        [_pMeeting](CLS_TaskThread* _pWorker)
        {
            t_stThreadEnd.m_pEnded = _pMeeting->m_pThreadEnded;
            ++_pMeeting->m_iCalls;
            EXPECT_TRUE(_pWorker->GetRunGate().EnterRun());
            _pMeeting->m_clsEntered.Open();
            EXPECT_TRUE(_pMeeting->m_clsMayLeave.Wait());
            _pMeeting->m_bLeft = _pWorker->GetRunGate().LeaveRun();
        });
    EXPECT_TRUE(_pMeeting->m_clsEntered.Wait());
    return pWorker;
}

TEST_F(AbandonedWorkerTest, FreesItselfAndEndsItsThread)
{
    const auto pMeeting = std::make_shared<ST_Meeting>();
    EXPECT_FALSE(StartRun(pMeeting)->GetRunGate().Close(std::chrono::steady_clock::now() + milliseconds(0)));
    EXPECT_FALSE(pMeeting->m_pThreadEnded->IsOpen());
    pMeeting->m_clsMayLeave.Open();
    EXPECT_TRUE(pMeeting->m_pThreadEnded->Wait()); // the leak check finds a worker that is not freed
    EXPECT_FALSE(pMeeting->m_bLeft);
    EXPECT_EQ(1, pMeeting->m_iCalls);
    EXPECT_EQ(1, pMeeting.use_count()); // the job is destroyed, too
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

TEST_F(AbandonedWorkerTest, FreesItselfWhenItsOwnJobEndsThePool)
{
    const auto pEnded = std::make_shared<CLS_Gate>();
    (new CLS_TaskThread)
        ->AddFunction(
            [pEnded](CLS_TaskThread* _pWorker)
            {
                t_stThreadEnd.m_pEnded = pEnded;
                EXPECT_TRUE(_pWorker->GetRunGate().EnterRun());
                EXPECT_FALSE(_pWorker->GetRunGate().Close(std::chrono::steady_clock::now() + hours(1)));
                EXPECT_FALSE(_pWorker->GetRunGate().LeaveRun());
            });
    EXPECT_TRUE(pEnded->Wait());
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

TEST_F(AbandonedWorkerTest, OwnerDeletesAWorkerWhoseRunEndedInTime)
{
    const auto pMeeting = std::make_shared<ST_Meeting>();
    const std::unique_ptr<CLS_TaskThread> pWorker(StartRun(pMeeting));
    pMeeting->m_clsMayLeave.Open();
    EXPECT_TRUE(pWorker->GetRunGate().Close(std::chrono::steady_clock::now() + hours(1)));
    EXPECT_TRUE(pMeeting->m_bLeft);
    EXPECT_FALSE(pMeeting->m_pThreadEnded->IsOpen());
    EXPECT_TRUE(pWorker->Exit());
    EXPECT_TRUE(pMeeting->m_pThreadEnded->IsOpen());
}

TEST_F(AbandonedWorkerTest, WorkerRunsNoJobOnceItsGateIsClosed)
{
    CLS_TaskThread clsWorker;
    const auto pEnded = std::make_shared<CLS_Gate>();
    CLS_Gate clsFirst;
    EXPECT_TRUE(clsWorker.AddFunction(
        [&](CLS_TaskThread*)
        {
            t_stThreadEnd.m_pEnded = pEnded;
            clsFirst.Open();
        }));
    EXPECT_TRUE(clsFirst.Wait());
    EXPECT_TRUE(clsWorker.GetRunGate().Close(std::chrono::steady_clock::now() + hours(1)));
    bool bRan = false;
    EXPECT_TRUE(clsWorker.AddFunction([&bRan](CLS_TaskThread*) { bRan = true; }));
    EXPECT_TRUE(pEnded->Wait());
    EXPECT_NE(std::thread::id(), clsWorker.GetThreadId());
    EXPECT_TRUE(clsWorker.Exit());
    EXPECT_EQ(std::thread::id(), clsWorker.GetThreadId());
    EXPECT_FALSE(bRan);
}

TEST_F(AbandonedWorkerTest, ManyWorkersAreAbandonedAtOnce)
{
    std::vector<std::shared_ptr<ST_Meeting>> vecMeetings;
    for (int i = 0; i < 20; ++i)
    {
        vecMeetings.push_back(std::make_shared<ST_Meeting>());
        EXPECT_FALSE(StartRun(vecMeetings.back())
                         ->GetRunGate()
                         .Close(std::chrono::steady_clock::now() + milliseconds(0)));
    }
    for (const std::shared_ptr<ST_Meeting>& pMeeting : vecMeetings)
    {
        pMeeting->m_clsMayLeave.Open();
    }
    for (const std::shared_ptr<ST_Meeting>& pMeeting : vecMeetings)
    {
        EXPECT_TRUE(pMeeting->m_pThreadEnded->Wait());
        EXPECT_FALSE(pMeeting->m_bLeft);
    }
}
} // namespace
