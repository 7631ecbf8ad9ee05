#pragma once

#include "tests/support/LiveCopy.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

/// The owner of a batch of tasks.
struct ST_Owner
{
    std::atomic<int> m_iRuns{0};
};

/// The work of all submitters so far.
struct ST_Totals
{
    CLS_LiveCopy::Count m_pLiveCopies = CLS_LiveCopy::MakeCount(); ///< of callables, one-shot and loop
    std::atomic<std::int64_t> m_iSubmitted{0};
    std::atomic<std::int64_t> m_iRuns{0};
    std::atomic<std::int64_t> m_iLoopRuns{0};
    std::atomic<std::int64_t> m_iOwners{0};
    std::atomic<int> m_iFailures{0}; ///< tasks that were refused, or neither ran nor were removed
};

/// The part of a soak for one host thread. It uses only the exported functions.
///
/// It submits one-shot tasks for changing owners, and replaces loop tasks one by one.
///
/// Threads: one at a time.
class CLS_Submitter
{
public:
    /// Adds _iLoops loop tasks. The totals outlive all tasks.
    CLS_Submitter(ST_Totals& _stTotals, int _iLoops);

    /// Submits about _iTasks one-shot tasks at an even rate during _msLength. No owner is left afterwards.
    void RunRound(std::int64_t _iTasks, std::chrono::milliseconds _msLength);

    void RemoveLoops();

    int CountLoops() const { return static_cast<int>(m_vecLoopIds.size()); }

private:
    using Owner = std::shared_ptr<ST_Owner>;

    void RunBatch();
    Owner SubmitBatch();
    void RemoveOldestOwner();
    std::string AddLoop();
    void ReplaceLoop();

    ST_Totals& m_stTotals;
    std::deque<Owner> m_deqOwners; ///< owners whose tasks may run to their end, oldest first
    std::vector<std::string> m_vecLoopIds;
    std::size_t m_uiBatches = 0;
    std::size_t m_uiLoops = 0; ///< loop tasks added so far
};
