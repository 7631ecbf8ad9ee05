// Tasks that start later.

#include "QuenHost/CLS_Debounce.h"
#include "QuenHost/CLS_TaskOwner.h"
#include "tests/kit/FewWorkers.h"
#include "tests/kit/HostLoop.h"
#include "tests/kit/PoolTest.h"
#include "tests/kit/StandIn.h"
#include "tests/support/FailingMemory.h"

#include <climits>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <vector>

namespace
{
using std::chrono::milliseconds;
using std::chrono::steady_clock;
using LaterTest = CLS_PoolTest;
using DebounceTest = CLS_PoolTest;

TEST_F(LaterTest, ATaskStartsWhenItsDelayIsOver)
{
    CLS_TaskOwner clsOwner(GetPool(), "owner");
    CLS_Gate clsRan;
    const auto tpBegin = steady_clock::now();
    ASSERT_TRUE(clsOwner.SubmitAfter(
        milliseconds(30), [&](const CLS_StopToken&) { clsRan.Open(); }, "later"));
    EXPECT_TRUE(clsRan.Wait());
    EXPECT_GE(steady_clock::now() - tpBegin, milliseconds(30));
}

TEST_F(LaterTest, TasksStartInTheOrderOfTheirDueTimesAndWithoutADelayAtOnce)
{
    CLS_TaskOwner clsOwner(GetPool(), "owner", ST_OwnerOptions{1});
    std::vector<int> vecOrder; // needs no lock: only one task runs at a time
    CLS_Gate clsDone;
    ASSERT_TRUE(clsOwner.SubmitAfter(
        milliseconds(200),
        [&]
        {
            vecOrder.push_back(3);
            clsDone.Open();
        },
        "last"));
    ASSERT_TRUE(clsOwner.SubmitAfter(
        milliseconds(50), [&] { vecOrder.push_back(2); }, "middle"));
    ASSERT_TRUE(clsOwner.SubmitAfter(
        milliseconds(-1), [&] { vecOrder.push_back(1); }, "first"));
    ASSERT_TRUE(clsDone.Wait());
    EXPECT_EQ((std::vector<int>{1, 2, 3}), vecOrder);
}

TEST_F(LaterTest, ADelayedTaskTakesNoWorkerAndIsCancelledWithItsOwner)
{
    CLS_Witness::ST_End stEnd;
    {
        CLS_TaskOwner clsOwner(GetPool(), "owner");
        ASSERT_TRUE(clsOwner.SubmitAfter(
            milliseconds::max(), [clsWitness = CLS_Witness(stEnd)] { ADD_FAILURE() << "it runs"; }, "never"));
        EXPECT_EQ(0, GetPool().TakeSnapshot().m_iBusyWorkers);
        EXPECT_EQ(0U, GetPool().TakeSnapshot().m_uiQueued);
        EXPECT_EQ(1U, clsOwner.GetCounters().m_uiSubmitted);
        EXPECT_TRUE(clsOwner.RemoveTasks());
        EXPECT_EQ(1, stEnd.m_iEnds);
        EXPECT_EQ(std::this_thread::get_id(), stEnd.m_idThread.load());
        EXPECT_EQ(1U, clsOwner.GetCounters().m_uiCancelled);
    }
}

TEST_F(LaterTest, TasksAreRefusedDuringARemovalAndWithoutACallable)
{
    CLS_TaskOwner clsOwner(GetPool(), "owner");
    EXPECT_FALSE(clsOwner.SubmitAfter(milliseconds(1), std::function<void()>(), "empty"));
    CLS_Gate clsStarted;
    ASSERT_TRUE(clsOwner.Submit(
        [&](const CLS_StopToken& _clsToken)
        {
            clsStarted.Open();
            EXPECT_FALSE(_clsToken.SleepFor(WAIT_LIMIT));
            EXPECT_FALSE(clsOwner.SubmitAfter(
                milliseconds(1), [] {}, "late"));
        },
        "task"));
    ASSERT_TRUE(clsStarted.Wait());
    EXPECT_TRUE(clsOwner.RemoveTasks());
}

/// A stand-in for the pool that stores the loop tasks that it receives, and a scope for it.
class CLS_TimerStandIn
{
public:
    CLS_TimerStandIn()
    {
        m_clsStandIn.SetAddLoopTask(
            [this](const std::function<void()>& _funTask, int _iInterval, std::string& _strTaskId)
            {
                m_vecIntervals.push_back(_iInterval);
                m_vecTasks.push_back(_funTask);
                _strTaskId = m_vecIntervals.size() == m_uiRefused ? "" : "task";
            });
    }

    ~CLS_TimerStandIn()
    {
        m_optOwner.reset();
        m_clsPool.End();
        m_vecTasks.clear();
    }

    CLS_TimerStandIn(const CLS_TimerStandIn&) = delete;
    CLS_TimerStandIn& operator=(const CLS_TimerStandIn&) = delete;

    const CLS_StandIn m_clsStandIn{STAND_IN};
    CLS_PoolScope m_clsPool{CLS_PoolLibrary(STAND_IN)};
    std::optional<CLS_TaskOwner> m_optOwner{std::in_place, m_clsPool, "owner"};
    std::vector<int> m_vecIntervals;
    std::vector<std::function<void()>> m_vecTasks;
    std::size_t m_uiRefused = 0; ///< the number of the loop task to refuse; 0 for none
};

TEST(LaterTimerTest, OneTimerServesAllTasksAndEndsWhenTheFirstIsDue)
{
    CLS_TimerStandIn clsPool;
    for (const int iDelay : {100000, 200000, 100500})
    {
        ASSERT_TRUE(clsPool.m_optOwner->SubmitAfter(
            milliseconds(iDelay), [] {}, "later"));
    }
    ASSERT_EQ(2U, clsPool.m_vecIntervals.size()) << "the heartbeat and the timer";
    EXPECT_LE(clsPool.m_vecIntervals.back(), 100000);
    EXPECT_GT(clsPool.m_vecIntervals.back(), 50000);
    ASSERT_TRUE(clsPool.m_optOwner->SubmitAfter(
        milliseconds(1000), [] {}, "sooner"));
    ASSERT_EQ(3U, clsPool.m_vecIntervals.size());
    EXPECT_LE(clsPool.m_vecIntervals.back(), 1000);
}

TEST(LaterTimerTest, TheTimersSecondRunQueuesDueTasksAndStartsTheNextTimer)
{
    CLS_TimerStandIn clsPool;
    ASSERT_TRUE(clsPool.m_optOwner->SubmitAfter(
        milliseconds(20), [] {}, "first"));
    ASSERT_TRUE(clsPool.m_optOwner->SubmitAfter(
        milliseconds(100000), [] {}, "second"));
    const auto funTimer = clsPool.m_vecTasks.back();
    funTimer();
    EXPECT_EQ(2U, clsPool.m_vecIntervals.size());
    std::this_thread::sleep_for(milliseconds(20)); // the delay itself
    funTimer();
    EXPECT_EQ(1U, clsPool.m_clsPool.TakeSnapshot().m_uiQueued);
    ASSERT_EQ(4U, clsPool.m_vecIntervals.size()) << "the next timer, and a worker for the task";
    EXPECT_GT(clsPool.m_vecIntervals.at(2), 50000);
    EXPECT_EQ(INT_MAX, clsPool.m_vecIntervals.at(3));
    funTimer();
    EXPECT_EQ(4U, clsPool.m_vecIntervals.size()) << "a timer that has ended does nothing";
}

TEST(LaterTimerTest, NoTimerExistsWhenNothingWaits)
{
    CLS_TimerStandIn clsPool;
    ASSERT_TRUE(clsPool.m_optOwner->SubmitAfter(
        milliseconds(1), [] {}, "removed"));
    clsPool.m_optOwner->RemoveTasks();
    std::this_thread::sleep_for(milliseconds(2)); // the delay itself
    clsPool.m_vecTasks.back()();
    clsPool.m_vecTasks.back()();
    EXPECT_EQ(2U, clsPool.m_vecIntervals.size());
    EXPECT_EQ(0U, clsPool.m_clsPool.TakeSnapshot().m_uiQueued);
}

TEST(LaterTimerTest, WithoutATimerTheHeartbeatQueuesDueTasks)
{
    CLS_TimerStandIn clsPool;
    clsPool.m_uiRefused = 2;
    ASSERT_TRUE(clsPool.m_optOwner->SubmitAfter(
        milliseconds(1), [] {}, "later"));
    std::this_thread::sleep_for(milliseconds(2)); // the delay itself
    clsPool.m_vecTasks.front()();
    EXPECT_EQ(1U, clsPool.m_clsPool.TakeSnapshot().m_uiQueued);
    ASSERT_EQ(3U, clsPool.m_vecIntervals.size()) << "a worker for the task";
}

TEST_F(DebounceTest, RunsOnceAfterTheQuietTime)
{
    CLS_TaskOwner clsOwner(GetPool(), "owner");
    std::atomic<int> iRuns{0};
    std::atomic<steady_clock::time_point> tpRun{};
    CLS_Debounce clsDebounce(
        clsOwner, milliseconds(50),
        [&](const CLS_StopToken&)
        {
            tpRun = steady_clock::now();
            ++iRuns;
        },
        "debounce");
    steady_clock::time_point tpLast;
    for (int i = 0; i < 20; ++i)
    {
        tpLast = steady_clock::now();
        ASSERT_TRUE(clsDebounce.Trigger());
    }
    ASSERT_TRUE(WaitUntil([&] { return iRuns == 1; }));
    EXPECT_GE(tpRun.load() - tpLast, milliseconds(50));
    ASSERT_TRUE(clsDebounce.Trigger());
    EXPECT_TRUE(WaitUntil([&] { return iRuns == 2; }));
}

TEST_F(DebounceTest, ATriggerDuringARunLeadsToAnotherThatDoesNotOverlap)
{
    CLS_TaskOwner clsOwner(GetPool(), "owner");
    CLS_Gate clsMayEnd;
    CLS_Counter clsStarted;
    std::atomic<int> iRunning{0};
    CLS_Debounce clsDebounce(
        clsOwner, milliseconds(1),
        [&]
        {
            EXPECT_EQ(1, ++iRunning);
            clsStarted.Add();
            EXPECT_TRUE(clsMayEnd.Wait());
            --iRunning;
        },
        "debounce");
    ASSERT_TRUE(clsDebounce.Trigger());
    ASSERT_TRUE(clsStarted.Wait(1));
    ASSERT_TRUE(clsDebounce.Trigger());
    EXPECT_EQ(1, clsStarted.Get());
    clsMayEnd.Open();
    EXPECT_TRUE(clsStarted.Wait(2));
}

TEST_F(DebounceTest, IsCancelledWithItsOwnersTasksAndMayBeTriggeredAgain)
{
    CLS_TaskOwner clsOwner(GetPool(), "owner");
    CLS_Counter clsRuns;
    CLS_Debounce clsDebounce(
        clsOwner, milliseconds(20), [&] { clsRuns.Add(); }, "debounce");
    ASSERT_TRUE(clsDebounce.Trigger());
    EXPECT_TRUE(clsOwner.RemoveTasks());
    EXPECT_EQ(1U, clsOwner.GetCounters().m_uiCancelled);
    ASSERT_TRUE(clsDebounce.Trigger());
    EXPECT_TRUE(clsRuns.Wait(1));
    ASSERT_TRUE(clsDebounce.Trigger());
    clsOwner.RemoveTasksLater();
    ASSERT_TRUE(clsDebounce.Trigger()) << "a worker may still be destroying the cancelled task";
    EXPECT_TRUE(clsRuns.Wait(2));
    EXPECT_EQ(2, clsRuns.Get());
}

TEST_F(DebounceTest, ItsEndCancelsItAndDestroysTheCallable)
{
    CLS_Witness::ST_End stEnd;
    CLS_TaskOwner clsOwner(GetPool(), "owner");
    {
        CLS_Debounce clsDebounce(
            clsOwner, milliseconds(1), [clsWitness = CLS_Witness(stEnd)] { ADD_FAILURE() << "it runs"; },
            "debounce");
        CLS_Debounce clsQuiet(
            clsOwner, milliseconds::max(), [] {}, "debounce");
        ASSERT_TRUE(clsQuiet.Trigger());
    }
    EXPECT_EQ(1, stEnd.m_iEnds);
    EXPECT_EQ(std::this_thread::get_id(), stEnd.m_idThread.load());
    EXPECT_TRUE(clsOwner.RemoveTasks());
}

TEST_F(DebounceTest, ItsEndInItsRunLetsTheRunDestroyTheCallable)
{
    CLS_Witness::ST_End stEnd;
    CLS_TaskOwner clsOwner(GetPool(), "owner");
    std::optional<CLS_Debounce> clsDebounce;
    CLS_Gate clsGone;
    clsDebounce.emplace(
        clsOwner, milliseconds(1),
        [&, clsWitness = CLS_Witness(stEnd)]
        {
            clsDebounce.reset();
            EXPECT_EQ(0, stEnd.m_iEnds) << "the callable is destroyed while it runs";
            clsGone.Open();
        },
        "debounce");
    ASSERT_TRUE(clsDebounce->Trigger());
    EXPECT_TRUE(clsGone.Wait());
    EXPECT_TRUE(clsOwner.RemoveTasks());
    EXPECT_EQ(1, stEnd.m_iEnds);
}

TEST_F(DebounceTest, AnExceptionIsReportedAndTheDebounceContinues)
{
    CLS_Failures clsFailures;
    CLS_TaskOwner clsOwner(GetPool(), "owner", clsFailures.MakeHandler());
    CLS_Debounce clsDebounce(
        clsOwner, milliseconds(1), [] { throw std::runtime_error("mine"); }, "debounce");
    ASSERT_TRUE(clsDebounce.Trigger());
    EXPECT_EQ("debounce", clsFailures.WaitForOne().m_strCallInfo);
    ASSERT_TRUE(WaitUntil([&] { return clsOwner.GetCounters().m_uiFailed == 1; }));
    ASSERT_TRUE(clsDebounce.Trigger());
    EXPECT_TRUE(WaitUntil([&] { return clsFailures.GetAll().size() == 2; }));
}

TEST_F(DebounceTest, WithoutACallableTriggersAreRefused)
{
    CLS_TaskOwner clsOwner(GetPool(), "owner");
    EXPECT_FALSE(CLS_Debounce(clsOwner, milliseconds(1), std::function<void()>(), "empty").Trigger());
}

TEST_F(DebounceTest, ANegativeQuietTimeIsZero)
{
    CLS_TaskOwner clsOwner(GetPool(), "owner");
    // In nanoseconds, neither value fits into 64 bits. The second would wrap around to 146 years.
    for (const milliseconds msQuiet : {milliseconds::min(), milliseconds(-13835058055282)})
    {
        CLS_Gate clsRan;
        CLS_Debounce clsDebounce(
            clsOwner, msQuiet, [&] { clsRan.Open(); }, "debounce");
        ASSERT_TRUE(clsDebounce.Trigger());
        EXPECT_TRUE(clsRan.Wait());
        EXPECT_TRUE(clsOwner.RemoveTasks());
    }
}

TEST_F(DebounceTest, CountsOnceForEachRunHoweverOftenItIsTriggered)
{
    CLS_TaskOwner clsOwner(GetPool(), "owner");
    CLS_Counter clsRuns;
    CLS_Debounce clsDebounce(
        clsOwner, milliseconds(30), [&] { clsRuns.Add(); }, "debounce");
    const steady_clock::time_point tpEnd = steady_clock::now() + milliseconds(100);
    ASSERT_TRUE(WaitUntil(
        [&]
        {
            EXPECT_TRUE(clsDebounce.Trigger());
            return steady_clock::now() > tpEnd;
        }));
    ST_PoolCounters stCounters;
    ASSERT_TRUE(WaitUntil(
        [&]
        {
            stCounters = clsOwner.GetCounters();
            return stCounters.m_uiRun == stCounters.m_uiSubmitted;
        }));
    // There is more than one run if the triggers were delayed.
    EXPECT_EQ(static_cast<std::uint64_t>(clsRuns.Get()), stCounters.m_uiRun);
    EXPECT_EQ(0U, stCounters.m_uiCancelled);
}

TEST(DebounceCountTest, ARemovalBetweenTwoChecksCountsAsOneCancelledTask)
{
    CLS_TimerStandIn clsPool;
    CLS_TaskOwner& clsOwner = *clsPool.m_optOwner;
    CLS_Debounce clsDebounce(
        clsOwner, std::chrono::hours(1), [] {}, "debounce");
    ASSERT_TRUE(clsDebounce.Trigger());
    ASSERT_TRUE(clsDebounce.Trigger());
    EXPECT_TRUE(clsOwner.RemoveTasks());
    EXPECT_EQ(1U, clsOwner.GetCounters().m_uiSubmitted);
    EXPECT_EQ(1U, clsOwner.GetCounters().m_uiCancelled);
}

TEST(DebounceMemoryTest, ATriggerWithoutMemoryIsRefusedAndLosesNothing)
{
    CLS_TimerStandIn clsPool;
    CLS_TaskOwner& clsOwner = *clsPool.m_optOwner;
    CLS_Debounce clsDebounce(
        clsOwner, std::chrono::hours(1), [] {}, "a call information that is too long to be stored in place");
    for (int iAllocation = 1, iFailed = 1; iFailed == 1; ++iAllocation)
    {
        clsOwner.RemoveTasks(); // so the next trigger also makes a stop request
        const std::uint64_t uiBefore = clsOwner.GetCounters().m_uiSubmitted;
        FailingMemory::FailAt(iAllocation);
        const bool bTaken = clsDebounce.Trigger();
        iFailed = FailingMemory::Stop() ? 1 : 0;
        EXPECT_EQ(uiBefore + (bTaken ? 1 : 0), clsOwner.GetCounters().m_uiSubmitted);
        EXPECT_TRUE(bTaken || iFailed == 1) << "allocation " << iAllocation;
        EXPECT_TRUE(clsDebounce.Trigger()) << "allocation " << iAllocation;
        ASSERT_LT(iAllocation, 100);
    }
}

TEST(DebounceMemoryTest, ARunThatIsLostWithoutMemoryIsAFailure)
{
    CLS_Failures clsFailures;
    CLS_FewWorkers clsPool(1);
    CLS_TaskOwner clsOwner(clsPool.GetPool(), "owner", clsFailures.MakeHandler());
    std::optional<CLS_Debounce> optDebounce;
    const auto funTask = [&]
    {
        EXPECT_TRUE(optDebounce->Trigger()); // requests another run, for which there is no memory
        FailingMemory::FailAt(1);
    };
    optDebounce.emplace(clsOwner, milliseconds(0), funTask, "debounce");
    ASSERT_TRUE(optDebounce->Trigger());
    EXPECT_EQ("debounce", clsFailures.WaitForOne().m_strCallInfo);
    EXPECT_TRUE(FailingMemory::Stop());
    EXPECT_TRUE(clsOwner.RemoveTasks());
}

TEST(DebounceMemoryTest, ATriggerWithoutAWorkerWaitsForOne)
{
    CLS_TimerStandIn clsPool;
    CLS_Debounce clsDebounce(
        *clsPool.m_optOwner, milliseconds(0), [] {}, "debounce");
    clsPool.m_uiRefused = 2; // number 1 is the heartbeat
    ASSERT_TRUE(clsDebounce.Trigger());
    EXPECT_EQ(1U, clsPool.m_clsPool.TakeSnapshot().m_uiQueued);
    ASSERT_EQ(2U, clsPool.m_vecIntervals.size());
    clsPool.m_vecTasks.front()();
    ASSERT_EQ(3U, clsPool.m_vecIntervals.size()) << "the heartbeat starts the worker";
    EXPECT_EQ(INT_MAX, clsPool.m_vecIntervals.back());
}
} // namespace
