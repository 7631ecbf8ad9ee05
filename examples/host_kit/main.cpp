#include "QuenHost/CLS_LoopTask.h"
#include "QuenHost/CLS_PoolScope.h"
#include "QuenHost/SubmitForResult.h"

#include <atomic>
#include <cstdio>

// Sums up in the background, and shows how far it is:  host_kit LIBRARY
int main(int argc, char** argv)
{
    try
    {
        std::atomic<int> iDone{0}; // what tasks use comes before the pool
        const CLS_PoolScope clsPool{CLS_PoolLibrary(argc > 1 ? argv[1] : CLS_PoolLibrary::UsualName())};
        CLS_TaskOwner clsOwner(clsPool.Functions(), "sums");
        const auto funShow = [&] { std::printf("%d done\n", iDone.load()); };
        const CLS_LoopTask clsShow(clsPool.Functions(), funShow, 200, "show");
        const auto funSum = [&]
        {
            int iSum = 0;
            for (; iDone < 1000; ++iDone)
            {
                iSum += iDone;
            }
            return iSum;
        };
        std::printf("sum: %d\n", SubmitForResult(clsOwner, funSum, "sum").get());
        return 0; // the loop task goes, then the owner with its tasks, then the pool
    }
    catch (const std::exception& error)
    {
        std::fprintf(stderr, "host_kit: %s\n", error.what());
        return 1;
    }
}
