#pragma once

#include <atomic>
#include <cstdint>
#include <string>

/// The state of a file.
enum class n_HashState
{
    Left,       ///< not hashed to its end
    Done,       ///< hashed
    Unreadable, ///< could not be read
};

/// Holds one file and, after Run, its SHA-256.
///
/// Threads: any for Run, which is called once, and for the state. Read digest and reason only when the state
/// is Done or Unreadable.
class CLS_HashJob
{
public:
    explicit CLS_HashJob(std::string _strPath);

    /// Reads the file to its end, and adds each chunk that it reads to _iBytes.
    ///
    /// After a cancel it stops before the next chunk of at most 256 KiB; the job then stays Left. A file that
    /// changes meanwhile gets the sum of what was read.
    ///
    /// Waits: as long as the file system does.
    void Run(std::atomic<std::uint64_t>& _iBytes) noexcept;

    /// Makes the job Unreadable without a run.
    void Refuse(const std::string& _strReason);

    n_HashState GetState() const { return m_enState.load(); }
    const std::string& GetPath() const { return m_strPath; }

    /// Returns the sum in lower-case hexadecimal digits.
    const std::string& GetDigest() const { return m_strDigest; }

    /// Returns why the file could not be read, for the user.
    const std::string& GetReason() const { return m_strReason; }

private:
    const std::string m_strPath;
    std::string m_strDigest;
    std::string m_strReason;
    std::atomic<n_HashState> m_enState{n_HashState::Left};
};
