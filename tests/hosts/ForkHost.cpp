// Starts children on the main thread and in tasks while the pool is busy:  zel_fork_host LIBRARY
//
// Each child executes this program with the argument "child". It then exits with status 9.

#include "tests/hosts/PoolLibrary.h"
#include "tests/support/Waiting.h"

#include <sys/wait.h>
#include <unistd.h>

namespace
{
int StartChild(char* _szSelf)
{
    char szChild[] = "child";
    char* const arrArguments[] = {_szSelf, szChild, nullptr};
    const pid_t iChild = fork();
    if (iChild == 0)
    {
        execv(_szSelf, arrArguments);
        _exit(5);
    }
    int iStatus = 0;
    if (iChild == -1 || waitpid(iChild, &iStatus, 0) != iChild || !WIFEXITED(iStatus))
    {
        return -1;
    }
    return WEXITSTATUS(iStatus);
}

/// Starts _iChildren children at once in tasks. Returns how many exit as expected.
int StartChildrenInTasks(const CLS_HostLibrary& _clsPool, char* _szSelf, int _iChildren)
{
    CLS_Counter clsEnded;
    CLS_Counter clsRight;
    for (int i = 0; i < _iChildren; ++i)
    {
        _clsPool.m_pAddTmpTask(
            [&, _szSelf]
            {
                if (StartChild(_szSelf) == 9)
                {
                    clsRight.Add();
                }
                clsEnded.Add();
            },
            &clsEnded, "child");
    }
    const bool bEnded = clsEnded.Wait(_iChildren);
    _clsPool.m_pRemoveTmpTask(&clsEnded, "child");
    return bEnded ? clsRight.Get() : -1;
}
} // namespace

int main(int _iCount, char** _ppTexts)
{
    if (_iCount == 2 && _ppTexts[1] == std::string("child"))
    {
        return 9;
    }
    if (_iCount != 2)
    {
        return 64;
    }
    CLS_HostLibrary clsPool(_ppTexts[1]);
    CLS_Counter clsLoops;
    std::string strTaskId;
    clsPool.m_pAddLoopTask([&] { clsLoops.Add(); }, 0, strTaskId, "loop");
    int iRight = 0;
    CLS_Counter clsRuns;
    for (int i = 0; i < 20; ++i)
    {
        for (int iTask = 0; iTask < 50; ++iTask)
        {
            clsPool.m_pAddTmpTask([&] { clsRuns.Add(); }, &clsRuns, "busy");
        }
        iRight += StartChild(_ppTexts[0]) == 9 ? 1 : 0;
    }
    std::cout << "children right: " << iRight << std::endl;
    std::cout << "children of tasks right: " << StartChildrenInTasks(clsPool, _ppTexts[0], 20) << std::endl;
    std::cout << "all ran: " << clsRuns.Wait(1000) << std::endl;
    std::cout << "loop goes on: " << clsLoops.Wait(clsLoops.Get() + 3) << std::endl;
    clsPool.m_pKillTask(strTaskId, "loop");
    clsPool.m_pKillTaskAll();
    return 0;
}
