#include "examples/hash_tree/HashJob.h"

#include "examples/hash_tree/CancelSignal.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <exception>
#include <fcntl.h>
#include <memory>
#include <new>
#include <openssl/evp.h>
#include <stdexcept>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace
{
constexpr std::size_t MAX_CHUNK = std::size_t{256} * 1024;

[[noreturn]] void ThrowSystemError()
{
    throw std::system_error(errno, std::generic_category());
}

/// Holds a regular file open for reading.
class CLS_OpenFile
{
public:
    /// Fails: std::system_error; std::runtime_error if the name is now something else.
    explicit CLS_OpenFile(const std::string& _strPath)
        // Without O_NONBLOCK, a pipe that replaced the file would block the task for ever.
        : m_iFile(open(_strPath.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC))
    {
        if (m_iFile < 0)
        {
            ThrowSystemError();
        }
    }

    ~CLS_OpenFile() { close(m_iFile); }

    CLS_OpenFile(const CLS_OpenFile&) = delete;
    CLS_OpenFile& operator=(const CLS_OpenFile&) = delete;

    /// Returns the current size in bytes.
    std::size_t GetSize() const
    {
        struct stat status = {};
        if (fstat(m_iFile, &status) != 0)
        {
            ThrowSystemError();
        }
        if (!S_ISREG(status.st_mode))
        {
            throw std::runtime_error("no longer a regular file");
        }
        return static_cast<std::size_t>(status.st_size);
    }

    /// Reads up to _iSize bytes; returns 0 at the end of the file.
    std::size_t Read(unsigned char* _pBuffer, std::size_t _iSize) const
    {
        ssize_t iRead = 0;
        do
        {
            iRead = read(m_iFile, _pBuffer, _iSize);
        } while (iRead < 0 && errno == EINTR);
        if (iRead < 0)
        {
            ThrowSystemError();
        }
        return static_cast<std::size_t>(iRead);
    }

private:
    const int m_iFile;
};

/// Computes the SHA-256 of what is added.
class CLS_Digest
{
public:
    CLS_Digest() : m_pContext(EVP_MD_CTX_new(), &EVP_MD_CTX_free)
    {
        if (m_pContext == nullptr)
        {
            throw std::bad_alloc();
        }
        Check(EVP_DigestInit_ex(m_pContext.get(), EVP_sha256(), nullptr));
    }

    void Add(const unsigned char* _pData, std::size_t _iSize)
    {
        Check(EVP_DigestUpdate(m_pContext.get(), _pData, _iSize));
    }

    /// Ends the sum. Add nothing afterwards.
    std::string TakeHex()
    {
        static constexpr char DIGITS[] = "0123456789abcdef";
        unsigned char vecSum[EVP_MAX_MD_SIZE];
        unsigned int iSize = 0;
        Check(EVP_DigestFinal_ex(m_pContext.get(), vecSum, &iSize));

        std::string strHex;
        for (unsigned int iByte = 0; iByte < iSize; ++iByte)
        {
            strHex += DIGITS[vecSum[iByte] >> 4];
            strHex += DIGITS[vecSum[iByte] & 15];
        }
        return strHex;
    }

private:
    static void Check(int _iResult)
    {
        if (_iResult != 1)
        {
            throw std::runtime_error("the cryptographic library failed");
        }
    }

    std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> m_pContext;
};

/// Returns the file's sum; empty if a cancel came before its end.
std::string HashFile(const std::string& _strPath, std::atomic<std::uint64_t>& _iBytes)
{
    const CLS_OpenFile clsFile(_strPath);
    CLS_Digest clsDigest;
    // Hundreds of tasks run at once, most of them on small files, so no buffer is larger than its file. The
    // extra byte is for files whose size the system reports as 0.
    const std::size_t iChunk = std::min(clsFile.GetSize(), MAX_CHUNK - 1) + 1;
    const auto pBuffer = std::make_unique<unsigned char[]>(iChunk);
    while (GetCancelSignal() == 0)
    {
        const std::size_t iRead = clsFile.Read(pBuffer.get(), iChunk);
        if (iRead == 0)
        {
            return clsDigest.TakeHex();
        }
        clsDigest.Add(pBuffer.get(), iRead);
        _iBytes += iRead;
    }
    return {};
}
} // namespace

CLS_HashJob::CLS_HashJob(std::string _strPath) : m_strPath(std::move(_strPath)) {}

void CLS_HashJob::Run(std::atomic<std::uint64_t>& _iBytes) noexcept
{
    try
    {
        if (GetCancelSignal() != 0)
        {
            return;
        }
        m_strDigest = HashFile(m_strPath, _iBytes);
        if (!m_strDigest.empty())
        {
            m_enState = n_HashState::Done;
        }
    }
    catch (const std::system_error& error)
    {
        Refuse(error.code().message());
    }
    catch (const std::exception& error)
    {
        Refuse(error.what());
    }
}

void CLS_HashJob::Refuse(const std::string& _strReason)
{
    m_strReason = _strReason;
    m_enState = n_HashState::Unreadable;
}
