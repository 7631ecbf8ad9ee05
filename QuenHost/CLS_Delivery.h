#pragma once

#include "QuenHost/CLS_HostThread.h"
#include "QuenHost/CLS_TaskOwner.h"

#include <memory>
#include <string>
#include <utility>

/// A way from tasks to a thread of the host's, for progress and other news. It ends with the next removal of
/// the owner's tasks: nothing is delivered from then on, even when it had been posted before.
///
/// Threads: any. It may outlive the owner. Copies are the same way.
class CLS_Delivery
{
public:
    /// Opens the way from _clsOwner's tasks to that thread.
    ///
    /// Fails: with std::bad_alloc.
    CLS_Delivery(const CLS_TaskOwner& _clsOwner, CLS_HostThread _clsHost)
        : m_stLink(_clsOwner.GetLink().Tie()), m_clsHost(std::move(_clsHost))
    {
    }

    /// Has the host's thread call _funDeliver once. What it throws is a failure of the owner. Callables that
    /// one thread posts are called in that order, if the host's thread keeps it. False, and nothing of it is
    /// left: when it is empty, after a removal of the owner's tasks, and when it cannot be posted.
    ///
    /// Waits: for nothing but the host's post function.
    ///
    /// Fails: what copying the callable throws, and std::bad_alloc; nothing was posted then.
    ///
    /// Owns: the callable. It is destroyed on the host's thread when its call has ended; or, when it is never
    /// called, on the thread of the removal.
    template <typename T_Callable>
    bool Post(T_Callable&& _funDeliver, const std::string& _strCallInfo) const
    {
        auto pTask = MakeCallableTask(std::forward<T_Callable>(_funDeliver));
        return pTask && m_stLink.Post(m_clsHost.GetPost(), std::move(pTask), _strCallInfo);
    }

private:
    ST_OwnerLink m_stLink;
    CLS_HostThread m_clsHost;
};
