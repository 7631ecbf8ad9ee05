#include "tests/support/FailingThreads.h"
#include "tests/support/PoolView.h"
#include "tests/support/ThrowingTextTask.h"
#include "tests/unit/ShutdownFixture.h"

#include <system_error>
#include <type_traits>

namespace
{
using ::testing::ElementsAre;
using ::testing::IsEmpty;

// The signatures on which a host relies when it looks the names up.
static_assert(
    std::is_same_v<decltype(&AddTmpTask), bool (*)(const std::function<void()>&, void*, const std::string&)>);
static_assert(std::is_same_v<decltype(static_cast<void (*)(void*, const std::string&)>(&RemoveTmpTask)),
                             decltype(&RemoveTmpTask)>);
static_assert(std::is_same_v<decltype(&AddLoopTask),
                             void (*)(const std::function<void()>&, int, std::string&, const std::string&)>);
static_assert(std::is_same_v<decltype(&RemoveTask), void (*)(const std::string&, const std::string&)>);
static_assert(std::is_same_v<decltype(&KillTask), void (*)(const std::string&, const std::string&)>);
static_assert(std::is_same_v<decltype(&KillTaskAll), void (*)()>);
static_assert(std::is_same_v<decltype(&UnInit), void (*)()>);

/// One of the exported functions, called with harmless arguments.
struct ST_HarmlessCall
{
    const char* m_szName;
    void (*m_funCall)();
    bool m_bEndsPool;
};

void PrintTo(const ST_HarmlessCall& _stExport, std::ostream* _pOut)
{
    *_pOut << _stExport.m_szName;
}

int g_iOwner = 0;

const ST_HarmlessCall EXPORTS[] = {
    {"AddTmpTask", [] { AddTmpTask([] {}, &g_iOwner, "first"); }, false},
    {"RemoveTmpTask", [] { RemoveTmpTask(&g_iOwner, "first"); }, false},
    {"AddLoopTask",
     []
     {
         std::string strTaskId;
         AddLoopTask([] {}, 3600000, strTaskId, "first");
     },
     false},
    {"RemoveTask", [] { RemoveTask("unknown", "first"); }, false},
    {"KillTask", [] { KillTask("unknown", "first"); }, false},
    {"KillTaskAll", [] { KillTaskAll(); }, true},
    {"UnInit", [] { UnInit(); }, true},
};

class ExportsTest : public CLS_ShutdownFixture
{
protected:
    /// Makes the call with a registered task whose stop throws. Returns the log records of the call.
    template <typename T_Call>
    static std::vector<LogRecorder::ST_Record> RemoveUnprintable(T_Call _funCall);
};

class ExportsFirstCallTest : public CLS_ShutdownFixture, public ::testing::WithParamInterface<ST_HarmlessCall>
{
};

TEST_P(ExportsFirstCallTest, BuildsThePoolWhenThereIsNone)
{
    const int iThreads = CountThreads();
    ASSERT_EQ(nullptr, CLS_QuenTaskPool::m_pInstance);
    {
        const CLS_FailingThreads clsThreads(0);
        GetParam().m_funCall();
        EXPECT_GE(clsThreads.GetRequests(), 3);
    }
    if (GetParam().m_bEndsPool)
    {
        EXPECT_EQ(nullptr, CLS_QuenTaskPool::m_pInstance);
        EXPECT_TRUE(WaitForThreads(iThreads));
        EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsBegin(), IsStart(), IsEnd()));
        return;
    }
    ASSERT_NE(nullptr, CLS_QuenTaskPool::m_pInstance);
    EXPECT_TRUE(PoolView::GetRunFlag(*CLS_QuenTaskPool::m_pInstance));
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

TEST_P(ExportsFirstCallTest, UsesTheExistingPool)
{
    CLS_QuenTaskPool* const pPool = &MakeStillPool();
    const CLS_FailingThreads clsThreads(0);
    GetParam().m_funCall();
    EXPECT_EQ(0, clsThreads.GetRequests());
    EXPECT_EQ(GetParam().m_bEndsPool ? nullptr : pPool, CLS_QuenTaskPool::m_pInstance);
}

TEST_P(ExportsFirstCallTest, PassesAConstructionExceptionOnAndWorksLater)
{
    const int iThreads = CountThreads();
    for (int iFailing = 1; iFailing <= 3; ++iFailing)
    {
        const CLS_FailingThreads clsThreads(iFailing);
        EXPECT_THROW(GetParam().m_funCall(), std::system_error);
        EXPECT_EQ(iFailing, clsThreads.GetRequests());
        EXPECT_EQ(nullptr, CLS_QuenTaskPool::m_pInstance);
        EXPECT_TRUE(WaitForThreads(iThreads));
    }
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
    EXPECT_TRUE(CLS_Task::m_mapTaskData.empty());

    EXPECT_NO_THROW(GetParam().m_funCall());
    EXPECT_EQ(GetParam().m_bEndsPool, CLS_QuenTaskPool::m_pInstance == nullptr);
}

INSTANTIATE_TEST_SUITE_P(Functions, ExportsFirstCallTest, ::testing::ValuesIn(EXPORTS),
                         [](const ::testing::TestParamInfo<ST_HarmlessCall>& _stInfo)
                         { return std::string(_stInfo.param.m_szName); });

TEST_F(ExportsTest, AddTmpTaskWithANullOwnerAsTheFirstCallBuildsThePoolAndReturnsFalse)
{
    EXPECT_FALSE(AddTmpTask([] { ADD_FAILURE(); }, nullptr, "nobody"));
    ASSERT_NE(nullptr, CLS_QuenTaskPool::m_pInstance);
    EXPECT_TRUE(CLS_Task::m_mapTaskData.empty());
    EXPECT_THAT(LogRecorder::Take(),
                ElementsAre(IsPoolRecord(3, "AddTmpTask", "AddTmpTask error, nullptr == _pObj [nobody]")));
}

TEST_F(ExportsTest, AddTmpTaskRunsTheCallableAndReturnsTrue)
{
    CLS_Gate clsRan;
    EXPECT_TRUE(AddTmpTask([&] { clsRan.Open(); }, &clsRan, "owner"));
    EXPECT_TRUE(clsRan.Wait());
    ASSERT_TRUE(WaitForIdle(*CLS_QuenTaskPool::m_pInstance, 1));
    ASSERT_EQ(1u, CLS_Task::m_mapTaskData.size());
    const std::shared_ptr<CLS_Task> pTask = CLS_Task::m_mapTaskData.begin()->second;
    EXPECT_EQ("owner", pTask->Param("callinfo").ToString());
    EXPECT_FALSE(pTask->IsLoop());
}

TEST_F(ExportsTest, RemoveTmpTaskCancelsTheTasksOfTheOwnerAlone)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    PoolView::GetWorkerLimit(clsPool) = 0; // one worker
    const HeldRun pRun = StartHeldRun(clsPool);
    int iOwner = 0;
    CLS_Counter clsRuns;
    ASSERT_TRUE(AddTmpTask([&] { clsRuns.Add(); }, &iOwner, "owner"));
    ASSERT_TRUE(AddTmpTask([&] { clsRuns.Add(); }, &clsRuns, "other owner"));
    RemoveTmpTask(&iOwner, "owner");
    EXPECT_EQ(2u, CLS_Task::m_mapTaskData.size());
    EXPECT_EQ(0u, PoolView::GetOwnerLists(clsPool).count(&iOwner));
    EndHeldRun(pRun);
    EXPECT_TRUE(clsRuns.Wait(1));
    ASSERT_TRUE(WaitForIdle(clsPool, 1));
    EXPECT_EQ(1, clsRuns.Get());
}

TEST_F(ExportsTest, AddLoopTaskWritesTheIdThatRemoveTaskAndKillTaskTake)
{
    for (const auto funRemove : {&RemoveTask, &KillTask})
    {
        CLS_Counter clsRuns;
        std::string strTaskId = "text of before";
        AddLoopTask([&] { clsRuns.Add(); }, 5, strTaskId, "loop");
        EXPECT_NE("text of before", strTaskId);
        EXPECT_THAT(PoolView::GetLoopIds(*CLS_QuenTaskPool::m_pInstance), ElementsAre(strTaskId));
        const std::shared_ptr<CLS_Task> pTask = CLS_Task::GetTask(strTaskId).lock();
        ASSERT_TRUE(pTask);
        EXPECT_EQ(5, pTask->GetLoopInterval());
        EXPECT_EQ("loop", pTask->Param("callinfo").ToString());
        EXPECT_TRUE(clsRuns.Wait(3));
        funRemove(strTaskId, "loop");
        EXPECT_FALSE(CLS_Task::GetTask(strTaskId).lock());
        EXPECT_THAT(PoolView::GetLoopIds(*CLS_QuenTaskPool::m_pInstance), IsEmpty());
        EXPECT_FALSE(pTask->GetValid());
    }
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

template <typename T_Call>
std::vector<LogRecorder::ST_Record> ExportsTest::RemoveUnprintable(T_Call _funCall)
{
    const std::string strTaskId = CLS_ThrowingTextTask::Make([] {}, 1);
    const std::shared_ptr<CLS_Task> pTask = CLS_Task::GetTask(strTaskId).lock();
    {
        const std::unique_lock<std::shared_mutex> lock(
            PoolView::GetLoopListLock(*CLS_QuenTaskPool::m_pInstance));
        PoolView::GetLoopIds(*CLS_QuenTaskPool::m_pInstance).push_back(strTaskId);
    }
    pTask->SetTaskStatus(TASK_STATUS_RUNNING); // so that the stop waits and logs
    LogRecorder::Clear();
    {
        const CLS_FastSleep clsFastSleep;
        _funCall(strTaskId, "info");
    }
    pTask->SetTaskStatus(TASK_STATUS_IDLE);
    // The failure leaves the task off the list, but registered.
    EXPECT_THAT(PoolView::GetLoopIds(*CLS_QuenTaskPool::m_pInstance), IsEmpty());
    EXPECT_FALSE(pTask->GetValid());
    EXPECT_TRUE(CLS_Task::GetTask(strTaskId).lock());
    return LogRecorder::Take();
}

// Pins docs/limits.md, "KillTask is RemoveTask".
// Pins docs/limits.md, "Odd texts".
TEST_F(ExportsTest, KillTaskAndRemoveTaskFailAlike)
{
    MakeStillPool();
    const auto funIsError = IsPoolRecord(3, "RemoveTask", "RemoveTask error [info]");
    const std::vector<LogRecorder::ST_Record> vecRemove = RemoveUnprintable(&RemoveTask);
    const std::vector<LogRecorder::ST_Record> vecKill = RemoveUnprintable(&KillTask);
    EXPECT_THAT(vecRemove, ElementsAre(funIsError));
    EXPECT_THAT(vecKill, ElementsAre(funIsError));
    EXPECT_EQ(vecRemove.at(0).m_iLine, vecKill.at(0).m_iLine);
}

TEST_F(ExportsTest, KillTaskAndRemoveTaskIgnoreUnknownIdsAlike)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    const std::string strKept = MakeTask([] {});
    PoolView::GetLoopIds(clsPool) = {strKept};
    RemoveTask("unknown", "info");
    KillTask("unknown", "info");
    EXPECT_THAT(PoolView::GetLoopIds(clsPool), ElementsAre(strKept));
    EXPECT_TRUE(CLS_Task::GetTask(strKept).lock());
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

TEST_F(ExportsTest, KillTaskAllTwiceInARowBuildsAPoolTheSecondTimeAndDestroysItAgain)
{
    MakePool();
    const int iThreads = CountThreads() - 3;
    KillTaskAll();
    EXPECT_EQ(nullptr, CLS_QuenTaskPool::m_pInstance);
    {
        const CLS_FailingThreads clsThreads(0);
        KillTaskAll();
        EXPECT_EQ(3, clsThreads.GetRequests());
    }
    EXPECT_EQ(nullptr, CLS_QuenTaskPool::m_pInstance);
    EXPECT_THAT(LogRecorder::Take(),
                ElementsAre(IsBegin(), IsStart(), IsEnd(), IsBegin(), IsStart(), IsEnd()));
    EXPECT_TRUE(WaitForThreads(iThreads));
}

// Pins docs/limits.md, "The next call after a shutdown creates a new pool".
TEST_F(ExportsTest, ASecondUnInitBuildsAPoolAndEndsIt)
{
    MakePool();
    const int iThreads = CountThreads() - 3;
    UnInit();
    EXPECT_EQ(nullptr, CLS_QuenTaskPool::m_pInstance);
    {
        const CLS_FailingThreads clsThreads(0);
        UnInit();
        EXPECT_EQ(3, clsThreads.GetRequests());
    }
    EXPECT_EQ(nullptr, CLS_QuenTaskPool::m_pInstance);
    EXPECT_THAT(LogRecorder::Take(),
                ElementsAre(IsBegin(), IsStart(), IsEnd(), IsBegin(), IsStart(), IsEnd()));
    EXPECT_TRUE(WaitForThreads(iThreads));
}
} // namespace
