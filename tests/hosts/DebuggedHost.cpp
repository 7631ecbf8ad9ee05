// Waits for a debugger until a signal ends it:  zel_debugged_host LIBRARY none|few|full
//
// - none: there is no pool.
// - few: a loop task has run. An owner has three tasks: two run, and one has run.
// - full: each worker runs a task, and one task waits. At SIGUSR1, 30 more tasks wait.
//
// Prints "ready" and the process id, and "more" after SIGUSR1.

#include "tests/hosts/PoolLibrary.h"
#include "tests/support/Waiting.h"

#include <csignal>
#include <cstdio>
#include <string>
#include <sys/prctl.h>
#include <unistd.h>

namespace
{
constexpr int MOST_WORKERS = 301;

/// The objects that the tasks use. They are never destroyed, because the tasks run until the process ends.
struct ST_State
{
    CLS_Counter m_clsStarted;
    CLS_Counter m_clsLoops;
    CLS_Gate m_clsShortAdded;
    CLS_Gate m_clsEnd;   ///< never opened
    char m_chFirst = 0;  ///< an owner
    char m_chSecond = 0; ///< another one
};

void AddBlockers(const CLS_HostLibrary& _clsPool, ST_State& _stState, int _iTasks, void* _pOwner,
                 const std::string& _strName)
{
    for (int i = 0; i < _iTasks; ++i)
    {
        _clsPool.m_pAddTmpTask(
            [&]
            {
                _stState.m_clsStarted.Add();
                static_cast<void>(_stState.m_clsEnd.Wait(std::chrono::hours(1)));
            },
            _pOwner, _strName);
    }
}

bool StartFew(const CLS_HostLibrary& _clsPool, ST_State& _stState)
{
    std::string strTaskId;
    _clsPool.m_pAddLoopTask([&] { _stState.m_clsLoops.Add(); }, 3600000, strTaskId, "every hour");
    AddBlockers(_clsPool, _stState, 2, &_stState.m_chFirst, "blocks\nfor long");
    const bool bStarted = _stState.m_clsStarted.Wait(2);
    // The task ends only after its owner is noted, so that the end removes it there.
    _clsPool.m_pAddTmpTask([&] { static_cast<void>(_stState.m_clsShortAdded.Wait()); }, &_stState.m_chFirst,
                           "short");
    _stState.m_clsShortAdded.Open();
    return bStarted && _stState.m_clsLoops.Wait(1);
}

bool StartFull(const CLS_HostLibrary& _clsPool, ST_State& _stState)
{
    AddBlockers(_clsPool, _stState, MOST_WORKERS, &_stState.m_chFirst, "blocks");
    const bool bStarted = _stState.m_clsStarted.Wait(MOST_WORKERS);
    AddBlockers(_clsPool, _stState, 1, &_stState.m_chFirst, "waits at the dispatcher");
    return bStarted;
}

bool Start(const CLS_HostLibrary& _clsPool, ST_State& _stState, const std::string& _strMode)
{
    if (_strMode == "few")
    {
        return StartFew(_clsPool, _stState);
    }
    return _strMode == "full" ? StartFull(_clsPool, _stState) : _strMode == "none";
}
} // namespace

int main(int _iCount, char** _ppTexts)
{
    if (_iCount != 3)
    {
        std::fputs("usage: zel_debugged_host LIBRARY none|few|full\n", stderr);
        return 2;
    }
    sigset_t stMore;
    sigemptyset(&stMore);
    sigaddset(&stMore, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &stMore, nullptr);
    prctl(PR_SET_PTRACER, PR_SET_PTRACER_ANY); // some systems allow only parents to debug a process
    const CLS_HostLibrary clsPool(_ppTexts[1]);
    ST_State& stState = *new ST_State;
    if (!Start(clsPool, stState, _ppTexts[2]))
    {
        return 1;
    }
    std::printf("ready %d\n", static_cast<int>(getpid()));
    std::fflush(stdout);
    for (int iSignal = 0; sigwait(&stMore, &iSignal) == 0;)
    {
        AddBlockers(clsPool, stState, 30, &stState.m_chSecond, "waits");
        std::puts("more");
        std::fflush(stdout);
    }
    return 1;
}
