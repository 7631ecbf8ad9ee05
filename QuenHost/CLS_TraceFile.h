#pragma once

#include "QuenHost/Core/ThreadInfo.h"
#include "QuenHost/Core/TraceText.h"
#include "QuenHost/PoolCall.h"

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <vector>

/// Explains to the user why a trace cannot be written.
class CLS_TraceError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// Writes trace events of this process to a file that Perfetto and chrome://tracing open.
///
/// The file is a JSON array with one event per line. A scope with a trace adds the events of its tasks. The
/// host may add its own. Each thread that adds events has a lane, with its name and number as debuggers show
/// them. The end of a thread is marked by an event.
///
/// Each lane has its own buffer, so threads rarely wait for each other. The buffer is written when it is
/// full, when its thread ends, and by Close. Events of different lanes are not sorted; viewers sort them.
///
/// Threads: any.
///
/// Fails: the first error of an event is kept for Close.
///
/// Owns: the file. Code that may outlive the creator of the trace shares the trace.
class CLS_TraceFile : public std::enable_shared_from_this<CLS_TraceFile>
{
public:
    /// Creates the file, or empties it. Viewers show _strProcess as the name of this process.
    ///
    /// Fails: returns null, with the reason in _strError.
    static std::shared_ptr<CLS_TraceFile> Create(const std::filesystem::path& _path,
                                                 const std::string& _strProcess, std::string& _strError)
    {
        std::FILE* const pFile = std::fopen(_path.c_str(), "w");
        if (pFile == nullptr)
        {
            _strError = Explain(_path, errno);
            return nullptr;
        }
        _strError.clear();
        return std::shared_ptr<CLS_TraceFile>(new CLS_TraceFile(_path, _strProcess, pFile));
    }

    ~CLS_TraceFile()
    {
        if (m_pFile != nullptr)
        {
            std::fclose(m_pFile);
        }
    }

    CLS_TraceFile(const CLS_TraceFile&) = delete;
    CLS_TraceFile& operator=(const CLS_TraceFile&) = delete;

    /// Whether _path names the file, however it is spelled.
    bool IsSelf(const std::filesystem::path& _path) const
    {
        std::error_code error;
        return _path.filename() == m_path.filename() && std::filesystem::equivalent(_path, m_path, error);
    }

    /// Adds an event of the calling thread with the current time.
    ///
    /// - _chPhase is 'B' for a beginning, 'E' for an end, and 'i' for an instant.
    /// - _strMembers are further members of the event as JSON, each preceded by a comma.
    ///
    /// The texts are copied. Events after Close are dropped.
    ///
    /// Waits: for no task; a few steps for a lock, and for the file when the buffer is full.
    void Add(char _chPhase, const char* _szCategory, const std::string& _strName,
             const std::string& _strMembers = {}) noexcept
    {
        const std::chrono::nanoseconds nsTime = std::chrono::steady_clock::now() - m_tpStart;
        const auto funAdd = [&]
        { AddEvent(GetLane(), nsTime, _chPhase, _szCategory, _strName, _strMembers); };
        if (PoolCall::Catch(funAdd))
        {
            KeepError(ENOMEM);
        }
    }

    /// Writes the rest and closes the file.
    ///
    /// Fails: returns the reason, if any event could not be written.
    [[nodiscard]] std::optional<std::string> TryClose()
    {
        FlushAll();
        Write("\n]\n");
        const std::lock_guard<std::mutex> lock(m_mtxFile);
        std::FILE* const pFile = std::exchange(m_pFile, nullptr);
        if (pFile != nullptr && std::fclose(pFile) != 0 && m_iError == 0)
        {
            m_iError = errno;
        }
        return m_iError != 0 ? std::optional<std::string>(Explain(m_path, m_iError)) : std::nullopt;
    }

#ifdef __cpp_exceptions
    /// Creates the file as the other Create does, but throws CLS_TraceError with the reason.
    static std::shared_ptr<CLS_TraceFile> Create(const std::filesystem::path& _path,
                                                 const std::string& _strProcess)
    {
        std::string strError;
        std::shared_ptr<CLS_TraceFile> pTrace = Create(_path, _strProcess, strError);
        return pTrace ? pTrace : throw CLS_TraceError(strError);
    }

    /// Closes the file as TryClose does, but throws CLS_TraceError with the reason.
    void Close()
    {
        if (const std::optional<std::string> strError = TryClose())
        {
            throw CLS_TraceError(*strError);
        }
    }
#endif

private:
    /// A thread's place in the trace.
    struct ST_Lane
    {
        std::uint64_t m_uiThread = 0; ///< the system's number
        std::mutex m_mtxEvents;
        std::string m_strEvents; ///< not yet in the file; guarded by m_mtxEvents
    };

    /// A thread's reference to its lane. Adds an event when the thread ends.
    struct ST_LaneOfThread
    {
        ST_LaneOfThread(std::weak_ptr<CLS_TraceFile> _pTrace, std::shared_ptr<ST_Lane> _pLane)
            : m_pTrace(std::move(_pTrace)), m_pLane(std::move(_pLane))
        {
        }
        ~ST_LaneOfThread()
        {
            if (const std::shared_ptr<CLS_TraceFile> pTrace = m_pTrace.lock())
            {
                pTrace->EndLane(*m_pLane);
            }
        }

        ST_LaneOfThread(const ST_LaneOfThread&) = delete;
        ST_LaneOfThread& operator=(const ST_LaneOfThread&) = delete;

        std::weak_ptr<CLS_TraceFile> m_pTrace; ///< whose lane it is
        std::shared_ptr<ST_Lane> m_pLane;
    };

    static constexpr std::size_t LANE_BUFFER = std::size_t{16} * 1024;

    CLS_TraceFile(const std::filesystem::path& _path, const std::string& _strProcess, std::FILE* _pFile)
        : m_path(_path), m_strProcess(",\"pid\":" + std::to_string(getpid()) + ",\"tid\":"), m_pFile(_pFile)
    {
        // The first event has no comma before it.
        Write("[\n" + MakeNameEvent("process_name", static_cast<std::uint64_t>(getpid()), _strProcess));
    }

    /// The text for a value of errno.
    static std::string Explain(const std::filesystem::path& _path, int _iError)
    {
        return "cannot write the trace " + _path.string() + ": " + std::generic_category().message(_iError);
    }

    /// Adds an event to the lane's buffer, and writes the buffer if it is full.
    void AddEvent(ST_Lane& _stLane, std::chrono::nanoseconds _nsTime, char _chPhase, const char* _szCategory,
                  const std::string& _strName, const std::string& _strMembers)
    {
        const std::lock_guard<std::mutex> lock(_stLane.m_mtxEvents);
        std::string& strEvents = _stLane.m_strEvents;
        strEvents.append(",\n{\"ph\":\"").append(1, _chPhase).append("\",\"ts\":");
        TraceText::AppendTime(strEvents, _nsTime);
        strEvents.append(m_strProcess);
        TraceText::AppendNumber(strEvents, _stLane.m_uiThread);
        strEvents.append(",\"cat\":\"").append(_szCategory).append("\",\"name\":");
        TraceText::AppendQuoted(strEvents, _strName);
        strEvents.append(_strMembers).append("}");
        if (strEvents.size() >= LANE_BUFFER)
        {
            Flush(_stLane);
        }
    }

    /// Adds the event for the end of the thread, and writes the lane's buffer.
    void EndLane(ST_Lane& _stLane) noexcept
    {
        const std::chrono::nanoseconds nsTime = std::chrono::steady_clock::now() - m_tpStart;
        const auto funAdd = [&]
        { AddEvent(_stLane, nsTime, 'i', "thread", "end of the thread", R"(,"s":"t")"); };
        if (PoolCall::Catch(funAdd))
        {
            KeepError(ENOMEM);
        }
        const std::lock_guard<std::mutex> lock(_stLane.m_mtxEvents);
        Flush(_stLane);
    }

    /// The calling thread's lane. Never inlined: a coroutine may change its thread.
    [[gnu::noinline]] ST_Lane& GetLane()
    {
        thread_local std::list<ST_LaneOfThread> t_lstLanes; // rarely more than one
        t_lstLanes.remove_if([](const ST_LaneOfThread& _stLane) { return _stLane.m_pTrace.expired(); });
        for (const ST_LaneOfThread& stLane : t_lstLanes)
        {
            if (stLane.m_pTrace.lock().get() == this)
            {
                return *stLane.m_pLane;
            }
        }
        return *t_lstLanes.emplace_back(weak_from_this(), MakeLane()).m_pLane;
    }

    /// Creates the calling thread's lane.
    std::shared_ptr<ST_Lane> MakeLane()
    {
        auto pLane = std::make_shared<ST_Lane>();
        pLane->m_uiThread = ThreadInfo::GetId();
        pLane->m_strEvents = ",\n" + MakeNameEvent("thread_name", pLane->m_uiThread, ThreadInfo::GetName());
        const std::lock_guard<std::mutex> lock(m_mtxFile);
        m_vecLanes.push_back(pLane);
        return pLane;
    }

    /// The event that gives the process or a lane its name.
    std::string MakeNameEvent(const char* _szWhat, std::uint64_t _uiThread, const std::string& _strName) const
    {
        std::string strEvent = "{\"ph\":\"M\"" + m_strProcess + std::to_string(_uiThread) + ",\"name\":\"" +
                               _szWhat + "\",\"args\":{\"name\":";
        TraceText::AppendQuoted(strEvent, _strName);
        return strEvent + "}}";
    }

    /// Writes the buffers of all lanes.
    void FlushAll()
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
    }

    /// Writes the lane's buffer to the file. The caller holds the lane's mutex.
    void Flush(ST_Lane& _stLane)
    {
        Write(_stLane.m_strEvents);
        _stLane.m_strEvents.clear();
    }

    /// Writes a text to the file, if it is open, and keeps the first error.
    void Write(const std::string& _strText)
    {
        const std::lock_guard<std::mutex> lock(m_mtxFile);
        if (m_pFile != nullptr &&
            std::fwrite(_strText.data(), 1, _strText.size(), m_pFile) != _strText.size() && m_iError == 0)
        {
            m_iError = errno;
        }
    }

    /// Keeps the first error.
    void KeepError(int _iError)
    {
        const std::lock_guard<std::mutex> lock(m_mtxFile);
        m_iError = m_iError == 0 ? _iError : m_iError;
    }

    const std::filesystem::path m_path;
    const std::chrono::steady_clock::time_point m_tpStart = std::chrono::steady_clock::now();
    const std::string m_strProcess; ///< the members of each event that name the process
    std::mutex m_mtxFile;           ///< guards what follows
    std::FILE* m_pFile;             ///< null after Close
    std::vector<std::shared_ptr<ST_Lane>> m_vecLanes;
    int m_iError = 0; ///< the errno of the first lost event; 0 if none was lost
};

/// Traces what the calling thread does while this object lives. With a null trace, it does nothing.
///
/// Threads: one.
///
/// Owns: copies of the texts. The category is not copied, and must be a literal.
class CLS_TraceSpan
{
public:
    /// Begins the span. The arguments are those of CLS_TraceFile::Add.
    ///
    /// Fails: never. Without memory, the span has no name.
    CLS_TraceSpan(const std::shared_ptr<CLS_TraceFile>& _pTrace, const char* _szCategory,
                  const std::string& _strName, const std::string& _strMembers = {}) noexcept
        : m_pTrace(_pTrace), m_szCategory(_szCategory)
    {
        if (m_pTrace)
        {
            PoolCall::Catch([&] { m_strName = _strName; });
            m_pTrace->Add('B', m_szCategory, m_strName, _strMembers);
        }
    }

    ~CLS_TraceSpan()
    {
        if (m_pTrace)
        {
            m_pTrace->Add('E', m_szCategory, m_strName);
        }
    }

    CLS_TraceSpan(const CLS_TraceSpan&) = delete;
    CLS_TraceSpan& operator=(const CLS_TraceSpan&) = delete;

private:
    const std::shared_ptr<CLS_TraceFile> m_pTrace; ///< null for none
    const char* const m_szCategory;
    std::string m_strName;
};
