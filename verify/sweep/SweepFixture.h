#pragma once

#include "tests/support/FailingMemory.h"
#include "tests/support/PoolView.h"
#include "tests/unit/ShutdownFixture.h"

#include <array>
#include <functional>
#include <new>
#include <string>
#include <thread>

/// One point of a sweep: the allocation that fails during an operation.
class CLS_SweepPoint
{
public:
    /// _iAllocation is 1 for the operation's first allocation, and 0 for none.
    explicit CLS_SweepPoint(int _iAllocation) : m_iAllocation(_iAllocation) {}

    /// Runs the operation and lets the point's allocation on that thread fail. Returns whether it failed. An
    /// exception fails the test.
    bool Fail(const std::function<void()>& _funOperate,
              std::thread::id _idThread = std::this_thread::get_id());

    /// The same on the calling thread for an operation from which std::bad_alloc propagates. Returns whether
    /// it threw. It must throw if, and only if, the allocation failed.
    bool FailAndThrow(const std::function<void()>& _funOperate);

    /// The same for an operation that may either throw or handle the failure. Returns whether the allocation
    /// failed. _bThrown becomes whether the operation threw.
    bool FailAndPerhapsThrow(const std::function<void()>& _funOperate, bool& _bThrown);

    bool HasFailed() const { return m_bFailed; }

private:
    const int m_iAllocation;
    bool m_bFailed = false;
};

/// Base of the sweeps. Each allocation of an operation fails in turn, the first, the second and so on, until
/// the operation succeeds.
///
/// Allocations of a log record do not fail, from its construction to the return of "PrintLog". By contract, a
/// log record whose emission fails ends the process. Texts that are made before a log record are part of the
/// sweep.
class CLS_SweepFixture : public CLS_ShutdownFixture
{
public:
    static constexpr const char* CALL = "a call that is too long for the text object itself";

protected:
    void SetUp() override;
    void TearDown() override;

    /// Sweeps an operation, and prints how many points it has.
    ///
    /// _funAttempt prepares the operation, runs it at the given point, checks the outcome, and tries again.
    /// After each attempt, the fixture cleans up, and nothing may be left allocated. If every allocation is
    /// reached, at least _iLeastPoints points are expected.
    void Sweep(const std::string& _strOperation, int _iLeastPoints,
               const std::function<void(CLS_SweepPoint&)>& _funAttempt);

    /// A callable that needs memory when it is copied, and counts its runs.
    std::function<void()> MakeCallable()
    {
        return [this, arrBallast = m_arrBallast]
        {
            m_clsRuns.Add();
            EXPECT_EQ(m_arrBallast, arrBallast);
        };
    }

    /// Checks an idle pool:
    /// - the owner maps agree;
    /// - queued and listed ids are registered, and exactly the queued tasks are waiting;
    /// - every idle worker is registered, unbound and in its order.
    static void ExpectConsistent(CLS_QuenTaskPool& _clsPool);

    /// Whether the queue had no memory to grow. It survives that without a failure. For a still pool.
    static bool HasOverflow(CLS_QuenTaskPool& _clsPool)
    {
        const std::lock_guard<std::mutex> lock(PoolView::GetQueueLock(_clsPool));
        return !PoolView::GetOverflowIds(_clsPool).empty();
    }

    /// Whether the pool runs a new task. For a still pool.
    bool RunsATask(CLS_QuenTaskPool& _clsPool);

    CLS_Counter m_clsRuns;

private:
    void CleanUp();

    const std::array<long, 8> m_arrBallast{1, 2, 3, 4, 5, 6, 7, 8};
};
