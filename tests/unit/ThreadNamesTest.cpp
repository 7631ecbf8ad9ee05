#include "QuenInclude/Util.h"
#include "tests/support/PoolView.h"
#include "tests/support/WorkerView.h"
#include "tests/unit/PoolFixture.h"

#include <array>
#include <gtest/gtest.h>
#include <mutex>
#include <pthread.h>
#include <set>
#include <string>
#include <thread>

namespace
{
using ThreadNamesTest = CLS_PoolFixture;

/// The thread's name as the system shows it.
std::string GetThreadName(std::thread::native_handle_type _idThread)
{
    std::array<char, 64> arrName{};
    EXPECT_EQ(0, pthread_getname_np(_idThread, arrName.data(), arrName.size()));
    return arrName.data();
}

/// Whether the thread gets the name within the limit. A thread names itself when it starts.
bool WaitForName(std::thread& _thread, const std::string& _strName)
{
    return WaitUntil([&] { return GetThreadName(_thread.native_handle()) == _strName; });
}

/// Lets the worker run a job, and returns the name that its thread has during the job.
std::string GetNameInJob(CLS_TaskThread& _clsWorker)
{
    std::string strName;
    CLS_Gate clsRan;
    EXPECT_TRUE(_clsWorker.AddFunction(
        [&](CLS_TaskThread*)
        {
            strName = GetThreadName(pthread_self());
            clsRan.Open();
        }));
    EXPECT_TRUE(clsRan.Wait());
    return strName;
}

TEST_F(ThreadNamesTest, TheCallingThreadIsNamed)
{
    std::string strLonger;
    std::string strOther;
    std::thread(
        [&]
        {
            Util::SetThreadName("fifteen-letters");
            strLonger = GetThreadName(pthread_self());
            Util::SetThreadName("other");
            strOther = GetThreadName(pthread_self());
        })
        .join();
    EXPECT_EQ("fifteen-letters", strLonger);
    EXPECT_EQ("other", strOther);
}

TEST_F(ThreadNamesTest, ServiceThreadsAreNamedAfterTheirWork)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    EXPECT_TRUE(WaitForName(*PoolView::GetDispatcher(clsPool), "zel-dispatcher"));
    EXPECT_TRUE(WaitForName(*PoolView::GetLoopScheduler(clsPool), "zel-loops"));
    EXPECT_TRUE(WaitForName(*PoolView::GetWatchdog(clsPool), "zel-watchdog"));
}

TEST_F(ThreadNamesTest, EveryWorkerShowsItsOrderIdBeforeItsFirstTaskRuns)
{
    constexpr int WORKERS = 30;
    CLS_QuenTaskPool& clsPool = MakePool();
    std::mutex mtxNames;
    std::set<std::string> setNames;
    CLS_Counter clsNamed;
    CLS_Gate clsEnd;
    int iOwner = 0;
    for (int i = 0; i < WORKERS; ++i)
    {
        EXPECT_TRUE(clsPool.AddTmpTask(
            [&]
            {
                {
                    const std::lock_guard<std::mutex> lock(mtxNames);
                    setNames.insert(GetThreadName(pthread_self()));
                }
                clsNamed.Add();
                EXPECT_TRUE(clsEnd.Wait());
            },
            &iOwner, "call"));
    }
    EXPECT_TRUE(clsNamed.Wait(WORKERS));
    clsEnd.Open();
    EXPECT_TRUE(WaitForIdle(clsPool, WORKERS));

    std::set<std::string> setExpected;
    for (int i = 0; i < WORKERS; ++i)
    {
        setExpected.insert("zel-worker-" + std::to_string(i));
    }
    EXPECT_EQ(setExpected, setNames);
}

TEST_F(ThreadNamesTest, AWorkerIsNamedOnceAndAgainWhenItsOrderIdWasChanged)
{
    CLS_TaskThread clsWorker;
    clsWorker.SetOrderId(7);
    EXPECT_EQ("zel-worker-7", GetNameInJob(clsWorker));

    // A name that a job gives its thread stays.
    EXPECT_TRUE(clsWorker.AddFunction([](CLS_TaskThread*) { Util::SetThreadName("of-a-job"); }));
    EXPECT_TRUE(WaitForName(*WorkerView::GetThread(clsWorker), "of-a-job"));
    EXPECT_EQ("of-a-job", GetNameInJob(clsWorker));

    clsWorker.SetOrderId(8);
    EXPECT_EQ("zel-worker-8", GetNameInJob(clsWorker));
}

TEST_F(ThreadNamesTest, AnOrderIdTooLongForANameIsLeftOut)
{
    CLS_TaskThread clsWorker;
    clsWorker.SetOrderId(9999);
    EXPECT_EQ("zel-worker-9999", GetNameInJob(clsWorker));
    clsWorker.SetOrderId(10000);
    EXPECT_EQ("zel-worker-", GetNameInJob(clsWorker));
}

TEST_F(ThreadNamesTest, AWorkerWithoutAnOrderIdIsNotNamed)
{
    CLS_TaskThread clsWorker;
    EXPECT_TRUE(clsWorker.AddFunction([](CLS_TaskThread*) { Util::SetThreadName("before"); }));
    EXPECT_TRUE(WaitForName(*WorkerView::GetThread(clsWorker), "before"));
    EXPECT_EQ("before", GetNameInJob(clsWorker));
}
} // namespace
