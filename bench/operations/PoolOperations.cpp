// The pool's bare functions. Each finished task leaves a task record behind, so the number of steps is fixed.

#include "QuenPlugins/ZelTaskPool/TaskPoolExports.h"

#include <benchmark/benchmark.h>

namespace
{
constexpr int STEPS = 10000;
const std::string CALL_INFO = "benchmark";

/// Each submitter is an owner. Tasks run in parallel; the wait for the last ones is not part of the time.
void SubmitTask(benchmark::State& _clsState)
{
    char cOwner = 0;
    for ([[maybe_unused]] const auto itStep : _clsState)
    {
        benchmark::DoNotOptimize(AddTmpTask([] {}, &cOwner, CALL_INFO));
    }
    RemoveTmpTask(&cOwner, CALL_INFO);
}

void AddAndRemoveLoopTask(benchmark::State& _clsState)
{
    std::string strTaskId;
    for ([[maybe_unused]] const auto itStep : _clsState)
    {
        AddLoopTask([] {}, 1000000, strTaskId, CALL_INFO);
        RemoveTask(strTaskId, CALL_INFO);
    }
}

void RemoveUnknownOwner(benchmark::State& _clsState)
{
    char cOwner = 0;
    for ([[maybe_unused]] const auto itStep : _clsState)
    {
        RemoveTmpTask(&cOwner, CALL_INFO);
    }
}

BENCHMARK(SubmitTask)->Iterations(STEPS)->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK(AddAndRemoveLoopTask)->Iterations(STEPS)->UseRealTime();
BENCHMARK(RemoveUnknownOwner);
} // namespace
