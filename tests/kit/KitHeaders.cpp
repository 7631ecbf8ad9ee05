// The kit's headers, with every template used once. Compiled in several languages, and without exceptions and
// run-time types; never run.

#include "QuenHost/CLS_LoopTask.h"
#include "QuenHost/CLS_TaskOwner.h"
#ifdef __cpp_exceptions
#include "QuenHost/SubmitForResult.h"
#endif

void UseKit(const CLS_PoolScope& _clsPool);

void UseKit(const CLS_PoolScope& _clsPool)
{
    CLS_TaskOwner clsOwner(_clsPool, "owner");
    bool bTaken = clsOwner.Submit([] {}, "plain");
    bTaken &=
        clsOwner.Submit([](const CLS_StopToken& _clsToken) { return _clsToken.IsStopRequested(); }, "token");
#ifdef __cpp_lib_jthread
    bTaken &=
        clsOwner.Submit([](const std::stop_token& _clsToken) { return _clsToken.stop_requested(); }, "token");
#endif
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
