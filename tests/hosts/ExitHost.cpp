// Exits with status 7 while the pool is busy, without a shutdown:  zel_exit_host LIBRARY FINISHED WAY
//
// First, FINISHED tasks run to their end. WAY is one of these:
// - return: main returns;
// - exit: the main thread calls std::exit;
// - task: a task calls std::exit.
//
// Prints "ending" just before that. Uses the pool again after the library's static objects were destroyed.

#include "tests/hosts/BusyPool.h"

namespace
{
constexpr int STATUS = 7;

/// The library, which is never closed.
CLS_HostLibrary* g_pPool = nullptr;
int g_iOwner = 0;

/// Destroyed after all objects of the library, because it was created before the library was opened.
class CLS_Last
{
public:
    ~CLS_Last()
    {
        if (g_pPool == nullptr)
        {
            return;
        }
        CLS_Counter& clsRuns = *new CLS_Counter;
        for (int i = 0; i < 100; ++i)
        {
            g_pPool->m_pAddTmpTask([&clsRuns] { clsRuns.Add(); }, &g_iOwner, "last");
        }
        const bool bLoops = BusyPool::GetRuns().Wait(BusyPool::GetRuns().Get() + 20);
        std::cout << "used at the very end: " << (clsRuns.Wait(100) && bLoops) << std::endl;
    }
};

CLS_Last g_clsLast;

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
    g_pPool = new CLS_HostLibrary(_ppTexts[1]);
    BusyPool::RunToTheEnd(*g_pPool, std::stoi(_ppTexts[2]));
    BusyPool::KeepBusy(*g_pPool);
    if (strWay == "task")
    {
        g_pPool->m_pAddTmpTask(
            []
            {
                TellTheEnd();
                std::exit(STATUS);
            },
            &g_iOwner, "exit");
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
