#include "examples/zel_log/LogLevels.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

n_Severity ToSeverity(int _iLevel)
{
    return static_cast<n_Severity>(std::clamp(_iLevel, 0, 3));
}

CLS_LogLevels::CLS_LogLevels()
{
    // Read once, when the library is loaded or first used.
    const char* pText = std::getenv("ZEL_LOG_LEVEL"); // NOLINT(concurrency-mt-unsafe)
    const std::string_view strText = pText != nullptr ? pText : "";
    if (strText.empty())
    {
        return;
    }
    if (strText.size() == 1 && strText[0] >= '0' && strText[0] <= '3')
    {
        m_enGeneral = ToSeverity(strText[0] - '0');
        return;
    }
    std::fprintf(stderr, "zel_log: ZEL_LOG_LEVEL is \"%s\", not one of 0, 1, 2, 3; using 2\n", pText);
}

bool CLS_LogLevels::IsWritten(std::string_view _strModule, n_Severity _enLevel) const
{
    const std::lock_guard<std::mutex> lock(m_mtx);
    const auto itModule = m_mapModules.find(_strModule);
    return _enLevel >= (itModule != m_mapModules.end() ? itModule->second : m_enGeneral);
}

void CLS_LogLevels::SetModule(const std::string& _strModule, n_Severity _enLevel)
{
    const std::lock_guard<std::mutex> lock(m_mtx);
    m_mapModules[_strModule] = _enLevel;
}

void CLS_LogLevels::SetAll(n_Severity _enLevel)
{
    const std::lock_guard<std::mutex> lock(m_mtx);
    m_enGeneral = _enLevel;
    m_mapModules.clear();
}
