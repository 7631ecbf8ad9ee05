#pragma once

#include "examples/zel_log/LogLevels.h"

#include <memory>
#include <mutex>
#include <spdlog/sinks/sink.h>
#include <string>

/// Writes lines, after the time and the level, to the output that the environment names.
///
/// It has a sink of its own and shares nothing with the process. So it works even while the process destroys
/// its static objects.
///
/// Threads: any.
class CLS_LogWriter
{
public:
    /// Opens the file that ZEL_LOG_FILE names, or standard error; reports an unusable file on standard error.
    CLS_LogWriter();

    /// Writes one line and flushes it. If the file fails, this line and all later ones go to standard error.
    void Write(n_Severity _enLevel, const std::string& _strText);

    /// Flushes the output.
    void Flush();

private:
    void UseSink(std::shared_ptr<spdlog::sinks::sink> _pSink);
    void FallBack(const char* _pReason);

    std::mutex m_mtx;
    std::shared_ptr<spdlog::sinks::sink> m_pSink;
};
