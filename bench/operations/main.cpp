#include "QuenPlugins/ZelTaskPool/TaskPoolExports.h"

#include <benchmark/benchmark.h>

int main(int _iArguments, char** _ppArguments)
{
    benchmark::Initialize(&_iArguments, _ppArguments);
    if (benchmark::ReportUnrecognizedArguments(_iArguments, _ppArguments))
    {
        return EXIT_FAILURE;
    }
    // Two threads must not make the first use at the same time.
    RemoveTask("", "benchmark");
    benchmark::RunSpecifiedBenchmarks();
    UnInit();
    return EXIT_SUCCESS;
}
