#pragma once

#include "QuenHost/CLS_HostThread.h"
#include "QuenHost/CLS_TaskOwner.h"
#include "QuenHost/Core/StepTasks.h"

#include <cstddef>
#include <exception>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

template <typename T_Result>
class CLS_Steps;

template <typename T_Callable>
auto FirstStep(T_Callable&& _funStep, std::string _strCallInfo);

template <typename T_Result>
auto WhenAll(std::vector<CLS_Steps<T_Result>> _vecSteps, std::string _strCallInfo);

/// Work in steps: each step starts when the one before it has a result.
///
/// First put the steps together, then submit them for an owner:
///
///     FirstStep(Load, "load").Then(Scale, "scale").Deliver(clsWindow, Show, "show").Submit(clsOwner)
///
/// A step takes the result of the one before it, if there is one, and then a stop token or nothing. A step
/// that waits for another one occupies no worker. The next removal of the owner's tasks cancels all steps
/// that have not started.
///
/// If a step throws, the steps after it are skipped. The exception goes to the nearest OnFailure after the
/// step, or else to the owner's failure handler. The same happens with std::bad_alloc if there is no memory
/// to start the next step.
///
/// Threads: one at a time, until it is submitted.
///
/// Owns: the callables. Each is destroyed when its run has ended, before the next step starts. One that never
/// runs is destroyed on the thread that cancels it, or on the thread of the step that threw.
template <typename T_Result>
class CLS_Steps
{
public:
    using Value = StepValue<T_Result>; ///< the result of the last step

    /// Adds a step that runs on a worker.
    template <typename T_Callable>
    [[nodiscard]] auto Then(T_Callable&& _funStep, std::string _strCallInfo) &&
    {
        return std::move(*this).Add(std::forward<T_Callable>(_funStep), {std::move(_strCallInfo)});
    }

    /// Adds a step that runs on the host's thread.
    template <typename T_Callable>
    [[nodiscard]] auto Deliver(CLS_HostThread _clsHost, T_Callable&& _funStep, std::string _strCallInfo) &&
    {
        return std::move(*this).Add(std::forward<T_Callable>(_funStep),
                                    {std::move(_strCallInfo), std::move(_clsHost)});
    }

    /// Handles a failure of the steps before this: calls _funOnFailure on the host's thread.
    ///
    /// Its argument is the ST_TaskFailure. The steps after this are then skipped.
    template <typename T_Callable>
    [[nodiscard]] CLS_Steps OnFailure(CLS_HostThread _clsHost, T_Callable&& _funOnFailure,
                                      std::string _strCallInfo) &&
    {
        using Callable = std::decay_t<T_Callable>;
        if (!m_pStart || HostCall::IsEmpty<Callable>(_funOnFailure))
        {
            return CLS_Steps();
        }
        return Make(
            [pStart = std::move(m_pStart), funOnFailure = Callable(std::forward<T_Callable>(_funOnFailure)),
             stPlace = ST_StepPlace{std::move(_strCallInfo), std::move(_clsHost)}](
                const ST_OwnerLink& _stLink, std::unique_ptr<CLS_StepSink<Value>> _pNext) mutable
            {
                return pStart->Start(_stLink,
                                     std::make_unique<CLS_FailureSink<Callable, Value>>(
                                         std::move(stPlace), std::move(funOnFailure), std::move(_pNext)));
            });
    }

    /// Queues the first step for the owner.
    ///
    /// Returns false, and destroys the callables, if one of them is empty or for the reasons of
    /// CLS_TaskOwner::Submit.
    ///
    /// Waits: for no task; a few steps for a lock.
    ///
    /// Fails: with std::bad_alloc. Then nothing was queued.
    [[nodiscard]] bool Submit(const CLS_TaskOwner& _clsOwner) &&
    {
        const std::unique_ptr<CLS_Start> pStart = std::move(m_pStart);
        const ST_OwnerLink stLink = _clsOwner.GetLink();
        return pStart && stLink.m_pHub && pStart->Start(stLink, std::make_unique<CLS_EndSink<Value>>());
    }

private:
    template <typename T_Other>
    friend class CLS_Steps;
    template <typename T_Callable>
    friend auto FirstStep(T_Callable&& _funStep, std::string _strCallInfo);
    template <typename T_Other>
    friend auto WhenAll(std::vector<CLS_Steps<T_Other>> _vecSteps, std::string _strCallInfo);

    /// How the steps start, once their end is known.
    class CLS_Start
    {
    public:
        CLS_Start() = default;
        virtual ~CLS_Start() = default;
        CLS_Start(const CLS_Start&) = delete;
        CLS_Start& operator=(const CLS_Start&) = delete;

        /// Starts the first step, once. False if it is refused.
        virtual bool Start(const ST_OwnerLink& _stLink, std::unique_ptr<CLS_StepSink<Value>> _pEnd) = 0;
    };

    template <typename T_Start>
    class CLS_CallableStart final : public CLS_Start
    {
    public:
        explicit CLS_CallableStart(T_Start&& _funStart) : m_funStart(std::move(_funStart)) {}

        bool Start(const ST_OwnerLink& _stLink, std::unique_ptr<CLS_StepSink<Value>> _pEnd) override
        {
            return m_funStart(_stLink, std::move(_pEnd));
        }

    private:
        T_Start m_funStart;
    };

    CLS_Steps() = default;

    template <typename T_Start>
    static CLS_Steps Make(T_Start _funStart)
    {
        CLS_Steps clsSteps;
        clsSteps.m_pStart = std::make_unique<CLS_CallableStart<T_Start>>(std::move(_funStart));
        return clsSteps;
    }

    template <typename T_Callable>
    auto Add(T_Callable&& _funStep, ST_StepPlace _stPlace) &&
    {
        using Callable = std::decay_t<T_Callable>;
        using Result = HostCall::Result<Callable, Value>;
        using Next = CLS_Steps<std::conditional_t<std::is_void_v<Result>, void, std::decay_t<Result>>>;
        if (!m_pStart || HostCall::IsEmpty<Callable>(_funStep))
        {
            return Next();
        }
        return Next::Make(
            [pStart = std::move(m_pStart), funStep = Callable(std::forward<T_Callable>(_funStep)),
             stPlace =
                 std::move(_stPlace)](const ST_OwnerLink& _stLink,
                                      std::unique_ptr<CLS_StepSink<typename Next::Value>> _pNext) mutable
            {
                return pStart->Start(_stLink,
                                     std::make_unique<CLS_ThenSink<Callable, Value, typename Next::Value>>(
                                         std::move(stPlace), std::move(funStep), std::move(_pNext)));
            });
    }

    std::unique_ptr<CLS_Start> m_pStart; ///< null if a callable is empty, and after Submit
};

/// Makes the first step. It runs on a worker, and takes a stop token or nothing.
template <typename T_Callable>
[[nodiscard]] auto FirstStep(T_Callable&& _funStep, std::string _strCallInfo)
{
    using Callable = std::decay_t<T_Callable>;
    using Result = HostCall::Result<Callable, HostCall::ST_Nothing>;
    using Steps = CLS_Steps<std::conditional_t<std::is_void_v<Result>, void, std::decay_t<Result>>>;
    if (HostCall::IsEmpty<Callable>(_funStep))
    {
        return Steps();
    }
    return Steps::Make(
        [funStep = Callable(std::forward<T_Callable>(_funStep)),
         stPlace = ST_StepPlace{std::move(_strCallInfo)}](
            const ST_OwnerLink& _stLink, std::unique_ptr<CLS_StepSink<typename Steps::Value>> _pNext) mutable
        {
            return StartStep<typename Steps::Value>(_stLink, stPlace, std::move(funStep),
                                                    HostCall::ST_Nothing(), std::move(_pNext));
        });
}

/// Starts all elements of _vecSteps, and passes on their results when the last one has ended.
///
/// - Each starts as soon as the owner's limit and a worker allow.
/// - The next step takes a std::vector of the results in the order of _vecSteps, or nothing if they are void.
/// - If some throw, it passes on the first failure in that order. This includes a failure that an element has
///   passed to an OnFailure of its own.
template <typename T_Result>
[[nodiscard]] auto WhenAll(std::vector<CLS_Steps<T_Result>> _vecSteps, std::string _strCallInfo)
{
    using Value = StepValue<T_Result>;
    using Join = CLS_StepJoin<Value>;
    using Steps = CLS_Steps<std::conditional_t<std::is_void_v<T_Result>, void, typename Join::Values>>;
    for (const CLS_Steps<T_Result>& clsSteps : _vecSteps)
    {
        if (!clsSteps.m_pStart)
        {
            return Steps();
        }
    }
    return Steps::Make(
        [vecSteps = std::move(_vecSteps), strCallInfo = std::move(_strCallInfo)](
            const ST_OwnerLink& _stLink, std::unique_ptr<CLS_StepSink<typename Join::Values>> _pNext) mutable
        {
            auto pJoin = std::make_shared<Join>(strCallInfo, vecSteps.size(), std::move(_pNext));
            auto funStartAll = [vecSteps = std::move(vecSteps), pJoin](const ST_OwnerLink& _stTied)
            {
                for (std::size_t uiStep = 0; uiStep < vecSteps.size(); ++uiStep)
                {
                    const auto funStart = [&] {
                        vecSteps[uiStep].m_pStart->Start(
                            _stTied, std::make_unique<CLS_JoinSink<Value>>(pJoin, uiStep));
                    };
                    if (const std::exception_ptr pException = PoolCall::Catch(funStart))
                    {
                        pJoin->SetNotStarted(_stTied, uiStep, pException);
                    }
                }
                if (vecSteps.empty())
                {
                    pJoin->Finish(_stTied);
                }
            };
            return _stLink.Submit(
                std::make_unique<CLS_LinkTask<decltype(funStartAll)>>(_stLink.m_pHub, std::move(funStartAll)),
                strCallInfo);
        });
}
