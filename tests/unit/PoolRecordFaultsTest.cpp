#include "tests/support/FailingRecords.h"
#include "tests/support/PoolView.h"
#include "tests/support/RunGateView.h"
#include "tests/support/ThrowingTextTask.h"
#include "tests/unit/PoolFixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace
{
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

using PoolRecordFaultsTest = CLS_PoolFixture;

TEST_F(PoolRecordFaultsTest, RunWhoseFailureCannotBeLoggedStillEnds)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    CLS_TaskThread* const pThread = clsPool.CreateTaskThread();
    std::string strTaskId = CLS_ThrowingTextTask::Make([] { ADD_FAILURE(); }, 1);
    const std::shared_ptr<CLS_Task> pTask = CLS_Task::GetTask(strTaskId).lock();
    PoolView::BindTask(clsPool, pThread, strTaskId);
    pTask->SetTaskIsWaiting();
    {
        const CLS_FailingRecords clsFailing;
        EXPECT_NO_THROW(clsPool.FunRunTask(pThread));
        EXPECT_EQ(1, clsFailing.GetFailures());
    }
    EXPECT_EQ(TASK_STATUS_IDLE, pTask->GetTaskStatus());
    EXPECT_FALSE(RunGateView::IsRunning(pThread->GetRunGate()));
    EXPECT_THAT(PoolView::GetWorkers(clsPool), ElementsAre(Pair(pThread, "")));
    EXPECT_THAT(PoolView::GetIdleWorkers(clsPool), ElementsAre(pThread));
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}
} // namespace
