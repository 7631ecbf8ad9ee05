#include "examples/zel_log/ZelLog.h"

#include "examples/zel_log/LogLevels.h"
#include "examples/zel_log/LogWriter.h"

namespace
{
struct CLS_Log
{
    CLS_LogLevels m_clsLevels;
    CLS_LogWriter m_clsWriter;
};

/// The one log of the process. Never destroyed: threads may still write while the process is exiting.
CLS_Log& Log()
{
    static CLS_Log& clsLog = *new CLS_Log;
    return clsLog;
}

/// Runs _funAction and drops whatever it throws: an exception out of a log call would end the host.
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

const char* TextOrDash(const char* _pText)
{
    return _pText != nullptr ? _pText : "-";
}

std::string WithoutFolders(const std::string& _strPath)
{
    return _strPath.substr(_strPath.rfind('/') + 1);
}
} // namespace

void Init()
{
    RunQuietly([] { Log(); });
}

void SetLoggerConfig(const char* _pModule, int _iLevel)
{
    if (_pModule != nullptr)
    {
        RunQuietly([=] { Log().m_clsLevels.SetModule(_pModule, ToLogLevel(_iLevel)); });
    }
}

void SetLoggerConfigAll(int _iLevel)
{
    RunQuietly([=] { Log().m_clsLevels.SetAll(ToLogLevel(_iLevel)); });
}

void PrintLog(int _iLevel, const char* _pModule, const char* _pFile, int _iLine, const char* _pFunction,
              const std::string& _strMessage)
{
    RunQuietly(
        [&]
        {
            const std::string strModule = TextOrDash(_pModule);
            const n_LogLevel enLevel = ToLogLevel(_iLevel);
            if (Log().m_clsLevels.IsWritten(strModule, enLevel))
            {
                const std::string strPlace =
                    WithoutFolders(TextOrDash(_pFile)) + ":" + std::to_string(_iLine);
                Log().m_clsWriter.Write(enLevel, "[" + strModule + "] " + TextOrDash(_pFunction) + " " +
                                                     strPlace + " " + _strMessage);
            }
        });
}

void UnInit()
{
    RunQuietly([] { Log().m_clsWriter.Flush(); });
}
