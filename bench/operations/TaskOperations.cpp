// Task records and their registry.

#include "QuenPlugins/ZelTaskPool/CLS_Task.h"

#include <benchmark/benchmark.h>
#include <vector>

namespace
{
constexpr int ONE_SHOT = -1;
const std::string CALL_INFO = "benchmark";

/// Fills the registry for its lifetime.
class CLS_Registered
{
public:
    explicit CLS_Registered(std::int64_t _iTasks)
    {
        for (std::int64_t i = 0; i < _iTasks; ++i)
        {
            m_vecIds.push_back(CLS_Task::CreateTask([] {}, ONE_SHOT, CALL_INFO)->GetId());
        }
    }

    ~CLS_Registered()
    {
        for (const std::string& strId : m_vecIds)
        {
            CLS_Task::DeleteTask(strId);
        }
    }

    CLS_Registered(const CLS_Registered&) = delete;
    CLS_Registered& operator=(const CLS_Registered&) = delete;

    const std::vector<std::string>& GetIds() const { return m_vecIds; }

private:
    std::vector<std::string> m_vecIds;
};

void CreateAndDeleteTask(benchmark::State& _clsState)
{
    const CLS_Registered clsOthers(_clsState.range(0));
    for ([[maybe_unused]] const auto itStep : _clsState)
    {
        CLS_Task::DeleteTask(CLS_Task::CreateTask([] {}, ONE_SHOT, CALL_INFO)->GetId());
    }
}

void GetTask(benchmark::State& _clsState)
{
    const CLS_Registered clsTasks(_clsState.range(0));
    std::size_t uiNext = 0;
    for ([[maybe_unused]] const auto itStep : _clsState)
    {
        benchmark::DoNotOptimize(CLS_Task::GetTask(clsTasks.GetIds()[uiNext]).lock());
        // A stride that visits all tasks in an order that defeats the caches.
        uiNext = (uiNext + 7919) % clsTasks.GetIds().size();
    }
}

void RunEmptyTask(benchmark::State& _clsState)
{
    const CLS_Registered clsTask(1);
    const std::shared_ptr<CLS_Task> pTask = CLS_Task::GetTask(clsTask.GetIds().front()).lock();
    for ([[maybe_unused]] const auto itStep : _clsState)
    {
        pTask->Running();
    }
}

void DescribeTask(benchmark::State& _clsState)
{
    const CLS_Registered clsTask(1);
    const std::shared_ptr<CLS_Task> pTask = CLS_Task::GetTask(clsTask.GetIds().front()).lock();
    for ([[maybe_unused]] const auto itStep : _clsState)
    {
        benchmark::DoNotOptimize(pTask->ParamToString());
    }
}

BENCHMARK(CreateAndDeleteTask)->ArgName("registered")->Arg(0)->Arg(10000)->Arg(100000);
BENCHMARK(GetTask)->ArgName("registered")->Arg(1)->Arg(10000)->Arg(100000);
BENCHMARK(RunEmptyTask);
BENCHMARK(DescribeTask);
} // namespace
