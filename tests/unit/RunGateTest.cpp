#include "QuenPlugins/ZelTaskPool/CLS_RunGate.h"
#include "tests/support/RunGateView.h"
#include "tests/support/Waiting.h"

#include <atomic>
#include <chrono>
#include <gtest/gtest.h>
#include <mutex>
#include <string>
#include <thread>

namespace
{
using std::chrono::hours;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

TEST(RunGateTest, RunsBeginAndEndWhileThePoolLives)
{
    CLS_RunGate clsGate;
    for (int i = 0; i < 3; ++i)
    {
        EXPECT_TRUE(clsGate.EnterRun());
        EXPECT_FALSE(clsGate.IsAbandoned());
        EXPECT_TRUE(clsGate.LeaveRun());
        EXPECT_FALSE(clsGate.IsAbandoned());
    }
}

TEST(RunGateTest, CloseBetweenRunsDoesNotWaitAndLetsNoneBegin)
{
    CLS_RunGate clsGate;
    EXPECT_TRUE(clsGate.EnterRun());
    EXPECT_TRUE(clsGate.LeaveRun());
    EXPECT_TRUE(clsGate.Close(steady_clock::now() + hours(1)));
    EXPECT_FALSE(clsGate.EnterRun());
    EXPECT_FALSE(clsGate.IsAbandoned());
    EXPECT_TRUE(clsGate.LeaveRun());
    EXPECT_FALSE(clsGate.EnterRun());
    EXPECT_FALSE(clsGate.IsAbandoned());
}

TEST(RunGateTest, EachStepOfAJobChangesTheState)
{
    CLS_RunGate clsGate;
    EXPECT_EQ("", RunGateView::DescribeState(clsGate));
    {
        const CLS_RunGate::CLS_JobScope clsJob(clsGate);
        EXPECT_TRUE(clsJob.IsBegun());
        EXPECT_EQ("job", RunGateView::DescribeState(clsGate));
        {
            const CLS_RunGate::CLS_PoolVisit clsPool(clsGate);
            EXPECT_TRUE(clsPool.IsInside());
            EXPECT_EQ("job pool", RunGateView::DescribeState(clsGate));
            EXPECT_TRUE(clsGate.EnterRun());
            EXPECT_EQ("job pool run", RunGateView::DescribeState(clsGate));
            EXPECT_TRUE(clsGate.LeaveRun());
            EXPECT_EQ("job pool", RunGateView::DescribeState(clsGate));
        }
        EXPECT_EQ("job", RunGateView::DescribeState(clsGate));
    }
    EXPECT_EQ("", RunGateView::DescribeState(clsGate));
}

TEST(RunGateTest, NothingBeginsOnceTheGateIsClosed)
{
    CLS_RunGate clsGate;
    EXPECT_TRUE(clsGate.Close(steady_clock::now() + hours(1)));
    EXPECT_EQ("closed", RunGateView::DescribeState(clsGate));
    {
        const CLS_RunGate::CLS_JobScope clsJob(clsGate);
        EXPECT_FALSE(clsJob.IsBegun());
        EXPECT_EQ("closed", RunGateView::DescribeState(clsGate));
        {
            const CLS_RunGate::CLS_PoolVisit clsPool(clsGate);
            EXPECT_TRUE(clsPool.IsInside()) << "the worker was not abandoned";
            EXPECT_EQ("pool closed", RunGateView::DescribeState(clsGate));
            EXPECT_FALSE(clsGate.EnterRun());
            EXPECT_EQ("pool closed", RunGateView::DescribeState(clsGate));
        }
    }
    EXPECT_EQ("closed", RunGateView::DescribeState(clsGate));
}

TEST(RunGateTest, WorkerThatIsAbandonedInAHostsJobMustNotEnterThePool)
{
    CLS_RunGate clsGate;
    {
        const CLS_RunGate::CLS_JobScope clsJob(clsGate);
        bool bOver = true;
        std::thread([&] { bOver = clsGate.Close(steady_clock::now()); }).join();
        EXPECT_FALSE(bOver);
        EXPECT_EQ("job closed abandoned", RunGateView::DescribeState(clsGate));
        const CLS_RunGate::CLS_PoolVisit clsPool(clsGate);
        EXPECT_FALSE(clsPool.IsInside());
    }
    EXPECT_EQ("closed abandoned", RunGateView::DescribeState(clsGate));
}

TEST(RunGateTest, WorkerThatIsAbandonedInARunIsToldWhenItEnds)
{
    CLS_RunGate clsGate;
    const CLS_RunGate::CLS_JobScope clsJob(clsGate);
    const CLS_RunGate::CLS_PoolVisit clsPool(clsGate);
    EXPECT_TRUE(clsGate.EnterRun());
    bool bOver = true;
    std::thread([&] { bOver = clsGate.Close(steady_clock::now()); }).join();
    EXPECT_FALSE(bOver);
    EXPECT_EQ("job pool run closed abandoned", RunGateView::DescribeState(clsGate));
    EXPECT_FALSE(clsGate.LeaveRun());
    EXPECT_EQ("job pool closed abandoned", RunGateView::DescribeState(clsGate));
}

TEST(RunGateTest, NoStepTakesALockBeforeClose)
{
    CLS_RunGate clsGate;
    CLS_Gate clsDone;
    const std::lock_guard<std::mutex> lock(RunGateView::GetLock(clsGate));
    std::thread thWorker(
        [&]
        {
            for (int i = 0; i < 2; ++i)
            {
                const CLS_RunGate::CLS_JobScope clsJob(clsGate);
                const CLS_RunGate::CLS_PoolVisit clsPool(clsGate);
                EXPECT_TRUE(clsGate.EnterRun());
                EXPECT_TRUE(clsGate.LeaveRun());
                EXPECT_FALSE(clsGate.IsAbandoned());
            }
            clsDone.Open();
        });
    EXPECT_TRUE(clsDone.Wait());
    thWorker.join();
}

/// A thread in a run that ends when the test calls End.
class CLS_GateRunner
{
public:
    explicit CLS_GateRunner(CLS_RunGate& _clsGate)
        : m_clsGate(_clsGate), m_thRunner(
                                   [this]
                                   {
                                       EXPECT_TRUE(m_clsGate.EnterRun());
                                       m_clsEntered.Open();
                                       EXPECT_TRUE(m_clsMayLeave.Wait(m_msLimit));
                                       m_bAtEnd = true;
                                       m_bLeft = m_clsGate.LeaveRun();
                                   })
    {
        EXPECT_TRUE(m_clsEntered.Wait());
    }

    /// Ends the run; returns the result of LeaveRun.
    bool End()
    {
        m_clsMayLeave.Open();
        m_thRunner.join();
        return m_bLeft;
    }

    const milliseconds m_msLimit{WAIT_LIMIT};
    CLS_RunGate& m_clsGate;
    CLS_Gate m_clsEntered;
    CLS_Gate m_clsMayLeave;
    std::atomic<bool> m_bAtEnd{false};
    bool m_bLeft = false;
    std::thread m_thRunner;
};

// The worker uses the pool during the shutdown and then runs the host's own code.
TEST(RunGateTest, CloseAbandonsAWorkerThatLeavesThePoolForForeignCode)
{
    CLS_RunGate clsGate;
    CLS_Gate clsInside;
    CLS_Gate clsMayLeave;
    CLS_Gate clsMayEnd;
    std::thread thWorker(
        [&]
        {
            const CLS_RunGate::CLS_JobScope clsJob(clsGate);
            EXPECT_TRUE(clsJob.IsBegun());
            {
                const CLS_RunGate::CLS_PoolVisit clsPool(clsGate);
                EXPECT_TRUE(clsPool.IsInside());
                clsInside.Open();
                EXPECT_TRUE(clsMayLeave.Wait());
            }
            EXPECT_TRUE(clsMayEnd.Wait());
        });
    EXPECT_TRUE(clsInside.Wait());
    CLS_Gate clsClosed;
    bool bOver = true;
    std::thread thEnd(
        [&]
        {
            bOver = clsGate.Close(steady_clock::now());
            clsClosed.Open();
        });
    EXPECT_FALSE(clsClosed.Wait(milliseconds(50))); // Close waits while the worker is inside the pool
    clsMayLeave.Open();
    EXPECT_TRUE(clsClosed.Wait());
    EXPECT_FALSE(bOver);
    EXPECT_TRUE(clsGate.IsAbandoned());
    clsMayEnd.Open();
    thWorker.join();
    thEnd.join();
}

TEST(RunGateTest, CloseWithoutALimitAbandonsARunningWorker)
{
    CLS_RunGate clsGate;
    CLS_GateRunner clsRunner(clsGate);
    EXPECT_FALSE(clsGate.Close(steady_clock::now() + milliseconds(0)));
    EXPECT_TRUE(clsGate.IsAbandoned());
    EXPECT_FALSE(clsRunner.End());
    EXPECT_TRUE(clsGate.IsAbandoned());
    EXPECT_FALSE(clsGate.EnterRun());
    EXPECT_TRUE(clsGate.IsAbandoned());
}

TEST(RunGateTest, CloseWaitsItsLimitForTheRunInProgress)
{
    CLS_RunGate clsGate;
    CLS_GateRunner clsRunner(clsGate);
    const auto tpStart = steady_clock::now();
    EXPECT_FALSE(clsGate.Close(steady_clock::now() + milliseconds(60)));
    EXPECT_GE(steady_clock::now() - tpStart, milliseconds(60));
    EXPECT_FALSE(clsRunner.End());
}

TEST(RunGateTest, CloseReturnsWhenTheRunEnds)
{
    CLS_RunGate clsGate;
    CLS_GateRunner clsRunner(clsGate);
    std::thread thEnder(
        [&]
        {
            // The gate is closed before the wait begins. The worker's run still continues.
            EXPECT_TRUE(WaitUntil([&] { return RunGateView::IsClosed(clsGate); }));
            EXPECT_TRUE(clsRunner.End());
        });
    EXPECT_TRUE(clsGate.Close(steady_clock::now() + hours(1)));
    EXPECT_TRUE(clsRunner.m_bAtEnd);
    thEnder.join();
    EXPECT_FALSE(clsGate.IsAbandoned());
    EXPECT_FALSE(clsGate.EnterRun());
}

TEST(RunGateTest, CloseFromWithinTheRunDoesNotWait)
{
    CLS_RunGate clsGate;
    EXPECT_TRUE(clsGate.EnterRun());
    EXPECT_FALSE(clsGate.Close(steady_clock::now() + hours(1)));
    EXPECT_TRUE(clsGate.IsAbandoned());
    EXPECT_FALSE(clsGate.LeaveRun());
    EXPECT_TRUE(clsGate.IsAbandoned());
}

TEST(RunGateTest, CloseFindsTheJobOverOrAbandonsTheWorkerAtAnyStep)
{
    constexpr int ROUNDS = 500;
    int iBroken = 0;
    for (int i = 0; i < ROUNDS; ++i)
    {
        CLS_RunGate clsGate;
        std::atomic<bool> bClosed{false};
        std::atomic<bool> bStarted{false};
        int iLate = 0; // steps within the pool after Close had returned
        std::thread thWorker(
            [&]
            {
                // Yields at each kind of step let the closing thread interrupt every one.
                for (unsigned uiStep = 0;; ++uiStep)
                {
                    const auto funYield = [&](unsigned _uiKind)
                    {
                        if (uiStep % 3 == _uiKind)
                        {
                            std::this_thread::yield();
                        }
                    };
                    funYield(0);
                    const CLS_RunGate::CLS_JobScope clsJob(clsGate);
                    if (!clsJob.IsBegun())
                    {
                        return;
                    }
                    const CLS_RunGate::CLS_PoolVisit clsPool(clsGate);
                    if (!clsPool.IsInside())
                    {
                        return;
                    }
                    iLate += bClosed ? 1 : 0;
                    bStarted = true;
                    if (!clsGate.EnterRun())
                    {
                        iLate += bClosed ? 1 : 0;
                        return;
                    }
                    funYield(1);
                    if (!clsGate.LeaveRun())
                    {
                        return;
                    }
                    funYield(2);
                    iLate += bClosed ? 1 : 0;
                }
            });
        while (!bStarted)
        {
            std::this_thread::yield();
        }
        // With time to wait, Close always finds the job over. Without, chance decides.
        const auto tpLimit = steady_clock::now() + (i % 2 == 0 ? milliseconds(0) : WAIT_LIMIT);
        const bool bOver = clsGate.Close(tpLimit);
        EXPECT_TRUE(bOver || i % 2 == 0);
        const std::string strState = RunGateView::DescribeState(clsGate);
        bClosed = true;
        thWorker.join();
        iBroken += iLate + (bOver && strState != "closed" ? 1 : 0);
        EXPECT_EQ(!bOver, clsGate.IsAbandoned());
    }
    EXPECT_EQ(0, iBroken);
}

TEST(RunGateTest, WorkerAndShutdownAgree)
{
    constexpr int ROUNDS = 300;
    for (int i = 0; i < ROUNDS; ++i)
    {
        CLS_RunGate clsGate;
        std::atomic<int> iInRun{0};
        std::atomic<bool> bClosed{false};
        bool bTookLeave = true; // the result of the worker's last LeaveRun
        int iLate = 0;          // runs that began after Close had returned
        CLS_Gate clsRuns;
        std::thread thWorker(
            [&]
            {
                for (;;)
                {
                    const bool bClosedBefore = bClosed;
                    if (!clsGate.EnterRun())
                    {
                        return;
                    }
                    iLate += bClosedBefore ? 1 : 0;
                    iInRun = 1;
                    clsRuns.Open();
                    iInRun = 0;
                    bTookLeave = clsGate.LeaveRun();
                    if (!bTookLeave)
                    {
                        return;
                    }
                }
            });
        EXPECT_TRUE(clsRuns.Wait());
        const bool bOutOfRun = clsGate.Close(steady_clock::now() + milliseconds(i % 2 == 0 ? 0 : 60000));
        bClosed = true;
        if (bOutOfRun)
        {
            EXPECT_EQ(0, iInRun);
        }
        EXPECT_TRUE(bOutOfRun || i % 2 == 0);
        thWorker.join();
        EXPECT_EQ(bOutOfRun, bTookLeave);
        EXPECT_EQ(!bOutOfRun, clsGate.IsAbandoned());
        EXPECT_EQ(0, iLate);
    }
}
} // namespace
