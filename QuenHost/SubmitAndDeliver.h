#pragma once

#include "QuenHost/CLS_HostThread.h"
#include "QuenHost/CLS_Steps.h"
#include "QuenHost/CLS_TaskOwner.h"

#include <string>
#include <utility>

/// \file
/// One-shot tasks whose result goes to a thread of the host's.

/// Queues _funWork to run once for _clsOwner on a worker, and then has the host's thread call _funDeliver
/// with the result; without an argument when there is none. Nothing is delivered after the next removal of
/// the owner's tasks, even when it had been posted before. _funWork takes a stop token or nothing.
///
/// What either throws is a failure of the owner; _funDeliver is not called when _funWork throws. False, and
/// nothing of it is left, as CLS_TaskOwner::Submit.
///
/// Threads: any.
///
/// Waits: for no task; a few steps for a lock. On the host's thread, the removal and the end of the owner do
/// not wait for deliveries. On other threads, they wait for one in progress, as for any run.
///
/// Fails: what copying the callables throws, and std::bad_alloc; nothing was queued then.
///
/// Owns: the callables. _funWork is destroyed on the worker before the result is posted. _funDeliver and the
/// result are destroyed on the host's thread when the call has ended; or, when there is none, on the thread
/// of the removal.
template <typename T_Work, typename T_Deliver>
[[nodiscard]] bool SubmitAndDeliver(const CLS_TaskOwner& _clsOwner, const CLS_HostThread& _clsHost,
                                    T_Work&& _funWork, T_Deliver&& _funDeliver,
                                    const std::string& _strCallInfo)
{
    return FirstStep(std::forward<T_Work>(_funWork), _strCallInfo)
        .Deliver(_clsHost, std::forward<T_Deliver>(_funDeliver), _strCallInfo)
        .Submit(_clsOwner);
}
