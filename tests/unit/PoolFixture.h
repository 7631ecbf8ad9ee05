#pragma once

#include "QuenPlugins/ZelTaskPool/CLS_QuenTaskPool.h"
#include "tests/support/FastSleep.h"
#include "tests/support/PoolView.h"
#include "tests/support/TaskFixture.h"
#include "tests/support/Waiting.h"

#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

/// Base of the pool's tests. Each test starts and ends without a pool, without log records, and with an empty
/// registry. A test opens its gates before it returns, so that its tasks end.
class CLS_PoolFixture : public CLS_TaskFixture
{
protected:
    void TearDown() override
    {
        LogRecorder::SetHook({});
        if (CLS_QuenTaskPool* const pPool = CLS_QuenTaskPool::m_pInstance)
        {
            EndServices(*pPool);
            PoolView::GetRunFlag(*pPool) = true; // lets a run that ends only now end as usual
            pPool->UnInit();
        }
        CLS_TaskThread::SetWaitingOvertime(300000);
        CLS_TaskFixture::TearDown();
    }

    /// The pool, with its service threads at work.
    static CLS_QuenTaskPool& MakePool() { return *CLS_QuenTaskPool::GetInstance(); }

    /// The pool without service threads, but not shutting down: the test calls the passes itself. Workers are
    /// real. Must not be called while a CLS_FastSleep exists.
    static CLS_QuenTaskPool& MakeStillPool()
    {
        CLS_QuenTaskPool& clsPool = MakePool();
        EndServices(clsPool);
        PoolView::GetRunFlag(clsPool) = true;
        return clsPool;
    }

    /// Restarts the dispatcher of a still pool. TearDown ends it.
    static void StartDispatcher(CLS_QuenTaskPool& _clsPool)
    {
        PoolView::GetDispatcher(_clsPool) =
            std::make_unique<std::thread>([&_clsPool] { _clsPool.FunTaskingThread(); });
    }

    /// A registered task that is not queued; returns its id.
    static std::string MakeTask(const std::function<void()>& _funTask, int _iInterval = -1)
    {
        return CLS_Task::CreateTask(_funTask, _iInterval, "call")->GetId();
    }

    /// The order ids of the idle list from first to last; -1 for an empty slot.
    static std::vector<int> GetIdleOrder(CLS_QuenTaskPool& _clsPool)
    {
        std::vector<int> vecOrder;
        const std::lock_guard<std::mutex> lock(PoolView::GetIdleLock(_clsPool));
        for (CLS_TaskThread* const pThread : PoolView::GetIdleWorkers(_clsPool))
        {
            vecOrder.push_back(pThread == nullptr ? -1 : pThread->GetOrderId());
        }
        return vecOrder;
    }

    /// Whether the given number of workers becomes idle within the limit.
    [[nodiscard]] static bool WaitForIdle(CLS_QuenTaskPool& _clsPool, std::size_t _iWorkers)
    {
        return WaitUntil([&] { return GetIdleOrder(_clsPool).size() == _iWorkers; });
    }

private:
    /// Joins the service threads without waiting for the watchdog's step.
    static void EndServices(CLS_QuenTaskPool& _clsPool)
    {
        const CLS_FastSleep clsFastSleep;
        PoolView::EndServiceThreads(_clsPool);
    }
};
