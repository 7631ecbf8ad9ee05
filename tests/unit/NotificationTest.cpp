// The changes that notify a waiting thread, and the lock they hold.

#include "tests/support/CutWaits.h"
#include "tests/support/PoolView.h"
#include "tests/support/RunGateView.h"
#include "tests/support/WorkerView.h"
#include "tests/unit/PoolFixture.h"

#include <chrono>
#include <gtest/gtest.h>
#include <mutex>
#include <thread>

namespace
{
using NotificationTest = CLS_PoolFixture;

/// Whether some thread holds the mutex.
bool IsHeld(std::mutex& _mtxAny)
{
    bool bHeld = true;
    std::thread(
        [&]
        {
            if (_mtxAny.try_lock())
            {
                _mtxAny.unlock();
                bHeld = false;
            }
        })
        .join();
    return bHeld;
}

TEST_F(NotificationTest, EachQueuedTaskIsNotifiedOnceWithTheQueuesMutexHeld)
{
    // No thread waits for the queue. So only the thread that fills it takes the mutex.
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    const std::string strTaskId = MakeTask([] {});
    const CLS_CutWaits clsWaits(PoolView::GetQueueSignal(clsPool),
                                [&] { EXPECT_TRUE(IsHeld(PoolView::GetQueueLock(clsPool))); });
    clsPool.AddWaitingTasks("unknown");
    EXPECT_EQ(0, clsWaits.GetNotifications());
    clsPool.AddWaitingTasks(strTaskId);
    EXPECT_EQ(1, clsWaits.GetNotifications());
    clsPool.AddWaitingTasks(strTaskId);
    EXPECT_EQ(2, clsWaits.GetNotifications());
    EXPECT_FALSE(IsHeld(PoolView::GetQueueLock(clsPool)));
}

TEST_F(NotificationTest, StepsOfAWorkerAreNotifiedOnceItsGateIsClosed)
{
    CLS_RunGate clsGate;
    const CLS_CutWaits clsWaits(RunGateView::GetSignal(clsGate),
                                [&] { EXPECT_TRUE(IsHeld(RunGateView::GetLock(clsGate))); });
    for (const bool bClosed : {false, true})
    {
        int iExpected = 0;
        const auto funExpect = [&](const char* _szStep)
        {
            iExpected += bClosed ? 1 : 0;
            EXPECT_EQ(iExpected, clsWaits.GetNotifications()) << _szStep;
        };
        EXPECT_TRUE(!bClosed || clsGate.Close(std::chrono::steady_clock::now()));
        {
            const CLS_RunGate::CLS_JobScope clsJob(clsGate);
            funExpect("job begun");
            {
                const CLS_RunGate::CLS_PoolVisit clsPool(clsGate);
                funExpect("pool entered");
                EXPECT_EQ(!bClosed, clsGate.EnterRun());
                funExpect("run entered");
                clsGate.LeaveRun();
                funExpect("run left");
            }
            funExpect("pool left");
        }
        funExpect("job over");
    }
}

TEST_F(NotificationTest, EachJobIsNotifiedOnceWithItsMutexHeld)
{
    // The worker's thread has ended. So only a thread that hands over jobs takes the mutex.
    CLS_TaskThread clsWorker;
    EXPECT_TRUE(clsWorker.Exit());
    const CLS_CutWaits clsWaits(WorkerView::GetJobSignal(clsWorker),
                                [&] { EXPECT_TRUE(IsHeld(WorkerView::GetJobLock(clsWorker))); });
    EXPECT_TRUE(clsWorker.AddFunction([](CLS_TaskThread*) {}));
    EXPECT_EQ(1, clsWaits.GetNotifications());
    EXPECT_TRUE(clsWorker.AddFunction([](CLS_TaskThread*) {}));
    EXPECT_EQ(2, clsWaits.GetNotifications());
    EXPECT_FALSE(IsHeld(WorkerView::GetJobLock(clsWorker)));
}
} // namespace
