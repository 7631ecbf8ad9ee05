#include "QuenInclude/Logger.h"

#include "QuenInclude/CLS_LoadTurn.h"
#include "QuenInclude/CLS_Mutex.h"
#include "QuenInclude/Util.h"

#include <locale>
#include <map>
#include <utility>
#include <vector>

#if !defined(ZEL_LOG_LIBRARY_NAME)
#define ZEL_LOG_LIBRARY_NAME "libZelLog.dylib"
#endif

namespace
{
using PrintLogFun = void (*)(int _iLevel, const char* _szModule, const char* _szFile, int _iLine,
                             const char* _szFunction, const std::string& _strMessage);

/// The bound entry points. Late threads log while the process exits, so the table is never destroyed.
struct ST_Binding
{
    CLS_LoadTurn m_clsTurn; ///< one thread at a time binds
    CLS_Mutex m_mtxFuns;
    std::map<std::string, void*> m_mapFuns ZEL_GUARDED_BY(m_mtxFuns);

    /// Made once: a record that reports a lack of memory must not need some to find that there is no library.
    const std::string m_strName = ZEL_LOG_LIBRARY_NAME;
    const std::vector<std::string> m_vecNames{"Init", "SetLoggerConfig", "SetLoggerConfigAll", "PrintLog",
                                              "UnInit"};
};

ST_Binding& GetBinding()
{
    static ST_Binding& s_stBinding = *new ST_Binding;
    return s_stBinding;
}

/// Whether the last binding holds _strFunction; if so, its address goes to _pFunction.
bool FindBound(ST_Binding& _stBinding, const std::string& _strFunction, void*& _pFunction)
{
    const CLS_LockGuard lock(_stBinding.m_mtxFuns);
    const auto itFun = _stBinding.m_mapFuns.find(_strFunction);
    if (itFun == _stBinding.m_mapFuns.end())
    {
        return false;
    }
    _pFunction = itFun->second;
    return true;
}

void Bind(ST_Binding& _stBinding, const std::string& _strDirectory)
{
    auto mapFuns = _strDirectory.empty() ? Util::GetDllFunction(_stBinding.m_strName, _stBinding.m_vecNames)
                                         : Util::GetDllFunction(_strDirectory + "/" + _stBinding.m_strName,
                                                                _stBinding.m_vecNames);
    const CLS_LockGuard lock(_stBinding.m_mtxFuns);
    _stBinding.m_mapFuns = std::move(mapFuns);
}
} // namespace

namespace Logger
{
void* GetModuleFun(const std::string& _strFunction, const std::string& _strDirectory)
{
    ST_Binding& stBinding = GetBinding();
    void* pFunction = nullptr;
    if (FindBound(stBinding, _strFunction, pFunction))
    {
        return pFunction;
    }
    const CLS_LoadTurn::CLS_Scope clsTurn(stBinding.m_clsTurn);
    if (!clsTurn.IsTaken())
    {
        return nullptr;
    }
    // Another thread may have bound while this one waited for its turn.
    if (!FindBound(stBinding, _strFunction, pFunction))
    {
        Bind(stBinding, _strDirectory);
        FindBound(stBinding, _strFunction, pFunction);
    }
    return pFunction;
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
    if (void* const pFunction = GetModuleFun("PrintLog", ""))
    {
        const auto funPrintLog = reinterpret_cast<PrintLogFun>(pFunction);
        funPrintLog(m_iLevel, m_szModule, m_szFile, m_iLine, m_szFunction, strMessage);
    }
}
} // namespace Logger
