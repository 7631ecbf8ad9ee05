#pragma once

#include "QuenHost/CLS_ResultTask.h"
#include "QuenHost/CLS_TaskOwner.h"

#include <future>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>

/// \file
/// One-shot tasks with a result.

/// Queues _funTask, copied or moved, to run once for _clsOwner, and returns the future of its result.
///
/// The callable takes the same arguments as that of CLS_TaskOwner::Submit. The future's get throws what the
/// callable throws. If the task was removed before it ran, or was refused, get throws std::future_error with
/// broken_promise.
///
/// Threads: any. The future may outlive owner, pool and library.
///
/// Waits: for no task. A task that waits for another one occupies one of at most 300 workers.
///
/// Fails: with what copying the callable throws, and std::bad_alloc. Then nothing was queued.
///
/// Owns: the callable. It is destroyed on the thread that ran it, before the future is ready, or on the
/// thread of the removal. Only the future keeps the result.
template <typename T_Callable>
auto SubmitForResult(CLS_TaskOwner& _clsOwner, T_Callable&& _funTask, const std::string& _strCallInfo)
{
    using Callable = std::decay_t<T_Callable>;
    const bool bEmpty = HostCall::IsEmpty<Callable>(_funTask);
    auto pTask =
        std::make_unique<CLS_ResultTask<Callable>>(std::in_place, std::forward<T_Callable>(_funTask));
    auto futResult = pTask->GetFuture();
    if (!bEmpty)
    {
        // A refused task is destroyed, and the future reports that.
        static_cast<void>(_clsOwner.GetLink().Submit(std::move(pTask), _strCallInfo));
    }
    return futResult;
}
