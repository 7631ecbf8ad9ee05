#pragma once

#include "tests/hosts/PoolLibrary.h"
#include "tests/support/Waiting.h"

#include <atomic>
#include <stdexcept>

/// Keeps a pool busy for hosts that exit without a shutdown.
///
/// Nothing is destroyed, because tasks use it until the process ends. A wait that reaches its limit ends the
/// process with status 4.
namespace BusyPool
{
/// The owner of every task, and the runs of the tasks that never end.
inline CLS_Counter& GetRuns()
{
    static CLS_Counter& s_clsRuns = *new CLS_Counter;
    return s_clsRuns;
}

/// Runs this number of tasks, and waits for their end. Their task records stay.
inline void RunToTheEnd(const CLS_HostLibrary& _clsPool, int _iTasks)
{
    static std::atomic<int>& s_iFinished = *new std::atomic<int>(0);
    for (int i = 0; i < _iTasks; ++i)
    {
        _clsPool.m_pAddTmpTask([] { ++s_iFinished; }, &GetRuns(), "finished");
    }
    if (!WaitUntil([_iTasks] { return s_iFinished == _iTasks; }, std::chrono::minutes(5)))
    {
        std::cerr << "only " << s_iFinished << " tasks finished\n";
        std::exit(4);
    }
}

/// Starts tasks that are still busy when the process ends: one sleeps, one computes, and four repeat. Two of
/// those repeat at once.
inline void KeepBusy(const CLS_HostLibrary& _clsPool)
{
    _clsPool.m_pAddTmpTask(
        []
        {
            GetRuns().Add();
            std::this_thread::sleep_for(std::chrono::seconds(60));
        },
        &GetRuns(), "sleeping");
    _clsPool.m_pAddTmpTask(
        []
        {
            GetRuns().Add();
            const auto tpEnd = std::chrono::steady_clock::now() + std::chrono::seconds(60);
            while (std::chrono::steady_clock::now() < tpEnd)
            {
            }
        },
        &GetRuns(), "spinning");
    for (const int iInterval : {0, 0, 1, 10})
    {
        std::string strTaskId;
        // Each run makes a log record.
        _clsPool.m_pAddLoopTask(
            []
            {
                GetRuns().Add();
                throw std::runtime_error("logging");
            },
            iInterval, strTaskId, "loop");
    }
    if (!GetRuns().Wait(50))
    {
        std::exit(4);
    }
}
} // namespace BusyPool
