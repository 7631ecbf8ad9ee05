// The registry may change while a task is queued. The task that a look-up then finds is the one that runs.

#include "tests/support/PoolView.h"
#include "tests/support/RecordMatchers.h"
#include "tests/unit/PoolFixture.h"

#include <chrono>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <thread>
#include <tuple>
#include <utility>

namespace
{
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::TestParamInfo;
using ::testing::Values;
using ::testing::ValuesIn;

using Registry = std::map<std::string, std::shared_ptr<CLS_Task>>;

/// A task that is not registered.
std::shared_ptr<CLS_Task> MakeUnregistered(const std::function<void()>& _funTask)
{
    // Names the destructor's class, because the destructor is deliberately not virtual.
    const auto funDestroy = [](CLS_Task* _pTask)
    {
        _pTask->CLS_Task::~CLS_Task();
        ::operator delete(_pTask);
    };
    return {new CLS_Task(_funTask, -1, "other"), funDestroy};
}

/// References that keep a task alive after it leaves the registry.
struct ST_KeptTasks
{
    std::shared_ptr<CLS_Task> m_pTask;
    Registry::node_type m_clsEntry;
    Registry m_mapTasks;
};

// The ways in which a task gets into the queue.

enum class n_Queued
{
    TMP,      ///< AddTmpTask
    LOOP,     ///< AddLoopTask
    REQUEUED, ///< the loop scheduler, after a first run
    BY_HOST   ///< CreateTask and AddWaitingTasks
};

constexpr const char* QUEUED_NAMES[] = {"Tmp", "Loop", "RequeuedLoop", "Hosts"};

// The ways in which a host gets a reference to the task.

enum class n_Reference
{
    NONE,
    GET_TASK,
    COPY ///< straight from the map
};

constexpr const char* REFERENCE_NAMES[] = {"WithoutAReference", "HeldFromGetTask", "CopiedFromTheMap"};

/// A change that takes the task out of the registry.
struct ST_Change
{
    const char* m_szName;
    std::function<void(const std::string&, ST_KeptTasks&)> m_funChange;
};

/// Changes the map under its lock, as a host does.
template <typename T_Change>
auto ChangeMap(const T_Change& _funChange)
{
    return [_funChange](const std::string& _strTaskId, ST_KeptTasks& _stKept)
    {
        const std::unique_lock<std::shared_mutex> lock(CLS_Task::m_smTaskDataLock);
        _funChange(_strTaskId, _stKept);
    };
}

const ST_Change TAKING_OUT[] = {
    {"Deleted", [](const std::string& _strTaskId, ST_KeptTasks&) { CLS_Task::DeleteTask(_strTaskId); }},
    {"Erased", ChangeMap([](const std::string& _strTaskId, ST_KeptTasks&)
                         { CLS_Task::m_mapTaskData.erase(_strTaskId); })},
    {"Extracted", ChangeMap([](const std::string& _strTaskId, ST_KeptTasks& _stKept)
                            { _stKept.m_clsEntry = CLS_Task::m_mapTaskData.extract(_strTaskId); })},
    {"Cleared", ChangeMap([](const std::string&, ST_KeptTasks&) { CLS_Task::m_mapTaskData.clear(); })},
    {"Swapped", ChangeMap([](const std::string&, ST_KeptTasks& _stKept)
                          { CLS_Task::m_mapTaskData.swap(_stKept.m_mapTasks); })}};

/// Replaces a registered task while it holds the lock once.
void Replace(const std::string& _strTaskId, const std::shared_ptr<CLS_Task>& _pOther)
{
    std::shared_ptr<CLS_Task> pReplaced = _pOther; // destroyed after the lock is released
    const std::unique_lock<std::shared_mutex> lock(CLS_Task::m_smTaskDataLock);
    CLS_Task::m_mapTaskData.at(_strTaskId).swap(pReplaced);
}

std::shared_ptr<CLS_Task> CopyFromMap(const std::string& _strTaskId)
{
    const std::shared_lock<std::shared_mutex> lock(CLS_Task::m_smTaskDataLock);
    return CLS_Task::m_mapTaskData.at(_strTaskId);
}

class CLS_HandOverFixture : public CLS_PoolFixture
{
protected:
    void SetUp() override
    {
        CLS_PoolFixture::SetUp();
        m_pPool = &MakeStillPool();
        PoolView::AddIdleWorker(*m_pPool, m_pPool->CreateTaskThread());
        PoolView::GetWorkerLimit(*m_pPool) = 0;
    }

    /// Queues a task that counts its runs in m_iRuns; returns its id.
    std::string Queue(n_Queued _iQueued)
    {
        const auto funTask = [this] { ++m_iRuns; };
        std::string strTaskId;
        switch (_iQueued)
        {
        case n_Queued::TMP:
            EXPECT_TRUE(m_pPool->AddTmpTask(funTask, this, "call"));
            return PoolView::GetQueue(*m_pPool).at(0);
        case n_Queued::BY_HOST:
            m_stKept.m_pTask = CLS_Task::CreateTask(funTask, -1, "call");
            m_pPool->AddWaitingTasks(m_stKept.m_pTask->GetId());
            return m_stKept.m_pTask->GetId();
        default:
            break;
        }
        m_pPool->AddLoopTask(funTask, 0, strTaskId, "call");
        if (_iQueued == n_Queued::REQUEUED)
        {
            Dispatch();
            EXPECT_EQ(1, std::exchange(m_iRuns, 0));
            EXPECT_TRUE(WaitUntil(
                [&]
                {
                    PoolView::RunLoopPass(*m_pPool);
                    return !PoolView::GetQueue(*m_pPool).empty();
                }));
        }
        return strTaskId;
    }

    void Refer(n_Reference _iReference, const std::string& _strTaskId)
    {
        if (_iReference == n_Reference::GET_TASK)
        {
            m_stKept.m_pTask = CLS_Task::GetTask(_strTaskId).lock();
        }
        else if (_iReference == n_Reference::COPY)
        {
            m_stKept.m_pTask = CopyFromMap(_strTaskId);
        }
    }

    /// Dispatches the queued tasks, and waits until they have run.
    void Dispatch()
    {
        PoolView::RunDispatchPass(*m_pPool);
        EXPECT_TRUE(WaitForIdle(*m_pPool, 1));
    }

    /// A task that replaces another.
    std::shared_ptr<CLS_Task> MakeOther()
    {
        return MakeUnregistered([this] { ++m_iOtherRuns; });
    }

    /// Whether a look-up trusts a reference to this registered task instead of searching for it. Only then
    /// does it return the task although the entry holds another one.
    static bool IsTrusted(const std::string& _strTaskId)
    {
        const std::shared_ptr<CLS_Task> pTask = CopyFromMap(_strTaskId);
        const std::shared_ptr<CLS_Task> pOther = MakeUnregistered([] {});
        Replace(_strTaskId, pOther);
        const std::shared_ptr<CLS_Task> pFound = CLS_Task::FindTask(pTask, _strTaskId);
        Replace(_strTaskId, pTask);
        EXPECT_TRUE(pFound == pTask || pFound == pOther);
        return pFound == pTask;
    }

    /// A registered task that only the pool knows; returns its id.
    static std::string MakePoolTask()
    {
        std::string strTaskId;
        CLS_Task::CreatePoolTask([] {}, -1, "call", strTaskId);
        return strTaskId;
    }

    CLS_QuenTaskPool* m_pPool = nullptr;
    ST_KeptTasks m_stKept;
    int m_iRuns = 0;
    int m_iOtherRuns = 0;
};

class PoolHandOverChangeTest
    : public CLS_HandOverFixture,
      public ::testing::WithParamInterface<std::tuple<n_Queued, n_Reference, ST_Change>>
{
};

TEST_P(PoolHandOverChangeTest, TaskThatHasLeftTheRegistryDoesNotRun)
{
    const auto& [iQueued, iReference, stChange] = GetParam();
    const std::string strTaskId = Queue(iQueued);
    Refer(iReference, strTaskId);
    stChange.m_funChange(strTaskId, m_stKept);
    Dispatch();
    EXPECT_EQ(0, m_iRuns);
    EXPECT_THAT(LogRecorder::Take(),
                ElementsAre(IsPoolRecord(2, "FunRunTask", "task id is fail - " + strTaskId)));
}

std::string NameChange(const TestParamInfo<PoolHandOverChangeTest::ParamType>& _stInfo)
{
    const auto& [iQueued, iReference, stChange] = _stInfo.param;
    return std::string(QUEUED_NAMES[static_cast<int>(iQueued)]) + stChange.m_szName +
           REFERENCE_NAMES[static_cast<int>(iReference)];
}

INSTANTIATE_TEST_SUITE_P(
    All, PoolHandOverChangeTest,
    ::testing::Combine(Values(n_Queued::TMP, n_Queued::LOOP, n_Queued::REQUEUED, n_Queued::BY_HOST),
                       Values(n_Reference::NONE, n_Reference::GET_TASK, n_Reference::COPY),
                       ValuesIn(TAKING_OUT)),
    NameChange);

class PoolHandOverReplacementTest : public CLS_HandOverFixture,
                                    public ::testing::WithParamInterface<std::tuple<n_Queued, n_Reference>>
{
};

TEST_P(PoolHandOverReplacementTest, ReplacementRunsInsteadOfTheReplacedTask)
{
    const auto& [iQueued, iReference] = GetParam();
    const std::string strTaskId = Queue(iQueued);
    Refer(iReference, strTaskId);
    Replace(strTaskId, MakeOther());
    Dispatch();
    EXPECT_EQ(0, m_iRuns);
    EXPECT_EQ(1, m_iOtherRuns);
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

std::string NameReplacement(const TestParamInfo<PoolHandOverReplacementTest::ParamType>& _stInfo)
{
    const auto& [iQueued, iReference] = _stInfo.param;
    return std::string(QUEUED_NAMES[static_cast<int>(iQueued)]) +
           REFERENCE_NAMES[static_cast<int>(iReference)];
}

INSTANTIATE_TEST_SUITE_P(All, PoolHandOverReplacementTest,
                         ::testing::Combine(Values(n_Queued::TMP, n_Queued::LOOP, n_Queued::REQUEUED,
                                                   n_Queued::BY_HOST),
                                            Values(n_Reference::NONE, n_Reference::GET_TASK)),
                         NameReplacement);

using PoolHandOverTest = CLS_HandOverFixture;

// Pins docs/limits.md, "Replacing a task record in the registry".
TEST_F(PoolHandOverTest, QueuedTaskRunsWithoutASearch)
{
    for (const n_Queued iQueued : {n_Queued::TMP, n_Queued::LOOP, n_Queued::REQUEUED})
    {
        m_iRuns = 0;
        PoolView::ForgetLoopTasks(*m_pPool);
        const std::string strTaskId = Queue(iQueued);
        // A host must not do this: the registry's size does not change, and the old task lives on.
        Refer(n_Reference::COPY, strTaskId);
        Replace(strTaskId, MakeOther());
        Dispatch();
        EXPECT_EQ(1, m_iRuns) << QUEUED_NAMES[static_cast<int>(iQueued)];
        EXPECT_EQ(0, m_iOtherRuns);
    }
}

TEST_F(PoolHandOverTest, ReplacementIsRequeuedInsteadOfTheReplacedLoopTask)
{
    const std::string strTaskId = Queue(n_Queued::REQUEUED);
    Dispatch();
    EXPECT_EQ(1, std::exchange(m_iRuns, 0));
    // What a host must not do: the registry's size does not show it, and the old task lives on.
    Refer(n_Reference::COPY, strTaskId);
    Replace(strTaskId, MakeOther());
    EXPECT_TRUE(WaitUntil(
        [&]
        {
            PoolView::RunLoopPass(*m_pPool);
            return !PoolView::GetQueue(*m_pPool).empty();
        }));
    Dispatch();
    EXPECT_EQ(0, m_iRuns);
    EXPECT_EQ(1, m_iOtherRuns);
}

// Pins docs/limits.md, "Replacing a task record in the registry".
TEST_F(PoolHandOverTest, ReplacementAfterDeleteTaskRunsAlthoughTheOldTaskLives)
{
    const std::string strTaskId = Queue(n_Queued::TMP);
    Refer(n_Reference::COPY, strTaskId);
    CLS_Task::DeleteTask(strTaskId);
    {
        const std::unique_lock<std::shared_mutex> lock(CLS_Task::m_smTaskDataLock);
        CLS_Task::m_mapTaskData[strTaskId] = MakeOther();
    }
    Dispatch();
    EXPECT_EQ(0, m_iRuns);
    EXPECT_EQ(1, m_iOtherRuns);
}

TEST_F(PoolHandOverTest, OnlyTasksThatThePoolAloneKnowsAreTrusted)
{
    const std::string strTrusted = MakePoolTask();
    EXPECT_TRUE(IsTrusted(strTrusted));
    EXPECT_FALSE(IsTrusted(CLS_Task::CreateTask([] {}, -1, "call")->GetId()));
    EXPECT_TRUE(IsTrusted(strTrusted));
    CLS_Task::GetTask(strTrusted);
    EXPECT_FALSE(IsTrusted(strTrusted));
}

TEST_F(PoolHandOverTest, ChangesByTheLibraryItselfLeaveOtherTasksTrusted)
{
    const std::string strTrusted = MakePoolTask();
    const std::string strOther = MakePoolTask();
    EXPECT_TRUE(IsTrusted(strTrusted));
    CLS_Task::DeleteTask(strOther);
    CLS_Task::DeleteTask("unknown");
    EXPECT_TRUE(IsTrusted(strTrusted));
    CLS_Task::CreateTask([] {}, -1, "call");
    EXPECT_TRUE(IsTrusted(strTrusted));
}

TEST_F(PoolHandOverTest, TasksFromBeforeAHostsChangeAreSearchedForAndLaterOnesAreNot)
{
    const std::string strBefore = MakePoolTask();
    const std::string strErased = MakePoolTask();
    ASSERT_TRUE(IsTrusted(strBefore));
    TAKING_OUT[1].m_funChange(strErased, m_stKept);
    EXPECT_FALSE(IsTrusted(strBefore));
    const std::string strLater = MakePoolTask();
    EXPECT_TRUE(IsTrusted(strLater));
    EXPECT_FALSE(IsTrusted(strBefore));
    // The pool searches for a task that a host added, and for all earlier tasks.
    {
        const std::unique_lock<std::shared_mutex> lock(CLS_Task::m_smTaskDataLock);
        CLS_Task::m_mapTaskData["hosts"] = MakeOther();
    }
    EXPECT_FALSE(IsTrusted(strLater));
    EXPECT_FALSE(IsTrusted("hosts"));
    EXPECT_TRUE(IsTrusted(MakePoolTask()));
}

TEST_F(PoolHandOverTest, HostsChangeIsSeenAlthoughTheLibraryChangesTheRegistryNext)
{
    const std::string strOther = MakePoolTask();
    for (const auto& funChange : {std::function<void()>([] { MakePoolTask(); }),
                                  std::function<void()>([&] { CLS_Task::DeleteTask(strOther); })})
    {
        const std::string strTaskId = MakePoolTask();
        const std::shared_ptr<CLS_Task> pTask = CopyFromMap(strTaskId);
        TAKING_OUT[1].m_funChange(strTaskId, m_stKept);
        funChange();
        EXPECT_EQ(nullptr, CLS_Task::FindTask(pTask, strTaskId));
    }
}

/// Looks a task up by its kept reference while the library deletes another one. Whether it was found
/// before the deletion ended. Gives the reader _msTime until then.
bool IsFoundDuringADeletion(const std::shared_ptr<CLS_Task>& _pTask, const std::string& _strTaskId,
                            std::chrono::milliseconds _msTime)
{
    bool bFoundBefore = false;
    CLS_Gate clsFound;
    std::thread thReader;
    // The deletion destroys the captured objects while it holds the registry's lock.
    const auto funLookUp = [&]
    {
        thReader = std::thread(
            [&]
            {
                EXPECT_EQ(_pTask, CLS_Task::FindTask(_pTask, _strTaskId));
                clsFound.Open();
            });
        bFoundBefore = clsFound.Wait(_msTime);
    };
    const std::string strDeleted =
        CLS_Task::CreateTask([pHook = MakeEndHook(funLookUp)] {}, -1, "call")->GetId();
    CLS_Task::DeleteTask(strDeleted);
    thReader.join();
    return bFoundBefore;
}

TEST_F(PoolHandOverTest, TrustedTaskIsFoundWhileTheLibraryChangesTheRegistry)
{
    const std::string strTrusted = MakePoolTask();
    EXPECT_TRUE(IsFoundDuringADeletion(CopyFromMap(strTrusted), strTrusted, WAIT_LIMIT));
}

TEST_F(PoolHandOverTest, OtherTaskIsFoundOnceTheLibraryHasChangedTheRegistry)
{
    const std::string strHanded = MakePoolTask();
    const std::shared_ptr<CLS_Task> pTask = CLS_Task::GetTask(strHanded).lock();
    EXPECT_FALSE(IsFoundDuringADeletion(pTask, strHanded, std::chrono::milliseconds(100)));
}

TEST_F(PoolHandOverTest, TaskThatAHostTookOutAndPutBackRuns)
{
    const std::string strTaskId = Queue(n_Queued::TMP);
    TAKING_OUT[2].m_funChange(strTaskId, m_stKept);
    EXPECT_EQ(nullptr, CLS_Task::GetTask(strTaskId).lock());
    {
        const std::unique_lock<std::shared_mutex> lock(CLS_Task::m_smTaskDataLock);
        CLS_Task::m_mapTaskData.insert(std::move(m_stKept.m_clsEntry));
    }
    Dispatch();
    EXPECT_EQ(1, m_iRuns);
}

TEST_F(PoolHandOverTest, NullPointerInTheRegistryIsATaskThatDoesNotExist)
{
    const std::string strTaskId = Queue(n_Queued::TMP);
    Replace(strTaskId, nullptr);
    EXPECT_EQ(nullptr, CLS_Task::GetTask(strTaskId).lock());
    Dispatch();
    EXPECT_EQ(0, m_iRuns);
    EXPECT_THAT(LogRecorder::Take(),
                ElementsAre(IsPoolRecord(2, "FunRunTask", "task id is fail - " + strTaskId)));
    CLS_Task::DeleteTask(strTaskId);
    EXPECT_FALSE(PoolView::IsRegistered(strTaskId));
}

TEST_F(PoolHandOverTest, KeptReferenceThatIsEmptyOrGoneIsSearchedFor)
{
    const std::string strTaskId = MakePoolTask();
    const std::shared_ptr<CLS_Task> pTask = CopyFromMap(strTaskId);
    EXPECT_EQ(pTask, CLS_Task::FindTask({}, strTaskId));
    const std::weak_ptr<CLS_Task> pGone = MakeUnregistered([] {});
    EXPECT_EQ(pTask, CLS_Task::FindTask(pGone, strTaskId));
    EXPECT_EQ(nullptr, CLS_Task::FindTask({}, "unknown"));
    EXPECT_TRUE(IsTrusted(strTaskId)) << "the pool's own look-up gives no other code a reference";
}
} // namespace
