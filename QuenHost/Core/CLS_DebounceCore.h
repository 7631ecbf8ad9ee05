#pragma once

#include "QuenHost/Core/CLS_QueuedTask.h"
#include "QuenHost/Core/ST_OwnerLink.h"
#include "QuenHost/PoolCall.h"

#include <algorithm>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

/// The part of a CLS_Debounce that its tasks share.
///
/// A look is a delayed task. It runs the callable if the quiet time is over. Otherwise, it submits the next
/// look. All looks up to a run count as one task.
///
/// Threads: any, except the constructor.
///
/// Owns: the callable.
class CLS_DebounceCore : public std::enable_shared_from_this<CLS_DebounceCore>
{
public:
    CLS_DebounceCore(ST_OwnerLink _stLink, std::chrono::milliseconds _msQuiet, std::string _strCallInfo,
                     std::unique_ptr<CLS_QueuedTask> _pTask)
        : m_stLink(std::move(_stLink)),
          m_msQuiet(std::clamp(_msQuiet, std::chrono::milliseconds(0), LONGEST_QUIET)),
          m_strCallInfo(std::move(_strCallInfo)), m_pTask(std::move(_pTask))
    {
    }

    CLS_DebounceCore(const CLS_DebounceCore&) = delete;
    CLS_DebounceCore& operator=(const CLS_DebounceCore&) = delete;

    /// CLS_Debounce::Trigger.
    bool Trigger()
    {
        bool bTaken = false;
        PoolCall::Catch([&] { bTaken = TriggerOrThrow(); });
        return bTaken;
    }

    /// From now on, no run starts.
    void Close()
    {
        std::unique_ptr<CLS_QueuedTask> pTask;
        const std::lock_guard<std::mutex> lock(m_mtxCore);
        m_bClosed = true;
        m_pPending = nullptr;
        if (!m_bRunning)
        {
            pTask = std::move(m_pTask);
        }
    }

private:
    using Clock = std::chrono::steady_clock;

    static constexpr std::chrono::milliseconds LONGEST_QUIET = std::chrono::hours(24 * 365 * 100);

    /// The time between looks during a run that a removal left behind.
    static constexpr std::chrono::milliseconds RETRY{10};

    class CLS_Look final : public CLS_QueuedTask
    {
    public:
        explicit CLS_Look(std::shared_ptr<CLS_DebounceCore> _pCore) : m_pCore(std::move(_pCore)) {}
        ~CLS_Look() override
        {
            if (!m_bRun)
            {
                m_pCore->Forget(m_pStop);
            }
        }

        CLS_Look(const CLS_Look&) = delete;
        CLS_Look& operator=(const CLS_Look&) = delete;

        bool Run(const CLS_StopToken& _clsToken) override
        {
            m_bRun = true;
            return m_pCore->Look(_clsToken, {m_pCore->m_stLink.m_pHub, m_pGroup, m_pStop}, m_bContinued);
        }

        void DestroyCallable() noexcept override {}

    private:
        const std::shared_ptr<CLS_DebounceCore> m_pCore;
        bool m_bRun = false;
    };

    /// Triggers. std::bad_alloc propagates.
    bool TriggerOrThrow()
    {
        const ST_OwnerLink stTied = m_stLink.Tie();
        {
            const std::lock_guard<std::mutex> lock(m_mtxCore);
            if (!m_pTask || !stTied.m_pStop)
            {
                return false;
            }
            m_tpDue = Clock::now() + m_msQuiet;
            m_bTriggered = true;
            if (m_pPending == stTied.m_pStop)
            {
                return true;
            }
            m_pPending = stTied.m_pStop;
        }
        return Schedule(stTied, m_msQuiet, false);
    }

    /// Submits a look. False if it is refused. std::bad_alloc propagates. In both cases, nothing is pending.
    bool Schedule(const ST_OwnerLink& _stTied, std::chrono::nanoseconds _nsDelay, bool _bContinues)
    {
        bool bTaken = false;
        const auto funSchedule = [&]
        {
            auto pLook = std::make_unique<CLS_Look>(shared_from_this());
            pLook->m_bContinues = _bContinues;
            const auto msDelay = std::chrono::ceil<std::chrono::milliseconds>(_nsDelay);
            bTaken = _stTied.SubmitAfter(msDelay, std::move(pLook), m_strCallInfo);
        };
        const std::exception_ptr pException = PoolCall::Catch(funSchedule);
        if (!bTaken)
        {
            Forget(_stTied.m_pStop);
        }
        if (pException)
        {
            std::rethrow_exception(pException);
        }
        return bTaken;
    }

    /// Notes that the look is cancelled.
    void Forget(const std::shared_ptr<CLS_StopState>& _pStop)
    {
        const std::lock_guard<std::mutex> lock(m_mtxCore);
        if (m_pPending == _pStop)
        {
            m_pPending = nullptr;
        }
    }

    /// Runs the callable if it is due. False if it threw. If Schedule throws, a run is lost.
    bool Look(const CLS_StopToken& _clsToken, const ST_OwnerLink& _stTied, bool& _bContinued)
    {
        {
            std::unique_lock<std::mutex> lock(m_mtxCore);
            if (m_pPending != _stTied.m_pStop)
            {
                return true; // closed, or removed
            }
            const std::chrono::nanoseconds nsRest = m_tpDue - Clock::now();
            if (m_bRunning || nsRest.count() > 0)
            {
                lock.unlock();
                _bContinued = Schedule(_stTied, std::max<std::chrono::nanoseconds>(nsRest, RETRY), true);
                return true;
            }
            m_bRunning = true;
            m_bTriggered = false;
        }
        const std::exception_ptr pException = PoolCall::Catch([&] { m_pTask->Run(_clsToken); });
        if (pException)
        {
            _stTied.m_pHub->Report(*_stTied.m_pGroup, n_FailureKind::Threw, m_strCallInfo, pException);
        }
        EndRun(_stTied);
        return !pException;
    }

    /// After a run: submits the next look, or destroys the callable if the debounce is closed. Throws as
    /// Schedule does.
    void EndRun(const ST_OwnerLink& _stTied)
    {
        std::unique_ptr<CLS_QueuedTask> pTask;
        std::unique_lock<std::mutex> lock(m_mtxCore);
        m_bRunning = false;
        const std::chrono::nanoseconds nsRest = m_tpDue - Clock::now();
        const bool bMine = m_pPending == _stTied.m_pStop;
        const bool bAgain = bMine && m_bTriggered;
        if (m_bClosed)
        {
            pTask = std::move(m_pTask);
        }
        else if (bMine && !bAgain)
        {
            m_pPending = nullptr;
        }
        lock.unlock();
        if (bAgain)
        {
            Schedule(_stTied, nsRest, false);
        }
    }

    const ST_OwnerLink m_stLink;
    const std::chrono::milliseconds m_msQuiet;
    const std::string m_strCallInfo;

    std::mutex m_mtxCore;                      ///< guards what follows
    std::unique_ptr<CLS_QueuedTask> m_pTask;   ///< the callable; null once closed, and for an empty one
    Clock::time_point m_tpDue;                 ///< the next run, without another trigger
    bool m_bTriggered = false;                 ///< since the last run began
    bool m_bRunning = false;                   ///< m_pTask runs, and is then used without the lock
    bool m_bClosed = false;                    ///< m_pTask is destroyed as soon as it does not run
    std::shared_ptr<CLS_StopState> m_pPending; ///< the stop request of the look that waits or runs; or null
};
