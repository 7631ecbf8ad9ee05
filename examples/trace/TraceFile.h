#pragma once

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

/// A trace cannot be written. The text is for the user.
class CLS_TraceError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// Trace events of this process, in a file that Perfetto and chrome://tracing open: an array in JSON, one
/// event a line. Each thread that adds events is a lane with the name that the system shows for the thread,
/// and the trace says when it ended.
///
/// Each lane has a buffer of its own, so that threads seldom wait for each other; it goes to the file when it
/// is full, when its thread ends, and with Close. So the lanes' events are not sorted among each other, which
/// viewers do. Safe on any thread; whoever may outlive the owner of the trace shares it.
class CLS_TraceFile : public std::enable_shared_from_this<CLS_TraceFile>
{
public:
    /// Creates the file, or empties it. _strProcess is what viewers call this process. Throws CLS_TraceError.
    static std::shared_ptr<CLS_TraceFile> Create(const std::filesystem::path& _path,
                                                 const std::string& _strProcess);

    ~CLS_TraceFile();

    CLS_TraceFile(const CLS_TraceFile&) = delete;
    CLS_TraceFile& operator=(const CLS_TraceFile&) = delete;

    /// True when this path, however it is spelled, is the file.
    bool IsSelf(const std::filesystem::path& _path) const;

    /// Adds an event of the calling thread, at this moment. _chPhase is "B" for the begin of something, "E"
    /// for its end, "i" for an instant. _strMembers are further members of the event in JSON, each after a
    /// comma. What goes wrong is kept for Close. Events after Close are dropped.
    void Add(char _chPhase, const char* _szCategory, const std::string& _strName,
             const std::string& _strMembers = {}) noexcept;

    /// Ends the file. Throws CLS_TraceError when it, or any event before, could not be written.
    void Close();

private:
    struct ST_Lane;
    struct ST_LaneOfThread;

    CLS_TraceFile(const std::filesystem::path& _path, const std::string& _strProcess);

    std::shared_ptr<ST_Lane> MakeLane();
    void Flush(ST_Lane& _stLane);
    void Write(const std::string& _strText);
    void KeepError(int _iError);

    const std::filesystem::path m_path;
    const std::chrono::steady_clock::time_point m_tpStart;
    const std::string m_strProcess; ///< what each event says of the process
    std::mutex m_mtxFile;           ///< guards what follows
    std::FILE* m_pFile = nullptr;   ///< null once closed
    std::vector<std::shared_ptr<ST_Lane>> m_vecLanes;
    int m_iError = 0; ///< why the first of the lost events was lost, a number of errno; 0 for none
};

/// Something that the calling thread does from here to the end of the scope.
class CLS_TraceSpan
{
public:
    CLS_TraceSpan(CLS_TraceFile& _clsTrace, const char* _szCategory, const std::string& _strName,
                  const std::string& _strMembers = {}) noexcept
        : m_clsTrace(_clsTrace), m_szCategory(_szCategory), m_strName(_strName)
    {
        m_clsTrace.Add('B', m_szCategory, m_strName, _strMembers);
    }

    ~CLS_TraceSpan() { m_clsTrace.Add('E', m_szCategory, m_strName); }

    CLS_TraceSpan(const CLS_TraceSpan&) = delete;
    CLS_TraceSpan& operator=(const CLS_TraceSpan&) = delete;

private:
    CLS_TraceFile& m_clsTrace;
    const char* const m_szCategory;
    const std::string& m_strName; ///< of the caller, who keeps it
};
