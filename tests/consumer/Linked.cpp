// A host that is linked with the library: plain functions, and the pool's class.

#include "QuenPlugins/ZelTaskPool/CLS_QuenTaskPool.h"
#include "QuenPlugins/ZelTaskPool/TaskPoolExports.h"

#include <atomic>
#include <cstdio>
#include <future>

int main()
{
    constexpr int TASKS = 10;
    std::atomic<int> iSum{0};
    std::atomic<int> iLeft{TASKS};
    std::promise<void> clsDone;
    for (int i = 0; i < TASKS; ++i)
    {
        AddTmpTask(
            [&iSum, &iLeft, &clsDone, i]
            {
                iSum += i * i;
                if (--iLeft == 0)
                {
                    clsDone.set_value();
                }
            },
            &iSum, "consumer");
    }
    clsDone.get_future().wait();
    const bool bWorkers = CLS_QuenTaskPool::GetInstance()->GetTaskThreadNum() > 0;
    UnInit();
    std::printf("linked: sum of %d squares %d, workers %s\n", TASKS, iSum.load(), bWorkers ? "yes" : "no");
    return 0;
}
