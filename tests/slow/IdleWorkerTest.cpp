#include "QuenPlugins/ZelTaskPool/CLS_TaskThread.h"
#include "tests/support/ThreadFixture.h"
#include "tests/support/Waiting.h"
#include "tests/support/WorkerView.h"

#include <chrono>
#include <gtest/gtest.h>

namespace
{
using std::chrono::hours;
using std::chrono::steady_clock;

using IdleWorkerTest = CLS_ThreadFixture;

TEST_F(IdleWorkerTest, ChecksForAJobAndForItsEndWithoutAWakeUp)
{
    CLS_TaskThread clsWorker;
    CLS_TaskThread clsEnding;
    const steady_clock::time_point tpMarker = steady_clock::now() - hours(1);
    const auto funIsPassOver = [&](CLS_TaskThread& _clsWorker)
    { return WaitUntil([&] { return WorkerView::GetLastActive(_clsWorker).load() != tpMarker; }); };
    for (CLS_TaskThread* pWorker : {&clsWorker, &clsEnding})
    {
        WorkerView::GetLastActive(*pWorker) = tpMarker;
        EXPECT_TRUE(pWorker->AddFunction([](CLS_TaskThread*) {}));
        EXPECT_TRUE(funIsPassOver(*pWorker)); // the worker now waits for the next job
        WorkerView::GetLastActive(*pWorker) = tpMarker;
    }
    CLS_Gate clsRan;
    steady_clock::time_point tpSeen;
    {
        const std::lock_guard<std::mutex> lock(WorkerView::GetJobLock(clsWorker));
        WorkerView::GetJob(clsWorker) = [&](CLS_TaskThread*)
        {
            tpSeen = WorkerView::GetLastActive(clsWorker);
            clsRan.Open();
        };
    }
    WorkerView::GetRunFlag(clsEnding) = false;
    WorkerView::GetThread(clsEnding)->join();
    EXPECT_TRUE(clsRan.Wait());
    EXPECT_EQ(tpMarker, tpSeen);                                      // a wake-up is not activity
    EXPECT_EQ(tpMarker, WorkerView::GetLastActive(clsEnding).load()); // nor is the worker's end
}
} // namespace
