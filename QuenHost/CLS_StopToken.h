#pragma once

#include "QuenHost/Core/CLS_StopState.h"

#include <chrono>
#include <functional>
#include <memory>
#include <utility>

/// Tells a task to stop. A task takes it as its argument, and checks it in loops or sleeps with it.
///
/// A removal requests the stop before it waits. Copies refer to the same request. A default-constructed token
/// never receives one.
///
/// Threads: any. A check takes no lock.
class CLS_StopToken
{
public:
    CLS_StopToken() = default;

    /// For the kit.
    explicit CLS_StopToken(std::shared_ptr<CLS_StopState> _pState) noexcept : m_pState(std::move(_pState)) {}

    /// Whether the task should end as soon as it can.
    bool IsStopRequested() const { return m_pState && m_pState->IsRequested(); }

    /// Sleeps. Returns true after _nsTime, and false as soon as a stop is requested.
    ///
    /// Waits: at most a year.
    bool SleepFor(std::chrono::nanoseconds _nsTime) const
    {
        return m_pState ? m_pState->SleepFor(_nsTime) : CLS_StopState().SleepFor(_nsTime);
    }

private:
    friend class CLS_StopCallback;

    std::shared_ptr<CLS_StopState> m_pState; ///< null: no stop is ever requested
};

/// Calls a function if a stop is requested while this object lives. With it, a task can be woken from any
/// wait.
///
/// Threads: the function runs on the thread that requests the stop, or in the constructor if the stop was
/// requested before. It must not throw.
///
/// Waits: the destructor waits for a call that is running on another thread.
class CLS_StopCallback : private CLS_StopState::ST_Callback
{
public:
    /// Registers the function.
    ///
    /// Fails: with std::bad_alloc.
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
    const std::shared_ptr<CLS_StopState> m_pState; ///< null: no stop is ever requested
};
