#include "QuenPlugins/ZelTaskPool/CLS_TaskThread.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/NextFunction.h"
#include "tests/support/RecordMatchers.h"
#include "tests/support/ThreadFixture.h"
#include "tests/support/Waiting.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <system_error>

/// Replaces the system's function of the same name. It also refuses a thread that joins itself. A sanitizer
/// must not see that call: it would forget the thread and fail at the next join.
extern "C" int pthread_join(pthread_t _idThread, void** _pResult)
{
    static auto* const s_pJoin = GetNextFunction<decltype(pthread_join)>("pthread_join");
    return pthread_equal(_idThread, pthread_self()) != 0 ? EDEADLK : s_pJoin(_idThread, _pResult);
}

namespace
{
using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// Operations that a worker must not call on itself.
using TaskThreadSelfTest = CLS_ThreadFixture;
using TaskThreadSelfDeathTest = CLS_ThreadFixture;

// Pins docs/limits.md, "A worker that ends itself".
TEST_F(TaskThreadSelfTest, ExitFromTheWorkersOwnThreadFailsAndEndsTheWorker)
{
    CLS_TaskThread clsWorker;
    CLS_Gate clsFailed;
    std::error_code clsCode;
    EXPECT_TRUE(clsWorker.AddFunction(
        [&](CLS_TaskThread* _pWorker)
        {
            try
            {
                _pWorker->Exit();
            }
            catch (const std::system_error& exError)
            {
                clsCode = exError.code();
                clsFailed.Open();
            }
        }));
    ASSERT_TRUE(clsFailed.Wait());
    EXPECT_TRUE(clsWorker.Exit());
    EXPECT_EQ(std::errc::resource_deadlock_would_occur, clsCode);
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

TEST_F(TaskThreadSelfTest, ExitThatFailsInAJobIsRecordedAsTheJobsFailure)
{
    CLS_TaskThread clsWorker;
    std::atomic<int> iCalls{0};
    EXPECT_TRUE(clsWorker.AddFunction(
        [&](CLS_TaskThread* _pWorker)
        {
            ++iCalls;
            _pWorker->Exit();
        }));
    EXPECT_TRUE(WaitUntil([&] { return iCalls > 0; }));
    EXPECT_TRUE(clsWorker.Exit());
    EXPECT_EQ(1, iCalls);
    EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsThreadRecord(3, "FunTask", "thread handler error - -1")));
}

// Pins docs/limits.md, "A worker that ends itself".
TEST_F(TaskThreadSelfDeathTest, DestructionFromTheWorkersOwnThreadEndsTheProcess)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            auto* const pWorker = new CLS_TaskThread;
            pWorker->AddFunction([](CLS_TaskThread* _pWorker) { delete _pWorker; });
            CLS_Gate clsNever;
            EXPECT_TRUE(clsNever.Wait());
        },
        ::testing::KilledBySignal(SIGABRT), "");
}
} // namespace
