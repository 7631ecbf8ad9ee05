#pragma once

#include "QuenInclude/Logger.h"

/// Log records of the task pool. Their file field always names the class, even if the class has several
/// source files. So readers of the log find the class.
namespace TaskPoolRecord
{
inline constexpr const char* MODULE = "ZelTaskPool";                                 ///< module
inline constexpr const char* FILE_POOL = "QuenPlugins/ZelTaskPool/CLS_QuenTaskPool"; ///< file: pool
inline constexpr const char* FILE_TASK = "QuenPlugins/ZelTaskPool/CLS_Task";         ///< file: task
inline constexpr const char* FILE_THREAD = "QuenPlugins/ZelTaskPool/CLS_TaskThread"; ///< file: worker

/// A log record that carries the caller's line. Do not keep it: it is emitted at the end of the statement.
inline Logger::LogMessageStream Make(const char* _szFile, const char* _szFunction, Logger::n_LogLevel _iLevel,
                                     int _iLine = __builtin_LINE())
{
    return Logger::LogMessageStream(MODULE, _szFunction, _szFile, _iLine, _iLevel);
}
} // namespace TaskPoolRecord
