#pragma once

#include "QuenHost/CLS_HostThread.h"
#include "QuenHost/Core/CLS_QueuedTask.h"
#include "QuenHost/Core/ST_OwnerLink.h"
#include "QuenHost/PoolCall.h"

#include <atomic>
#include <cstddef>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

/// \file
/// Runs the steps of CLS_Steps.
///
/// Each step is a task that owns the sink of its result. The sink owns the steps after it. So a cancelled
/// task cancels all steps after it.

/// The type in which a result is passed on. ST_Nothing stands for void.
template <typename T_Result>
using StepValue = std::conditional_t<std::is_void_v<T_Result>, HostCall::ST_Nothing, std::decay_t<T_Result>>;

/// The failure that a step passes on to the steps after it.
struct ST_StepFailure
{
    std::string m_strCallInfo; ///< empty if there was no memory for it
    std::exception_ptr m_pException;

    static ST_StepFailure Make(const std::string& _strCallInfo,
                               const std::exception_ptr& _pException) noexcept
    {
        ST_StepFailure stFailure{{}, _pException};
        PoolCall::Catch([&] { stFailure.m_strCallInfo = _strCallInfo; });
        return stFailure;
    }
};

/// Receives the result of a step.
///
/// One of its operations is called once, or none if the steps are cancelled. If Take throws, it has passed
/// nothing on, and Fail is called after it. _stLink refers to the owner of the steps.
///
/// Threads: the thread of the step's run.
template <typename T_Value>
class CLS_StepSink
{
public:
    CLS_StepSink() = default;
    virtual ~CLS_StepSink() = default;
    CLS_StepSink(const CLS_StepSink&) = delete;
    CLS_StepSink& operator=(const CLS_StepSink&) = delete;

    /// Takes the result.
    virtual void Take(const ST_OwnerLink& _stLink, T_Value&& _clsValue) = 0;

    /// Takes the failure, in place of a result.
    virtual void Fail(const ST_OwnerLink& _stLink, const ST_StepFailure& _stFailure) noexcept = 0;

    /// Takes note of a failure that an earlier OnFailure has handled, in place of a result.
    virtual void Skip(const ST_OwnerLink& _stLink, const ST_StepFailure& _stFailure) noexcept = 0;
};

/// The end of the steps. Drops a result, and reports a failure.
template <typename T_Value>
class CLS_EndSink final : public CLS_StepSink<T_Value>
{
public:
    void Take(const ST_OwnerLink& /*_stLink*/, T_Value&& /*_clsValue*/) override {}

    void Fail(const ST_OwnerLink& _stLink, const ST_StepFailure& _stFailure) noexcept override
    {
        _stLink.m_pHub->Report(*_stLink.m_pGroup, n_FailureKind::Threw, _stFailure.m_strCallInfo,
                               _stFailure.m_pException);
    }

    void Skip(const ST_OwnerLink& /*_stLink*/, const ST_StepFailure& /*_stFailure*/) noexcept override {}
};

/// A step that waits for its run on a worker or on the host's thread.
template <typename T_Callable, typename T_In, typename T_Out>
class CLS_StepTask final : public CLS_QueuedTask
{
public:
    static_assert(std::is_nothrow_destructible_v<T_Callable>,
                  "what a task captures must not throw at its end");

    CLS_StepTask(std::shared_ptr<CLS_PoolHub> _pHub, T_Callable&& _funStep, T_In&& _clsIn,
                 std::unique_ptr<CLS_StepSink<T_Out>>&& _pSink)
        : m_pHub(std::move(_pHub)), m_optCall(std::in_place, std::move(_funStep), std::move(_clsIn)),
          m_pSink(std::move(_pSink))
    {
    }

    /// Runs the callable, destroys it, and passes on its result or what it threw.
    bool Run(const CLS_StopToken& _clsToken) override
    {
        const ST_OwnerLink stLink{m_pHub, m_pGroup, m_pStop};
        const auto funRun = [&]
        {
            T_Out clsOut = Call(_clsToken);
            m_optCall.reset();
            m_pSink->Take(stLink, std::move(clsOut));
        };
        const std::exception_ptr pException = PoolCall::Catch(funRun);
        m_optCall.reset();
        if (pException)
        {
            m_pSink->Fail(stLink, ST_StepFailure::Make(m_strCallInfo, pException));
        }
        return !pException;
    }

    void DestroyCallable() noexcept override
    {
        m_optCall.reset();
        m_pSink.reset();
    }

    /// Gives the sink back if the task could not be started.
    std::unique_ptr<CLS_StepSink<T_Out>> TakeSink() noexcept { return std::move(m_pSink); }

private:
    struct ST_Call
    {
        ST_Call(T_Callable&& _funStep, T_In&& _clsIn)
            : m_funStep(std::move(_funStep)), m_clsIn(std::move(_clsIn))
        {
        }

        T_Callable m_funStep;
        T_In m_clsIn;
    };

    /// Calls the callable.
    T_Out Call(const CLS_StopToken& _clsToken)
    {
        if constexpr (std::is_same_v<T_Out, HostCall::ST_Nothing>)
        {
            HostCall::Call(m_optCall->m_funStep, _clsToken, std::move(m_optCall->m_clsIn));
            return {};
        }
        else
        {
            return HostCall::Call(m_optCall->m_funStep, _clsToken, std::move(m_optCall->m_clsIn));
        }
    }

    const std::shared_ptr<CLS_PoolHub> m_pHub;
    std::optional<ST_Call> m_optCall;
    std::unique_ptr<CLS_StepSink<T_Out>> m_pSink;
};

/// Where a step runs, and its call information.
struct ST_StepPlace
{
    std::string m_strCallInfo;
    std::optional<CLS_HostThread> m_optHost{}; ///< empty for a worker
};

/// Submits or posts a step. False if it is refused. Then the step and all steps after it are destroyed.
///
/// Fails: with what moving the arguments throws, and std::bad_alloc. Then the caller still has the sink.
template <typename T_Out, typename T_Callable, typename T_In>
bool StartStep(const ST_OwnerLink& _stLink, const ST_StepPlace& _stPlace, T_Callable&& _funStep,
               T_In&& _clsIn, std::unique_ptr<CLS_StepSink<T_Out>>&& _pSink)
{
    using Task = CLS_StepTask<std::decay_t<T_Callable>, std::decay_t<T_In>, T_Out>;
    auto pTask = std::make_unique<Task>(_stLink.m_pHub, std::forward<T_Callable>(_funStep),
                                        std::forward<T_In>(_clsIn), std::move(_pSink));
    Task& clsTask = *pTask;
    std::unique_ptr<CLS_QueuedTask> pQueued = std::move(pTask);
    bool bTaken = false;
    const auto funStart = [&]
    {
        bTaken = _stPlace.m_optHost
                     ? _stLink.Post(_stPlace.m_optHost->GetPost(), std::move(pQueued), _stPlace.m_strCallInfo)
                     : _stLink.Submit(std::move(pQueued), _stPlace.m_strCallInfo);
    };
    if (const std::exception_ptr pException = PoolCall::Catch(funStart))
    {
        _pSink = clsTask.TakeSink();
        std::rethrow_exception(pException);
    }
    return bTaken;
}

/// Starts the next step.
template <typename T_Callable, typename T_In, typename T_Out>
class CLS_ThenSink final : public CLS_StepSink<T_In>
{
public:
    CLS_ThenSink(ST_StepPlace _stPlace, T_Callable&& _funStep, std::unique_ptr<CLS_StepSink<T_Out>>&& _pNext)
        : m_stPlace(std::move(_stPlace)), m_funStep(std::move(_funStep)), m_pNext(std::move(_pNext))
    {
    }

    void Take(const ST_OwnerLink& _stLink, T_In&& _clsIn) override
    {
        StartStep<T_Out>(_stLink, m_stPlace, std::move(m_funStep), std::move(_clsIn), std::move(m_pNext));
    }

    void Fail(const ST_OwnerLink& _stLink, const ST_StepFailure& _stFailure) noexcept override
    {
        m_pNext->Fail(_stLink, _stFailure);
    }

    void Skip(const ST_OwnerLink& _stLink, const ST_StepFailure& _stFailure) noexcept override
    {
        m_pNext->Skip(_stLink, _stFailure);
    }

private:
    const ST_StepPlace m_stPlace;
    T_Callable m_funStep;
    std::unique_ptr<CLS_StepSink<T_Out>> m_pNext;
};

/// Calls the host's callable for a failure, and passes results on.
template <typename T_Callable, typename T_Value>
class CLS_FailureSink final : public CLS_StepSink<T_Value>
{
public:
    CLS_FailureSink(ST_StepPlace _stPlace, T_Callable&& _funOnFailure,
                    std::unique_ptr<CLS_StepSink<T_Value>>&& _pNext)
        : m_stPlace(std::move(_stPlace)), m_funOnFailure(std::move(_funOnFailure)), m_pNext(std::move(_pNext))
    {
    }

    void Take(const ST_OwnerLink& _stLink, T_Value&& _clsValue) override
    {
        m_pNext->Take(_stLink, std::move(_clsValue));
    }

    void Fail(const ST_OwnerLink& _stLink, const ST_StepFailure& _stFailure) noexcept override
    {
        if (PoolCall::Catch([&] { StartHandler(_stLink, _stFailure); }))
        {
            m_pNext->Fail(_stLink, _stFailure); // without memory, the next OnFailure takes it
        }
        else
        {
            m_pNext->Skip(_stLink, _stFailure);
        }
    }

    void Skip(const ST_OwnerLink& _stLink, const ST_StepFailure& _stFailure) noexcept override
    {
        m_pNext->Skip(_stLink, _stFailure);
    }

private:
    /// Starts the host's callable with the failure.
    void StartHandler(const ST_OwnerLink& _stLink, const ST_StepFailure& _stFailure)
    {
        ST_TaskFailure stFailure{n_FailureKind::Threw, _stLink.m_pGroup->m_strName, _stFailure.m_strCallInfo,
                                 _stFailure.m_pException};
        StartStep<HostCall::ST_Nothing>(_stLink, m_stPlace, std::move(m_funOnFailure), std::move(stFailure),
                                        MakeEnd());
    }

    /// The end of the steps after the host's callable.
    static std::unique_ptr<CLS_StepSink<HostCall::ST_Nothing>> MakeEnd()
    {
        return std::make_unique<CLS_EndSink<HostCall::ST_Nothing>>();
    }

    const ST_StepPlace m_stPlace;
    T_Callable m_funOnFailure;
    std::unique_ptr<CLS_StepSink<T_Value>> m_pNext;
};

/// Collects the results of several steps. The last step passes on the results, or the first failure.
///
/// Threads: any. One thread fills each place, and the last thread reads all of them.
template <typename T_Value>
class CLS_StepJoin
{
public:
    using Values = std::conditional_t<std::is_same_v<T_Value, HostCall::ST_Nothing>, HostCall::ST_Nothing,
                                      std::vector<T_Value>>;

    CLS_StepJoin(std::string _strCallInfo, std::size_t _uiCount,
                 std::unique_ptr<CLS_StepSink<Values>>&& _pNext)
        : m_strCallInfo(std::move(_strCallInfo)), m_vecPlaces(_uiCount), m_uiMissing(_uiCount),
          m_pNext(std::move(_pNext))
    {
    }

    CLS_StepJoin(const CLS_StepJoin&) = delete;
    CLS_StepJoin& operator=(const CLS_StepJoin&) = delete;

    void SetValue(const ST_OwnerLink& _stLink, std::size_t _uiPlace, T_Value&& _clsValue)
    {
        m_vecPlaces[_uiPlace].m_optValue.emplace(std::move(_clsValue));
        Arrive(_stLink);
    }

    void SetFailure(const ST_OwnerLink& _stLink, std::size_t _uiPlace,
                    const ST_StepFailure& _stFailure) noexcept
    {
        m_vecPlaces[_uiPlace].m_optFailure.emplace(
            ST_StepFailure::Make(_stFailure.m_strCallInfo, _stFailure.m_pException));
        Arrive(_stLink);
    }

    /// Sets the failure of a step that could not be started.
    void SetNotStarted(const ST_OwnerLink& _stLink, std::size_t _uiPlace,
                       const std::exception_ptr& _pException) noexcept
    {
        SetFailure(_stLink, _uiPlace, ST_StepFailure::Make(m_strCallInfo, _pException));
    }

    /// Passes on the results, or the failure if that throws.
    void Finish(const ST_OwnerLink& _stLink) noexcept
    {
        if (const std::exception_ptr pException = PoolCall::Catch([&] { PassOn(_stLink); }))
        {
            m_pNext->Fail(_stLink, ST_StepFailure::Make(m_strCallInfo, pException));
        }
    }

private:
    struct ST_Place
    {
        std::optional<T_Value> m_optValue;
        std::optional<ST_StepFailure> m_optFailure;
    };

    /// Passes on the results, or the first failure.
    void PassOn(const ST_OwnerLink& _stLink)
    {
        Values clsValues;
        for (ST_Place& stPlace : m_vecPlaces)
        {
            if (stPlace.m_optFailure)
            {
                m_pNext->Fail(_stLink, *stPlace.m_optFailure);
                return;
            }
            if constexpr (!std::is_same_v<T_Value, HostCall::ST_Nothing>)
            {
                clsValues.push_back(std::move(*stPlace.m_optValue));
            }
        }
        m_pNext->Take(_stLink, std::move(clsValues));
    }

    /// Counts a step that has ended.
    void Arrive(const ST_OwnerLink& _stLink) noexcept
    {
        if (m_uiMissing.fetch_sub(1, std::memory_order_acq_rel) == 1)
        {
            Finish(_stLink);
        }
    }

    const std::string m_strCallInfo;
    std::vector<ST_Place> m_vecPlaces;
    std::atomic<std::size_t> m_uiMissing;
    const std::unique_ptr<CLS_StepSink<Values>> m_pNext;
};

/// The sink of one of the joined steps.
template <typename T_Value>
class CLS_JoinSink final : public CLS_StepSink<T_Value>
{
public:
    CLS_JoinSink(std::shared_ptr<CLS_StepJoin<T_Value>> _pJoin, std::size_t _uiPlace)
        : m_pJoin(std::move(_pJoin)), m_uiPlace(_uiPlace)
    {
    }

    void Take(const ST_OwnerLink& _stLink, T_Value&& _clsValue) override
    {
        m_pJoin->SetValue(_stLink, m_uiPlace, std::move(_clsValue));
    }

    void Fail(const ST_OwnerLink& _stLink, const ST_StepFailure& _stFailure) noexcept override
    {
        m_pJoin->SetFailure(_stLink, m_uiPlace, _stFailure);
    }

    void Skip(const ST_OwnerLink& _stLink, const ST_StepFailure& _stFailure) noexcept override
    {
        m_pJoin->SetFailure(_stLink, m_uiPlace, _stFailure);
    }

private:
    const std::shared_ptr<CLS_StepJoin<T_Value>> m_pJoin;
    const std::size_t m_uiPlace;
};

/// The task of a callable that takes a reference to its owner.
template <typename T_Callable>
class CLS_LinkTask final : public CLS_QueuedTask
{
public:
    CLS_LinkTask(std::shared_ptr<CLS_PoolHub> _pHub, T_Callable&& _funTask)
        : m_pHub(std::move(_pHub)), m_optTask(std::move(_funTask))
    {
    }

    bool Run(const CLS_StopToken& /*_clsToken*/) override
    {
        (*m_optTask)(ST_OwnerLink{m_pHub, m_pGroup, m_pStop});
        return true;
    }

    void DestroyCallable() noexcept override { m_optTask.reset(); }

private:
    const std::shared_ptr<CLS_PoolHub> m_pHub;
    std::optional<T_Callable> m_optTask;
};
