#include "QuenInclude/Logger.h"

#include "QuenInclude/CLS_LogBinding.h"
#include "QuenInclude/Util.h"

#include <locale>
#include <vector>

#if !defined(ZEL_LOG_LIBRARY_NAME)
#define ZEL_LOG_LIBRARY_NAME "libZelLog.dylib"
#endif

namespace
{
/// Opens the logging library and looks its entry points up.
class CLS_Opener
{
public:
    CLS_LogBinding::Functions operator()(const std::string& _strDirectory) const
    {
        return _strDirectory.empty() ? Util::GetDllFunction(m_strName, m_vecNames)
                                     : Util::GetDllFunction(_strDirectory + "/" + m_strName, m_vecNames);
    }

private:
    /// Made once, so that a log record about a lack of memory needs none to find that there is no library.
    std::string m_strName = ZEL_LOG_LIBRARY_NAME;
    std::vector<std::string> m_vecNames{"Init", "SetLoggerConfig", "SetLoggerConfigAll", "PrintLog",
                                        "UnInit"};
};

/// Never destroyed, because late threads log while the process exits.
CLS_LogBinding& GetBinding()
{
    static CLS_LogBinding& s_clsBinding = *new CLS_LogBinding(CLS_Opener());
    return s_clsBinding;
}
} // namespace

namespace Logger
{
void* GetModuleFun(const std::string& _strFunction, const std::string& _strDirectory)
{
    return GetBinding().GetFunction(_strFunction, _strDirectory);
}

LogMessageStream::LogMessageStream(const char* _szModule, const char* _szFunction, const char* _szFile,
                                   int _iLine, int _iLevel)
    : m_szFile(_szFile), m_szModule(_szModule), m_szFunction(_szFunction), m_iLine(_iLine), m_iLevel(_iLevel)
{
    imbue(std::locale::classic());
}

LogMessageStream::~LogMessageStream()
{
    const std::string strMessage = str();
    GetBinding().Emit({m_iLevel, m_szModule, m_szFile, m_iLine, m_szFunction, strMessage});
}
} // namespace Logger
