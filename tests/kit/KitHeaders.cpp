// Uses every template of the kit's headers once. Compiled for several C++ standards, and without exceptions
// and run-time type information; never run.

#include "QuenHost/CLS_Debounce.h"
#include "QuenHost/CLS_Delivery.h"
#include "QuenHost/CLS_LoopTask.h"
#include "QuenHost/CLS_Routine.h"
#include "QuenHost/CLS_Steps.h"
#include "QuenHost/CLS_TaskOwner.h"
#include "QuenHost/SubmitAndDeliver.h"
#ifdef __cpp_exceptions
#include "QuenHost/SubmitForResult.h"
#endif

void UseKit(const CLS_PoolScope& _clsPool);
bool UseSteps(const CLS_TaskOwner& _clsOwner, const CLS_HostThread& _clsHost);

#ifdef __cpp_lib_coroutine
static CLS_Routine Move(CLS_HostThread _clsHost)
{
    co_await MoveToWorker("worker");
    co_await MoveToHost(std::move(_clsHost), "host");
}
#endif

bool UseSteps(const CLS_TaskOwner& _clsOwner, const CLS_HostThread& _clsHost)
{
    std::vector<CLS_Steps<int>> vecNumbers;
    vecNumbers.push_back(FirstStep([] { return 1; }, "number"));
    std::vector<CLS_Steps<void>> vecNothing;
    vecNothing.push_back(WhenAll(std::move(vecNumbers), "all").Then([](const std::vector<int>&) {}, "then"));
    bool bTaken = WhenAll(std::move(vecNothing), "all")
                      .OnFailure(
                          _clsHost, [](const ST_TaskFailure&) {}, "failure")
                      .Submit(_clsOwner);
    bTaken &= SubmitAndDeliver(
        _clsOwner, _clsHost, [](const CLS_StopToken&) { return 1; }, [](int) {}, "deliver");
    bTaken &= CLS_Delivery(_clsOwner, _clsHost).Post([] {}, "post");
#ifdef __cpp_lib_coroutine
    Move(_clsHost).Start(_clsOwner);
#endif
    return bTaken;
}

void UseKit(const CLS_PoolScope& _clsPool)
{
    ST_OwnerOptions stOptions;
    stOptions.m_uiMaxRunning = 2;
    CLS_TaskOwner clsOwner(_clsPool, "owner", stOptions);
    bool bTaken = clsOwner.Submit([] {}, "plain");
    bTaken &=
        clsOwner.Submit([](const CLS_StopToken& _clsToken) { return _clsToken.IsStopRequested(); }, "token");
#ifdef __cpp_lib_jthread
    bTaken &=
        clsOwner.Submit([](const std::stop_token& _clsToken) { return _clsToken.stop_requested(); }, "token");
#endif
    bTaken &= clsOwner.SubmitAfter(
        std::chrono::milliseconds(1), [] {}, "later");
    CLS_Debounce clsDebounce(
        clsOwner, std::chrono::milliseconds(1), [] {}, "debounce");
    bTaken &= clsDebounce.Trigger();
    bTaken &= UseSteps(clsOwner, CLS_HostThread([](const std::function<void()>& _funCall) { _funCall(); }));
    CLS_LoopTask clsLoop(
        _clsPool, [&bTaken] { bTaken = false; }, 1, "loop");
    clsLoop.RemoveLater();
    clsOwner.RemoveTasksLater();
#ifdef __cpp_exceptions
    bTaken &= SubmitForResult(
                  clsOwner, [] { return true; }, "result")
                  .get();
#endif
    std::puts(bTaken ? _clsPool.TakeSnapshot().ToText().c_str() : "");
}
