// A host that links the library.

#include "QuenHost/SubmitForResult.h"

#include <cstdio>

int main()
{
    const CLS_PoolScope clsPool(CLS_PoolLibrary::OpenLinked());
    CLS_TaskOwner clsOwner(clsPool, "owner");
    std::future<int> futResult = SubmitForResult(
        clsOwner, [] { return 42; }, "result");
    std::printf("result: %d\n", futResult.get());
    std::printf("workers of the pool: %s\n", clsPool.TakeSnapshot().m_iPoolWorkers ? "told" : "not told");
    return 0;
}
