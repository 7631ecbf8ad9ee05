#pragma once

#include <map>
#include <mutex>
#include <string>
#include <string_view>

/// How much a record matters; the numbers are those that callers of the library pass.
enum class n_Severity
{
    Finest = 0,
    Detail = 1,
    Progress = 2,
    Error = 3
};

/// The level with this number; the nearest one for a number that is none.
n_Severity ToSeverity(int _iLevel);

/// Decides which records are written. May be used by several threads at once.
class CLS_LogLevels
{
public:
    /// Takes the general level from ZEL_LOG_LEVEL; says a malformed one on standard error.
    CLS_LogLevels();

    /// True when a record of this module and level is to be written.
    bool IsWritten(std::string_view _strModule, n_Severity _enLevel) const;

    /// Sets the least level of one module.
    void SetModule(const std::string& _strModule, n_Severity _enLevel);

    /// Sets the least level of all modules, also of those that had one of their own.
    void SetAll(n_Severity _enLevel);

private:
    mutable std::mutex m_mtx;
    n_Severity m_enGeneral = n_Severity::Progress;
    std::map<std::string, n_Severity, std::less<>> m_mapModules;
};
