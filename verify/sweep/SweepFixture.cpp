#include "verify/sweep/SweepFixture.h"

#include "tests/support/PoolView.h"

#include <iostream>
#include <set>

namespace
{
int g_iOperations = 0;
int g_iPoints = 0;

/// Prints the totals of all sweeps at the end of the program.
class CLS_SweepReport : public ::testing::Environment
{
public:
    void TearDown() override
    {
        std::cout << "swept in all: " << g_iPoints << " points of " << g_iOperations << " operations"
                  << std::endl;
    }
};

// GoogleTest destroys it.
const ::testing::Environment* const REPORT = ::testing::AddGlobalTestEnvironment(new CLS_SweepReport);

void Report(const std::string& _strOperation, int _iPoints)
{
    std::cout << "swept " << _strOperation << ": " << _iPoints << " points" << std::endl;
    ++g_iOperations;
    g_iPoints += _iPoints;
}

/// The ids in the queue. Expects each of them only once.
std::set<std::string> GetQueued(CLS_QuenTaskPool& _clsPool)
{
    std::set<std::string> setQueued;
    for (const std::string& strTaskId : PoolView::GetQueue(_clsPool))
    {
        EXPECT_TRUE(setQueued.insert(strTaskId).second) << "queued twice";
    }
    return setQueued;
}

void ExpectOwnersAgree(CLS_QuenTaskPool& _clsPool)
{
    const std::map<std::string, void*> mapOwners = PoolView::GetOwners(_clsPool);
    std::map<std::string, void*> mapExpected;
    std::set<void*> setExpected;
    for (const auto& [pOwner, lstTaskIds] : PoolView::GetOwned(_clsPool))
    {
        EXPECT_FALSE(lstTaskIds.empty()) << "an owner without tasks";
        setExpected.insert(pOwner);
        for (const std::string& strTaskId : lstTaskIds)
        {
            EXPECT_TRUE(mapExpected.emplace(strTaskId, pOwner).second) << "owned twice";
        }
    }
    EXPECT_EQ(mapExpected, mapOwners);
    EXPECT_EQ(setExpected, PoolView::GetCursorOwners(_clsPool));
}

void ExpectRegistryAgrees(const std::set<std::string>& _setQueued)
{
    const std::shared_lock<std::shared_mutex> lock(CLS_Task::m_smTaskDataLock);
    for (const auto& [strTaskId, pTask] : CLS_Task::m_mapTaskData)
    {
        ASSERT_NE(nullptr, pTask);
        EXPECT_EQ(strTaskId, pTask->GetId());
        EXPECT_EQ(_setQueued.count(strTaskId) > 0, pTask->GetTaskStatus() == TASK_STATUS_WAITING);
    }
}

void ExpectWorkersAgree(CLS_QuenTaskPool& _clsPool)
{
    const std::lock_guard<std::mutex> lock(PoolView::GetIdleLock(_clsPool));
    int iLastOrder = -1;
    for (CLS_TaskThread* const pThread : PoolView::GetIdleWorkers(_clsPool))
    {
        EXPECT_LT(iLastOrder, pThread->GetOrderId());
        iLastOrder = pThread->GetOrderId();
        const std::shared_lock<std::shared_mutex> lockWorkers(PoolView::GetWorkerLock(_clsPool));
        ASSERT_EQ(1U, PoolView::GetWorkers(_clsPool).count(pThread));
        EXPECT_EQ("", PoolView::GetWorkers(_clsPool).at(pThread));
    }
}
} // namespace

bool CLS_SweepPoint::Fail(const std::function<void()>& _funOperate, std::thread::id _idThread)
{
    FailingMemory::FailAt(m_iAllocation, _idThread);
    EXPECT_NO_THROW(_funOperate());
    m_bFailed = FailingMemory::Stop();
    return m_bFailed;
}

bool CLS_SweepPoint::FailAndThrow(const std::function<void()>& _funOperate)
{
    bool bThrown = false;
    FailAndPerhapsThrow(_funOperate, bThrown);
    EXPECT_EQ(m_bFailed, bThrown);
    return m_bFailed;
}

bool CLS_SweepPoint::FailAndPerhapsThrow(const std::function<void()>& _funOperate, bool& _bThrown)
{
    return Fail(
        [&]
        {
            try
            {
                _funOperate();
            }
            catch (const std::bad_alloc&)
            {
                _bThrown = true;
            }
        });
}

void CLS_SweepFixture::SetUp()
{
    CLS_ShutdownFixture::SetUp();
    // Binds the logging library and starts what a sanitizer needs, so that no point lies there.
    ::testing::internal::CaptureStdout();
    Logger::GetModuleFun("PrintLog", "");
    ::testing::internal::GetCapturedStdout();
    CountThreads();
}

void CLS_SweepFixture::TearDown()
{
    FailingMemory::Stop();
    CLS_ShutdownFixture::TearDown();
}

void CLS_SweepFixture::CleanUp()
{
    CLS_ShutdownFixture::TearDown();
}

void CLS_SweepFixture::Sweep(const std::string& _strOperation, int _iLeastPoints,
                             const std::function<void(CLS_SweepPoint&)>& _funAttempt)
{
    long iLive = 0;
    for (int iAllocation = 0;; ++iAllocation)
    {
        CLS_SweepPoint clsPoint(iAllocation);
        {
            SCOPED_TRACE("allocation " + std::to_string(iAllocation));
            _funAttempt(clsPoint);
            CleanUp();
        }
        ASSERT_FALSE(HasFailure()) << "at allocation " << iAllocation;
        if (iAllocation == 0)
        {
            // In the first attempt, no allocation fails. It allocates what is allocated once per process.
            iLive = FailingMemory::GetLiveBlocks();
            continue;
        }
        ASSERT_TRUE(WaitUntil([iLive] { return FailingMemory::GetLiveBlocks() == iLive; }))
            << "allocation " << iAllocation << ": " << FailingMemory::GetLiveBlocks() - iLive
            << " blocks are left";
        if (!clsPoint.HasFailed())
        {
            Report(_strOperation, iAllocation - 1);
            EXPECT_GE(iAllocation - 1, FailingMemory::REACHES_ALL ? _iLeastPoints : 0);
            return;
        }
    }
}

void CLS_SweepFixture::ExpectConsistent(CLS_QuenTaskPool& _clsPool)
{
    const std::set<std::string> setQueued = GetQueued(_clsPool);
    for (const std::string& strTaskId : setQueued)
    {
        EXPECT_TRUE(PoolView::IsRegistered(strTaskId));
    }
    for (const std::string& strTaskId : PoolView::GetLoopTasks(_clsPool))
    {
        EXPECT_TRUE(PoolView::IsRegistered(strTaskId));
    }
    ExpectOwnersAgree(_clsPool);
    ExpectRegistryAgrees(setQueued);
    ExpectWorkersAgree(_clsPool);
}

bool CLS_SweepFixture::RunsATask(CLS_QuenTaskPool& _clsPool)
{
    CLS_Gate clsRan;
    const bool bAdded = _clsPool.AddTmpTask([&clsRan] { clsRan.Open(); }, this, CALL);
    PoolView::RunDispatchPass(_clsPool);
    return bAdded && clsRan.Wait() && PoolView::WaitForAllIdle(_clsPool);
}
