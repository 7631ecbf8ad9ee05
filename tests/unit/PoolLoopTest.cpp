#include "tests/support/PoolView.h"
#include "tests/support/RecordMatchers.h"
#include "tests/support/TaskView.h"
#include "tests/unit/PoolFixture.h"

#include <atomic>
#include <chrono>
#include <climits>
#include <gmock/gmock.h>
#include <shared_mutex>
#include <utility>

namespace
{
using PoolView::GetTask;
using std::chrono::hours;
using std::chrono::milliseconds;
using std::chrono::steady_clock;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr milliseconds POLL{10};
constexpr int HOUR = 3600000;

class PoolLoopTest : public CLS_PoolFixture
{
protected:
    /// A listed loop task that is idle and not queued, and whose last run ended two hours ago.
    static std::string MakeListedTask(CLS_QuenTaskPool& _clsPool, int _iInterval = HOUR)
    {
        const std::string strTaskId = MakeTask([] {}, _iInterval);
        SetLastRun(strTaskId, hours(2));
        PoolView::AddToLoopTasks(_clsPool, strTaskId);
        return strTaskId;
    }

    static void SetLastRun(const std::string& _strTaskId, steady_clock::duration _nsAgo)
    {
        const std::shared_ptr<CLS_Task> pTask = GetTask(_strTaskId);
        TaskView::GetLastRun(*pTask) = steady_clock::now() - _nsAgo;
        // The scheduler remembers when a task is due. Setting an interval makes it ask again.
        pTask->SetLoopInterval(pTask->GetLoopInterval());
    }
};

TEST_F(PoolLoopTest, DueTasksAreQueuedInListOrderAndWait)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    const std::string strFirst = MakeListedTask(clsPool);
    const std::string strSecond = MakeListedTask(clsPool);
    const std::string strThird = MakeListedTask(clsPool);
    PoolView::SetLoopTasks(clsPool, {strThird, strFirst, strSecond});
    PoolView::RunLoopPass(clsPool);
    EXPECT_THAT(PoolView::GetQueue(clsPool), ElementsAre(strThird, strFirst, strSecond));
    EXPECT_THAT(PoolView::GetLoopTasks(clsPool), ElementsAre(strThird, strFirst, strSecond));
    for (const std::string& strTaskId : {strFirst, strSecond, strThird})
    {
        EXPECT_EQ(TASK_STATUS_WAITING, GetTask(strTaskId)->GetTaskStatus());
    }
    PoolView::RunLoopPass(clsPool);
    EXPECT_EQ(3U, PoolView::GetQueue(clsPool).size()) << "a waiting task was queued again";
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

TEST_F(PoolLoopTest, MissingTasksAreSkippedSilently)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    PoolView::AddToLoopTasks(clsPool, "nobody's id");
    const std::string strGone = MakeListedTask(clsPool);
    CLS_Task::DeleteTask(strGone);
    const std::string strDue = MakeListedTask(clsPool);
    PoolView::AddToLoopTasks(clsPool, "");
    PoolView::RunLoopPass(clsPool);
    EXPECT_THAT(PoolView::GetQueue(clsPool), ElementsAre(strDue));
    EXPECT_THAT(PoolView::GetLoopTasks(clsPool), ElementsAre("nobody's id", strGone, strDue, ""));
    EXPECT_THAT(PoolView::GetRegistered(), ElementsAre(strDue));
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

TEST_F(PoolLoopTest, PassesDoNotWaitForAnotherReaderOfTheList)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    const std::string strTaskId = MakeListedTask(clsPool);
    CLS_Gate clsPassed;
    std::thread thPasses;
    {
        const std::shared_lock<std::shared_mutex> lock(PoolView::GetLoopListLock(clsPool));
        thPasses = std::thread(
            [&]
            {
                PoolView::RunLoopPass(clsPool); // the list has changed
                PoolView::RunLoopPass(clsPool); // it is as it was
                clsPassed.Open();
            });
        EXPECT_TRUE(clsPassed.Wait());
    }
    thPasses.join();
    EXPECT_THAT(PoolView::GetQueue(clsPool), ElementsAre(strTaskId));
}

TEST_F(PoolLoopTest, TaskThatIsNotDueIsNotQueued)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    const std::string strEarly = MakeListedTask(clsPool);
    SetLastRun(strEarly, milliseconds(HOUR / 2));
    const std::string strLongest = MakeListedTask(clsPool, INT_MAX);
    const std::string strStopped = MakeListedTask(clsPool);
    clsPool.StopTask(strStopped);
    std::vector<std::string> vecBusy;
    for (const n_TaskStatus nStatus : {TASK_STATUS_WAITING, TASK_STATUS_RUNNING})
    {
        vecBusy.push_back(MakeListedTask(clsPool, 0));
        GetTask(vecBusy.back())->SetTaskStatus(nStatus);
    }
    PoolView::RunLoopPass(clsPool);
    EXPECT_THAT(PoolView::GetQueue(clsPool), IsEmpty());
    EXPECT_THAT(PoolView::GetLoopTasks(clsPool),
                ElementsAre(strEarly, strLongest, strStopped, vecBusy[0], vecBusy[1]));
    SetLastRun(strEarly, milliseconds(HOUR));
    PoolView::RunLoopPass(clsPool);
    EXPECT_THAT(PoolView::GetQueue(clsPool), ElementsAre(strEarly));
    GetTask(vecBusy[1])->SetTaskStatus(TASK_STATUS_IDLE);
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

// Pins docs/limits.md, "Loop tasks are polled every 10 ms".
TEST_F(PoolLoopTest, IntervalCountsFromTheEndOfTheRun)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    CLS_Gate clsStarted;
    CLS_Gate clsMayEnd;
    std::string strTaskId;
    clsPool.AddLoopTask(
        [&]
        {
            clsStarted.Open();
            EXPECT_TRUE(clsMayEnd.Wait());
        },
        HOUR, strTaskId, "");
    PoolView::RunDispatchPass(clsPool);
    ASSERT_TRUE(clsStarted.Wait());
    SetLastRun(strTaskId, hours(2)); // the interval passes in the middle of the run
    PoolView::RunLoopPass(clsPool);
    EXPECT_THAT(PoolView::GetQueue(clsPool), IsEmpty());
    clsMayEnd.Open();
    ASSERT_TRUE(WaitForIdle(clsPool, 1));
    PoolView::RunLoopPass(clsPool);
    EXPECT_THAT(PoolView::GetQueue(clsPool), IsEmpty());
    SetLastRun(strTaskId, hours(1));
    PoolView::RunLoopPass(clsPool);
    EXPECT_THAT(PoolView::GetQueue(clsPool), ElementsAre(strTaskId));
}

// Pins docs/limits.md, "A negative interval repeats like 0".
TEST_F(PoolLoopTest, IntervalOfZeroOrLessIsDueOnEveryPassOnceIdle)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    for (const int iInterval : {0, -1, INT_MIN})
    {
        std::atomic<int> iRuns{0};
        std::string strTaskId;
        clsPool.AddLoopTask([&] { ++iRuns; }, iInterval, strTaskId, "");
        for (int iRun = 1; iRun <= 5; ++iRun)
        {
            EXPECT_THAT(PoolView::GetQueue(clsPool), ElementsAre(strTaskId));
            PoolView::RunDispatchPass(clsPool);
            EXPECT_TRUE(WaitForIdle(clsPool, 1));
            EXPECT_EQ(iRun, iRuns);
            PoolView::RunLoopPass(clsPool);
        }
        clsPool.RemoveTask(strTaskId, "");
        PoolView::ClearQueue(clsPool);
    }
}

// Pins docs/limits.md, "A stopped task stays known".
TEST_F(PoolLoopTest, StoppedTaskIsNeverQueuedAgainAndStaysListed)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    std::atomic<int> iRuns{0};
    std::string strTaskId;
    clsPool.AddLoopTask([&] { ++iRuns; }, 0, strTaskId, "");
    PoolView::RunDispatchPass(clsPool);
    ASSERT_TRUE(WaitForIdle(clsPool, 1));
    clsPool.StopTask(strTaskId);
    for (const steady_clock::duration nsAgo : {hours(0), hours(1000)})
    {
        SetLastRun(strTaskId, nsAgo);
        PoolView::RunLoopPass(clsPool);
        EXPECT_THAT(PoolView::GetQueue(clsPool), IsEmpty());
    }
    EXPECT_THAT(PoolView::GetLoopTasks(clsPool), ElementsAre(strTaskId));
    EXPECT_EQ(1, iRuns);
}

TEST_F(PoolLoopTest, PassEndsEarlyWhenThePoolEnds)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    const std::string strFirst = MakeListedTask(clsPool);
    const std::string strSecond = MakeListedTask(clsPool);
    std::unique_lock<std::mutex> lock(PoolView::GetQueueLock(clsPool));
    std::thread thPass([&] { PoolView::RunLoopPass(clsPool); });
    // From here on, the pass waits to queue the first task.
    EXPECT_TRUE(WaitUntil([&] { return GetTask(strFirst)->GetTaskStatus() == TASK_STATUS_WAITING; }));
    PoolView::GetRunFlag(clsPool) = false;
    lock.unlock();
    thPass.join();
    EXPECT_THAT(PoolView::GetQueue(clsPool), ElementsAre(strFirst));
    EXPECT_EQ(TASK_STATUS_IDLE, GetTask(strSecond)->GetTaskStatus());
    PoolView::RunLoopPass(clsPool);
    EXPECT_EQ(1U, PoolView::GetQueue(clsPool).size());
}

TEST_F(PoolLoopTest, PassWorksOnACopyOfTheListAndHoldsNoLockMeanwhile)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    const std::string strFirst = MakeListedTask(clsPool);
    const std::string strSecond = MakeListedTask(clsPool);
    std::unique_lock<std::mutex> lock(PoolView::GetQueueLock(clsPool));
    std::thread thPass([&] { PoolView::RunLoopPass(clsPool); });
    EXPECT_TRUE(WaitUntil([&] { return GetTask(strFirst)->GetTaskStatus() == TASK_STATUS_WAITING; }));
    const bool bListFree = PoolView::GetLoopListLock(clsPool).try_lock();
    EXPECT_TRUE(bListFree);
    if (bListFree)
    {
        PoolView::GetLoopIds(clsPool).clear();
        PoolView::GetLoopListLock(clsPool).unlock();
    }
    lock.unlock();
    thPass.join();
    EXPECT_THAT(PoolView::GetQueue(clsPool), ElementsAre(strFirst, strSecond));
}

// Pins docs/limits.md, "Loop tasks are polled every 10 ms".
TEST_F(PoolLoopTest, ThreadSleepsTenMillisecondsAfterEachPass)
{
    for (const std::size_t iTasks : {0U, 2U})
    {
        CLS_QuenTaskPool& clsPool = MakeStillPool();
        for (std::size_t iTask = 0; iTask < iTasks; ++iTask)
        {
            MakeListedTask(clsPool);
        }
        std::vector<milliseconds> vecSleeps;
        {
            const CLS_FastSleep clsFast(
                [&](const ST_Sleep& _stSleep)
                {
                    vecSleeps.push_back(_stSleep.m_msAsked);
                    EXPECT_EQ(iTasks, PoolView::GetQueue(clsPool).size()); // the pass runs before the sleep
                    PoolView::GetRunFlag(clsPool) = vecSleeps.size() < 3;
                },
                milliseconds(2));
            clsPool.FunLoopThread();
        }
        EXPECT_THAT(vecSleeps, ElementsAre(POLL, POLL, POLL));
        EXPECT_EQ(iTasks, PoolView::GetQueue(clsPool).size());
        PoolView::GetRunFlag(clsPool) = true;
    }
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

TEST_F(PoolLoopTest, ThreadReturnsAtOnceWhenThePoolHasEnded)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    MakeListedTask(clsPool);
    PoolView::GetRunFlag(clsPool) = false;
    {
        const CLS_FastSleep clsFast({}, milliseconds(2));
        clsPool.FunLoopThread();
        EXPECT_THAT(clsFast.GetSleeps(), IsEmpty());
    }
    EXPECT_THAT(PoolView::GetQueue(clsPool), IsEmpty());
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

TEST_F(PoolLoopTest, LoopTasksRunRepeatedlyInParallel)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    CLS_Counter clsZero;
    CLS_Counter clsNegative;
    CLS_Counter clsShort;
    CLS_Counter clsLong;
    std::string strTaskId;
    clsPool.AddLoopTask([&] { clsLong.Add(); }, HOUR, strTaskId, "");
    clsPool.AddLoopTask([&] { clsZero.Add(); }, 0, strTaskId, "");
    clsPool.AddLoopTask([&] { clsNegative.Add(); }, -1, strTaskId, "");
    clsPool.AddLoopTask([&] { clsShort.Add(); }, 20, strTaskId, "");
    EXPECT_TRUE(clsZero.Wait(5));
    EXPECT_TRUE(clsNegative.Wait(5));
    EXPECT_TRUE(clsShort.Wait(5));
    EXPECT_TRUE(clsLong.Wait(1));
    EXPECT_EQ(1, clsLong.Get());
    clsPool.UnInit();
}

TEST_F(PoolLoopTest, NoLoopTaskIsQueuedAfterThePoolsEnd)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    CLS_Counter clsOld;
    CLS_Counter clsNew;
    std::string strOld;
    std::string strNew;
    clsPool.AddLoopTask([&] { clsOld.Add(); }, 0, strOld, "");
    EXPECT_TRUE(clsOld.Wait(3));
    clsPool.UnInit();
    const int iRuns = clsOld.Get();
    CLS_QuenTaskPool& clsNext = MakePool();
    clsNext.AddLoopTask([&] { clsNew.Add(); }, 0, strNew, "");
    EXPECT_TRUE(clsNew.Wait(5));
    EXPECT_EQ(iRuns, clsOld.Get());
    EXPECT_TRUE(PoolView::IsRegistered(strOld));
    EXPECT_THAT(PoolView::GetLoopTasks(clsNext), ElementsAre(strNew));
    clsNext.UnInit();
}

TEST_F(PoolLoopTest, KnownTimeIsNotAskedForAgainUntilAnIntervalIsSet)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    const std::string strTaskId = MakeListedTask(clsPool);
    SetLastRun(strTaskId, hours(0));
    PoolView::RunLoopPass(clsPool);
    PoolView::RunLoopPass(clsPool);
    TaskView::GetLastRun(*GetTask(strTaskId)) = steady_clock::now() - hours(2);
    PoolView::RunLoopPass(clsPool);
    EXPECT_THAT(PoolView::GetQueue(clsPool), IsEmpty());
    CLS_Task([] {}, 0, "").SetLoopInterval(0); // on any task
    PoolView::RunLoopPass(clsPool);
    EXPECT_THAT(PoolView::GetQueue(clsPool), ElementsAre(strTaskId));
}

TEST_F(PoolLoopTest, IntervalIsSeenByTheNextPass)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    const std::string strShorter = MakeListedTask(clsPool);
    const std::string strLonger = MakeListedTask(clsPool);
    SetLastRun(strShorter, hours(0));
    SetLastRun(strLonger, hours(0));
    PoolView::RunLoopPass(clsPool);
    EXPECT_THAT(PoolView::GetQueue(clsPool), IsEmpty());
    GetTask(strShorter)->SetLoopInterval(0);
    GetTask(strLonger)->SetLoopInterval(INT_MAX);
    PoolView::RunLoopPass(clsPool);
    EXPECT_THAT(PoolView::GetQueue(clsPool), ElementsAre(strShorter));
    GetTask(strLonger)->SetLoopInterval(HOUR);
    PoolView::RunLoopPass(clsPool);
    GetTask(strLonger)->SetLoopInterval(0);
    PoolView::RunLoopPass(clsPool);
    EXPECT_THAT(PoolView::GetQueue(clsPool), ElementsAre(strShorter, strLonger));
}

TEST_F(PoolLoopTest, ChangesOfTheListAreSeenByTheNextPass)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    std::vector<std::string> vecTasks;
    for (int i = 0; i < 4; ++i)
    {
        vecTasks.push_back(MakeListedTask(clsPool, 0));
        GetTask(vecTasks.back())->SetTaskStatus(TASK_STATUS_WAITING);
    }
    PoolView::RunLoopPass(clsPool);
    PoolView::ForgetLoopTask(clsPool, vecTasks[1]);
    std::string strNew;
    clsPool.AddLoopTask([] {}, 0, strNew, "");
    PoolView::ClearQueue(clsPool);
    for (const std::string& strTaskId : {vecTasks[0], vecTasks[1], vecTasks[2], vecTasks[3], strNew})
    {
        GetTask(strTaskId)->SetTaskStatus(TASK_STATUS_IDLE);
    }
    PoolView::RunLoopPass(clsPool);
    EXPECT_THAT(PoolView::GetQueue(clsPool), ElementsAre(vecTasks[0], vecTasks[2], vecTasks[3], strNew));

    PoolView::ClearQueue(clsPool);
    PoolView::ForgetLoopTasks(clsPool);
    for (const std::string& strTaskId : {vecTasks[0], vecTasks[2], vecTasks[3], strNew})
    {
        GetTask(strTaskId)->SetTaskStatus(TASK_STATUS_IDLE);
    }
    PoolView::RunLoopPass(clsPool);
    EXPECT_THAT(PoolView::GetQueue(clsPool), IsEmpty());
}

TEST_F(PoolLoopTest, KnownTasksNeedNoLookUpEvenWhenTheListHasChanged)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    std::vector<std::string> vecTasks;
    for (int i = 0; i < 5; ++i)
    {
        vecTasks.push_back(MakeListedTask(clsPool));
        SetLastRun(vecTasks.back(), hours(0));
    }
    const std::shared_ptr<CLS_Task> pBusy = GetTask(vecTasks[3]);
    pBusy->SetTaskStatus(TASK_STATUS_RUNNING);
    PoolView::RunLoopPass(clsPool);
    PoolView::ForgetLoopTask(clsPool, vecTasks[0]);
    PoolView::ForgetLoopTask(clsPool, vecTasks[2]);
    pBusy->SetLoopInterval(0); // the scheduler asks every task again
    CLS_Gate clsEnded;
    std::unique_lock<std::shared_mutex> lock(CLS_Task::m_smTaskDataLock);
    std::thread thPass(
        [&]
        {
            PoolView::RunLoopPass(clsPool);
            PoolView::RunLoopPass(clsPool);
            clsEnded.Open();
        });
    EXPECT_TRUE(clsEnded.Wait()) << "the pass looks into the registry";
    lock.unlock();
    thPass.join();
    EXPECT_THAT(PoolView::GetQueue(clsPool), IsEmpty());
    EXPECT_EQ(3U, PoolView::GetLoopSchedule(clsPool).GetEntries().size());
    pBusy->SetTaskStatus(TASK_STATUS_IDLE);
}

TEST_F(PoolLoopTest, EntriesAreKeptWhileTheListIsTheSame)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    MakeListedTask(clsPool);
    PoolView::RunLoopPass(clsPool);
    const CLS_LoopSchedule::CLS_Entry* const pEntries =
        PoolView::GetLoopSchedule(clsPool).GetEntries().data();
    PoolView::RunLoopPass(clsPool);
    EXPECT_EQ(pEntries, PoolView::GetLoopSchedule(clsPool).GetEntries().data());
    MakeListedTask(clsPool);
    PoolView::RunLoopPass(clsPool);
    EXPECT_NE(pEntries, PoolView::GetLoopSchedule(clsPool).GetEntries().data());
}

TEST_F(PoolLoopTest, TaskThatLeftTheRegistryIsNotQueuedThoughTheHostKeepsIt)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    const std::string strGone = MakeListedTask(clsPool, 0);
    const std::string strDue = MakeListedTask(clsPool, 0);
    const std::shared_ptr<CLS_Task> pKept = GetTask(strGone);
    for (const std::string& strTaskId : {strGone, strDue})
    {
        GetTask(strTaskId)->SetTaskStatus(TASK_STATUS_WAITING);
    }
    PoolView::RunLoopPass(clsPool);
    CLS_Task::DeleteTask(strGone);
    pKept->SetTaskStatus(TASK_STATUS_IDLE);
    GetTask(strDue)->SetTaskStatus(TASK_STATUS_IDLE);
    PoolView::RunLoopPass(clsPool);
    EXPECT_THAT(PoolView::GetQueue(clsPool), ElementsAre(strDue));
    EXPECT_EQ(TASK_STATUS_IDLE, pKept->GetTaskStatus());
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

TEST_F(PoolLoopTest, TaskThatIsRegisteredUnderAListedIdIsFound)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    const auto funRegister = [&](const std::string& _strTaskId)
    {
        const std::string strOther = MakeTask([] {}, 0);
        const std::unique_lock<std::shared_mutex> lock(CLS_Task::m_smTaskDataLock);
        auto clsEntry = CLS_Task::m_mapTaskData.extract(strOther);
        clsEntry.key() = _strTaskId;
        CLS_Task::m_mapTaskData.insert(std::move(clsEntry));
    };
    PoolView::AddToLoopTasks(clsPool, "later");
    PoolView::RunLoopPass(clsPool);
    EXPECT_THAT(PoolView::GetQueue(clsPool), IsEmpty());
    for (int i = 0; i < 2; ++i)
    {
        funRegister("later");
        PoolView::RunLoopPass(clsPool);
        EXPECT_THAT(PoolView::GetQueue(clsPool), ElementsAre("later"));
        PoolView::ClearQueue(clsPool);
        CLS_Task::DeleteTask("later");
        PoolView::RunLoopPass(clsPool);
        EXPECT_THAT(PoolView::GetQueue(clsPool), IsEmpty());
    }
}

TEST_F(PoolLoopTest, ReplacementOfADueTaskIsQueuedOnlyWhenItIsDue)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    const std::string strTaskId = MakeTask([] {}, 0);
    const std::shared_ptr<CLS_Task> pOld = GetTask(strTaskId);
    const std::shared_ptr<CLS_Task> pOther = GetTask(MakeTask([] {}, 0));
    pOld->SetTaskStatus(TASK_STATUS_RUNNING);
    PoolView::AddToLoopTasks(clsPool, strTaskId);
    PoolView::RunLoopPass(clsPool);
    {
        const std::unique_lock<std::shared_mutex> lock(CLS_Task::m_smTaskDataLock);
        CLS_Task::m_mapTaskData[strTaskId] = pOther;
    }
    pOld->SetTaskStatus(TASK_STATUS_IDLE);
    pOther->SetTaskStatus(TASK_STATUS_RUNNING);
    PoolView::RunLoopPass(clsPool);
    EXPECT_THAT(PoolView::GetQueue(clsPool), IsEmpty());
    pOther->SetTaskStatus(TASK_STATUS_IDLE);
    PoolView::RunLoopPass(clsPool);
    EXPECT_THAT(PoolView::GetQueue(clsPool), ElementsAre(strTaskId));
    EXPECT_EQ(TASK_STATUS_WAITING, pOther->GetTaskStatus());
}

TEST_F(PoolLoopTest, StoppedTaskThatIsMadeValidAgainIsQueuedWhenItIsDue)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    const std::string strDue = MakeListedTask(clsPool);
    const std::string strEarly = MakeListedTask(clsPool);
    SetLastRun(strEarly, hours(0));
    clsPool.StopTask(strDue);
    clsPool.StopTask(strEarly);
    PoolView::RunLoopPass(clsPool);
    PoolView::RunLoopPass(clsPool);
    EXPECT_THAT(PoolView::GetQueue(clsPool), IsEmpty());
    GetTask(strDue)->SetValid(true);
    GetTask(strEarly)->SetValid(true);
    PoolView::RunLoopPass(clsPool);
    EXPECT_THAT(PoolView::GetQueue(clsPool), ElementsAre(strDue));
}

TEST_F(PoolLoopTest, PassSeesTheTimeThatItsQueueingTook)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    const std::string strFirst = MakeListedTask(clsPool);
    const std::string strSecond = MakeListedTask(clsPool, 300);
    GetTask(strFirst)->SetTaskStatus(TASK_STATUS_WAITING);
    SetLastRun(strSecond, hours(0));
    PoolView::RunLoopPass(clsPool);
    EXPECT_THAT(PoolView::GetQueue(clsPool), IsEmpty());
    GetTask(strFirst)->SetTaskStatus(TASK_STATUS_IDLE);
    std::unique_lock<std::mutex> lock(PoolView::GetQueueLock(clsPool));
    std::thread thPass([&] { PoolView::RunLoopPass(clsPool); });
    EXPECT_TRUE(WaitUntil([&] { return GetTask(strFirst)->GetTaskStatus() == TASK_STATUS_WAITING; }));
    EXPECT_TRUE(WaitUntil([&] { return GetTask(strSecond)->IsUseRun(); }));
    lock.unlock();
    thPass.join();
    EXPECT_THAT(PoolView::GetQueue(clsPool), ElementsAre(strFirst, strSecond));
}
} // namespace
