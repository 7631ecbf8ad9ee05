// A host that opens the library at run time with the host kit:  opened LIBRARY

#include "QuenHost/CLS_PoolScope.h"
#include "QuenHost/SubmitForResult.h"

#include <cstdio>
#include <future>
#include <vector>

namespace
{
int SumSquares(const CLS_PoolScope& _clsPool, int _iTasks)
{
    CLS_TaskOwner clsOwner(_clsPool, "consumer");
    std::vector<std::future<int>> vecSquares;
    for (int i = 0; i < _iTasks; ++i)
    {
        vecSquares.push_back(SubmitForResult(
            clsOwner, [i] { return i * i; }, "square"));
    }
    int iSum = 0;
    for (std::future<int>& clsSquare : vecSquares)
    {
        iSum += clsSquare.get();
    }
    return iSum;
}
} // namespace

int main(int argc, char** argv)
{
    try
    {
        constexpr int TASKS = 10;
        const CLS_PoolScope clsPool{CLS_PoolLibrary(argc > 1 ? argv[1] : CLS_PoolLibrary::GetUsualName())};
        std::printf("opened: sum of %d squares %d\n", TASKS, SumSquares(clsPool, TASKS));
        return 0;
    }
    catch (const std::exception& error)
    {
        std::fprintf(stderr, "opened: %s\n", error.what());
        return 1;
    }
}
