#include "bench/support/Clocks.h"
#include "bench/workloads/Workloads.h"

#include <thread>

std::chrono::nanoseconds Workloads::SubmitFromThreads(CLS_System& _clsSystem, std::size_t _uiThreads,
                                                      std::size_t _uiTasksEach, CLS_Countdown& _clsDone)
{
    std::vector<std::chrono::nanoseconds> vecCpu(_uiThreads);
    std::vector<std::thread> vecThreads;
    vecThreads.reserve(_uiThreads);
    for (std::chrono::nanoseconds& nsCpu : vecCpu)
    {
        vecThreads.emplace_back(
            [&_clsSystem, &_clsDone, &nsCpu, _uiTasksEach]
            {
                const std::chrono::nanoseconds nsBefore = Clocks::GetThreadCpu();
                for (std::size_t i = 0; i < _uiTasksEach; ++i)
                {
                    _clsSystem.Submit([&_clsDone] { _clsDone.CountDown(); }, &nsCpu);
                }
                nsCpu = Clocks::GetThreadCpu() - nsBefore;
            });
    }
    std::chrono::nanoseconds nsTotal(0);
    for (std::size_t i = 0; i < _uiThreads; ++i)
    {
        vecThreads[i].join();
        nsTotal += vecCpu[i];
    }
    return nsTotal;
}
