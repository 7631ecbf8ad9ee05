#pragma once

#include <sstream>
#include <string>

/// Diagnostics. The system writes no log of its own: each record goes to a logging library that is opened
/// by name at run time. Without that library, records are dropped. Those that are made while it is being
/// opened are kept, up to a limit, and handed over afterwards: see CLS_LogBinding.
namespace Logger
{
/// Severity of a record, as the logging library receives it.
enum n_LogLevel : int
{
    LOG_LEVEL_FINEST = 0,   ///< finest detail
    LOG_LEVEL_DETAIL = 1,   ///< detail
    LOG_LEVEL_PROGRESS = 2, ///< progress
    LOG_LEVEL_ERROR = 3     ///< a failure
};

/// Address of one of the logging library's five entry points ("Init", "SetLoggerConfig",
/// "SetLoggerConfigAll", "PrintLog", "UnInit"), or null.
///
/// A name that is bound is answered from the table. Any other name binds the library in _strDirectory (the
/// dynamic loader's default search when empty) and the result replaces the table; after a failed open that
/// happens on every call, though the file itself is not opened again. A name that is none of the five binds,
/// and so writes Util::GetDllFunction's five lines to standard output, on every call.
///
/// Any thread. Takes the binding's mutex for a look-up; opening waits as Util::GetDllFunction does. The call
/// that opens the library hands over the records that were kept meanwhile, and takes as long as "PrintLog"
/// does for them.
void* GetModuleFun(const std::string& _strFunction, const std::string& _strDirectory);

/// One log record: an output stream that hands its text to "PrintLog" when it is destroyed.
///
/// A record belongs to one thread. It holds no lock while "PrintLog" runs, and takes as long as that does.
/// The record that opens the logging library also hands over those that other threads make meanwhile; they
/// wait for nothing. Bound: twice CLS_LogBinding::MOST_KEPT calls of "PrintLog", and one for the count of
/// lost records. An exception during emission ends the process, as one out of any destructor does; so a text
/// whose making may throw is made before its record. Numbers are written the classic way, whatever the host's
/// locale.
class LogMessageStream : public std::ostringstream
{
public:
    /// The texts outlive the record, as literals do. They are passed through as they are, null included; a
    /// record that has to wait for the logging library passes copies on.
    LogMessageStream(const char* _szModule, const char* _szFunction, const char* _szFile, int _iLine,
                     int _iLevel);

    /// Emits the record.
    ~LogMessageStream() override;

private:
    const char* m_szFile;     ///< source file of the call site, without suffix
    const char* m_szModule;   ///< module that the record is about
    const char* m_szFunction; ///< function that logs
    int m_iLine;              ///< line of the call site
    int m_iLevel;             ///< an n_LogLevel; passed through unchecked
};
} // namespace Logger
