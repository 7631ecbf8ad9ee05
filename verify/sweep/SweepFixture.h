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
    /// _iAllocation is 1 for the operation's first; 0 for none.
    explicit CLS_SweepPoint(int _iAllocation) : m_iAllocation(_iAllocation) {}

    /// Runs the operation and lets the point's allocation on that thread fail. Returns whether it failed. An
    /// exception fails the test.
    bool Fail(const std::function<void()>& _funOperate,
              std::thread::id _idThread = std::this_thread::get_id());

    /// The same on the calling thread for an operation that lets std::bad_alloc pass: whether it did. It must
    /// if, and only if, the allocation failed.
    bool FailAndThrow(const std::function<void()>& _funOperate);

    /// The same for an operation of two kinds of failure. Whether the allocation failed; whether the
    /// exception passed goes to _bThrown.
    bool FailAndPerhapsThrow(const std::function<void()>& _funOperate, bool& _bThrown);

    bool HasFailed() const { return m_bFailed; }

private:
    const int m_iAllocation;
    bool m_bFailed = false;
};

/// Base of the sweeps. Each allocation of an operation fails in turn, the first, the second and so on, until
/// the operation succeeds.
///
/// Allocations of a log record, from its construction to the return of "PrintLog", do not fail: by contract,
/// a record whose own emission fails ends the process. The texts that are made before a record are
/// part of the sweep.
class CLS_SweepFixture : public CLS_ShutdownFixture
{
public:
    static constexpr const char* CALL = "a call that is too long for the text object itself";

protected:
    void SetUp() override;
    void TearDown() override;

    /// Sweeps an operation, and prints how many points it has. _funAttempt sets the scene, carries the
    /// operation out at the point that it is given, checks what came of it, and tries again; after each
    /// attempt everything is cleaned away, and nothing may be left allocated.
    /// At least _iLeastPoints points are expected where every allocation is reached.
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

    /// The owner maps agree, what is queued or listed is registered, the waiting tasks are those that are
    /// queued, and every idle worker is registered, unbound and in its order. For a pool that is at rest.
    static void ExpectConsistent(CLS_QuenTaskPool& _clsPool);

    /// Whether the queue had no memory to grow, which it survives: nothing failed then. For a still pool.
    static bool HasOverflow(CLS_QuenTaskPool& _clsPool)
    {
        const std::lock_guard<std::mutex> lock(PoolView::GetQueueLock(_clsPool));
        return !PoolView::GetOverflowIds(_clsPool).empty();
    }

    /// Whether the pool runs a task that it is given. For a still pool.
    bool RunsATask(CLS_QuenTaskPool& _clsPool);

    CLS_Counter m_clsRuns;

private:
    void CleanUp();

    const std::array<long, 8> m_arrBallast{1, 2, 3, 4, 5, 6, 7, 8};
};
