#pragma once

/// \file
/// Coroutines that move between workers and the host's thread. Without coroutines in the language or its
/// library, this file is empty.

#if __cplusplus >= 202002L
#include <version>
#endif

#if defined(__cpp_impl_coroutine) && defined(__cpp_lib_coroutine)

#include "QuenHost/CLS_HostThread.h"
#include "QuenHost/CLS_TaskOwner.h"
#include "QuenHost/PoolCall.h"

#include <coroutine>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <utility>

/// A coroutine that belongs to an owner:
///
///     CLS_Routine ShowPicture(CLS_HostThread _clsWindow, std::string _strPath)
///     {
///         co_await MoveToWorker("load");
///         CLS_Picture clsPicture = Load(_strPath);
///         co_await MoveToHost(_clsWindow, "show");
///         Show(clsPicture);
///     }
///
///     ShowPicture(clsWindow, strPath).Start(clsOwner);
///
/// A removal of the owner's tasks destroys the coroutine with its variables:
/// - while it waits for its turn: on the thread of the removal;
/// - while it runs: at its next co_await, on the thread of the run.
///
/// An exception after the first co_await is a failure of the owner.
///
/// Take parameters by value. The coroutine may outlive the objects to which a reference refers.
///
/// Threads: one at a time.
///
/// Owns: the coroutine until Start. If it is never started, the destructor destroys it.
class [[nodiscard]] CLS_Routine
{
public:
    class promise_type; // the name that the language requires

    /// Runs the coroutine on this thread up to its first co_await. Call it once.
    ///
    /// Fails: with what the coroutine throws until then.
    void Start(const CLS_TaskOwner& _clsOwner) &&;

private:
    using Handle = std::coroutine_handle<promise_type>;

    /// Owns a coroutine that is not running.
    class CLS_Suspended
    {
    public:
        explicit CLS_Suspended(Handle _hdlRoutine) : m_hdlRoutine(_hdlRoutine) {}
        CLS_Suspended(CLS_Suspended&& _clsOther) noexcept
            : m_hdlRoutine(std::exchange(_clsOther.m_hdlRoutine, nullptr))
        {
        }
        ~CLS_Suspended()
        {
            if (m_hdlRoutine)
            {
                m_hdlRoutine.destroy();
            }
        }

        CLS_Suspended(const CLS_Suspended&) = delete;
        CLS_Suspended& operator=(const CLS_Suspended&) = delete;
        CLS_Suspended& operator=(CLS_Suspended&&) = delete;

        /// Runs the coroutine up to its next co_await, once. Its exceptions propagate.
        void Resume(const CLS_StopToken& _clsToken);

        promise_type& GetPromise() const { return m_hdlRoutine.promise(); }

    private:
        Handle m_hdlRoutine; ///< null once resumed
    };

    /// What co_await waits for.
    class CLS_Move
    {
    public:
        CLS_Move(std::optional<CLS_HostThread> _optHost, std::string _strCallInfo)
            : m_optHost(std::move(_optHost)), m_strCallInfo(std::move(_strCallInfo))
        {
        }

        // The names that the language requires.
        bool await_ready() const noexcept { return false; }
        void await_suspend(Handle _hdlRoutine) noexcept; // NOLINT(bugprone-exception-escape): it catches all
        CLS_StopToken await_resume() const;

    private:
        const std::optional<CLS_HostThread> m_optHost; ///< empty for a worker
        const std::string m_strCallInfo;
        Handle m_hdlRoutine;
    };

    friend CLS_Move MoveToWorker(std::string _strCallInfo);
    friend CLS_Move MoveToHost(CLS_HostThread _clsHost, std::string _strCallInfo);

    explicit CLS_Routine(Handle _hdlRoutine) : m_clsSuspended(_hdlRoutine) {}

    CLS_Suspended m_clsSuspended;
};

/// co_await MoveToWorker("call information") continues the coroutine as a one-shot task of the owner. The
/// value is the CLS_StopToken of that task.
inline CLS_Routine::CLS_Move MoveToWorker(std::string _strCallInfo)
{
    return {std::nullopt, std::move(_strCallInfo)};
}

/// co_await MoveToHost(clsHost, "call information") continues the coroutine on the host's thread. The value
/// is a CLS_StopToken.
inline CLS_Routine::CLS_Move MoveToHost(CLS_HostThread _clsHost, std::string _strCallInfo)
{
    return {std::move(_clsHost), std::move(_strCallInfo)};
}

/// The coroutine's side. For the compiler and the kit.
class CLS_Routine::promise_type
{
public:
    CLS_Routine get_return_object() { return CLS_Routine(Handle::from_promise(*this)); }
    std::suspend_always initial_suspend() noexcept { return {}; }
    std::suspend_never final_suspend() noexcept { return {}; }
    void return_void() noexcept {}
    void unhandled_exception() noexcept { *m_pException = std::current_exception(); }

    ST_OwnerLink m_stLink;                      ///< set by the start
    CLS_StopToken m_clsToken;                   ///< of the run in progress
    std::exception_ptr* m_pException = nullptr; ///< where the run in progress leaves what it throws
};

inline void CLS_Routine::CLS_Suspended::Resume(const CLS_StopToken& _clsToken)
{
    std::exception_ptr pException;
    const Handle hdlRoutine = std::exchange(m_hdlRoutine, nullptr);
    hdlRoutine.promise().m_clsToken = _clsToken;
    hdlRoutine.promise().m_pException = &pException;
    hdlRoutine.resume(); // from here on, it may run on another thread, or be gone
    if (pException)
    {
        std::rethrow_exception(pException);
    }
}

inline void CLS_Routine::Start(const CLS_TaskOwner& _clsOwner) &&
{
    m_clsSuspended.GetPromise().m_stLink = _clsOwner.GetLink().Tie();
    m_clsSuspended.Resume(CLS_StopToken());
}

/// Hands the coroutine, which includes this object, to the run that continues it. If the run is refused, the
/// coroutine is destroyed.
// NOLINTNEXTLINE(bugprone-exception-escape): it catches all
inline void CLS_Routine::CLS_Move::await_suspend(Handle _hdlRoutine) noexcept
{
    m_hdlRoutine = _hdlRoutine;
    const ST_OwnerLink stLink = _hdlRoutine.promise().m_stLink;
    const auto funMove = [&]
    {
        CLS_Suspended clsSuspended(_hdlRoutine);
        const std::string strCallInfo = m_strCallInfo;
        const std::optional<CLS_HostThread> optHost = m_optHost;
        auto pTask =
            MakeCallableTask([clsSuspended = std::move(clsSuspended)](const CLS_StopToken& _clsToken) mutable
                             { clsSuspended.Resume(_clsToken); });
        optHost ? stLink.Post(optHost->GetPost(), std::move(pTask), strCallInfo)
                : stLink.Submit(std::move(pTask), strCallInfo);
    };
    const std::exception_ptr pException = PoolCall::Catch(funMove);
    if (pException && stLink.m_pHub)
    {
        stLink.m_pHub->Report(*stLink.m_pGroup, n_FailureKind::Threw, "coroutine", pException);
    }
}

inline CLS_StopToken CLS_Routine::CLS_Move::await_resume() const
{
    return m_hdlRoutine.promise().m_clsToken;
}

#endif
