// A host that is compiled without exceptions:  zel_no_exceptions_host LIBRARY
// Prints what it did with the pool, or why the pool is not available.

#include "QuenHost/CLS_LoopTask.h"
#include "QuenHost/CLS_PoolScope.h"
#include "QuenHost/CLS_TaskOwner.h"
#include "tests/support/Waiting.h"

#include <cstdio>

#ifdef __cpp_exceptions
#error "this host is meant to be compiled without exceptions"
#endif

int main(int _iCount, char** _ppTexts)
{
    std::string strError;
    std::optional<CLS_PoolLibrary> clsLibrary =
        CLS_PoolLibrary::Open(_iCount > 1 ? _ppTexts[1] : "", strError);
    if (!clsLibrary)
    {
        std::printf("%s\n", strError.c_str());
        return 1;
    }
    CLS_Counter clsTmpRuns;
    CLS_Counter clsLoopRuns;
    const CLS_PoolScope clsPool(std::move(*clsLibrary));
    CLS_TaskOwner clsOwner(clsPool, "owner");
    const CLS_LoopTask clsLoop(
        clsPool, [&] { clsLoopRuns.Add(); }, 1, "loop");
    const bool bTaken = clsOwner.Submit([&] { clsTmpRuns.Add(); }, "tmp");
    std::printf("taken: %s\n", bTaken ? "yes" : "no");
    std::printf("tmp task ran: %s\n", clsTmpRuns.Wait(1) ? "yes" : "no");
    std::printf("loop task ran: %s\n", clsLoopRuns.Wait(3) ? "yes" : "no");
    return 0;
}
