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

/// Queues _funTask, copied or moved, to run once for _clsOwner, and returns the future of its result. It may
/// be a callable that can only be moved.
///
/// What the callable throws comes out of the future's get. So does std::future_error with broken_promise when
/// the task was removed before it ran, with its owner or by RemoveTasks, or could not be queued. What the
/// callable captured is destroyed where it ran, before the future is ready, or where it was removed.
///
/// Any thread, as CLS_TaskOwner::Submit. The future may outlive owner, pool and library. Waiting for it is
/// the caller's affair, with two pitfalls: a task that waits for another one occupies one of the pool's at
/// most 301 threads; and a task that is still queued when the pool ends is never run nor destroyed, so that
/// its future is never ready: an owner that goes before the pool's end prevents that.
template <typename T_Callable>
auto SubmitForResult(CLS_TaskOwner& _clsOwner, T_Callable&& _funTask, const std::string& _strCallInfo)
    -> std::future<std::invoke_result_t<std::decay_t<T_Callable>&>>
{
    const auto pTask =
        std::make_shared<CLS_ResultTask<std::decay_t<T_Callable>>>(std::forward<T_Callable>(_funTask));
    auto futResult = pTask->GetFuture();
    if (!_clsOwner.Submit([pTask] { pTask->Run(); }, _strCallInfo))
    {
        // The pool may have kept the task all the same, and may even run it.
        pTask->Cancel();
    }
    return futResult;
}
