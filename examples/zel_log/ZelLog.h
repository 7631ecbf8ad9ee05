#pragma once

#include <string>

#define ZEL_LOG_EXPORT __attribute__((visibility("default")))

/// The functions of the logging library. A program that opens the library looks them up by name.
///
/// The first call of any function reads two environment variables:
///
/// - ZEL_LOG_FILE: the file for the log records; standard error if unset or empty. Before the file exceeds
///   5 MB, it is renamed (zel.log to zel.1.log, and so on), and a new one begins. 3 old files are kept.
/// - ZEL_LOG_LEVEL: the lowest level that is written, 0 to 3; 2 if unset or empty.
///
/// An unusable file or a malformed level is reported once on standard error, and the default applies. If the
/// file fails later, log records go to standard error from then on.
///
/// Levels: 0 finest detail ("trace"), 1 detail ("debug"), 2 progress ("info"), 3 error ("error"). Any other
/// level counts as the nearest one.
///
/// Threads: any, even while the process exits.
/// Waits: while another thread writes its log record.
/// Fails: never throws. What cannot be logged is lost.
extern "C"
{
    /// Reads the environment and opens the output. Optional: the first log record does the same.
    ZEL_LOG_EXPORT void Init();

    /// Sets the lowest level that is written for one module. A null module is ignored.
    ZEL_LOG_EXPORT void SetLoggerConfig(const char* _pModule, int _iLevel);

    /// Sets the lowest level that is written for every module; overrides SetLoggerConfig.
    ZEL_LOG_EXPORT void SetLoggerConfigAll(int _iLevel);

    /// Writes one line: time, level, the thread's name, module, function, file (without its folders) and
    /// line, message.
    ///
    /// The line has left the buffers of this process when the call returns. A null pointer, or a thread
    /// without a name, becomes "-". The function keeps no argument.
    ZEL_LOG_EXPORT void PrintLog(int _iLevel, const char* _pModule, const char* _pFile, int _iLine,
                                 const char* _pFunction, const std::string& _strMessage);

    /// Flushes the output. Later log records are still written.
    ZEL_LOG_EXPORT void UnInit();
}
