// Loads and unloads the pool's library:
//   zel_unload_host LIBRARY cycles   loads, uses, ends and unloads it 20 times
//   zel_unload_host LIBRARY late     unloads it while a run outlasts the pool's end, and lets it end then

#include "tests/hosts/PoolLibrary.h"
#include "tests/support/FastSleep.h"
#include "tests/support/ThreadCount.h"

#ifdef __APPLE__
#include <mach-o/dyld.h>
#else
#include <fstream>
#endif
#include <memory>

namespace
{
/// Whether the library's file is in the memory of the process.
bool IsMapped(const std::string& _strPath)
{
    const std::string strName = _strPath.substr(_strPath.rfind('/') + 1);
#ifdef __APPLE__
    for (std::uint32_t i = 0; i < _dyld_image_count(); ++i)
    {
        if (std::string(_dyld_get_image_name(i)).find(strName) != std::string::npos)
        {
            return true;
        }
    }
    return false;
#else
    std::ifstream fsMaps("/proc/self/maps");
    for (std::string strLine; std::getline(fsMaps, strLine);)
    {
        if (strLine.find(strName) != std::string::npos)
        {
            return true;
        }
    }
    return false;
#endif
}

void UsePool(CLS_PoolLibrary& _clsPool)
{
    CLS_Counter clsRuns;
    for (int i = 0; i < 20; ++i)
    {
        _clsPool.m_pAddTmpTask([&] { clsRuns.Add(); }, &clsRuns, "tmp");
    }
    std::string strTaskId;
    CLS_Counter clsLoops;
    _clsPool.m_pAddLoopTask([&] { clsLoops.Add(); }, 1, strTaskId, "loop");
    if (!clsRuns.Wait(20) || !clsLoops.Wait(3))
    {
        std::exit(4);
    }
    _clsPool.m_pUnInit();
}

int RunCycles(const std::string& _strPath)
{
    const int iThreads = CountThreads();
    for (int i = 0; i < 20; ++i)
    {
        CLS_PoolLibrary clsPool(_strPath);
        if (!IsMapped(_strPath))
        {
            std::cout << "not mapped when open" << std::endl;
            return 1;
        }
        UsePool(clsPool);
        clsPool.Close();
        if (IsMapped(_strPath) || !WaitForThreads(iThreads))
        {
            std::cout << "cycle " << i << ": mapped " << IsMapped(_strPath) << ", threads " << CountThreads()
                      << " instead of " << iThreads << std::endl;
            return 1;
        }
    }
    std::cout << "20 cycles" << std::endl;
    return 0;
}

int UnloadDuringRun(const std::string& _strPath)
{
    const auto pStarted = std::make_shared<CLS_Gate>();
    const auto pMayEnd = std::make_shared<CLS_Gate>();
    const int iThreads = CountThreads();
    CLS_PoolLibrary clsPool(_strPath);
    const auto funTask = [pStarted, pMayEnd]
    {
        pStarted->Open();
        if (!pMayEnd->Wait())
        {
            std::exit(4);
        }
    };
    clsPool.m_pAddTmpTask(funTask, pStarted.get(), "late");
    if (!pStarted->Wait())
    {
        return 4;
    }
    {
        const CLS_FastSleep clsFastSleep;
        clsPool.m_pUnInit();
    }
    clsPool.Close();
    std::cout << "mapped during the run: " << IsMapped(_strPath) << std::endl;
    std::cout << "thread there: " << (CountThreads() == iThreads + 1) << std::endl;
    pMayEnd->Open();
    std::cout << "thread gone: " << WaitForThreads(iThreads) << std::endl;

    CLS_PoolLibrary clsAgain(_strPath);
    UsePool(clsAgain);
    clsAgain.Close();
    std::cout << "used again" << std::endl;
    return 0;
}
} // namespace

int main(int _iCount, char** _ppTexts)
{
    if (_iCount != 3)
    {
        return 64;
    }
    return _ppTexts[2] == std::string("late") ? UnloadDuringRun(_ppTexts[1]) : RunCycles(_ppTexts[1]);
}
