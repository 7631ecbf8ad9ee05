#pragma once

// Loop tasks. Included by CLS_PoolHub.h.

#include "QuenHost/Core/CLS_PoolHub.h"

inline bool CLS_PoolHub::AddLoop(const std::shared_ptr<CLS_LoopCore>& _pLoop)
{
    Lock lock(m_mtxHub);
    if (!EnsureHeartbeat(lock) || m_bEnded)
    {
        return false;
    }
    m_chnLoops.Append(*_pLoop);
    ++m_iInside;
    lock.unlock();
    bool bAdded = false;
    const auto funAdd = [&]
    {
        bAdded = AddRecord(
            *_pLoop->m_pRecord, [pHub = shared_from_this(), _pLoop] { pHub->RunLoop(*_pLoop); },
            static_cast<int>(_pLoop->m_msInterval.count()), _pLoop->m_pGroup->m_strName);
    };
    PoolCall::Catch(funAdd);
    lock.lock();
    LeavePool();
    if (!bAdded)
    {
        CloseLoop(*_pLoop);
    }
    return bAdded;
}

/// The interval for the trace; "" without a trace or memory.
inline std::string CLS_PoolHub::DescribeInterval(const CLS_LoopCore& _clsLoop) const noexcept
{
    std::string strMembers;
    const auto funDescribe = [&]
    { strMembers = R"(,"args":{"interval_ms":)" + std::to_string(_clsLoop.m_msInterval.count()) + "}"; };
    if (GetTrace())
    {
        PoolCall::Catch(funDescribe);
    }
    return strMembers;
}

/// Runs the loop task once, on a worker of the pool.
inline void CLS_PoolHub::RunLoop(CLS_LoopCore& _clsLoop)
{
    const ST_RunThread stThread;
    Lock lock(m_mtxHub);
    if (m_bEnded || _clsLoop.m_bClosed)
    {
        return;
    }
    CLS_QueuedTask& clsTask = *_clsLoop.m_pTask;
    ST_Run stRun{clsTask, stThread, Clock::now()};
    BeginRun(stRun);
    lock.unlock();
    Execute(clsTask, stRun, "loop", DescribeInterval(_clsLoop));
    lock.lock();
    if (_clsLoop.m_bLeft)
    {
        // The run has not ended yet, so a removal on another thread also waits for this.
        lock.unlock();
        clsTask.DestroyCallable();
        lock.lock();
    }
    EndRun(stRun);
    ++m_stCounters.m_uiLoopRuns;
    _clsLoop.m_tpDue = Clock::now() + _clsLoop.m_msInterval;
    const std::unique_ptr<CLS_QueuedTask> pTask = _clsLoop.m_bLeft ? FinishLoop(_clsLoop) : nullptr;
    lock.unlock();
}

inline bool CLS_PoolHub::IsOpen(const CLS_LoopCore& _clsLoop) const
{
    const Lock lock(m_mtxHub);
    return !_clsLoop.m_bClosed;
}

/// Starts no run from now on. The first call returns the stop request, later ones null.
inline std::shared_ptr<CLS_StopState> CLS_PoolHub::CloseLoop(CLS_LoopCore& _clsLoop)
{
    if (std::exchange(_clsLoop.m_bClosed, true))
    {
        return nullptr;
    }
    m_chnLoops.Remove(_clsLoop);
    return _clsLoop.m_pGroup->m_pStop;
}

/// Finishes the record and returns the callable. Null if that was done before. Not during a run.
inline std::unique_ptr<CLS_QueuedTask> CLS_PoolHub::FinishLoop(CLS_LoopCore& _clsLoop)
{
    if (_clsLoop.m_pTask)
    {
        FinishRecord(_clsLoop.m_pRecord);
    }
    return std::move(_clsLoop.m_pTask);
}

inline bool CLS_PoolHub::RemoveLoop(CLS_LoopCore& _clsLoop, std::chrono::milliseconds _msLimit)
{
    CLS_TaskGroup& clsGroup = *_clsLoop.m_pGroup;
    const CLS_TraceSpan clsSpan(GetTrace(), "remove", clsGroup.m_strName);
    Lock lock(m_mtxHub);
    MarkOwnRuns(clsGroup, 1);
    const std::shared_ptr<CLS_StopState> pStop = CloseLoop(_clsLoop);
    lock.unlock();
    if (pStop)
    {
        pStop->Request();
    }
    lock.lock();
    const bool bOver = WaitForRuns(lock, clsGroup, _msLimit);
    MarkOwnRuns(clsGroup, -1);
    _clsLoop.m_bLeft = !clsGroup.m_chnRuns.IsEmpty();
    if (!_clsLoop.m_bLeft)
    {
        DestroyLoop(lock, _clsLoop);
    }
    return bOver;
}

/// Destroys the callable and the handler, once. Other removals wait. Releases the lock meanwhile.
inline void CLS_PoolHub::DestroyLoop(Lock& _lock, CLS_LoopCore& _clsLoop)
{
    CLS_TaskGroup& clsGroup = *_clsLoop.m_pGroup;
    std::unique_ptr<CLS_QueuedTask> pTask = FinishLoop(_clsLoop);
    ST_Destroyer stDestroyer;
    clsGroup.m_chnDestroyers.Append(stDestroyer);
    {
        F_FailureHandler funOnFailure;
        if (clsGroup.m_iReports == 0)
        {
            funOnFailure.swap(clsGroup.m_funOnFailure);
        }
        _lock.unlock();
        pTask.reset();
    }
    _lock.lock();
    clsGroup.m_chnDestroyers.Remove(stDestroyer);
    clsGroup.m_cvRuns.notify_all();
}

inline void CLS_PoolHub::RemoveLoopLater(CLS_LoopCore& _clsLoop, std::shared_ptr<const void> _pKept) noexcept
{
    CLS_TaskGroup& clsGroup = *_clsLoop.m_pGroup;
    const CLS_TraceSpan clsSpan(GetTrace(), "remove", clsGroup.m_strName);
    Lock lock(m_mtxHub, std::defer_lock);
    Leftovers lstLeftover = LockWithLeftover(lock, clsGroup, _pKept);
    if (lstLeftover.empty())
    {
        return;
    }
    const std::shared_ptr<CLS_StopState> pStop = CloseLoop(_clsLoop);
    HandOver(clsGroup, lstLeftover.front());
    _clsLoop.m_bLeft = !clsGroup.m_chnRuns.IsEmpty();
    if (!_clsLoop.m_bLeft)
    {
        lstLeftover.front()->m_pLoopCallable = FinishLoop(_clsLoop);
    }
    HandToWorker(lock, lstLeftover);
    lock.unlock();
    if (pStop)
    {
        pStop->Request();
    }
}
