#pragma once

#include "QuenHost/CLS_HostThread.h"
#include "QuenHost/CLS_TaskOwner.h"

#include <memory>
#include <string>
#include <utility>

/// Delivers progress and other news from tasks to a thread of the host.
///
/// The next removal of the owner's tasks ends it. From then on, nothing is delivered, even if it was already
/// posted. It may outlive the owner. A copy is equal to its original.
///
/// Threads: any.
class CLS_Delivery
{
public:
    /// Delivers for the tasks of _clsOwner to the thread to which _clsHost posts.
    ///
    /// Waits: for no task.
    CLS_Delivery(const CLS_TaskOwner& _clsOwner, CLS_HostThread _clsHost)
        : m_stLink(_clsOwner.GetLink().Tie()), m_clsHost(std::move(_clsHost))
    {
    }

    /// Has the host's thread call _funDeliver once.
    ///
    /// If the call throws, that is a failure of the owner. Callables that one thread posts are called in that
    /// order, if the host's thread keeps it.
    ///
    /// Returns false, and destroys the callable, in these cases:
    /// - the callable is empty;
    /// - the owner's tasks have been removed;
    /// - the host's post function throws.
    ///
    /// Waits: for nothing but the host's post function.
    ///
    /// Fails: with what copying the callable throws, and std::bad_alloc. Then nothing was posted.
    ///
    /// Owns: the callable. It is destroyed on the host's thread when its call has ended. If it is never
    /// called, it is destroyed on the thread of the removal, or on the thread that drops it.
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
