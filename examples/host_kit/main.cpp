#include "QuenHost/CLS_LoopTask.h"
#include "QuenHost/CLS_PoolScope.h"
#include "QuenHost/SubmitForResult.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <thread>

void Nap()
{
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
}

// Works in the background until it goes.
class CLS_Window
{
public:
    explicit CLS_Window(const ST_PoolFunctions& _stFunctions) : m_clsTasks(_stFunctions, "window") {}
    ~CLS_Window() { m_bClosing = true; } // then the members go, the last one first

    bool StartDrawing()
    {
        return m_clsTasks.Submit([this] { Draw(); }, "drawing");
    }
    std::future<int> StartSum()
    {
        return SubmitForResult(
            m_clsTasks, [] { return 40 + 2; }, "sum");
    }

private:
    void Draw()
    {
        while (!m_bClosing) // a task that takes long looks at a flag
        {
            Nap();
        }
    }

    std::atomic<bool> m_bClosing{false};
    CLS_TaskOwner m_clsTasks; // cancels what has not begun, waits for what runs; the flag is still there
};

int main(int argc, char** argv)
{
    try
    {
        std::atomic<int> iTicks{0}; // what tasks use comes before the pool
        const CLS_PoolScope clsPool{CLS_PoolLibrary(argc > 1 ? argv[1] : CLS_PoolLibrary::UsualName())};
        const auto funTick = [&] { ++iTicks; };
        const CLS_LoopTask clsTick(clsPool.Functions(), funTick, 100, "tick"); // every 100 ms
        CLS_Window clsWindow(clsPool.Functions());
        for (int iDrawing = 0; iDrawing < 100; ++iDrawing)
        {
            if (!clsWindow.StartDrawing())
            {
                std::puts("a drawing was not taken");
            }
        }
        std::printf("sum: %d\n", clsWindow.StartSum().get());
        while (iTicks < 3)
        {
            Nap();
        }
        std::puts("three ticks");
        return 0; // the window goes with its tasks, then the loop task, then the pool
    }
    catch (const std::exception& error)
    {
        std::fprintf(stderr, "host_kit: %s\n", error.what());
        return 1;
    }
}
