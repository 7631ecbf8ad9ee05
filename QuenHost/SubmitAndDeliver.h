#pragma once

#include "QuenHost/CLS_HostThread.h"
#include "QuenHost/CLS_Steps.h"
#include "QuenHost/CLS_TaskOwner.h"

#include <string>
#include <utility>

/// \file
/// One-shot tasks whose result goes to a thread of the host.

/// Queues _funWork to run once on a worker, and then has the host's thread call _funDeliver with the result.
///
/// - _funWork takes a stop token or nothing.
/// - _funDeliver takes the result, or nothing if there is none. It is not called if _funWork throws.
/// - After the next removal of the owner's tasks, nothing is delivered, even if it was already posted.
/// - If either callable throws, that is a failure of the owner.
///
/// Returns false, and destroys the callables, if one of them is empty or for the reasons of
/// CLS_TaskOwner::Submit.
///
/// Threads: any.
///
/// Waits: for no task; a few steps for a lock. On the host's thread, a removal of the owner's tasks does not
/// wait for deliveries. On other threads, it waits for one in progress, as for any run.
///
/// Fails: with what copying the callables throws, and std::bad_alloc. Then nothing was queued.
///
/// Owns: the callables.
/// - _funWork is destroyed on the worker before the result is posted.
/// - _funDeliver and the result are destroyed on the host's thread when the call has ended. If there is no
///   call, they are destroyed on the thread of the removal, or on the thread that drops them.
template <typename T_Work, typename T_Deliver>
[[nodiscard]] bool SubmitAndDeliver(const CLS_TaskOwner& _clsOwner, const CLS_HostThread& _clsHost,
                                    T_Work&& _funWork, T_Deliver&& _funDeliver,
                                    const std::string& _strCallInfo)
{
    return FirstStep(std::forward<T_Work>(_funWork), _strCallInfo)
        .Deliver(_clsHost, std::forward<T_Deliver>(_funDeliver), _strCallInfo)
        .Submit(_clsOwner);
}
