// Callables whose copy or destruction has side effects.

#include "tests/support/FailingRandom.h"
#include "tests/support/PoolView.h"
#include "tests/support/RecordMatchers.h"
#include "tests/support/ThreadCount.h"
#include "tests/unit/PoolFixture.h"

#include <array>
#include <atomic>
#include <csignal>
#include <gmock/gmock.h>
#include <stdexcept>
#include <utility>

namespace
{
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// A callable that calls _funCopied whenever it is copied.
class CLS_CopyHook
{
public:
    CLS_CopyHook(const std::function<void()>& _funRun, const std::function<void()>& _funCopied)
        : m_funRun(_funRun), m_funCopied(_funCopied)
    {
    }
    CLS_CopyHook(const CLS_CopyHook& _clsOther)
        : m_funRun(_clsOther.m_funRun), m_funCopied(_clsOther.m_funCopied)
    {
        m_funCopied();
    }
    CLS_CopyHook& operator=(const CLS_CopyHook&) = delete;
    ~CLS_CopyHook() = default;

    void operator()() const { m_funRun(); }

private:
    std::function<void()> m_funRun;
    std::function<void()> m_funCopied;
};

/// A way to submit a task for an owner. Returns whether the pool accepted it.
struct ST_Submission
{
    const char* m_szName;
    bool (*m_funSubmit)(const std::function<void()>& _funTask, void* _pOwner);
};

void PrintTo(const ST_Submission& _stSubmission, std::ostream* _pOut)
{
    *_pOut << _stSubmission.m_szName;
}

class PoolCallableCopyTest : public CLS_PoolFixture, public ::testing::WithParamInterface<ST_Submission>
{
protected:
    /// Submits a callable that calls _funHostile once, when the pool copies it.
    bool Submit(const std::function<void()>& _funHostile)
    {
        bool bArmed = false;
        const std::function<void()> funTask = CLS_CopyHook([this] { m_clsRuns.Add(); },
                                                           [&bArmed, &_funHostile]
                                                           {
                                                               if (std::exchange(bArmed, false))
                                                               {
                                                                   _funHostile();
                                                               }
                                                           });
        bArmed = true;
        const bool bTaken = GetParam().m_funSubmit(funTask, &m_arrOwners[0]);
        EXPECT_FALSE(bArmed);
        return bTaken;
    }

    std::string GetError() const { return std::string(GetParam().m_szName) + " error [call]"; }

    CLS_Counter m_clsRuns;
    std::array<int, 2> m_arrOwners{}; ///< their addresses serve as owners
};

TEST_P(PoolCallableCopyTest, CopyThatCallsEveryOperationOfThePool)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    CLS_Counter clsInner;
    EXPECT_TRUE(Submit(
        [&]
        {
            ASSERT_TRUE(PoolView::AreLocksFree(clsPool)); // otherwise the calls below would not return
            std::string strLoopId;
            AddLoopTask([&] { clsInner.Add(); }, 3600000, strLoopId, "copy");
            EXPECT_TRUE(AddTmpTask([&] { clsInner.Add(); }, &m_arrOwners[1], "copy"));
            EXPECT_TRUE(clsInner.Wait(2));
            clsPool.StopTask(strLoopId);
            KillTask(strLoopId, "copy");
            RemoveTmpTask(&m_arrOwners[1], "copy");
            RemoveTmpTask(&m_arrOwners[0], "copy"); // the owner of the task that is being made
        }));
    EXPECT_TRUE(m_clsRuns.Wait(1));
    EXPECT_TRUE(PoolView::WaitForAllIdle(clsPool));
    EXPECT_EQ(1, m_clsRuns.Get());
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

TEST_P(PoolCallableCopyTest, CopyThatThrowsAfterItHasCalledThePool)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    EXPECT_FALSE(Submit(
        [&]
        {
            EXPECT_TRUE(AddTmpTask([] {}, &m_arrOwners[0], "copy"));
            throw std::runtime_error("no copy");
        }));
    EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsPoolRecord(3, GetParam().m_szName, GetError())));
    EXPECT_EQ(1U, PoolView::GetRegistered().size());
    EXPECT_THAT(PoolView::GetLoopTasks(clsPool), IsEmpty());
    RemoveTmpTask(&m_arrOwners[0], "copy");
    EXPECT_THAT(PoolView::GetRegistered(), IsEmpty());
}

// Pins docs/limits.md, "A callable whose copy ends the pool".
TEST_P(PoolCallableCopyTest, CopyThatEndsThePoolIsRefusedAndTheNextOneIsTaken)
{
    MakePool();
    EXPECT_FALSE(Submit([] { UnInit(); }));
    EXPECT_EQ(nullptr, CLS_QuenTaskPool::m_pInstance);
    EXPECT_THAT(LogRecorder::Take(), Contains(IsPoolRecord(3, GetParam().m_szName, GetError())));
    EXPECT_THAT(PoolView::GetRegistered(), IsEmpty());

    EXPECT_TRUE(Submit([] {}));
    EXPECT_TRUE(m_clsRuns.Wait(1));
}

TEST_P(PoolCallableCopyTest, CopyThatEndsThePoolAndBuildsANewOneRunsWhenItIsTaken)
{
    MakePool();
    const bool bTaken = Submit(
        []
        {
            UnInit();
            MakePool();
        });
    CLS_QuenTaskPool& clsNew = *CLS_QuenTaskPool::m_pInstance;
    // If the new pool has the old pool's address, the task belongs to the new pool.
    EXPECT_EQ(bTaken ? 1U : 0U, PoolView::GetRegistered().size());
    EXPECT_TRUE(m_clsRuns.Wait(bTaken ? 1 : 0));
    CLS_Gate clsRan;
    EXPECT_TRUE(clsNew.AddTmpTask([&] { clsRan.Open(); }, &m_arrOwners[1], "next"));
    EXPECT_TRUE(clsRan.Wait());
}

const ST_Submission SUBMISSIONS[] = {
    {"AddTmpTask", [](const std::function<void()>& _funTask, void* _pOwner)
     { return AddTmpTask(_funTask, _pOwner, "call"); }},
    {"AddLoopTask",
     [](const std::function<void()>& _funTask, void*)
     {
         std::string strTaskId = "as it was";
         AddLoopTask(_funTask, 3600000, strTaskId, "call");
         return strTaskId != "as it was";
     }},
};
INSTANTIATE_TEST_SUITE_P(Submissions, PoolCallableCopyTest, ::testing::ValuesIn(SUBMISSIONS),
                         [](const auto& _stInfo) { return std::string(_stInfo.param.m_szName); });

using PoolCallableEndTest = CLS_PoolFixture;

TEST_F(PoolCallableEndTest, RegistryKeepsOneCopyAndReleasesIt)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    const auto pCaptured = std::make_shared<int>();
    std::array<std::string, 2> arrLoopIds;
    int iOwner = 0;
    {
        const std::function<void()> funTask = [pCaptured] {};
        for (std::string& strLoopId : arrLoopIds)
        {
            clsPool.AddLoopTask(funTask, 0, strLoopId, "");
            ASSERT_TRUE(clsPool.AddTmpTask(funTask, &iOwner, ""));
        }
    }
    EXPECT_EQ(1 + 4, pCaptured.use_count());
    PoolView::RunDispatchPass(clsPool);
    ASSERT_TRUE(PoolView::WaitForAllIdle(clsPool));
    EXPECT_EQ(1 + 4, pCaptured.use_count()); // a task that has run stays registered
    clsPool.RemoveTask(arrLoopIds[0], "");
    clsPool.KillTask(arrLoopIds[1], "");
    EXPECT_EQ(1 + 2, pCaptured.use_count());
    for (const std::string& strTaskId : PoolView::GetRegistered())
    {
        clsPool.RemoveTask(strTaskId, "");
    }
    EXPECT_EQ(1, pCaptured.use_count());
}

TEST_F(PoolCallableEndTest, CapturedObjectOfATaskThatGetsNoIdMayCallThePool)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    int iOwner = 0;
    int iDestroyed = 0;
    for (const bool bTmp : {true, false})
    {
        std::function<void()> funTask = [pHook = MakeEndHook(
                                             [&]
                                             {
                                                 ++iDestroyed;
                                                 ASSERT_TRUE(PoolView::AreLocksFree(clsPool));
                                                 clsPool.RemoveTmpTask(&iOwner, "end");
                                                 clsPool.RemoveTask("unknown", "end");
                                             })] { ADD_FAILURE(); };
        std::string strTaskId = "as it was";
        const CLS_FailingRandom clsFailing;
        if (bTmp)
        {
            EXPECT_FALSE(clsPool.AddTmpTask(std::exchange(funTask, {}), &iOwner, "call"));
        }
        else
        {
            clsPool.AddLoopTask(std::exchange(funTask, {}), 0, strTaskId, "call");
        }
        EXPECT_EQ("as it was", strTaskId);
        EXPECT_EQ(bTmp ? 1 : 2, iDestroyed);
    }
    EXPECT_THAT(PoolView::GetRegistered(), IsEmpty());
    EXPECT_THAT(PoolView::GetQueue(clsPool), IsEmpty());
    EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsPoolRecord(3, "AddTmpTask", "AddTmpTask error [call]"),
                                                 IsPoolRecord(3, "AddLoopTask", "AddLoopTask error [call]")));
}

TEST_F(PoolCallableEndTest, CapturedObjectMayEndThePoolOnItsWorker)
{
    const int iThreads = CountThreads();
    CLS_QuenTaskPool& clsPool = MakePool();
    CLS_Gate clsStarted;
    CLS_Gate clsMayEnd;
    CLS_Gate clsEnded;
    std::string strTaskId;
    clsPool.AddLoopTask(
        [&, pFarewell = MakeEndHook(
                [&]
                {
                    UnInit();
                    EXPECT_EQ(nullptr, CLS_QuenTaskPool::m_pInstance);
                    clsEnded.Open();
                })]
        {
            clsStarted.Open();
            EXPECT_TRUE(clsMayEnd.Wait());
        },
        0, strTaskId, "call");
    ASSERT_TRUE(clsStarted.Wait());
    {
        const CLS_FastSleep clsFastSleep;
        clsPool.RemoveTask(strTaskId, ""); // the removal timed out: the worker now holds the last reference
    }
    clsMayEnd.Open();
    EXPECT_TRUE(clsEnded.Wait());
    EXPECT_TRUE(WaitForThreads(iThreads));
    CLS_Gate clsRan;
    EXPECT_TRUE(AddTmpTask([&] { clsRan.Open(); }, &clsRan, "next"));
    EXPECT_TRUE(clsRan.Wait());
}

#ifndef _LIBCPP_VERSION // its std::function does not accept such a callable
/// A callable whose destructor throws. Destroying any std::function copy of it ends the process.
class CLS_ArmedCallable
{
public:
    explicit CLS_ArmedCallable(const std::atomic<bool>& _bArmed) : m_bArmed(_bArmed) {}
    CLS_ArmedCallable(const CLS_ArmedCallable&) = default;
    CLS_ArmedCallable& operator=(const CLS_ArmedCallable&) = delete;
    ~CLS_ArmedCallable() noexcept(false)
    {
        if (m_bArmed)
        {
            throw std::runtime_error("out of a destructor");
        }
    }
    void operator()() const {}

private:
    const std::atomic<bool>& m_bArmed;
};

using PoolCallableEndDeathTest = PoolCallableEndTest;

// Pins docs/limits.md, "Exceptions that end the process".
TEST_F(PoolCallableEndDeathTest, DestructorThatThrowsEndsTheProcess)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto funRemove = []
    {
        std::atomic<bool> bArmed{false};
        CLS_QuenTaskPool& clsPool = MakeStillPool();
        std::string strTaskId;
        clsPool.AddLoopTask(CLS_ArmedCallable(bArmed), 0, strTaskId, "call");
        bArmed = true;
        clsPool.RemoveTask(strTaskId, "call");
    };
    EXPECT_EXIT(funRemove(), ::testing::KilledBySignal(SIGABRT), "out of a destructor");
}
#endif
} // namespace
