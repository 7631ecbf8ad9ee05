#pragma once

#include <map>
#include <mutex>
#include <string>
#include <string_view>

/// The severity of a log record. Callers of the library pass these numbers.
enum class n_Severity
{
    Finest = 0,
    Detail = 1,
    Progress = 2,
    Error = 3
};

/// Returns the level with this number, or the nearest one.
n_Severity ToSeverity(int _iLevel);

/// Decides which log records are written.
///
/// Threads: any.
class CLS_LogLevels
{
public:
    /// Reads the general level from ZEL_LOG_LEVEL; reports a malformed one on standard error.
    CLS_LogLevels();

    /// Returns whether log records of this module and level are written.
    bool IsWritten(std::string_view _strModule, n_Severity _enLevel) const;

    /// Sets the lowest level that is written for one module.
    void SetModule(const std::string& _strModule, n_Severity _enLevel);

    /// Sets the lowest level that is written for all modules, including those with a level of their own.
    void SetAll(n_Severity _enLevel);

private:
    mutable std::mutex m_mtx;
    n_Severity m_enGeneral = n_Severity::Progress;
    std::map<std::string, n_Severity, std::less<>> m_mapModules;
};
