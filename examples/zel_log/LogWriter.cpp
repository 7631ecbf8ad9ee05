#include "examples/zel_log/LogWriter.h"

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <spdlog/details/log_msg.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <utility>

namespace
{
constexpr std::size_t MAX_FILE_BYTES = std::size_t{5} * 1024 * 1024;
constexpr std::size_t OLD_FILES = 3;

spdlog::level::level_enum ToSinkLevel(n_Severity _enLevel)
{
    switch (_enLevel)
    {
    case n_Severity::Finest:
        return spdlog::level::trace;
    case n_Severity::Detail:
        return spdlog::level::debug;
    case n_Severity::Progress:
        return spdlog::level::info;
    case n_Severity::Error:
        break;
    }
    return spdlog::level::err;
}
} // namespace

CLS_LogWriter::CLS_LogWriter()
{
    // Read once, when the library is loaded or first used.
    const char* pFile = std::getenv("ZEL_LOG_FILE"); // NOLINT(concurrency-mt-unsafe)
    if (pFile == nullptr || *pFile == '\0')
    {
        UseSink(std::make_shared<spdlog::sinks::stderr_sink_st>());
        return;
    }
    try
    {
        UseSink(std::make_shared<spdlog::sinks::rotating_file_sink_st>(pFile, MAX_FILE_BYTES, OLD_FILES));
    }
    catch (const std::exception& error)
    {
        FallBack(error.what());
    }
}

void CLS_LogWriter::Write(n_Severity _enLevel, const std::string& _strText)
{
    const std::lock_guard<std::mutex> lock(m_mtx);
    const spdlog::details::log_msg record("", ToSinkLevel(_enLevel), _strText);
    try
    {
        m_pSink->log(record);
        m_pSink->flush();
    }
    catch (const std::exception& error)
    {
        // A file sink that failed to rotate has no file, and would crash if used again.
        FallBack(error.what());
        m_pSink->log(record);
    }
}

void CLS_LogWriter::Flush()
{
    const std::lock_guard<std::mutex> lock(m_mtx);
    m_pSink->flush();
}

void CLS_LogWriter::UseSink(std::shared_ptr<spdlog::sinks::sink> _pSink)
{
    _pSink->set_pattern("%Y-%m-%d %H:%M:%S.%e %-5l %v");
    m_pSink = std::move(_pSink);
}

void CLS_LogWriter::FallBack(const char* _pReason)
{
    std::fprintf(stderr, "zel_log: %s; logging to standard error\n", _pReason);
    UseSink(std::make_shared<spdlog::sinks::stderr_sink_st>());
}
