#include "tests/unit/PoolFixture.h"

#include <atomic>
#include <chrono>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <sys/syscall.h>
#include <sys/types.h>
#include <thread>
#include <unistd.h>

namespace
{
using std::chrono::seconds;
using ::testing::AllOf;
using ::testing::Ge;
using ::testing::IsEmpty;
using ::testing::Le;

using DispatcherWakeTest = CLS_PoolFixture;

/// How often the thread of this process has gone to sleep; -1 when it is not known.
int CountSleeps(pid_t _iThread)
{
    std::ifstream fsStatus("/proc/self/task/" + std::to_string(_iThread) + "/status");
    std::string strName;
    int iCount = -1;
    while (fsStatus >> strName)
    {
        if (strName == "voluntary_ctxt_switches:")
        {
            fsStatus >> iCount;
            break;
        }
    }
    return iCount;
}

/// Whether the thread has gone to sleep for longer than it takes to look twice.
bool IsAsleep(pid_t _iThread)
{
    const int iBefore = CountSleeps(_iThread);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    return iBefore > 0 && CountSleeps(_iThread) == iBefore;
}

TEST_F(DispatcherWakeTest, WakesOnceASecondWhileNothingIsQueuedAndDispatchesNothing)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    std::atomic<pid_t> iDispatcher{0};
    clsPool.m_pTaskingThread = std::make_unique<std::thread>(
        [&]
        {
            iDispatcher = static_cast<pid_t>(syscall(SYS_gettid));
            clsPool.FunTaskingThread();
        });
    ASSERT_TRUE(WaitUntil([&] { return iDispatcher != 0 && IsAsleep(iDispatcher); }));
    const int iBefore = CountSleeps(iDispatcher);
    std::this_thread::sleep_for(seconds(5));
    EXPECT_THAT(CountSleeps(iDispatcher) - iBefore, AllOf(Ge(4), Le(8)));
    EXPECT_EQ(0, clsPool.GetTaskThreadNum());
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());

    CLS_Gate clsRan;
    clsPool.AddWaitingTasks(MakeTask([&] { clsRan.Open(); }));
    EXPECT_TRUE(clsRan.Wait());
    EXPECT_TRUE(WaitForIdle(clsPool, 1));
}
} // namespace
