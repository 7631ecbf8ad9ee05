#pragma once

#ifndef __cpp_exceptions
#error "A future reports by exceptions what went wrong: a program without them uses CLS_TaskOwner::Submit"
#endif

#include <atomic>
#include <future>
#include <memory>
#include <type_traits>
#include <utility>

/// A callable on its way to the one run that fills a future. It is destroyed, with what it captured, as soon
/// as it has run or was cancelled, though the pool keeps the task for longer: before the future is ready, and
/// on the thread that ran or cancelled it. When it is destroyed without a run, and when it is cancelled, the
/// future gets std::future_error with broken_promise.
///
/// Run and Cancel are safe on any thread; the first of all calls wins, the others do nothing. Neither copied
/// nor moved.
template <typename T_Callable>
class CLS_ResultTask
{
public:
    using Result = std::invoke_result_t<T_Callable&>; ///< what the callable returns

    /// Takes the callable over. std::bad_alloc passes.
    explicit CLS_ResultTask(T_Callable _funTask)
        : m_funRun([this]() -> Result { return RunCallable(); }),
          m_pCallable(std::make_unique<T_Callable>(std::move(_funTask)))
    {
    }

    CLS_ResultTask(const CLS_ResultTask&) = delete;
    CLS_ResultTask& operator=(const CLS_ResultTask&) = delete;

    /// The future of the result. Once, before Run and Cancel; a second call throws std::future_error.
    std::future<Result> GetFuture() { return m_funRun.get_future(); }

    /// Runs the callable on this thread. What it throws goes into the future.
    void Run()
    {
        if (!m_bTaken.exchange(true))
        {
            m_funRun();
        }
    }

    /// Destroys the callable on this thread, unless it runs or has run: that is not waited for.
    void Cancel()
    {
        if (!m_bTaken.exchange(true))
        {
            m_pCallable.reset();
            m_funRun = {};
        }
    }

private:
    Result RunCallable()
    {
        const std::unique_ptr<T_Callable> pCallable = std::move(m_pCallable);
        return (*pCallable)();
    }

    std::atomic<bool> m_bTaken{false};
    /// For who has taken the task. The future shares what is in it, which is why that is not the callable.
    std::packaged_task<Result()> m_funRun;
    std::unique_ptr<T_Callable> m_pCallable;
};
