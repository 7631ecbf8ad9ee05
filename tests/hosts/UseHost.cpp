// Uses the pool as a host does, from its start to its end:  zel_use_host LIBRARY
//
// Prints what happens, and the log records that reach the logging library.

#include "tests/hosts/PoolLibrary.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/Waiting.h"

#include <stdexcept>

namespace
{
/// An exception type of the host.
class CLS_UseError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

void Tell(const std::string& _strWhat, bool _bHolds)
{
    std::cout << _strWhat << ": " << (_bHolds ? "yes" : "no") << std::endl;
}

std::string ReplaceAll(std::string _strText, const std::string& _strFrom, const std::string& _strTo)
{
    for (std::size_t uiAt = 0; (uiAt = _strText.find(_strFrom, uiAt)) != std::string::npos;)
    {
        _strText.replace(uiAt, _strFrom.size(), _strTo);
        uiAt += _strTo.size();
    }
    return _strText;
}

/// Prints the log records since the last call, with the id of a task replaced. Omits one kind: chance decides
/// whether a task is queued when it is removed.
void PrintRecords(const std::string& _strTaskId)
{
    for (const LogRecorder::ST_Record& stRecord : LogRecorder::Take())
    {
        if (stRecord.m_strMessage.rfind("task id is fail - ", 0) == 0)
        {
            continue;
        }
        const std::string strText =
            _strTaskId.empty() ? stRecord.m_strMessage : ReplaceAll(stRecord.m_strMessage, _strTaskId, "ID");
        std::cout << stRecord.m_iLevel << " " << stRecord.m_strModule << " " << stRecord.m_strFile << " "
                  << stRecord.m_strFunction << " " << ReplaceAll(strText, "\n", "/") << std::endl;
    }
}

void UseTmpTasks(CLS_HostLibrary& _clsPool)
{
    CLS_Counter clsRuns;
    Tell("null owner taken", _clsPool.m_pAddTmpTask([&] { clsRuns.Add(); }, nullptr, "nobody"));
    bool bTaken = true;
    for (int i = 0; i < 100; ++i)
    {
        bTaken = _clsPool.m_pAddTmpTask([&] { clsRuns.Add(); }, &clsRuns, "owner") && bTaken;
    }
    Tell("tmp tasks taken", bTaken);
    Tell("tmp tasks ran", clsRuns.Wait(100) && clsRuns.Get() == 100);
    _clsPool.m_pRemoveTmpTask(&clsRuns, "owner");
}

void UseLoopTasks(CLS_HostLibrary& _clsPool)
{
    CLS_Counter clsRuns;
    std::string strFirst;
    std::string strSecond;
    _clsPool.m_pAddLoopTask([&] { clsRuns.Add(); }, 1, strFirst, "loop");
    _clsPool.m_pAddLoopTask([&] { clsRuns.Add(); }, 1, strSecond, "loop");
    Tell("loop ids differ", !strFirst.empty() && !strSecond.empty() && strFirst != strSecond);
    Tell("loop tasks ran", clsRuns.Wait(20));
    _clsPool.m_pRemoveTask(strFirst, "loop");
    _clsPool.m_pKillTask(strSecond, "loop");
    const int iRuns = clsRuns.Get();
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    Tell("loop tasks ended", clsRuns.Get() == iRuns);
}

void UseExceptions(CLS_HostLibrary& _clsPool)
{
    CLS_Gate clsCaught;
    _clsPool.m_pAddTmpTask(
        [&]
        {
            try
            {
                throw CLS_UseError("mine");
            }
            catch (const CLS_UseError& errMine)
            {
                Tell("own exception caught in a task", errMine.what() == std::string("mine"));
            }
            clsCaught.Open();
        },
        &clsCaught, "catching");
    Tell("task went on", clsCaught.Wait());
    PrintRecords("");

    // The library catches the exceptions of a callable, and the worker continues.
    for (const bool bStandard : {true, false})
    {
        std::string strTaskId;
        CLS_Counter clsRuns;
        const auto funTask = [&clsRuns, bStandard]
        {
            clsRuns.Add();
            if (bStandard)
            {
                throw CLS_UseError("out of a task");
            }
            throw 42;
        };
        _clsPool.m_pAddLoopTask(funTask, 3600000, strTaskId, "throwing");
        Tell("throwing task ran", clsRuns.Wait(1));
        Tell("record came", WaitUntil([] { return !LogRecorder::Peek().empty(); }));
        _clsPool.m_pRemoveTask(strTaskId, "throwing");
        PrintRecords(strTaskId);
    }
}
} // namespace

int main(int _iCount, char** _ppTexts)
{
    CLS_HostLibrary clsPool(_iCount > 1 ? _ppTexts[1] : "");
    UseTmpTasks(clsPool);
    UseLoopTasks(clsPool);
    UseExceptions(clsPool);
    clsPool.m_pKillTaskAll();
    PrintRecords("");
    clsPool.m_pUnInit();
    PrintRecords("");
    return 0;
}
