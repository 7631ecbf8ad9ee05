#pragma once

#include <sstream>
#include <string>

/// Log records. The system writes no log of its own: each log record goes to a logging library that is opened
/// by name at run time. Without that library, log records are dropped. Those that are made during the opening
/// are kept, up to a limit, and handed over afterwards: see CLS_LogBinding.
namespace Logger
{
/// Severity of a log record, as the logging library receives it.
enum n_LogLevel : int
{
    LOG_LEVEL_FINEST = 0,   ///< finest detail
    LOG_LEVEL_DETAIL = 1,   ///< detail
    LOG_LEVEL_PROGRESS = 2, ///< progress
    LOG_LEVEL_ERROR = 3     ///< a failure
};

/// Address of one of the five entry points of the logging library, or null: "Init", "SetLoggerConfig",
/// "SetLoggerConfigAll", "PrintLog", "UnInit".
///
/// A bound name is looked up in a table. Any other name binds the library in _strDirectory (by the dynamic
/// loader's default search when empty), and the result replaces the table. After a failed open, every call
/// binds again, but the file itself is not opened again. Any name other than these five binds on every call.
/// Each time, the five lines of Util::GetDllFunction go to standard output.
///
/// Threads: any.
/// Waits: for the binding's mutex, for one look-up. An opening waits as Util::GetDllFunction does. The call
/// that opens the library hands over the kept log records, and takes as long as "PrintLog" does for them.
void* GetModuleFun(const std::string& _strFunction, const std::string& _strDirectory);

/// One log record: an output stream that hands its text to "PrintLog" when it is destroyed.
///
/// Numbers are written as in the classic locale, whatever the host's locale.
///
/// Threads: one thread per log record.
/// Waits: as long as "PrintLog" runs, with no lock held. The log record that opens the logging library also
/// hands over those that other threads make meanwhile; those threads do not wait. That takes at most twice
/// CLS_LogBinding::MOST_KEPT calls of "PrintLog", plus one for the count of lost records.
/// Fails: an exception during emission ends the process, as one from any destructor does. If building a
/// text may throw, build it before its log record.
class LogMessageStream : public std::ostringstream
{
public:
    /// Begins a log record. The texts must outlive it, as literals do.
    ///
    /// They are passed on as they are, including null. A log record that has to wait for the logging library
    /// passes copies on.
    LogMessageStream(const char* _szModule, const char* _szFunction, const char* _szFile, int _iLine,
                     int _iLevel);

    /// Emits the log record.
    ~LogMessageStream() override;

private:
    const char* m_szFile;     ///< source file of the call site, without suffix
    const char* m_szModule;   ///< module that the record is about
    const char* m_szFunction; ///< function that logs
    int m_iLine;              ///< line of the call site
    int m_iLevel;             ///< an n_LogLevel; passed through unchecked
};
} // namespace Logger
