#include "QuenPlugins/ZelTaskPool/CLS_TaskThread.h"
#include "tests/support/ThreadFixture.h"
#include "tests/support/Waiting.h"

#include <chrono>
#include <gtest/gtest.h>

namespace
{
using std::chrono::hours;
using std::chrono::steady_clock;

using IdleWorkerTest = CLS_ThreadFixture;

TEST_F(IdleWorkerTest, LooksForAJobAndForItsEndThoughNobodyWakesIt)
{
    CLS_TaskThread clsWorker;
    CLS_TaskThread clsEnding;
    const steady_clock::time_point tpMarker = steady_clock::now() - hours(1);
    const auto funIsPassOver = [&](CLS_TaskThread& _clsWorker)
    { return WaitUntil([&] { return _clsWorker.m_tpLastActive.load() != tpMarker; }); };
    for (CLS_TaskThread* pWorker : {&clsWorker, &clsEnding})
    {
        pWorker->m_tpLastActive = tpMarker;
        EXPECT_TRUE(pWorker->AddFunction([](CLS_TaskThread*) {}));
        EXPECT_TRUE(funIsPassOver(*pWorker)); // waits for the next job now
        pWorker->m_tpLastActive = tpMarker;
    }
    CLS_Gate clsRan;
    steady_clock::time_point tpSeen;
    {
        const std::lock_guard<std::mutex> lock(clsWorker.m_mtxFunction);
        clsWorker.m_funFunction = [&](CLS_TaskThread*)
        {
            tpSeen = clsWorker.m_tpLastActive;
            clsRan.Open();
        };
    }
    clsEnding.m_bRun = false;
    clsEnding.m_pThread->join();
    EXPECT_TRUE(clsRan.Wait());
    EXPECT_EQ(tpMarker, tpSeen);                          // waking up is no activity
    EXPECT_EQ(tpMarker, clsEnding.m_tpLastActive.load()); // nor is ending
}
} // namespace
