#include "examples/zel_log/ZelLog.h"

#include "examples/zel_log/LogLevels.h"
#include "examples/zel_log/LogWriter.h"

#include <array>
#include <pthread.h>

namespace
{
struct ST_Log
{
    CLS_LogLevels m_clsLevels;
    CLS_LogWriter m_clsWriter;
};

/// The log of the process. Never destroyed: threads may still write while the process exits.
ST_Log& GetLog()
{
    static ST_Log& s_stLog = *new ST_Log;
    return s_stLog;
}

/// Runs _funAction and drops its exceptions: one that left a log call would end the host.
template <typename T_Action>
void RunQuietly(T_Action&& _funAction) noexcept
{
    try
    {
        _funAction();
    }
    catch (...)
    {
    }
}

const char* GetTextOrDash(const char* _pText)
{
    return _pText != nullptr ? _pText : "-";
}

/// Returns the calling thread's name, as debuggers show it; "-" if it has none.
std::string GetThreadName()
{
    std::array<char, 64> arrName{};
    const int iResult = pthread_getname_np(pthread_self(), arrName.data(), arrName.size());
    return iResult == 0 && arrName.front() != '\0' ? arrName.data() : "-";
}

std::string CutFolders(const std::string& _strPath)
{
    return _strPath.substr(_strPath.rfind('/') + 1);
}
} // namespace

void Init()
{
    RunQuietly([] { GetLog(); });
}

void SetLoggerConfig(const char* _pModule, int _iLevel)
{
    if (_pModule != nullptr)
    {
        RunQuietly([=] { GetLog().m_clsLevels.SetModule(_pModule, ToSeverity(_iLevel)); });
    }
}

void SetLoggerConfigAll(int _iLevel)
{
    RunQuietly([=] { GetLog().m_clsLevels.SetAll(ToSeverity(_iLevel)); });
}

void PrintLog(int _iLevel, const char* _pModule, const char* _pFile, int _iLine, const char* _pFunction,
              const std::string& _strMessage)
{
    RunQuietly(
        [&]
        {
            const std::string strModule = GetTextOrDash(_pModule);
            const n_Severity enLevel = ToSeverity(_iLevel);
            if (GetLog().m_clsLevels.IsWritten(strModule, enLevel))
            {
                const std::string strPlace = CutFolders(GetTextOrDash(_pFile)) + ":" + std::to_string(_iLine);
                GetLog().m_clsWriter.Write(enLevel, "[" + GetThreadName() + "] [" + strModule + "] " +
                                                        GetTextOrDash(_pFunction) + " " + strPlace + " " +
                                                        _strMessage);
            }
        });
}

void UnInit()
{
    RunQuietly([] { GetLog().m_clsWriter.Flush(); });
}
