#pragma once

#include "QuenHost/Core/CLS_Chain.h"
#include "QuenHost/Core/CLS_StopState.h"
#include "QuenHost/Core/HostCall.h"

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>

class CLS_TaskGroup;
class CLS_Ticket;

/// A callable that waits for its run, or the callable of a loop task.
///
/// Threads: one at a time, which the hub ensures. The hub's mutex guards the links.
///
/// Owns: the callable. It is destroyed once: by DestroyCallable or with this object.
class CLS_QueuedTask
{
public:
    /// Tasks by the time at which they are due.
    using Delayed = std::multimap<std::chrono::steady_clock::time_point, CLS_QueuedTask*>;

    CLS_QueuedTask() = default;
    virtual ~CLS_QueuedTask() = default;
    CLS_QueuedTask(const CLS_QueuedTask&) = delete;
    CLS_QueuedTask& operator=(const CLS_QueuedTask&) = delete;

    /// Calls the callable.
    ///
    /// Fails: exceptions of the callable propagate. A task that keeps them, as for a future, returns false.
    virtual bool Run(const CLS_StopToken& _clsToken) = 0;

    /// Destroys the callable, with what it captured.
    virtual void DestroyCallable() noexcept = 0;

    std::shared_ptr<CLS_TaskGroup> m_pGroup; ///< whose task it is
    /// Asks the task to stop. If it is set at the submission, the task is refused after the next removal.
    /// Otherwise the hub sets it.
    std::shared_ptr<CLS_StopState> m_pStop;
    std::string m_strCallInfo;
    bool m_bContinues = false;    ///< it continues a task, and is not counted when it is submitted
    bool m_bContinued = false;    ///< another task continues it, and is counted as its run; set by its run
    std::uint64_t m_uiNumber = 0; ///< tells the tasks of a hub apart
    std::chrono::steady_clock::time_point m_tpQueued;
    ST_Link<CLS_QueuedTask> m_stQueueLink; ///< in the hub's queue
    ST_Link<CLS_QueuedTask> m_stGroupLink; ///< in one of the chains of its group
    Delayed::iterator m_itDelayed;         ///< its entry in the hub's map, while it is delayed
    CLS_Ticket* m_pTicket = nullptr;       ///< of a delivery: the host thread's reference to it
};

/// The task of a callable without a result.
template <typename T_Callable>
class CLS_CallableTask final : public CLS_QueuedTask
{
public:
    static_assert(std::is_nothrow_destructible_v<T_Callable>,
                  "what a task captures must not throw at its end");

    template <typename T_Source>
    CLS_CallableTask(std::in_place_t /*_clsTag*/, T_Source&& _funTask)
        : m_funTask(std::forward<T_Source>(_funTask))
    {
    }

    bool Run(const CLS_StopToken& _clsToken) override
    {
        static_cast<void>(HostCall::Call(*m_funTask, _clsToken));
        return true;
    }

    void DestroyCallable() noexcept override { m_funTask.reset(); }

private:
    std::optional<T_Callable> m_funTask;
};

/// The task of a callable, which is copied or moved; null for an empty one.
template <typename T_Callable>
std::unique_ptr<CLS_QueuedTask> MakeCallableTask(T_Callable&& _funTask)
{
    using Callable = std::decay_t<T_Callable>;
    return HostCall::IsEmpty<Callable>(_funTask) ? nullptr
                                                 : std::make_unique<CLS_CallableTask<Callable>>(
                                                       std::in_place, std::forward<T_Callable>(_funTask));
}
