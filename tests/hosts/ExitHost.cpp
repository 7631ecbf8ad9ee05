// Ends with status 7 and without ending the pool, while it is busy:  zel_exit_host LIBRARY FINISHED WAY
// FINISHED tasks run to their end before. WAY is "return" (from main), "exit" (std::exit by the main thread)
// or "task" (std::exit by a task). Prints "ending" right before, and uses the pool once more when everything
// static of the library was destroyed.

#include "tests/hosts/PoolLibrary.h"
#include "tests/support/Waiting.h"

#include <atomic>
#include <stdexcept>

namespace
{
constexpr int STATUS = 7;

/// The library stays open for good.
CLS_PoolLibrary* s_pPool = nullptr;
int s_iOwner = 0;
std::atomic<int> s_iFinished{0};

/// The runs of the loop tasks, and more. Lives for ever, as what tasks of a process that ends use must.
CLS_Counter& s_clsBusy = *new CLS_Counter;

/// Destroyed after everything that the library made, for it is older than the library's being opened.
class CLS_Last
{
public:
    ~CLS_Last()
    {
        if (s_pPool == nullptr)
        {
            return;
        }
        CLS_Counter& clsRuns = *new CLS_Counter;
        for (int i = 0; i < 100; ++i)
        {
            s_pPool->m_pAddTmpTask([&clsRuns] { clsRuns.Add(); }, &s_iOwner, "last");
        }
        const bool bLoops = s_clsBusy.Wait(s_clsBusy.Get() + 20);
        std::cout << "used at the very end: " << (clsRuns.Wait(100) && bLoops) << std::endl;
    }
};

CLS_Last s_clsLast;

void RunToTheEnd(int _iTasks)
{
    for (int i = 0; i < _iTasks; ++i)
    {
        s_pPool->m_pAddTmpTask([] { ++s_iFinished; }, &s_iOwner, "finished");
    }
    if (!WaitUntil([_iTasks] { return s_iFinished == _iTasks; }, std::chrono::minutes(5)))
    {
        std::cerr << "only " << s_iFinished << " tasks finished\n";
        std::exit(4);
    }
}

/// Tasks that are in the middle of something when the process ends.
void KeepBusy()
{
    std::string strTaskId;
    s_pPool->m_pAddTmpTask(
        []
        {
            s_clsBusy.Add();
            std::this_thread::sleep_for(std::chrono::seconds(60));
        },
        &s_iOwner, "sleeping");
    s_pPool->m_pAddTmpTask(
        []
        {
            s_clsBusy.Add();
            const auto tpEnd = std::chrono::steady_clock::now() + std::chrono::seconds(60);
            while (std::chrono::steady_clock::now() < tpEnd)
            {
            }
        },
        &s_iOwner, "spinning");
    for (const int iInterval : {0, 0, 1, 10})
    {
        // Each run makes a record.
        s_pPool->m_pAddLoopTask(
            []
            {
                s_clsBusy.Add();
                throw std::runtime_error("logging");
            },
            iInterval, strTaskId, "loop");
    }
    if (!s_clsBusy.Wait(50))
    {
        std::exit(4);
    }
}

void TellTheEnd()
{
    std::cout << "ending" << std::endl;
}
} // namespace

int main(int _iCount, char** _ppTexts)
{
    if (_iCount != 4)
    {
        return 64;
    }
    const std::string strWay = _ppTexts[3];
    s_pPool = new CLS_PoolLibrary(_ppTexts[1]);
    RunToTheEnd(std::stoi(_ppTexts[2]));
    KeepBusy();
    if (strWay == "task")
    {
        s_pPool->m_pAddTmpTask(
            []
            {
                TellTheEnd();
                std::exit(STATUS);
            },
            &s_iOwner, "exit");
        std::this_thread::sleep_for(std::chrono::seconds(60));
        return 5;
    }
    TellTheEnd();
    if (strWay == "exit")
    {
        std::exit(STATUS);
    }
    return STATUS;
}
