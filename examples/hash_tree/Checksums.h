#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>

/// The sums cannot be written. The text is for the user.
class CLS_OutputError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// The line, with its end, that `sha256sum -c` reads for this file. A name that holds a backslash, a newline
/// or a carriage return is escaped; the line then starts with a backslash.
std::string FormatChecksumLine(const std::string& _strPath, const std::string& _strDigest);

/// A file of checksums that appears whole or not at all. It is written to a temporary file in the same
/// folder, which takes its place at the end. A signal that ends the process removes the temporary file.
///
/// Threads: one at a time. One object at a time.
class CLS_ChecksumFile
{
public:
    /// Creates the temporary file, so that a place that cannot be written to is known before the work is
    /// done. Throws CLS_OutputError when it cannot be created or when _path names something other than
    /// a regular file.
    explicit CLS_ChecksumFile(const std::filesystem::path& _path);

    /// Removes the temporary file if it did not take its place.
    ~CLS_ChecksumFile();

    CLS_ChecksumFile(const CLS_ChecksumFile&) = delete;
    CLS_ChecksumFile& operator=(const CLS_ChecksumFile&) = delete;

    /// True when this path, however it is spelled, is the file or its temporary one.
    bool IsSelf(const std::filesystem::path& _path) const;

    /// Writes the text, waits until it is on the disk and puts the file in its place. Called once. Throws
    /// CLS_OutputError; an older file of the name is then untouched.
    void Publish(const std::string& _strText);

private:
    void WriteAll(const std::string& _strText);
    void Close();

    std::filesystem::path m_pathFinal;
    std::filesystem::path m_pathTemporary;
    int m_iFile = -1;
    bool m_bPublished = false;
};
