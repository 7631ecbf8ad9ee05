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

    /// If it is set, tasks of this link are refused after the owner's next removal. Such a link is tied. If
    /// it is null, they are taken after a removal as well.
    std::shared_ptr<CLS_StopState> m_pStop{};

    /// The same, tied.
    ST_OwnerLink Tie() const { return {m_pHub, m_pGroup, m_pHub ? m_pHub->GetStop(*m_pGroup) : nullptr}; }

    /// Submits a task. False if it is refused. This and the next two fail as the hub's operations do.
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

    /// Posts a task to the host's thread. False if it is refused or cannot be posted. Only for a tied link.
    bool Post(const F_HostPost& _funPost, std::unique_ptr<CLS_QueuedTask>&& _pTask,
              const std::string& _strCallInfo) const
    {
        Prepare(*_pTask, _strCallInfo);
        return m_pHub && m_pHub->Post(std::move(_pTask), _funPost);
    }

private:
    /// Sets the members of the task that the hub needs.
    void Prepare(CLS_QueuedTask& _clsTask, const std::string& _strCallInfo) const
    {
        _clsTask.m_pGroup = m_pGroup;
        _clsTask.m_pStop = m_pStop;
        _clsTask.m_strCallInfo = _strCallInfo;
    }
};
