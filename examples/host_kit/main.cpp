#include "QuenHost/CLS_LoopTask.h"
#include "QuenHost/CLS_PoolScope.h"
#include "QuenHost/SubmitForResult.h"

#include <chrono>
#include <cstdio>
#include <future>

// Works in the background until it closes.
class CLS_Window
{
public:
    explicit CLS_Window(const CLS_PoolScope& _clsPool) : m_clsTasks(_clsPool, "window") {}

    bool StartDrawing()
    {
        return m_clsTasks.Submit([](const CLS_StopToken& _clsToken) { Draw(_clsToken); }, "drawing");
    }
    std::future<int> StartSum()
    {
        return SubmitForResult(
            m_clsTasks, [] { return 40 + 2; }, "sum");
    }

private:
    static void Draw(const CLS_StopToken& _clsToken)
    {
        while (_clsToken.SleepFor(std::chrono::milliseconds(10))) // until the window closes
        {
        }
    }

    CLS_TaskOwner m_clsTasks; // the last member, so that it is destroyed first
};

int main(int argc, char** argv)
{
    try
    {
        std::promise<void> clsThreeTicks; // what tasks use comes before the pool
        const CLS_PoolScope clsPool{CLS_PoolLibrary(argc > 1 ? argv[1] : CLS_PoolLibrary::GetUsualName())};
        const auto funTick = [&, iTicks = 0]() mutable
        {
            if (++iTicks == 3)
            {
                clsThreeTicks.set_value();
            }
        };
        const CLS_LoopTask clsTick(clsPool, funTick, 100, "tick"); // every 100 ms
        CLS_Window clsWindow(clsPool);
        for (int iDrawing = 0; iDrawing < 100; ++iDrawing)
        {
            if (!clsWindow.StartDrawing())
            {
                std::puts("a drawing was not taken");
            }
        }
        std::printf("sum: %d\n", clsWindow.StartSum().get());
        clsThreeTicks.get_future().wait();
        std::puts("three ticks");
        return 0; // the window ends with its tasks, then the loop task, then the pool
    }
    catch (const std::exception& error)
    {
        std::fprintf(stderr, "host_kit: %s\n", error.what());
        return 1;
    }
}
