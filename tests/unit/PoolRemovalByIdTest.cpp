#include "tests/support/PoolView.h"
#include "tests/support/RecordMatchers.h"
#include "tests/support/ThrowingTextTask.h"
#include "tests/unit/PoolFixture.h"

#include <gmock/gmock.h>
#include <stdexcept>

namespace
{
using PoolView::GetTask;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

/// The two names of one operation.
using RemoveFun = void (CLS_QuenTaskPool::*)(const std::string&, const std::string&);
class PoolRemovalByIdTest : public CLS_PoolFixture, public ::testing::WithParamInterface<RemoveFun>
{
};

TEST_P(PoolRemovalByIdTest, RemovesTheFirstOccurrenceOfAnIdThatIsListedTwice)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    const std::string strTaskId = MakeTask([] {}, 0);
    PoolView::GetLoopIds(clsPool) = {"a", strTaskId, "b", strTaskId, "c"};
    (clsPool.*GetParam())(strTaskId, "");
    EXPECT_THAT(PoolView::GetLoopTasks(clsPool), ElementsAre("a", "b", strTaskId, "c"));
    EXPECT_FALSE(PoolView::IsRegistered(strTaskId));
    (clsPool.*GetParam())(strTaskId, "");
    EXPECT_THAT(PoolView::GetLoopTasks(clsPool), ElementsAre("a", "b", "c"));
    PoolView::RunLoopPass(clsPool);
    EXPECT_THAT(PoolView::GetQueue(clsPool), IsEmpty());
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

TEST_P(PoolRemovalByIdTest, WaitsForTheRunWithNoLockHeldBeforeItUnregisters)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    const std::string strTaskId = MakeTask([] {}, 0);
    PoolView::AddToLoopTasks(clsPool, strTaskId);
    const std::shared_ptr<CLS_Task> pTask = GetTask(strTaskId);
    pTask->SetTaskStatus(TASK_STATUS_RUNNING);
    {
        const CLS_FastSleep clsFast(
            [&](const ST_Sleep&)
            {
                EXPECT_TRUE(PoolView::AreLocksFree(clsPool));
                EXPECT_THAT(PoolView::GetLoopTasks(clsPool), IsEmpty());
                EXPECT_TRUE(PoolView::IsRegistered(strTaskId));
            });
        (clsPool.*GetParam())(strTaskId, "");
        EXPECT_THAT(clsFast.GetSleeps(), SizeIs(30)); // the whole bound
    }
    EXPECT_FALSE(PoolView::IsRegistered(strTaskId));
    const std::string strParam = MakeParamText(strTaskId, "call");
    EXPECT_THAT(LogRecorder::Take(),
                ElementsAre(IsTaskRecord(2, "Stop", "Stop Task waiting task info : [" + strParam + "] 11"),
                            IsTaskRecord(2, "Stop", "Stop Task waiting task info : [" + strParam + "] 21"),
                            IsTaskRecord(2, "Stop", "Stop Task waiting task info : [" + strParam + "] 31"),
                            IsTaskRecord(3, "Stop", "StopTask overtime task info : [" + strParam + "]")));
    pTask->SetTaskStatus(TASK_STATUS_IDLE);
}

TEST_P(PoolRemovalByIdTest, FailureIsRecordedAndTheTaskStaysRegistered)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    const std::string strTaskId = CLS_ThrowingTextTask::Make([] {}, 1);
    PoolView::AddToLoopTasks(clsPool, strTaskId);
    GetTask(strTaskId)->SetTaskStatus(TASK_STATUS_RUNNING);
    {
        const CLS_FastSleep clsFast;
        (clsPool.*GetParam())(strTaskId, "who calls");
    }
    EXPECT_THAT(LogRecorder::Take(),
                ElementsAre(IsPoolRecord(3, "RemoveTask", "RemoveTask error [who calls]")));
    EXPECT_TRUE(PoolView::IsRegistered(strTaskId));
    EXPECT_FALSE(GetTask(strTaskId)->GetValid());
    EXPECT_THAT(PoolView::GetLoopTasks(clsPool), IsEmpty());
    GetTask(strTaskId)->SetTaskStatus(TASK_STATUS_IDLE);
}

INSTANTIATE_TEST_SUITE_P(Names, PoolRemovalByIdTest,
                         ::testing::Values(static_cast<RemoveFun>(&CLS_QuenTaskPool::RemoveTask),
                                           static_cast<RemoveFun>(&CLS_QuenTaskPool::KillTask)),
                         [](const auto& _stInfo)
                         { return std::string(_stInfo.index == 0 ? "RemoveTask" : "KillTask"); });

using PoolRemovalFailureTest = CLS_PoolFixture;

TEST_F(PoolRemovalFailureTest, StopPassesExceptionsOn)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    const std::string strTaskId = CLS_ThrowingTextTask::Make([] {}, 1);
    GetTask(strTaskId)->SetTaskStatus(TASK_STATUS_RUNNING);
    {
        const CLS_FastSleep clsFast;
        EXPECT_THROW(clsPool.StopTask(strTaskId), std::runtime_error);
        EXPECT_EQ(10U, clsFast.GetSleeps().size());
    }
    EXPECT_TRUE(PoolView::IsRegistered(strTaskId));
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
    GetTask(strTaskId)->SetTaskStatus(TASK_STATUS_IDLE);
}

TEST_F(PoolRemovalFailureTest, OwnersRemovalRecordsItAndTheRestStaysRegistered)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    int iOwner = 0;
    std::vector<std::string> vecIds;
    for (const int iThrowing : {0, 1, 0})
    {
        vecIds.push_back(CLS_ThrowingTextTask::Make([] {}, iThrowing));
        PoolView::AddOwnedTask(clsPool, vecIds.back(), &iOwner);
    }
    GetTask(vecIds[1])->SetTaskStatus(TASK_STATUS_RUNNING);
    {
        const CLS_FastSleep clsFast;
        clsPool.RemoveTmpTask(&iOwner, "who calls");
    }
    EXPECT_THAT(LogRecorder::Take(),
                ElementsAre(IsPoolRecord(3, "RemoveTmpTask", "RemoveTmpTask error [who calls]")));
    EXPECT_THAT(PoolView::GetRegistered(), ::testing::UnorderedElementsAre(vecIds[1], vecIds[2]));
    EXPECT_THAT(PoolView::GetOwned(clsPool), IsEmpty());
    EXPECT_THAT(PoolView::GetOwners(clsPool), IsEmpty());
    EXPECT_FALSE(GetTask(vecIds[2])->GetValid());
    GetTask(vecIds[1])->SetTaskStatus(TASK_STATUS_IDLE);
}
} // namespace
