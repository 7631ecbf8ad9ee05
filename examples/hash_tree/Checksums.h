#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>

/// Reports that the sums cannot be written. The text is for the user.
class CLS_OutputError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// Returns the line, with its end, that `sha256sum -c` reads for this file.
///
/// A name that contains a backslash, a newline or a carriage return is escaped. The line then starts with a
/// backslash.
std::string FormatChecksumLine(const std::string& _strPath, const std::string& _strDigest);

/// Writes a file of checksums that appears complete or not at all.
///
/// The text goes to a temporary file in the same folder, which is renamed at the end. A signal that ends the
/// process removes the temporary file.
///
/// Threads: one at a time. A process has one such object at a time.
class CLS_ChecksumFile
{
public:
    /// Creates the temporary file, so that an unusable place is reported before the work begins.
    ///
    /// Fails: CLS_OutputError if the file cannot be created, or if _path exists and is no regular file.
    explicit CLS_ChecksumFile(const std::filesystem::path& _path);

    /// Removes the temporary file unless it was published.
    ~CLS_ChecksumFile();

    CLS_ChecksumFile(const CLS_ChecksumFile&) = delete;
    CLS_ChecksumFile& operator=(const CLS_ChecksumFile&) = delete;

    /// Returns whether this path, in any spelling, is the file or its temporary file.
    bool IsSelf(const std::filesystem::path& _path) const;

    /// Writes the text and puts the file in place. Called once.
    ///
    /// Waits: until the text is on the disk.
    /// Fails: CLS_OutputError. An older file of that name then stays as it was.
    void Publish(const std::string& _strText);

private:
    void WriteAll(const std::string& _strText);
    void Close();

    std::filesystem::path m_pathFinal;
    std::filesystem::path m_pathTemporary;
    int m_iFile = -1;
    bool m_bPublished = false;
};
