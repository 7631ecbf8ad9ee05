#include "examples/hash_tree/Checksums.h"

#include "examples/hash_tree/CancelSignal.h"

#include <cerrno>
#include <cstddef>
#include <fcntl.h>
#include <system_error>
#include <unistd.h>

namespace fs = std::filesystem;

namespace
{
std::string EscapeName(const std::string& _strName)
{
    std::string strEscaped;
    for (const char chName : _strName)
    {
        switch (chName)
        {
        case '\\':
            strEscaped += "\\\\";
            break;
        case '\n':
            strEscaped += "\\n";
            break;
        case '\r':
            strEscaped += "\\r";
            break;
        default:
            strEscaped += chName;
        }
    }
    return strEscaped;
}

[[noreturn]] void Fail(const fs::path& _path, const std::string& _strReason)
{
    throw CLS_OutputError("cannot write " + _path.string() + ": " + _strReason);
}

/// Reports the system call that has just failed.
[[noreturn]] void FailWithSystemError(const fs::path& _path)
{
    Fail(_path, std::generic_category().message(errno));
}

/// Returns the file to replace: for a symbolic link, its target.
fs::path ResolveOutput(const fs::path& _path)
{
    std::error_code error;
    const fs::file_status status = fs::status(_path, error);
    if (!_path.has_filename() || (fs::exists(status) && !fs::is_regular_file(status)))
    {
        Fail(_path, "not the name of a regular file");
    }
    const fs::path pathReal = fs::canonical(_path, error);
    return error ? _path : pathReal;
}

fs::path GetFolder(const fs::path& _path)
{
    return _path.has_parent_path() ? _path.parent_path() : fs::path(".");
}
} // namespace

std::string FormatChecksumLine(const std::string& _strPath, const std::string& _strDigest)
{
    const std::string strEscaped = EscapeName(_strPath);
    const char* pMark = strEscaped.size() != _strPath.size() ? "\\" : "";
    return pMark + _strDigest + "  " + strEscaped + "\n";
}

CLS_ChecksumFile::CLS_ChecksumFile(const fs::path& _path)
    : m_pathFinal(ResolveOutput(_path)),
      m_pathTemporary(m_pathFinal.string() + "." + std::to_string(getpid()) + ".tmp"),
      m_iFile(open(m_pathTemporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666))
{
    if (m_iFile < 0)
    {
        FailWithSystemError(m_pathFinal);
    }
    SetFileToDrop(m_pathTemporary.string());
}

CLS_ChecksumFile::~CLS_ChecksumFile()
{
    if (m_iFile >= 0)
    {
        close(m_iFile);
    }
    if (!m_bPublished)
    {
        unlink(m_pathTemporary.c_str());
    }
    SetFileToDrop("");
}

bool CLS_ChecksumFile::IsSelf(const fs::path& _path) const
{
    const fs::path pathName = _path.filename();
    if (pathName != m_pathFinal.filename() && pathName != m_pathTemporary.filename())
    {
        return false;
    }
    std::error_code error;
    return fs::equivalent(GetFolder(_path), GetFolder(m_pathFinal), error);
}

void CLS_ChecksumFile::Publish(const std::string& _strText)
{
    WriteAll(_strText);
    if (fsync(m_iFile) != 0)
    {
        FailWithSystemError(m_pathFinal);
    }
    Close();
    if (rename(m_pathTemporary.c_str(), m_pathFinal.c_str()) != 0)
    {
        FailWithSystemError(m_pathFinal);
    }
    m_bPublished = true;
}

void CLS_ChecksumFile::WriteAll(const std::string& _strText)
{
    std::size_t iWritten = 0;
    while (iWritten < _strText.size())
    {
        const ssize_t iStep = write(m_iFile, _strText.data() + iWritten, _strText.size() - iWritten);
        if (iStep < 0 && errno != EINTR)
        {
            FailWithSystemError(m_pathFinal);
        }
        iWritten += iStep > 0 ? static_cast<std::size_t>(iStep) : 0;
    }
}

void CLS_ChecksumFile::Close()
{
    const int iFile = m_iFile;
    m_iFile = -1;
    if (close(iFile) != 0)
    {
        FailWithSystemError(m_pathFinal);
    }
}
