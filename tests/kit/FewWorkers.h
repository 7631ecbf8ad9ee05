#pragma once

#include "QuenHost/CLS_PoolScope.h"
#include "tests/kit/StandIn.h"

#include <atomic>
#include <climits>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

/// A pool with its scope. It starts only as many workers as the test allows.
///
/// It never runs the heartbeat, so the kit does not retry a failed start. Owners must be destroyed first.
class CLS_FewWorkers
{
public:
    explicit CLS_FewWorkers(int _iWorkers) : m_iMayStart(_iWorkers)
    {
        m_clsStandIn.SetAddLoopTask(
            [this](const std::function<void()>& _funTask, int _iInterval, std::string& _strTaskId)
            {
                const bool bWorker = _iInterval == INT_MAX;
                _strTaskId = bWorker && !Start(_funTask) ? "" : "task";
            });
    }

    ~CLS_FewWorkers()
    {
        m_clsPool.End();
        for (std::thread& thWorker : m_vecWorkers)
        {
            thWorker.join();
        }
    }

    CLS_FewWorkers(const CLS_FewWorkers&) = delete;
    CLS_FewWorkers& operator=(const CLS_FewWorkers&) = delete;

    const CLS_PoolScope& GetPool() const { return m_clsPool; }

    /// Allows the kit to start one more worker.
    void AllowOne() { ++m_iMayStart; }

private:
    /// Starts a worker. False if none may start.
    bool Start(const std::function<void()>& _funTask)
    {
        const std::lock_guard<std::mutex> lock(m_mtxWorkers);
        if (m_iMayStart == 0)
        {
            return false;
        }
        --m_iMayStart;
        m_vecWorkers.emplace_back(_funTask);
        return true;
    }

    const CLS_StandIn m_clsStandIn{STAND_IN};
    CLS_PoolScope m_clsPool{CLS_PoolLibrary(STAND_IN)};
    std::atomic<int> m_iMayStart;
    std::mutex m_mtxWorkers; ///< guards m_vecWorkers
    std::vector<std::thread> m_vecWorkers;
};
