#pragma once

#include "examples/zel_log/LogLevels.h"

#include <memory>
#include <mutex>
#include <spdlog/sinks/sink.h>
#include <string>

/// Writes lines, each with the time and the level before it, to the output that the environment names. May
/// be used by several threads at once.
///
/// It talks to a sink of its own and to nothing that is shared in the process, so that it can be used for
/// as long as it exists, even after the process began to destroy its static objects.
class CLS_LogWriter
{
public:
    /// Opens the file that ZEL_LOG_FILE names, or standard error; says an unusable file on standard error.
    CLS_LogWriter();

    /// Writes one line and flushes it. Should the file fail, the line goes to standard error, as do all
    /// that follow.
    void Write(n_Severity _enLevel, const std::string& _strText);

    /// Flushes the output.
    void Flush();

private:
    void UseSink(std::shared_ptr<spdlog::sinks::sink> _pSink);
    void FallBack(const char* _pReason);

    std::mutex m_mtx;
    std::shared_ptr<spdlog::sinks::sink> m_pSink;
};
