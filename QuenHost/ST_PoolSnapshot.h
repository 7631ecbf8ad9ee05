#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

/// Counts since the start of a scope, or of an owner. One-shot tasks include result tasks.
struct ST_PoolCounters
{
    std::uint64_t m_uiSubmitted = 0; ///< one-shot tasks that were taken
    std::uint64_t m_uiRun = 0;       ///< one-shot tasks whose run has ended
    std::uint64_t m_uiCancelled = 0; ///< one-shot tasks that were removed before they ran
    std::uint64_t m_uiLoopRuns = 0;  ///< runs of loop tasks that have ended
    /// Runs and deliveries that threw, those of result tasks included, and deliveries that were never made.
    std::uint64_t m_uiFailed = 0;
    std::chrono::nanoseconds m_nsLongestWait{0}; ///< of a one-shot task, from its submission to its start
};

/// A run in progress.
struct ST_RunInfo
{
    std::string m_strOwner;    ///< the owner's name; that of a loop task is its call information
    std::string m_strCallInfo; ///< as it was submitted
    std::chrono::nanoseconds m_nsRunning{0}; ///< since its start
    std::uint64_t m_uiThread = 0;            ///< the number that debuggers show
    std::string m_strThread;                 ///< the thread's name
    bool m_bStopRequested = false;           ///< its removal has begun
};

/// A loop task.
struct ST_LoopInfo
{
    std::string m_strCallInfo;                 ///< as it was given
    std::chrono::milliseconds m_msInterval{0}; ///< from the end of a run to the next
    bool m_bRunning = false;                   ///< a run is in progress
    std::chrono::nanoseconds m_nsUntilNext{0}; ///< until it is due; 0 when it is due or runs
};

/// What the pool is doing for a scope at one moment. See CLS_PoolScope::TakeSnapshot.
struct ST_PoolSnapshot
{
    int m_iBusyWorkers = 0;                       ///< workers of the pool that run tasks of the scope
    int m_iIdleWorkers = 0;                       ///< workers that wait for one-shot tasks of the scope
    int m_iStartingWorkers = 0;                   ///< workers that were requested and have not started yet
    std::optional<int> m_iPoolWorkers;            ///< as CLS_PoolLibrary::GetWorkers
    std::size_t m_uiQueued = 0;                   ///< one-shot tasks that wait
    std::chrono::nanoseconds m_nsOldestQueued{0}; ///< the age of the oldest of them; 0 for none
    std::vector<ST_RunInfo> m_vecRuns;            ///< the longest first
    std::vector<ST_LoopInfo> m_vecLoops;          ///< in the order of creation
    ST_PoolCounters m_stCounters;                 ///< of all tasks of the scope

    /// The snapshot as lines for a bug report.
    std::string ToText() const
    {
        std::string strText = "workers: " + std::to_string(m_iBusyWorkers) + " busy, " +
                              std::to_string(m_iIdleWorkers) + " idle, " +
                              std::to_string(m_iStartingWorkers) + " starting; in the whole pool: " +
                              (m_iPoolWorkers ? std::to_string(*m_iPoolWorkers) : "unknown") + "\n";
        strText += "queue: " + std::to_string(m_uiQueued) + " tasks, the oldest waits for " +
                   FormatTime(m_nsOldestQueued) + "\n";
        for (const ST_RunInfo& stRun : m_vecRuns)
        {
            strText += DescribeRun(stRun);
        }
        for (const ST_LoopInfo& stLoop : m_vecLoops)
        {
            strText += DescribeLoop(stLoop);
        }
        return strText + DescribeCounters() +
               "left out: tasks that were added without the host kit, and their workers' states\n";
    }

private:
    /// Such as "1.250 s".
    static std::string FormatTime(std::chrono::nanoseconds _nsTime)
    {
        std::array<char, 32> arrText = {};
        std::snprintf(arrText.data(), arrText.size(), "%.3f s",
                      std::chrono::duration<double>(_nsTime).count());
        return arrText.data();
    }

    static std::string DescribeRun(const ST_RunInfo& _stRun)
    {
        return "running: \"" + _stRun.m_strCallInfo + "\" of \"" + _stRun.m_strOwner + "\" for " +
               FormatTime(_stRun.m_nsRunning) + " on thread " + std::to_string(_stRun.m_uiThread) + " (" +
               _stRun.m_strThread + ")" + (_stRun.m_bStopRequested ? ", asked to stop" : "") + "\n";
    }

    static std::string DescribeLoop(const ST_LoopInfo& _stLoop)
    {
        const std::string strNext =
            _stLoop.m_bRunning ? "running" : "due in " + FormatTime(_stLoop.m_nsUntilNext);
        return "loop task: \"" + _stLoop.m_strCallInfo + "\" every " +
               std::to_string(_stLoop.m_msInterval.count()) + " ms, " + strNext + "\n";
    }

    std::string DescribeCounters() const
    {
        return "since the start: " + std::to_string(m_stCounters.m_uiSubmitted) + " submitted, " +
               std::to_string(m_stCounters.m_uiRun) + " run, " + std::to_string(m_stCounters.m_uiCancelled) +
               " cancelled, " + std::to_string(m_stCounters.m_uiFailed) + " failed, " +
               std::to_string(m_stCounters.m_uiLoopRuns) + " loop runs, longest wait " +
               FormatTime(m_stCounters.m_nsLongestWait) + "\n";
    }
};
