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

/// Queues _funTask, copied or moved, to run once for _clsOwner, and returns the future of its result. The
/// callable takes the same arguments as that of CLS_TaskOwner::Submit.
///
/// What the callable throws comes out of the future's get. So does std::future_error with broken_promise when
/// the task was removed before it ran, or was not taken. What the callable captured is destroyed where it
/// ran, before the future is ready, or where it was removed. The result is kept by the future alone: when the
/// future is gone, so is the result.
///
/// Threads: any. The future may outlive owner, pool and library.
/// Waits: for no task. A task that waits for another one occupies one of at most 300 workers.
/// Fails: what copying the callable throws, and std::bad_alloc; nothing was queued then.
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
        // A task that is not taken is destroyed, which the future says.
        static_cast<void>(_clsOwner.GetLink().Submit(std::move(pTask), _strCallInfo));
    }
    return futResult;
}
