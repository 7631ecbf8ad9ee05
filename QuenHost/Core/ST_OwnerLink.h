#pragma once

#include "QuenHost/Core/CLS_PoolHub.h"

#include <chrono>
#include <memory>
#include <string>
#include <utility>

/// A reference to an owner, for work that may outlive it.
///
/// Threads: any.
struct ST_OwnerLink
{
    std::shared_ptr<CLS_PoolHub> m_pHub; ///< null when there was no scope
    std::shared_ptr<CLS_TaskGroup> m_pGroup;

    /// Ties what is submitted to the owner's present tasks: it is refused after the next removal. Null: it is
    /// taken after removals, too.
    std::shared_ptr<CLS_StopState> m_pStop{};

    /// The same, tied.
    ST_OwnerLink Tie() const { return {m_pHub, m_pGroup, m_pHub ? m_pHub->GetStop(*m_pGroup) : nullptr}; }

    /// Submits a task. False if it is refused. Fails as the hub's operation, and so does Post.
    bool Submit(std::unique_ptr<CLS_QueuedTask>&& _pTask, const std::string& _strCallInfo) const
    {
        Prepare(*_pTask, _strCallInfo);
        return m_pHub && m_pHub->Submit(std::move(_pTask));
    }

    /// Submits a task after a delay. False if it is refused.
    bool SubmitAfter(std::chrono::milliseconds _msDelay, std::unique_ptr<CLS_QueuedTask> _pTask,
                     const std::string& _strCallInfo) const
    {
        Prepare(*_pTask, _strCallInfo);
        return m_pHub && m_pHub->SubmitAfter(std::move(_pTask), _msDelay);
    }

    /// Posts a task to the host's thread. Only for a tied link. False if it is refused or cannot be posted.
    bool Post(const F_HostPost& _funPost, std::unique_ptr<CLS_QueuedTask>&& _pTask,
              const std::string& _strCallInfo) const
    {
        Prepare(*_pTask, _strCallInfo);
        return m_pHub && m_pHub->Post(std::move(_pTask), _funPost);
    }

private:
    /// Sets what the hub needs to know of the task.
    void Prepare(CLS_QueuedTask& _clsTask, const std::string& _strCallInfo) const
    {
        _clsTask.m_pGroup = m_pGroup;
        _clsTask.m_pStop = m_pStop;
        _clsTask.m_strCallInfo = _strCallInfo;
    }
};
