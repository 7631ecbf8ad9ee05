#pragma once

#ifndef __cpp_exceptions
#error "A future reports by exceptions what went wrong: a program without them uses CLS_TaskOwner::Submit"
#endif

#include "QuenHost/Core/CLS_QueuedTask.h"

#include <exception>
#include <future>
#include <optional>
#include <type_traits>
#include <utility>

/// A callable on its way to the one run that fills a future.
///
/// The callable is destroyed on the thread that ran it, before the future is ready. Only the future keeps the
/// result or the exception. Without a future, the run destroys them.
///
/// A callable that never ran is destroyed on the thread of the removal. Its future then throws
/// std::future_error with broken_promise.
template <typename T_Callable>
class CLS_ResultTask final : public CLS_QueuedTask
{
public:
    using Result = HostCall::Result<T_Callable>; ///< what the callable returns

    static_assert(std::is_nothrow_destructible_v<T_Callable>,
                  "what a task captures must not throw at its end");

    /// Copies or moves the callable.
    template <typename T_Source>
    CLS_ResultTask(std::in_place_t /*_clsTag*/, T_Source&& _funTask)
        : m_funTask(std::forward<T_Source>(_funTask))
    {
    }

    /// The future of the result. Call it once.
    std::future<Result> GetFuture() { return m_optPromise->get_future(); }

    /// Runs the callable and fills the future. False when it threw.
    bool Run(const CLS_StopToken& _clsToken) override
    {
        try
        {
            if constexpr (std::is_void_v<Result>)
            {
                HostCall::Call(*m_funTask, _clsToken);
                m_funTask.reset();
                m_optPromise->set_value();
            }
            else
            {
                SetResult(HostCall::Call(*m_funTask, _clsToken));
            }
            return true;
        }
        catch (...)
        {
            m_funTask.reset();
            m_optPromise->set_exception(std::current_exception());
            return false;
        }
    }

    /// Destroys the callable, unless its run has done so, and a result without a future.
    void DestroyCallable() noexcept override
    {
        m_funTask.reset();
        m_optPromise.reset();
    }

private:
    template <typename T_Result>
    void SetResult(T_Result&& _clsResult)
    {
        m_funTask.reset();
        m_optPromise->set_value(std::forward<T_Result>(_clsResult));
    }

    std::optional<std::promise<Result>> m_optPromise{std::in_place};
    std::optional<T_Callable> m_funTask; ///< destroyed before the promise
};
