// Uses the pool while the process cannot open a file:  zel_no_files_host LIBRARY WHEN
//
// - busy: descriptors run out while the pool has work.
// - first: they run out before the pool is built.
//
// Prints what happens, and the log records.

#include "tests/hosts/PoolLibrary.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/Waiting.h"

#include <stdexcept>
#include <sys/resource.h>

namespace
{
constexpr int TASKS = 50;

/// During its life, the process can open no descriptor.
class CLS_NoFiles
{
public:
    CLS_NoFiles()
    {
        getrlimit(RLIMIT_NOFILE, &m_stLimit);
        rlimit stNone = m_stLimit;
        stNone.rlim_cur = 3;
        setrlimit(RLIMIT_NOFILE, &stNone);
    }
    ~CLS_NoFiles() { setrlimit(RLIMIT_NOFILE, &m_stLimit); }
    CLS_NoFiles(const CLS_NoFiles&) = delete;
    CLS_NoFiles& operator=(const CLS_NoFiles&) = delete;

private:
    rlimit m_stLimit{};
};

void Tell(const std::string& _strWhat, bool _bHolds)
{
    std::cout << _strWhat << ": " << (_bHolds ? "yes" : "no") << std::endl;
}

/// Prints the log records since the last call, except one kind. Chance decides whether a task is queued when
/// it is removed.
void PrintRecords()
{
    for (const LogRecorder::ST_Record& stRecord : LogRecorder::Take())
    {
        if (stRecord.m_strMessage.rfind("task id is fail - ", 0) == 0)
        {
            continue;
        }
        std::cout << stRecord.m_iLevel << " " << stRecord.m_strFunction << " " << stRecord.m_strMessage
                  << std::endl;
    }
}

/// Submits a task of each kind, and prints whether the pool refuses both.
void ExpectRefusals(CLS_HostLibrary& _clsPool)
{
    std::string strTaskId = "before";
    Tell("tmp task refused",
         !_clsPool.m_pAddTmpTask([] { Tell("a refused task ran", true); }, &strTaskId, "no files"));
    _clsPool.m_pAddLoopTask([] { Tell("a refused task ran", true); }, 0, strTaskId, "no files");
    Tell("id untouched", strTaskId == "before");
}

/// Submits a task of each kind, and returns whether they run.
void Submit(CLS_HostLibrary& _clsPool)
{
    CLS_Counter clsRuns;
    std::string strTaskId;
    const bool bAdded = _clsPool.m_pAddTmpTask([&] { clsRuns.Add(); }, &clsRuns, "files");
    _clsPool.m_pAddLoopTask([&] { clsRuns.Add(); }, 0, strTaskId, "files");
    Tell("later tasks run", bAdded && clsRuns.Wait(10));
    _clsPool.m_pRemoveTask(strTaskId, "files");
}

void RunOutWhileBusy(CLS_HostLibrary& _clsPool)
{
    // The first log record opens the logging library.
    _clsPool.m_pAddTmpTask([] {}, nullptr, "nobody");
    PrintRecords();
    CLS_Gate clsGo;
    CLS_Counter clsRuns;
    CLS_Counter clsLoops;
    std::string strLoop;
    _clsPool.m_pAddLoopTask([&] { clsLoops.Add(); }, 0, strLoop, "loop");
    for (int i = 0; i < TASKS; ++i)
    {
        _clsPool.m_pAddTmpTask(
            [&]
            {
                if (clsGo.Wait())
                {
                    clsRuns.Add();
                }
            },
            &clsRuns, "queued");
    }
    {
        const CLS_NoFiles clsNoFiles;
        ExpectRefusals(_clsPool);
        clsGo.Open();
        Tell("queued tasks run", clsRuns.Wait(TASKS));
        Tell("loop goes on", clsLoops.Wait(clsLoops.Get() + 5));
        PrintRecords();
    }
    Submit(_clsPool);
    _clsPool.m_pRemoveTask(strLoop, "loop");
    _clsPool.m_pRemoveTmpTask(&clsRuns, "queued");
    PrintRecords();
    Tell("every task ran once", clsRuns.Get() == TASKS);
}

void RunOutFirst(CLS_HostLibrary& _clsPool)
{
    {
        const CLS_NoFiles clsNoFiles;
        ExpectRefusals(_clsPool);
    }
    Submit(_clsPool);
    PrintRecords();
}
} // namespace

int main(int _iCount, char** _ppTexts)
{
    if (_iCount != 3)
    {
        return 64;
    }
    CLS_HostLibrary clsPool(_ppTexts[1]);
    std::string(_ppTexts[2]) == "busy" ? RunOutWhileBusy(clsPool) : RunOutFirst(clsPool);
    clsPool.m_pUnInit();
    PrintRecords();
    return 0;
}
