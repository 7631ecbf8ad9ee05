#include "QuenHost/CLS_TaskOwner.h"
#include "tests/kit/PoolTest.h"
#include "tests/kit/StandIn.h"
#include "tests/support/Waiting.h"

#include <climits>
#include <functional>
#include <gmock/gmock.h>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <thread>
#include <type_traits>
#include <vector>

namespace
{
using TaskOwnerTest = CLS_PoolTest;

static_assert(!std::is_copy_constructible_v<CLS_TaskOwner> && !std::is_move_constructible_v<CLS_TaskOwner> &&
              !std::is_copy_assignable_v<CLS_TaskOwner> && !std::is_move_assignable_v<CLS_TaskOwner>);

TEST_F(TaskOwnerTest, RunsSubmittedTasks)
{
    CLS_Counter clsRuns;
    CLS_TaskOwner clsOwner(GetPool(), "owner");
    EXPECT_TRUE(clsOwner.Submit([&] { clsRuns.Add(); }, "one"));
    EXPECT_TRUE(clsOwner.Submit([&] { clsRuns.Add(); }, "two"));
    EXPECT_TRUE(clsRuns.Wait(2));
}

TEST_F(TaskOwnerTest, TheDestructorWaitsForRunningTasks)
{
    CLS_Gate clsStarted;
    CLS_Gate clsMayEnd;
    std::atomic<bool> bEnded{false};
    std::optional<CLS_TaskOwner> clsOwner(std::in_place, GetPool(), "owner");
    ASSERT_TRUE(clsOwner->Submit(
        [&]
        {
            clsStarted.Open();
            bEnded = clsMayEnd.Wait();
        },
        "run"));
    ASSERT_TRUE(clsStarted.Wait());
    std::thread thDestroyer([&] { clsOwner.reset(); });
    clsMayEnd.Open();
    thDestroyer.join();
    EXPECT_TRUE(bEnded);
}

TEST_F(TaskOwnerTest, TheDestructorRemovesOnlyTheOwnersTasks)
{
    // The last ones submitted cannot have started.
    CLS_Gate clsMayEnd;
    CLS_TaskOwner clsOthers(GetPool(), "others");
    KeepEveryWorkerBusy(clsOthers, clsMayEnd);
    CLS_Counter clsLater;
    std::atomic<bool> bRemovedRan{false};
    std::weak_ptr<int> pCaptured;
    {
        CLS_TaskOwner clsOwner(GetPool(), "owner");
        auto pValue = std::make_shared<int>(1);
        pCaptured = pValue;
        ASSERT_TRUE(clsOwner.Submit([pValue, &bRemovedRan] { bRemovedRan = true; }, "queued"));
    }
    EXPECT_TRUE(pCaptured.expired());
    ASSERT_TRUE(clsOthers.Submit([&] { clsLater.Add(); }, "later"));
    clsMayEnd.Open();
    EXPECT_TRUE(clsLater.Wait(1));
    EXPECT_FALSE(bRemovedRan);
}

TEST_F(TaskOwnerTest, TakesTasksAfterARemoval)
{
    CLS_Counter clsRuns;
    CLS_TaskOwner clsOwner(GetPool(), "owner");
    clsOwner.RemoveTasks();
    EXPECT_TRUE(clsOwner.Submit([&] { clsRuns.Add(); }, "again"));
    EXPECT_TRUE(clsRuns.Wait(1));
}

TEST_F(TaskOwnerTest, TakesCallablesThatCanOnlyBeMoved)
{
    CLS_Counter clsRuns;
    CLS_TaskOwner clsOwner(GetPool(), "owner");
    EXPECT_TRUE(clsOwner.Submit(
        [pValue = std::make_unique<int>(1), &clsRuns]
        {
            EXPECT_EQ(1, *pValue);
            clsRuns.Add();
        },
        "move-only"));
    EXPECT_TRUE(clsRuns.Wait(1));
}

TEST_F(TaskOwnerTest, TakesFunctionsAndRefusesEmptyOnes)
{
    static std::atomic<int> s_iRuns{0};
    CLS_TaskOwner clsOwner(GetPool(), "owner");
    EXPECT_TRUE(clsOwner.Submit(
        +[] { ++s_iRuns; }, "pointer"));
    EXPECT_TRUE(clsOwner.Submit(std::function<void()>([] { ++s_iRuns; }), "object"));
    EXPECT_TRUE(WaitUntil([] { return s_iRuns == 2; }));
    EXPECT_FALSE(clsOwner.Submit(std::function<void()>(), "empty object"));
    EXPECT_FALSE(clsOwner.Submit(static_cast<void (*)()>(nullptr), "null pointer"));
    EXPECT_FALSE(clsOwner.Submit(std::function<void(const CLS_StopToken&)>(), "empty object"));
}

/// A callable that throws when it is copied.
struct ST_ThrowingCopy
{
    ST_ThrowingCopy() = default;
    ST_ThrowingCopy(ST_ThrowingCopy&&) = default;
    ST_ThrowingCopy(const ST_ThrowingCopy&) { throw std::runtime_error("no copy"); }
    void operator()() const { ++s_iRuns; }

    static inline std::atomic<int> s_iRuns{0};
};

TEST_F(TaskOwnerTest, ACopyThatThrowsLeavesNothingBehind)
{
    CLS_TaskOwner clsOwner(GetPool(), "owner");
    const ST_ThrowingCopy stThrowing;
    EXPECT_THROW(static_cast<void>(clsOwner.Submit(stThrowing, "copied")), std::runtime_error);
    EXPECT_EQ(0U, clsOwner.GetCounters().m_uiSubmitted);
    EXPECT_TRUE(clsOwner.Submit(ST_ThrowingCopy(), "moved"));
    EXPECT_TRUE(WaitUntil([] { return ST_ThrowingCopy::s_iRuns == 1; }));
}

TEST_F(TaskOwnerTest, CapturesOfATaskAreDestroyedOnceByTheWorkerWhenItsRunEnds)
{
    CLS_Witness::ST_End stEnd;
    CLS_TaskOwner clsOwner(GetPool(), "owner");
    std::thread::id idWorker;
    ASSERT_TRUE(clsOwner.Submit(
        [clsWitness = CLS_Witness(stEnd), &idWorker] { idWorker = std::this_thread::get_id(); }, "run"));
    ASSERT_TRUE(WaitUntil([&] { return clsOwner.GetCounters().m_uiRun == 1; }));
    EXPECT_EQ(1, stEnd.m_iEnds);
    EXPECT_EQ(idWorker, stEnd.m_idThread.load());
}

TEST_F(TaskOwnerTest, CapturesOfARemovedTaskAreDestroyedOnceByTheRemoval)
{
    CLS_Gate clsMayEnd;
    CLS_TaskOwner clsOthers(GetPool(), "others");
    KeepEveryWorkerBusy(clsOthers, clsMayEnd);
    CLS_Witness::ST_End stEnd;
    CLS_TaskOwner clsOwner(GetPool(), "owner");
    ASSERT_TRUE(clsOwner.Submit([clsWitness = CLS_Witness(stEnd)] {}, "queued"));
    EXPECT_EQ(0, stEnd.m_iEnds);
    EXPECT_TRUE(clsOwner.RemoveTasks());
    EXPECT_EQ(1, stEnd.m_iEnds);
    EXPECT_EQ(std::this_thread::get_id(), stEnd.m_idThread.load());
    clsMayEnd.Open();
}

TEST_F(TaskOwnerTest, DestructorsOfCapturesMayUseTheOwner)
{
    CLS_Gate clsMayEnd;
    CLS_TaskOwner clsOthers(GetPool(), "others");
    KeepEveryWorkerBusy(clsOthers, clsMayEnd);
    CLS_TaskOwner clsOwner(GetPool(), "owner");
    bool bEnded = false;
    std::shared_ptr<void> pCaptured(nullptr,
                                    [&](void*)
                                    {
                                        bEnded = true;
                                        // During the removal, tasks are refused and no call hangs.
                                        EXPECT_FALSE(clsOwner.Submit([] {}, "late"));
                                        EXPECT_TRUE(clsOwner.RemoveTasks());
                                    });
    ASSERT_TRUE(clsOwner.Submit([pCaptured = std::move(pCaptured)] {}, "queued"));
    EXPECT_TRUE(clsOwner.RemoveTasks());
    EXPECT_TRUE(bEnded);
    clsMayEnd.Open();
}

TEST_F(TaskOwnerTest, AnOwnerMayLiveInATaskOfAnother)
{
    CLS_Gate clsInnerStarted;
    CLS_TaskOwner clsOuter(GetPool(), "outer");
    auto pInner = std::make_unique<CLS_TaskOwner>(GetPool(), "inner");
    ASSERT_TRUE(clsOuter.Submit(
        [pInner = std::move(pInner), &clsInnerStarted]
        {
            EXPECT_TRUE(pInner->Submit(
                [&](const CLS_StopToken& _clsToken)
                {
                    clsInnerStarted.Open();
                    EXPECT_FALSE(_clsToken.SleepFor(WAIT_LIMIT));
                },
                "inner"));
            EXPECT_TRUE(clsInnerStarted.Wait());
        },
        "outer"));
    EXPECT_TRUE(WaitUntil([&] { return clsOuter.GetCounters().m_uiRun == 1; }));
    EXPECT_TRUE(clsOuter.RemoveTasks());
}

/// A scope with a stand-in for the pool, whose answers the test sets.
class CLS_StandInScope
{
public:
    explicit CLS_StandInScope(const CLS_StandIn::AddLoopTask& _funAdd)
    {
        m_clsStandIn.SetAddLoopTask(_funAdd);
    }
    const CLS_PoolScope& Get() const { return m_clsPool; }
    void End() { m_clsPool.End(); }

private:
    const CLS_StandIn m_clsStandIn{STAND_IN};
    CLS_PoolScope m_clsPool{CLS_PoolLibrary(STAND_IN)};
};

TEST(TaskOwnerOrderTest, TasksOfAllOwnersStartInTheOrderOfTheirSubmission)
{
    // The pool's only worker is a thread of the test.
    std::vector<std::function<void()>> vecTasks;
    CLS_StandInScope clsPool(
        [&](const std::function<void()>& _funTask, int, std::string& _strTaskId)
        {
            vecTasks.push_back(_funTask);
            _strTaskId = "task";
        });
    std::optional<CLS_TaskOwner> clsFirst(std::in_place, clsPool.Get(), "first");
    std::optional<CLS_TaskOwner> clsSecond(std::in_place, clsPool.Get(), "second");
    CLS_Gate clsMayLeave;
    std::vector<int> vecOrder;
    for (int i = 0; i < 6; ++i)
    {
        CLS_TaskOwner& clsOwner = i % 2 == 0 ? *clsFirst : *clsSecond;
        ASSERT_TRUE(clsOwner.Submit([&vecOrder, i] { vecOrder.push_back(i); }, "ordered"));
    }
    ASSERT_TRUE(clsFirst->Submit([&] { clsMayLeave.Open(); }, "last"));
    ASSERT_EQ(5U, vecTasks.size()) << "the heartbeat, and four workers that have not started";
    std::thread thWorker(vecTasks.at(1));
    EXPECT_TRUE(clsMayLeave.Wait());
    EXPECT_THAT(vecOrder, ::testing::ElementsAre(0, 1, 2, 3, 4, 5));
    clsFirst.reset();
    clsSecond.reset();
    clsPool.End();
    thWorker.join();
    vecTasks.clear();
}

TEST(TaskOwnerRefusedTest, ReportsARefusedTaskAndDestroysIt)
{
    CLS_StandInScope clsPool(nullptr);
    CLS_Witness::ST_End stEnd;
    CLS_TaskOwner clsOwner(clsPool.Get(), "owner");
    EXPECT_FALSE(clsOwner.Submit([clsWitness = CLS_Witness(stEnd)] {}, "refused"));
    EXPECT_EQ(1, stEnd.m_iEnds);
    EXPECT_EQ(0U, clsPool.Get().TakeSnapshot().m_uiQueued);
}

TEST(TaskOwnerRefusedTest, ATaskIsRefusedWhenThePoolTakesTheHeartbeatAndNoWorker)
{
    int iAdded = 0;
    CLS_StandInScope clsPool([&](const std::function<void()>&, int, std::string& _strTaskId)
                             { _strTaskId = iAdded++ == 0 ? "heartbeat" : ""; });
    CLS_Witness::ST_End stEnd;
    CLS_TaskOwner clsOwner(clsPool.Get(), "owner");
    EXPECT_FALSE(clsOwner.Submit([clsWitness = CLS_Witness(stEnd)] {}, "refused"));
    EXPECT_EQ(1, stEnd.m_iEnds);
    EXPECT_EQ(0U, clsOwner.GetCounters().m_uiSubmitted);
    EXPECT_EQ(2, iAdded);
}

TEST(TaskOwnerRefusedTest, ATaskIsRefusedWhenThePoolThrows)
{
    CLS_StandInScope clsPool([](const std::function<void()>&, int, std::string&) { throw std::bad_alloc(); });
    CLS_TaskOwner clsOwner(clsPool.Get(), "owner");
    EXPECT_FALSE(clsOwner.Submit([] {}, "refused"));
}

TEST(TaskOwnerRefusedTest, AHeartbeatThatNeverRunsIsReplaced)
{
    // As if memory ran out after the pool had taken the task.
    int iHeartbeats = 0;
    CLS_StandInScope clsPool(
        [&](const std::function<void()>&, int _iInterval, std::string& _strTaskId)
        {
            iHeartbeats += _iInterval == INT_MAX ? 0 : 1;
            _strTaskId = "lost";
        });
    CLS_TaskOwner clsOwner(clsPool.Get(), "owner");
    EXPECT_TRUE(WaitUntil(
        [&]
        {
            EXPECT_TRUE(clsOwner.Submit([] {}, "waits"));
            return iHeartbeats == 2;
        }));
}

TEST(TaskOwnerRefusedTest, ATaskHasATokenWhenARemovalOverlapsTheFirstSubmission)
{
    std::thread thWorker;
    std::optional<CLS_TaskOwner> clsOwner;
    CLS_StandInScope clsPool(
        [&](const std::function<void()>& _funTask, int _iInterval, std::string& _strTaskId)
        {
            _strTaskId = "task";
            if (_iInterval != INT_MAX)
            {
                EXPECT_TRUE(clsOwner->RemoveTasks()); // as another thread may, while the heartbeat is added
            }
            else
            {
                thWorker = std::thread(_funTask);
            }
        });
    clsOwner.emplace(clsPool.Get(), "owner");
    CLS_Gate clsStarted;
    ASSERT_TRUE(clsOwner->Submit(
        [&](const CLS_StopToken& _clsToken)
        {
            clsStarted.Open();
            EXPECT_FALSE(_clsToken.SleepFor(WAIT_LIMIT));
        },
        "first"));
    ASSERT_TRUE(clsStarted.Wait());
    EXPECT_EQ(1U, clsPool.Get().TakeSnapshot().m_vecRuns.size());
    EXPECT_TRUE(clsOwner->RemoveTasks());
    clsOwner.reset();
    clsPool.End();
    thWorker.join();
}

TEST(TaskOwnerRefusedTest, TheHeartbeatReplacesAWorkerThatNeverStarts)
{
    // As if memory ran out after the pool had taken the task.
    std::vector<std::function<void()>> vecTasks;
    CLS_StandInScope clsPool(
        [&](const std::function<void()>& _funTask, int, std::string& _strTaskId)
        {
            vecTasks.push_back(_funTask);
            _strTaskId = "task";
        });
    std::optional<CLS_TaskOwner> clsOwner(std::in_place, clsPool.Get(), "owner");
    std::atomic<int> iRuns{0};
    ASSERT_TRUE(clsOwner->Submit([&] { ++iRuns; }, "late"));
    ASSERT_EQ(2U, vecTasks.size());
    const auto funBeat = vecTasks.front();
    ASSERT_TRUE(WaitUntil(
        [&]
        {
            funBeat();
            return vecTasks.size() == 3;
        }));
    std::thread thWorker(vecTasks.back());
    EXPECT_TRUE(WaitUntil([&] { return iRuns == 1; }));
    // The first worker starts late, and works like any other.
    std::thread thLate(vecTasks.at(1));
    ASSERT_TRUE(clsOwner->Submit([&] { ++iRuns; }, "next"));
    EXPECT_TRUE(WaitUntil([&] { return iRuns == 2; }));
    clsOwner.reset();
    clsPool.End();
    thWorker.join();
    thLate.join();
    vecTasks.clear();
}

TEST_F(TaskOwnerTest, EmptyBracesAreEmptyOptions)
{
    CLS_Gate clsRan;
    CLS_TaskOwner clsOwner(GetPool(), "owner", {});
    EXPECT_TRUE(clsOwner.Submit([&] { clsRan.Open(); }, "task"));
    EXPECT_TRUE(clsRan.Wait());
}
} // namespace
