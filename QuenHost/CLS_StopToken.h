#pragma once

#include "QuenHost/Core/CLS_StopState.h"

#include <chrono>
#include <functional>
#include <memory>
#include <utility>

/// Tells a task that it is no longer wanted. A task takes it as its argument, and looks at it in its loops or
/// sleeps with it. Copies refer to the same request. A default-made token is never asked to stop.
///
/// The stop is requested by the removal of the task, before the removal waits.
///
/// Threads: any. A look takes no lock.
class CLS_StopToken
{
public:
    CLS_StopToken() = default;

    /// For the kit.
    explicit CLS_StopToken(std::shared_ptr<CLS_StopState> _pState) noexcept : m_pState(std::move(_pState)) {}

    /// Whether the task is to end as soon as it can.
    bool IsStopRequested() const { return m_pState && m_pState->IsRequested(); }

    /// Sleeps. True when the time has passed; false as soon as a stop is requested, or was before the call.
    ///
    /// Waits: at most a year.
    bool SleepFor(std::chrono::nanoseconds _nsTime) const
    {
        return m_pState ? m_pState->SleepFor(_nsTime) : CLS_StopState().SleepFor(_nsTime);
    }

private:
    friend class CLS_StopCallback;

    std::shared_ptr<CLS_StopState> m_pState; ///< null: never asked to stop
};

/// Calls a function when a stop is requested, as long as this object lives: for a task that blocks in
/// something that has a wake-up of its own.
///
/// Threads: the function runs on the thread that requests the stop, or in the constructor when that was
/// before. It must not throw.
/// Waits: the destructor, for the function that is running on another thread.
class CLS_StopCallback : private CLS_StopState::ST_Callback
{
public:
    /// Registers the function. std::bad_alloc passes.
    CLS_StopCallback(const CLS_StopToken& _clsToken, std::function<void()> _funCall)
        : ST_Callback(std::move(_funCall)), m_pState(_clsToken.m_pState)
    {
        if (m_pState && !m_pState->Register(*this))
        {
            m_funCall();
        }
    }

    ~CLS_StopCallback()
    {
        if (m_pState)
        {
            m_pState->Unregister(*this);
        }
    }

    CLS_StopCallback(const CLS_StopCallback&) = delete;
    CLS_StopCallback& operator=(const CLS_StopCallback&) = delete;

private:
    const std::shared_ptr<CLS_StopState> m_pState; ///< null: never asked to stop
};
