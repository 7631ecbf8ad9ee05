#include "tests/support/NextFunction.h"
#include "tests/support/PoolView.h"
#include "tests/unit/PoolFixture.h"

#include <atomic>
#include <chrono>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <thread>
#include <unistd.h>
#ifdef __linux__
#include <sys/syscall.h>
#endif

namespace
{
using std::chrono::seconds;
using ::testing::AllOf;
using ::testing::Ge;
using ::testing::IsEmpty;
using ::testing::Le;

using DispatcherWakeTest = CLS_PoolFixture;

#ifdef __APPLE__
/// The number of timed waits that the dispatcher's thread has begun. The system does not report how often a
/// thread has gone to sleep.
std::atomic<int> g_iWaits{0};
thread_local bool t_bDispatcher = false;

void NoteDispatcher()
{
    t_bDispatcher = true;
}

int CountSleeps()
{
    return g_iWaits;
}
#else
std::atomic<pid_t> g_iDispatcher{0};

void NoteDispatcher()
{
    g_iDispatcher = static_cast<pid_t>(syscall(SYS_gettid));
}

/// How often the dispatcher's thread has gone to sleep; 0 if unknown.
int CountSleeps()
{
    std::ifstream fsStatus("/proc/self/task/" + std::to_string(g_iDispatcher) + "/status");
    std::string strName;
    int iCount = 0;
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
#endif

/// Whether the dispatcher has slept for longer than two checks take.
bool IsAsleep()
{
    const int iBefore = CountSleeps();
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    return iBefore > 0 && CountSleeps() == iBefore;
}
} // namespace

#ifdef __APPLE__
/// Replaces the system's function of the same name.
extern "C" int pthread_cond_timedwait(pthread_cond_t* _pCondition, pthread_mutex_t* _pMutex,
                                      const timespec* _pEnd)
{
    static auto* const s_pWait = GetNextFunction<decltype(pthread_cond_timedwait)>("pthread_cond_timedwait");
    g_iWaits += t_bDispatcher ? 1 : 0;
    return s_pWait(_pCondition, _pMutex, _pEnd);
}
#endif

namespace
{
TEST_F(DispatcherWakeTest, WakesOnceASecondWhileNothingIsQueuedAndDispatchesNothing)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    PoolView::GetDispatcher(clsPool) = std::make_unique<std::thread>(
        [&]
        {
            NoteDispatcher();
            clsPool.FunTaskingThread();
        });
    ASSERT_TRUE(WaitUntil([] { return IsAsleep(); }));
    const int iBefore = CountSleeps();
    std::this_thread::sleep_for(seconds(5));
    EXPECT_THAT(CountSleeps() - iBefore, AllOf(Ge(4), Le(8)));
    EXPECT_EQ(0, clsPool.GetTaskThreadNum());
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());

    CLS_Gate clsRan;
    clsPool.AddWaitingTasks(MakeTask([&] { clsRan.Open(); }));
    EXPECT_TRUE(clsRan.Wait());
    EXPECT_TRUE(WaitForIdle(clsPool, 1));
}
} // namespace
