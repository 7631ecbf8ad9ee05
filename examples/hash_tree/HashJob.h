#pragma once

#include <atomic>
#include <cstdint>
#include <string>

/// What became of a file.
enum class n_HashState
{
    Left,       ///< not hashed, or not to its end
    Done,       ///< hashed
    Unreadable, ///< could not be read
};

/// One file and, once Run is through, its SHA-256.
///
/// Run is called once, from any thread. The state may be asked for at any moment; digest and reason are
/// there to be read once it is Done or Unreadable.
class CLS_HashJob
{
public:
    explicit CLS_HashJob(std::string _strPath);

    /// Reads the file to its end, adding to _iBytes what was read as it goes. Gives up between two chunks
    /// of at most 256 KiB when a cancel was asked for; the job then stays Left. A file that changes
    /// meanwhile gets the sum of what was read. Throws nothing. Blocks as long as the file system does.
    void Run(std::atomic<std::uint64_t>& _iBytes) noexcept;

    /// Makes the job Unreadable without having run.
    void Refuse(const std::string& _strReason);

    n_HashState GetState() const { return m_enState.load(); }
    const std::string& GetPath() const { return m_strPath; }

    /// The sum in lower-case hexadecimal digits.
    const std::string& GetDigest() const { return m_strDigest; }

    /// Why the file could not be read, for the user.
    const std::string& GetReason() const { return m_strReason; }

private:
    const std::string m_strPath;
    std::string m_strDigest;
    std::string m_strReason;
    std::atomic<n_HashState> m_enState{n_HashState::Left};
};
