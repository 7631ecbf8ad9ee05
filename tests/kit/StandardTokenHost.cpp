// A host in C++20 whose tasks take a std::stop_token:  zel_standard_token_host LIBRARY

#include "QuenHost/CLS_LoopTask.h"
#include "QuenHost/SubmitForResult.h"
#include "tests/support/Waiting.h"

#include <cstdio>
#include <stop_token>

int main(int, char** _ppTexts)
{
    const CLS_PoolScope clsPool{CLS_PoolLibrary(_ppTexts[1])};
    CLS_TaskOwner clsOwner(clsPool, "owner");
    CLS_Counter clsStarted;
    CLS_Counter clsStopped;
    const auto funTask = [&](std::stop_token _clsToken)
    {
        const std::stop_callback clsCallback(_clsToken, [&] { clsStopped.Add(); });
        clsStarted.Add();
        return WaitUntil([&] { return _clsToken.stop_requested(); });
    };
    const bool bTaken = clsOwner.Submit(funTask, "task");
    std::future<bool> futStopped = SubmitForResult(clsOwner, funTask, "result");
    CLS_LoopTask clsLoop(clsPool, funTask, 1, "loop");
    const bool bStarted = clsStarted.Wait(3);
    const bool bRemoved = clsOwner.RemoveTasks() && clsLoop.Remove();
    std::printf("taken: %d, started: %d, stopped: %d, removed: %d, result: %d\n", bTaken, bStarted,
                clsStopped.Wait(3), bRemoved, futStopped.get());
    return 0;
}
