#pragma once

#include <string>

#define ZEL_LOG_EXPORT __attribute__((visibility("default")))

/// The entry points of the logging library, looked up by name by whoever opens it.
///
/// Every function may be called from any thread at any moment, also while the process is exiting, and none
/// throws: what cannot be logged is lost. A call blocks for as long as another thread writes its record.
///
/// Two environment variables are read once, by the first call of any function:
///
/// - ZEL_LOG_FILE: the file that records go to; standard error when unset or empty. Before the file would
///   pass 5 MB it is renamed (zel.log to zel.1.log, and so on) and a new one begun; 3 old files are kept.
/// - ZEL_LOG_LEVEL: the least level that is written, 0 to 3; 2 when unset or empty.
///
/// An unusable file or a malformed level is said once on standard error, and the default is used instead.
/// A file that fails later is treated alike: from then on records go to standard error.
///
/// Levels: 0 finest detail ("trace"), 1 detail ("debug"), 2 progress ("info"), 3 error ("error"). A level
/// outside this range counts as the nearest one inside it.
extern "C"
{
    /// Reads the environment and opens the output. Not required: the first record does the same.
    ZEL_LOG_EXPORT void Init();

    /// Sets the least level that is written of one module's records. A null module is ignored.
    ZEL_LOG_EXPORT void SetLoggerConfig(const char* _pModule, int _iLevel);

    /// Sets the least level that is written of every module's records; forgets what SetLoggerConfig set.
    ZEL_LOG_EXPORT void SetLoggerConfigAll(int _iLevel);

    /// Writes one line: time, level, the calling thread's name, module, function, file (without its folders)
    /// and line, message. The line has left this process's buffers when the call returns. Any of the three
    /// pointers may be null; "-" is written for it, and for a thread without a name. Keeps nothing of the
    /// arguments.
    ZEL_LOG_EXPORT void PrintLog(int _iLevel, const char* _pModule, const char* _pFile, int _iLine,
                                 const char* _pFunction, const std::string& _strMessage);

    /// Flushes the output. Records that come later are still written.
    ZEL_LOG_EXPORT void UnInit();
}
