#include "tests/support/ClassLayout.h"
#include "tests/support/FailingThreads.h"
#include "tests/support/PoolView.h"
#include "tests/support/RecordMatchers.h"
#include "tests/support/WatchedYields.h"
#include "tests/support/WorkerView.h"
#include "tests/unit/PoolFixture.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <list>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <shared_mutex>
#include <string>
#include <type_traits>
#include <vector>

namespace
{
using ::testing::ElementsAre;
using ::testing::IsEmpty;

using PoolWorkersTest = CLS_PoolFixture;

/// The order ids of all workers, ascending.
std::multiset<int> GetOrderIds(CLS_QuenTaskPool& _clsPool)
{
    std::multiset<int> setOrder;
    for (const auto& [pThread, strTaskId] : PoolView::CopyWorkers(_clsPool))
    {
        setOrder.insert(pThread->GetOrderId());
    }
    return setOrder;
}

/// A registered worker whose order id is changed to the given one.
CLS_TaskThread* MakeWorker(CLS_QuenTaskPool& _clsPool, int _iOrderId)
{
    CLS_TaskThread* const pThread = _clsPool.CreateTaskThread();
    pThread->SetOrderId(_iOrderId);
    return pThread;
}

/// Whether a member is the standard lock, with or without the annotations that the compiler checks.
template <typename T_Member, typename T_Lock>
constexpr bool IS_LOCK = std::is_base_of_v<T_Lock, T_Member> && sizeof(T_Member) == sizeof(T_Lock);

TEST_F(PoolWorkersTest, MembersHaveTheirTypes)
{
    using Pool = CLS_QuenTaskPool;
    EXPECT_FALSE(std::is_polymorphic_v<Pool>);
    EXPECT_FALSE(std::is_final_v<Pool>);
    EXPECT_TRUE((std::is_same_v<ClassLayout::MemberOf<PoolView::GetRunFlag>, std::atomic<bool>>));
    EXPECT_TRUE((std::is_same_v<ClassLayout::MemberOf<PoolView::GetWorkerLimit>, std::int32_t>));
    EXPECT_TRUE((std::is_same_v<ClassLayout::MemberOf<PoolView::GetQueueSignal>, std::condition_variable>));
    EXPECT_TRUE((IS_LOCK<ClassLayout::MemberOf<PoolView::GetQueueLock>, std::mutex>));
    EXPECT_TRUE((std::is_same_v<ClassLayout::MemberOf<PoolView::GetWaitingIds>, std::vector<std::string>>));
    EXPECT_TRUE((IS_LOCK<ClassLayout::MemberOf<PoolView::GetLoopListLock>, std::shared_mutex>));
    EXPECT_TRUE((std::is_same_v<ClassLayout::MemberOf<PoolView::GetLoopIds>, std::vector<std::string>>));
    EXPECT_TRUE((IS_LOCK<ClassLayout::MemberOf<PoolView::GetOwnerLock>, std::mutex>));
    EXPECT_TRUE((std::is_same_v<ClassLayout::MemberOf<PoolView::GetOwnerLists>,
                                std::map<void*, std::list<std::string>>>));
    EXPECT_TRUE(
        (std::is_same_v<ClassLayout::MemberOf<PoolView::GetTaskOwners>, std::map<std::string, void*>>));
    EXPECT_TRUE((IS_LOCK<ClassLayout::MemberOf<PoolView::GetIdleLock>, std::mutex>));
    EXPECT_TRUE(
        (std::is_same_v<ClassLayout::MemberOf<PoolView::GetIdleWorkers>, std::vector<CLS_TaskThread*>>));
    EXPECT_TRUE((IS_LOCK<ClassLayout::MemberOf<PoolView::GetWorkerLock>, std::shared_mutex>));
    EXPECT_TRUE((
        std::is_same_v<ClassLayout::MemberOf<PoolView::GetWorkers>, std::map<CLS_TaskThread*, std::string>>));
    EXPECT_TRUE((std::is_same_v<decltype(Pool::m_pInstance), Pool*>));
    EXPECT_TRUE((std::is_same_v<decltype(&Pool::GetTaskThreadNum), std::int32_t (Pool::*)()>));
}

TEST_F(PoolWorkersTest, MembersAreDeclaredInOrder)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    const ClassLayout::Members vecMembers = PoolView::ListMembers(clsPool);
    EXPECT_EQ(17U, vecMembers.size());
    EXPECT_TRUE(ClassLayout::AreInOrder(vecMembers));
}

TEST_F(PoolWorkersTest, FreshPoolHasItsInitialValues)
{
    EXPECT_EQ(nullptr, CLS_QuenTaskPool::m_pInstance);
    CLS_QuenTaskPool& clsPool = MakePool();
    EXPECT_TRUE(PoolView::GetRunFlag(clsPool));
    EXPECT_EQ(300, PoolView::GetWorkerLimit(clsPool));
    ASSERT_TRUE(PoolView::GetDispatcher(clsPool) && PoolView::GetLoopScheduler(clsPool) &&
                PoolView::GetWatchdog(clsPool));
    EXPECT_TRUE(PoolView::GetDispatcher(clsPool)->joinable());
    EXPECT_TRUE(PoolView::GetLoopScheduler(clsPool)->joinable());
    EXPECT_TRUE(PoolView::GetWatchdog(clsPool)->joinable());
    EXPECT_THAT(PoolView::GetWaitingIds(clsPool), IsEmpty());
    EXPECT_THAT(PoolView::GetLoopIds(clsPool), IsEmpty());
    EXPECT_THAT(PoolView::GetOwnerLists(clsPool), IsEmpty());
    EXPECT_THAT(PoolView::GetTaskOwners(clsPool), IsEmpty());
    EXPECT_THAT(PoolView::GetIdleWorkers(clsPool), IsEmpty());
    EXPECT_THAT(PoolView::GetWorkers(clsPool), IsEmpty());
    EXPECT_EQ(0, clsPool.GetTaskThreadNum());
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

TEST_F(PoolWorkersTest, FirstTaskMakesTheWorkerWithOrderIdZero)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    EXPECT_EQ(0, clsPool.GetTaskThreadNum());
    CLS_Gate clsRan;
    int iOwner = 0;
    ASSERT_TRUE(clsPool.AddTmpTask([&] { clsRan.Open(); }, &iOwner, "call"));
    ASSERT_TRUE(clsRan.Wait());
    ASSERT_TRUE(WaitForIdle(clsPool, 1));
    EXPECT_THAT(GetIdleOrder(clsPool), ElementsAre(0));
    EXPECT_EQ(1, clsPool.GetTaskThreadNum());
}

TEST_F(PoolWorkersTest, NewWorkersAreNumberedAndNeitherBoundNorIdleListed)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    for (int i = 0; i < 3; ++i)
    {
        CLS_TaskThread* const pThread = clsPool.CreateTaskThread();
        ASSERT_NE(nullptr, pThread);
        EXPECT_EQ(i, pThread->GetOrderId());
        EXPECT_EQ(i + 1, clsPool.GetTaskThreadNum());
        ASSERT_EQ(1U, PoolView::GetWorkers(clsPool).count(pThread));
        EXPECT_EQ("", PoolView::GetWorkers(clsPool)[pThread]);
        const std::lock_guard<std::mutex> lock(WorkerView::GetJobLock(*pThread));
        EXPECT_FALSE(WorkerView::GetJob(*pThread));
    }
    EXPECT_THAT(PoolView::GetIdleWorkers(clsPool), IsEmpty());
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

TEST_F(PoolWorkersTest, IdleWorkerWithTheLowestOrderIdComesFirst)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    for (const int iOrderId : {4, 1, 7})
    {
        PoolView::AddIdleWorker(clsPool, MakeWorker(clsPool, iOrderId));
    }
    CLS_TaskThread* const pFirst = clsPool.GetTaskThread();
    ASSERT_NE(nullptr, pFirst);
    EXPECT_EQ(1, pFirst->GetOrderId());
    EXPECT_THAT(GetIdleOrder(clsPool), ElementsAre(4, 7));
    EXPECT_EQ(4, clsPool.GetTaskThread()->GetOrderId());
    EXPECT_EQ(7, clsPool.GetTaskThread()->GetOrderId());
    EXPECT_EQ(3, clsPool.GetTaskThreadNum());
}

TEST_F(PoolWorkersTest, FirstIdleWorkerIsTakenAndTheOthersKeepTheirOrder)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    // Unlike the pool's own lists, this one is not sorted. The pool takes the first slot without a search.
    for (const int iOrderId : {5, 9, 2, 6})
    {
        PoolView::GetIdleWorkers(clsPool).push_back(MakeWorker(clsPool, iOrderId));
    }
    EXPECT_EQ(5, clsPool.GetTaskThread()->GetOrderId());
    EXPECT_THAT(GetIdleOrder(clsPool), ElementsAre(9, 2, 6));
}

TEST_F(PoolWorkersTest, NewWorkerIsMadeOnlyWhenNoneIsIdle)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    CLS_TaskThread* const pThread = clsPool.GetTaskThread();
    ASSERT_NE(nullptr, pThread);
    EXPECT_EQ(1, clsPool.GetTaskThreadNum());
    PoolView::AddIdleWorker(clsPool, pThread);
    EXPECT_EQ(pThread, clsPool.GetTaskThread());
    EXPECT_EQ(1, clsPool.GetTaskThreadNum());
    EXPECT_NE(pThread, clsPool.GetTaskThread());
    EXPECT_EQ(2, clsPool.GetTaskThreadNum());
}

TEST_F(PoolWorkersTest, IdleWorkerIsTakenWithoutYielding)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    CLS_TaskThread* const pThread = clsPool.CreateTaskThread();
    PoolView::AddIdleWorker(clsPool, pThread);
    const CLS_WatchedYields clsYields;
    EXPECT_EQ(pThread, clsPool.GetTaskThread());
    EXPECT_EQ(0, clsYields.GetYields());
}

TEST_F(PoolWorkersTest, YieldsOnceWithoutALockBeforeAWorkerIsMade)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    const CLS_WatchedYields clsYields(
        [&]
        {
            EXPECT_EQ(0, clsPool.GetTaskThreadNum());
            EXPECT_TRUE(PoolView::AreLocksFree(clsPool));
        });
    EXPECT_NE(nullptr, clsPool.GetTaskThread());
    EXPECT_EQ(1, clsYields.GetYields());
    EXPECT_EQ(1, clsPool.GetTaskThreadNum());
}

TEST_F(PoolWorkersTest, WorkerThatReturnsMeanwhileIsTakenAndNoneIsMade)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    CLS_TaskThread* const pThread = clsPool.CreateTaskThread();
    const CLS_WatchedYields clsYields([&] { PoolView::AddIdleWorker(clsPool, pThread); });
    EXPECT_EQ(pThread, clsPool.GetTaskThread());
    EXPECT_EQ(1, clsYields.GetYields());
    EXPECT_EQ(1, clsPool.GetTaskThreadNum());
    EXPECT_THAT(GetIdleOrder(clsPool), IsEmpty());
}

// Pins docs/limits.md, "At most 301 workers".
TEST_F(PoolWorkersTest, LimitIsExceededByOneWorkerAndThenNullIsReturnedSilently)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    for (int i = 0; i <= 300; ++i)
    {
        CLS_TaskThread* const pThread = clsPool.GetTaskThread();
        ASSERT_NE(nullptr, pThread) << i;
        EXPECT_EQ(i, pThread->GetOrderId());
    }
    EXPECT_EQ(301, clsPool.GetTaskThreadNum());
    EXPECT_EQ(nullptr, clsPool.GetTaskThread());
    EXPECT_EQ(301, clsPool.GetTaskThreadNum());
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

TEST_F(PoolWorkersTest, IdleWorkerIsHandedOutAtTheLimit)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    CLS_TaskThread* const pThread = clsPool.CreateTaskThread();
    PoolView::GetWorkerLimit(clsPool) = 0;
    EXPECT_EQ(nullptr, clsPool.GetTaskThread());
    PoolView::AddIdleWorker(clsPool, pThread);
    EXPECT_EQ(pThread, clsPool.GetTaskThread());
}

// Pins docs/limits.md, "Worker numbers are reused".
TEST_F(PoolWorkersTest, OrderIdIsReusedAfterARetirement)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    std::vector<CLS_TaskThread*> vecWorkers;
    for (int i = 0; i < 3; ++i)
    {
        vecWorkers.push_back(clsPool.CreateTaskThread());
    }
    PoolView::RetireWorker(clsPool, vecWorkers[1]);
    EXPECT_EQ(2, clsPool.GetTaskThreadNum());
    CLS_TaskThread* const pNew = clsPool.CreateTaskThread();
    EXPECT_EQ(2, pNew->GetOrderId());
    EXPECT_NE(vecWorkers[2], pNew);
    EXPECT_THAT(GetOrderIds(clsPool), ElementsAre(0, 2, 2));
}

TEST_F(PoolWorkersTest, FailureToMakeAWorkerIsLoggedAndReturnsNull)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    {
        const CLS_FailingThreads clsFailing(1);
        EXPECT_EQ(nullptr, clsPool.CreateTaskThread());
    }
    EXPECT_THAT(LogRecorder::Take(),
                ElementsAre(IsPoolRecord(3, "CreateTaskThread", "create task thread error")));
    {
        const CLS_FailingThreads clsFailing(1);
        EXPECT_EQ(nullptr, clsPool.GetTaskThread());
    }
    EXPECT_THAT(LogRecorder::Take(),
                ElementsAre(IsPoolRecord(3, "CreateTaskThread", "create task thread error")));
    EXPECT_EQ(0, clsPool.GetTaskThreadNum());
    EXPECT_THAT(GetIdleOrder(clsPool), IsEmpty());

    CLS_TaskThread* const pThread = clsPool.GetTaskThread();
    ASSERT_NE(nullptr, pThread);
    EXPECT_EQ(0, pThread->GetOrderId());
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

#ifdef __GLIBCXX__
// With other C++ libraries, locking a shared mutex twice on one thread does not fail but waits forever.
TEST_F(PoolWorkersTest, WorkerThatCannotBeRegisteredIsLoggedAndReturned)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    std::unique_lock<std::shared_mutex> lock(PoolView::GetWorkerLock(clsPool));
    const std::unique_ptr<CLS_TaskThread> pThread(clsPool.CreateTaskThread());
    lock.unlock();
    ASSERT_NE(nullptr, pThread);
    EXPECT_EQ(-1, pThread->GetOrderId());
    EXPECT_EQ(0, clsPool.GetTaskThreadNum());
    EXPECT_THAT(LogRecorder::Take(),
                ElementsAre(IsPoolRecord(3, "CreateTaskThread", "create task thread error")));
    CLS_Gate clsRan;
    pThread->AddFunction([&](CLS_TaskThread*) { clsRan.Open(); });
    EXPECT_TRUE(clsRan.Wait());
}
#endif

TEST_F(PoolWorkersTest, CountsWorkersUnderASharedLock)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    clsPool.CreateTaskThread();
    std::shared_lock<std::shared_mutex> lock(PoolView::GetWorkerLock(clsPool));
    auto futCount = std::async(std::launch::async, [&] { return clsPool.GetTaskThreadNum(); });
    EXPECT_EQ(std::future_status::ready, futCount.wait_for(WAIT_LIMIT));
    lock.unlock();
    EXPECT_EQ(1, futCount.get());
}

TEST_F(PoolWorkersTest, IdleListIsSortedByOrderIdWithEachReturn)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    constexpr int WORKERS = 60;
    std::vector<int> vecOrder;
    for (int i = 0; i < WORKERS; ++i)
    {
        vecOrder.push_back(i / 3); // each order id three times
    }
    std::shuffle(vecOrder.begin(), vecOrder.end(), std::mt19937(7)); // any order, but the same each time
    std::vector<int> vecExpected;
    for (const int iOrderId : vecOrder)
    {
        PoolView::AddIdleWorker(clsPool, MakeWorker(clsPool, iOrderId));
        vecExpected.insert(std::upper_bound(vecExpected.begin(), vecExpected.end(), iOrderId), iOrderId);
        ASSERT_EQ(vecExpected, GetIdleOrder(clsPool));
    }
    const std::set<CLS_TaskThread*> setIdle(PoolView::GetIdleWorkers(clsPool).begin(),
                                            PoolView::GetIdleWorkers(clsPool).end());
    EXPECT_EQ(static_cast<std::size_t>(WORKERS), setIdle.size());
}

TEST_F(PoolWorkersTest, WorkerReturnsBehindThoseWithItsOrderIdAndBeforeTheNext)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    std::vector<CLS_TaskThread*> vecWorkers;
    for (const int iOrderId : {5, 5, 9, 1, 5, 1, 9, 7})
    {
        vecWorkers.push_back(MakeWorker(clsPool, iOrderId));
        PoolView::AddIdleWorker(clsPool, vecWorkers.back());
    }
    EXPECT_THAT(GetIdleOrder(clsPool), ElementsAre(1, 1, 5, 5, 5, 7, 9, 9));
    EXPECT_THAT(PoolView::GetIdleWorkers(clsPool),
                ElementsAre(vecWorkers[3], vecWorkers[5], vecWorkers[0], vecWorkers[1], vecWorkers[4],
                            vecWorkers[7], vecWorkers[2], vecWorkers[6]));
}

TEST_F(PoolWorkersTest, EmptySlotSortsNeitherBeforeNorAfterAWorker)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    PoolView::GetIdleWorkers(clsPool) = {nullptr};
    PoolView::AddIdleWorker(clsPool, MakeWorker(clsPool, 1));
    EXPECT_THAT(GetIdleOrder(clsPool), ElementsAre(-1, 1));
    PoolView::GetIdleWorkers(clsPool) = {PoolView::GetIdleWorkers(clsPool)[1], nullptr};
    PoolView::AddIdleWorker(clsPool, MakeWorker(clsPool, 2));
    EXPECT_THAT(GetIdleOrder(clsPool), ElementsAre(1, -1, 2));
    PoolView::GetIdleWorkers(clsPool).clear();
}
} // namespace
