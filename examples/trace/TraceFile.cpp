#include "examples/trace/TraceFile.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <nlohmann/json.hpp>
#include <pthread.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace fs = std::filesystem;

namespace
{
constexpr std::size_t g_iLaneBuffer = std::size_t{16} * 1024;

[[noreturn]] void Fail(const fs::path& _path, int _iError)
{
    throw CLS_TraceError("cannot write the trace " + _path.string() + ": " +
                         std::generic_category().message(_iError));
}

bool NeedsEscape(char _chText)
{
    return _chText < ' ' || _chText > '~' || _chText == '"' || _chText == '\\';
}

/// Appends the text in quotes. Names of files may hold what is no UTF-8: that is replaced.
void AppendQuoted(std::string& _strOut, const std::string& _strText)
{
    if (std::any_of(_strText.begin(), _strText.end(), NeedsEscape))
    {
        _strOut += nlohmann::json(_strText).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
        return;
    }
    _strOut.append("\"").append(_strText).append("\"");
}

void AppendNumber(std::string& _strOut, std::int64_t _iNumber)
{
    std::array<char, 20> arrDigits; // as many as 63 bits and a sign have
    const auto stEnd = std::to_chars(arrDigits.data(), arrDigits.data() + arrDigits.size(), _iNumber);
    _strOut.append(arrDigits.data(), stEnd.ptr);
}

/// Appends microseconds, the unit of the format, with three decimals.
void AppendTime(std::string& _strOut, std::chrono::nanoseconds _nsTime)
{
    AppendNumber(_strOut, _nsTime.count() / 1000);
    const std::string strDecimals = std::to_string(1000 + _nsTime.count() % 1000);
    _strOut.append(".").append(strDecimals, 1, 3);
}

/// The event that gives the process or a lane its name.
std::string MakeNameEvent(const char* _szWhat, const std::string& _strProcess, std::size_t _iLane,
                          const std::string& _strName)
{
    std::string strEvent = "{\"ph\":\"M\"" + _strProcess + std::to_string(_iLane) + ",\"name\":\"" + _szWhat +
                           "\",\"args\":{\"name\":";
    AppendQuoted(strEvent, _strName);
    return strEvent + "}}";
}

std::string GetThreadName()
{
    std::array<char, 64> arrName = {};
    pthread_getname_np(pthread_self(), arrName.data(), arrName.size());
    return arrName.data();
}
} // namespace

/// A thread's place in the trace. Its number is not the system's, which a later thread may get again.
struct CLS_TraceFile::ST_Lane
{
    explicit ST_Lane(std::size_t _iNumber) : m_iNumber(_iNumber) {}

    const std::size_t m_iNumber;
    std::mutex m_mtxEvents;
    std::string m_strEvents; ///< what is not yet in the file; guarded by m_mtxEvents
};

/// What a thread knows of its lane. Says so in the trace when the thread ends.
struct CLS_TraceFile::ST_LaneOfThread
{
    ST_LaneOfThread() = default;
    ~ST_LaneOfThread()
    {
        if (const std::shared_ptr<CLS_TraceFile> pTrace = m_pTrace.lock())
        {
            pTrace->Add('i', "thread", "end of the thread", R"(,"s":"t")");
            const std::lock_guard<std::mutex> lock(m_pLane->m_mtxEvents);
            pTrace->Flush(*m_pLane);
        }
    }

    ST_LaneOfThread(const ST_LaneOfThread&) = delete;
    ST_LaneOfThread& operator=(const ST_LaneOfThread&) = delete;

    std::weak_ptr<CLS_TraceFile> m_pTrace; ///< whose lane it is
    std::shared_ptr<ST_Lane> m_pLane;
};

std::shared_ptr<CLS_TraceFile> CLS_TraceFile::Create(const fs::path& _path, const std::string& _strProcess)
{
    return std::shared_ptr<CLS_TraceFile>(new CLS_TraceFile(_path, _strProcess));
}

CLS_TraceFile::CLS_TraceFile(const fs::path& _path, const std::string& _strProcess)
    : m_path(_path), m_tpStart(std::chrono::steady_clock::now()),
      m_strProcess(",\"pid\":" + std::to_string(getpid()) + ",\"tid\":"),
      m_pFile(std::fopen(_path.c_str(), "w"))
{
    if (m_pFile == nullptr)
    {
        Fail(_path, errno);
    }
    // The first event has no comma before it.
    Write("[\n" + MakeNameEvent("process_name", m_strProcess, 0, _strProcess));
}

CLS_TraceFile::~CLS_TraceFile()
{
    if (m_pFile != nullptr)
    {
        std::fclose(m_pFile);
    }
}

bool CLS_TraceFile::IsSelf(const fs::path& _path) const
{
    std::error_code error;
    return _path.filename() == m_path.filename() && fs::equivalent(_path, m_path, error);
}

void CLS_TraceFile::Add(char _chPhase, const char* _szCategory, const std::string& _strName,
                        const std::string& _strMembers) noexcept
{
    const std::chrono::nanoseconds nsTime = std::chrono::steady_clock::now() - m_tpStart;
    thread_local ST_LaneOfThread t_stLane;
    try
    {
        if (t_stLane.m_pTrace.lock().get() != this)
        {
            t_stLane.m_pLane = MakeLane();
            t_stLane.m_pTrace = weak_from_this();
        }
        ST_Lane& stLane = *t_stLane.m_pLane;
        const std::lock_guard<std::mutex> lock(stLane.m_mtxEvents);
        std::string& strEvents = stLane.m_strEvents;
        strEvents.append(",\n{\"ph\":\"").append(1, _chPhase).append("\",\"ts\":");
        AppendTime(strEvents, nsTime);
        strEvents.append(m_strProcess);
        AppendNumber(strEvents, static_cast<std::int64_t>(stLane.m_iNumber));
        strEvents.append(",\"cat\":\"").append(_szCategory).append("\",\"name\":");
        AppendQuoted(strEvents, _strName);
        strEvents.append(_strMembers).append("}");
        if (strEvents.size() >= g_iLaneBuffer)
        {
            Flush(stLane);
        }
    }
    catch (const std::exception&)
    {
        KeepError(ENOMEM);
    }
}

void CLS_TraceFile::Close()
{
    std::vector<std::shared_ptr<ST_Lane>> vecLanes;
    {
        const std::lock_guard<std::mutex> lock(m_mtxFile);
        vecLanes.swap(m_vecLanes);
    }
    for (const std::shared_ptr<ST_Lane>& pLane : vecLanes)
    {
        const std::lock_guard<std::mutex> lock(pLane->m_mtxEvents);
        Flush(*pLane);
    }
    Write("\n]\n");
    const std::lock_guard<std::mutex> lock(m_mtxFile);
    std::FILE* const pFile = std::exchange(m_pFile, nullptr);
    if (pFile != nullptr && std::fclose(pFile) != 0 && m_iError == 0)
    {
        m_iError = errno;
    }
    if (m_iError != 0)
    {
        Fail(m_path, m_iError);
    }
}

/// A new lane, for the calling thread.
std::shared_ptr<CLS_TraceFile::ST_Lane> CLS_TraceFile::MakeLane()
{
    const std::lock_guard<std::mutex> lock(m_mtxFile);
    auto pLane = std::make_shared<ST_Lane>(m_vecLanes.size() + 1);
    pLane->m_strEvents =
        ",\n" + MakeNameEvent("thread_name", m_strProcess, pLane->m_iNumber, GetThreadName());
    m_vecLanes.push_back(pLane);
    return pLane;
}

/// Puts what the lane has gathered into the file. The caller has the lane's mutex.
void CLS_TraceFile::Flush(ST_Lane& _stLane)
{
    Write(_stLane.m_strEvents);
    _stLane.m_strEvents.clear();
}

void CLS_TraceFile::Write(const std::string& _strText)
{
    const std::lock_guard<std::mutex> lock(m_mtxFile);
    if (m_pFile != nullptr && std::fwrite(_strText.data(), 1, _strText.size(), m_pFile) != _strText.size() &&
        m_iError == 0)
    {
        m_iError = errno;
    }
}

void CLS_TraceFile::KeepError(int _iError)
{
    const std::lock_guard<std::mutex> lock(m_mtxFile);
    m_iError = m_iError == 0 ? _iError : m_iError;
}
