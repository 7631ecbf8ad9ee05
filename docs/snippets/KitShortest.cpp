#include "QuenHost/CLS_TaskOwner.h"

#include <chrono>
#include <cstdio>

int main()
{
    const CLS_PoolScope clsPool{
        CLS_PoolLibrary(CLS_PoolLibrary::GetUsualName())}; // the pool ends with this object
    CLS_TaskOwner clsTasks(clsPool, "example");            // its tasks end with this one
    const auto funTask = [](const CLS_StopToken& _clsToken)
    {
        while (_clsToken.SleepFor(std::chrono::milliseconds(100))) // until the owner goes
        {
            std::puts("working");
        }
    };
    return clsTasks.Submit(funTask, "work") ? 0 : 1;
}
