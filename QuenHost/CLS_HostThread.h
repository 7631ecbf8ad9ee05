#pragma once

#include "QuenHost/Core/CLS_PoolHub.h"

#include <memory>
#include <utility>

/// A thread of the host that receives results, such as the thread of its windows.
///
/// Create it once, from the function with which the host runs a callable there, for example:
/// - Qt: QMetaObject::invokeMethod(qApp, std::move(funCall), Qt::QueuedConnection);
/// - GCD: dispatch_async_f with a callable on the heap;
/// - any other: append to a queue that the thread empties.
///
/// What the function uses must outlive the scope. So do not post to a window: a task may post just after the
/// window is destroyed.
///
/// Threads: any. A copy stands for the same thread.
class CLS_HostThread
{
public:
    /// _funPost takes a callable, returns at once, and has the host's thread call it once, later.
    ///
    /// Threads: called on workers, several at once.
    ///
    /// Waits: it must not wait for the host's thread. That thread may be in a removal, which waits for the
    /// worker.
    ///
    /// Fails: if it throws or drops the callable, the owner's failure handler is called. For a dropped
    /// callable, that happens where it is destroyed: hold no lock there that the handler takes.
    explicit CLS_HostThread(F_HostPost _funPost) : m_pPost(std::make_shared<F_HostPost>(std::move(_funPost)))
    {
    }

    /// For the kit.
    const F_HostPost& GetPost() const { return *m_pPost; }

private:
    std::shared_ptr<const F_HostPost> m_pPost;
};
