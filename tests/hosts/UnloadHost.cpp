// Loads and unloads the pool library:
//
//   zel_unload_host LIBRARY cycles COUNT MAPPINGS
//   zel_unload_host LIBRARY late
//   zel_unload_host LIBRARY hung
//
// - cycles: loads, uses, shuts down and unloads it COUNT times. Fails if a thread, a descriptor or more than
//   MAPPINGS memory mappings are left.
// - late: unloads it while a run outlasts the pool's end. The run ends afterwards.
// - hung: the same, but the run never ends. The process exits with status 7.

#include "tests/hosts/PoolLibrary.h"
#include "tests/support/FastSleep.h"
#include "tests/support/ProcessCounts.h"
#include "tests/support/ThreadCount.h"

#ifdef __APPLE__
#include <mach-o/dyld.h>
#else
#include <fstream>
#endif
#include <memory>

namespace
{
/// Whether the library's file is mapped in the process.
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

void UsePool(CLS_HostLibrary& _clsPool)
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

void RunCycle(const std::string& _strPath)
{
    CLS_HostLibrary clsPool(_strPath);
    if (!IsMapped(_strPath))
    {
        std::cout << "not mapped when open" << std::endl;
        std::exit(1);
    }
    UsePool(clsPool);
    clsPool.Close();
}

/// The first cycles leave stacks and arenas with the system's libraries, and later cycles reuse them. Their
/// number depends on how many threads ran at once. So only the mappings may grow by a few.
int RunCycles(const std::string& _strPath, int _iCycles, int _iMostMappings)
{
    const int iThreads = CountThreads();
    for (int i = 0; i < 3; ++i)
    {
        RunCycle(_strPath);
    }
    const int iDescriptors = CountDescriptors();
    const int iMappings = CountMappings();
    for (int i = 0; i < _iCycles; ++i)
    {
        RunCycle(_strPath);
        if (IsMapped(_strPath) || !WaitForThreads(iThreads) || CountDescriptors() != iDescriptors)
        {
            std::cout << "cycle " << i << ": mapped " << IsMapped(_strPath) << ", threads " << CountThreads()
                      << " instead of " << iThreads << ", descriptors " << CountDescriptors()
                      << " instead of " << iDescriptors << std::endl;
            return 1;
        }
    }
    const int iGrowth = CountMappings() - iMappings;
    std::cout << _iCycles << " cycles: " << iThreads << " threads, " << iDescriptors << " descriptors, "
              << iMappings << " mappings and " << iGrowth << " more at the end" << std::endl;
    return iGrowth <= _iMostMappings ? 0 : 1;
}

/// Unloads the library while a run outlasts the pool's end. The run ends afterwards. If it hangs, it ends
/// with the process.
int UnloadDuringRun(const std::string& _strPath, bool _bHangs)
{
    const auto pStarted = std::make_shared<CLS_Gate>();
    const auto pMayEnd = std::make_shared<CLS_Gate>();
    const int iThreads = CountThreads();
    CLS_HostLibrary clsPool(_strPath);
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
    if (_bHangs)
    {
        return 7;
    }
    pMayEnd->Open();
    std::cout << "thread gone: " << WaitForThreads(iThreads) << std::endl;

    CLS_HostLibrary clsAgain(_strPath);
    UsePool(clsAgain);
    clsAgain.Close();
    std::cout << "used again" << std::endl;
    return 0;
}
} // namespace

int main(int _iCount, char** _ppTexts)
{
    const std::string strWay = _iCount < 3 ? "" : _ppTexts[2];
    if (strWay == "cycles" && _iCount == 5)
    {
        return RunCycles(_ppTexts[1], std::stoi(_ppTexts[3]), std::stoi(_ppTexts[4]));
    }
    return strWay == "late" || strWay == "hung" ? UnloadDuringRun(_ppTexts[1], strWay == "hung") : 64;
}
