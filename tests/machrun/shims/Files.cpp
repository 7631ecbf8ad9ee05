// Files, folders, descriptors and sockets.

#include "tests/machrun/shims/Tables.h"

#include <array>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>

namespace
{
/// Flags of Darwin and of Linux.
constexpr std::array<std::pair<int, int>, 8> OPEN_FLAGS{{{0x4, O_NONBLOCK},
                                                         {0x8, O_APPEND},
                                                         {0x100, O_NOFOLLOW},
                                                         {0x200, O_CREAT},
                                                         {0x400, O_TRUNC},
                                                         {0x800, O_EXCL},
                                                         {0x100000, O_DIRECTORY},
                                                         {0x1000000, O_CLOEXEC}}};
constexpr int CURRENT_FOLDER = -2;
constexpr int REMOVE_FOLDER = 0x80;
constexpr int NOT_THROUGH_LINKS = 0x20;

enum n_FileCommand : int
{
    COMMAND_GET_DESCRIPTOR_FLAGS = 1,
    COMMAND_SET_DESCRIPTOR_FLAGS = 2,
    COMMAND_GET_FLAGS = 3,
    COMMAND_SET_FLAGS = 4,
    COMMAND_DUPLICATE = 67,
};

int FlagsFromDarwin(int _iDarwin)
{
    int iFlags = _iDarwin & O_ACCMODE;
    for (const auto& [iDarwin, iLinux] : OPEN_FLAGS)
    {
        iFlags |= (_iDarwin & iDarwin) != 0 ? iLinux : 0;
    }
    return iFlags;
}

int FlagsToDarwin(int _iLinux)
{
    int iFlags = _iLinux & O_ACCMODE;
    for (const auto& [iDarwin, iLinux] : OPEN_FLAGS)
    {
        iFlags |= (_iLinux & iLinux) == iLinux ? iDarwin : 0;
    }
    return iFlags;
}

int FolderFromDarwin(int _iFolder)
{
    return _iFolder == CURRENT_FOLDER ? AT_FDCWD : _iFolder;
}

/// The access rights of a new file are a variable argument.
int OpenInFolder(int _iFolder, const char* _szPath, int _iFlags, ...)
{
    const CLS_ErrnoScope clsErrno;
    va_list vaRest;
    va_start(vaRest, _iFlags);
    const int iFlags = FlagsFromDarwin(_iFlags);
    // The analyser overlooks va_start.
    const int iRights =
        (iFlags & O_CREAT) != 0 ? va_arg(vaRest, int) : 0; // NOLINT(clang-analyzer-valist.Uninitialized)
    va_end(vaRest);
    return openat(FolderFromDarwin(_iFolder), _szPath, iFlags, iRights);
}

int OpenFile(const char* _szPath, int _iFlags, ...)
{
    const CLS_ErrnoScope clsErrno;
    va_list vaRest;
    va_start(vaRest, _iFlags);
    const int iFlags = FlagsFromDarwin(_iFlags);
    // The analyser overlooks va_start.
    const int iRights =
        (iFlags & O_CREAT) != 0 ? va_arg(vaRest, int) : 0; // NOLINT(clang-analyzer-valist.Uninitialized)
    va_end(vaRest);
    return open(_szPath, iFlags, iRights);
}

int ControlFile(int _iFile, int _iCommand, ...)
{
    const CLS_ErrnoScope clsErrno;
    va_list vaRest;
    va_start(vaRest, _iCommand);
    const int iValue = va_arg(vaRest, int);
    va_end(vaRest);
    switch (_iCommand)
    {
    case COMMAND_GET_DESCRIPTOR_FLAGS:
        return fcntl(_iFile, F_GETFD);
    case COMMAND_SET_DESCRIPTOR_FLAGS:
        return fcntl(_iFile, F_SETFD, iValue);
    case COMMAND_GET_FLAGS:
    {
        const int iFlags = fcntl(_iFile, F_GETFL);
        return iFlags == -1 ? -1 : FlagsToDarwin(iFlags);
    }
    case COMMAND_SET_FLAGS:
        return fcntl(_iFile, F_SETFL, FlagsFromDarwin(iValue));
    case COMMAND_DUPLICATE:
        return fcntl(_iFile, F_DUPFD_CLOEXEC, iValue);
    default:
        errno = EINVAL;
        return -1;
    }
}

/// The structure and its flags are the same.
int PollFiles(pollfd* _pFiles, unsigned int _uiCount, int _iMilliseconds)
{
    const CLS_ErrnoScope clsErrno;
    return poll(_pFiles, _uiCount, _iMilliseconds);
}

/// The structure of stat on Darwin.
struct ST_Facts
{
    std::int32_t m_iDevice;
    std::uint16_t m_uiMode;
    std::uint16_t m_uiLinks;
    std::uint64_t m_uiNumber;
    std::uint32_t m_uiUser;
    std::uint32_t m_uiGroup;
    std::int32_t m_iSpecialDevice;
    timespec m_stRead;
    timespec m_stWritten;
    timespec m_stChanged;
    timespec m_stMade;
    std::int64_t m_iSize;
    std::int64_t m_iBlocks;
    std::int32_t m_iBlockSize;
    std::uint32_t m_uiFlags;
    std::uint32_t m_uiGeneration;
    std::int32_t m_iSpare;
    std::array<std::int64_t, 2> m_arrSpares;
};
static_assert(sizeof(ST_Facts) == 144 && offsetof(ST_Facts, m_iSize) == 96);

int Translate(int _iResult, const struct stat& _stLinux, ST_Facts* _pFacts)
{
    if (_iResult != 0)
    {
        return _iResult;
    }
    *_pFacts = {};
    _pFacts->m_iDevice = static_cast<std::int32_t>(_stLinux.st_dev);
    _pFacts->m_uiMode = static_cast<std::uint16_t>(_stLinux.st_mode);
    _pFacts->m_uiLinks = static_cast<std::uint16_t>(_stLinux.st_nlink);
    _pFacts->m_uiNumber = _stLinux.st_ino;
    _pFacts->m_uiUser = _stLinux.st_uid;
    _pFacts->m_uiGroup = _stLinux.st_gid;
    _pFacts->m_iSpecialDevice = static_cast<std::int32_t>(_stLinux.st_rdev);
    _pFacts->m_stRead = _stLinux.st_atim;
    _pFacts->m_stWritten = _stLinux.st_mtim;
    _pFacts->m_stChanged = _stLinux.st_ctim;
    _pFacts->m_stMade = _stLinux.st_ctim; // the closest that stat has on Linux
    _pFacts->m_iSize = _stLinux.st_size;
    _pFacts->m_iBlocks = _stLinux.st_blocks;
    _pFacts->m_iBlockSize = static_cast<std::int32_t>(_stLinux.st_blksize);
    return _iResult;
}

int GetFacts(const char* _szPath, ST_Facts* _pFacts)
{
    const CLS_ErrnoScope clsErrno;
    struct stat stLinux;
    return Translate(stat(_szPath, &stLinux), stLinux, _pFacts);
}

int GetFactsOfLink(const char* _szPath, ST_Facts* _pFacts)
{
    const CLS_ErrnoScope clsErrno;
    struct stat stLinux;
    return Translate(lstat(_szPath, &stLinux), stLinux, _pFacts);
}

int GetFactsOfOpenFile(int _iFile, ST_Facts* _pFacts)
{
    const CLS_ErrnoScope clsErrno;
    struct stat stLinux;
    return Translate(fstat(_iFile, &stLinux), stLinux, _pFacts);
}

int UnlinkInFolder(int _iFolder, const char* _szPath, int _iFlags)
{
    const CLS_ErrnoScope clsErrno;
    return unlinkat(FolderFromDarwin(_iFolder), _szPath, (_iFlags & REMOVE_FOLDER) != 0 ? AT_REMOVEDIR : 0);
}

int SetRights(int _iFolder, const char* _szPath, mode_t _uiRights, int _iFlags)
{
    const CLS_ErrnoScope clsErrno;
    return fchmodat(FolderFromDarwin(_iFolder), _szPath, _uiRights,
                    (_iFlags & NOT_THROUGH_LINKS) != 0 ? AT_SYMLINK_NOFOLLOW : 0);
}

/// The structure of readdir on Darwin.
struct [[gnu::packed]] ST_DirectoryEntry
{
    std::uint64_t m_uiNumber;
    std::uint64_t m_uiNext;
    std::uint16_t m_uiSize;
    std::uint16_t m_uiNameLength;
    std::uint8_t m_uiType; ///< the same numbers on both systems
    std::array<char, 1024> m_arrName;
};
static_assert(offsetof(ST_DirectoryEntry, m_arrName) == 21);

ST_DirectoryEntry* ReadFolder(DIR* _pFolder)
{
    thread_local ST_DirectoryEntry t_stEntry;
    const CLS_ErrnoScope clsErrno;
    const dirent* const pEntry = readdir(_pFolder); // NOLINT(concurrency-mt-unsafe): the caller's folder
    if (pEntry == nullptr)
    {
        return nullptr;
    }
    const std::size_t uiLength = std::strlen(pEntry->d_name);
    t_stEntry.m_uiNumber = pEntry->d_ino;
    t_stEntry.m_uiNext = static_cast<std::uint64_t>(pEntry->d_off);
    t_stEntry.m_uiSize = sizeof(t_stEntry);
    t_stEntry.m_uiNameLength = static_cast<std::uint16_t>(uiLength);
    t_stEntry.m_uiType = pEntry->d_type;
    std::memcpy(t_stEntry.m_arrName.data(), pEntry->d_name, uiLength + 1);
    return &t_stEntry;
}

/// Copies the contents of one open file into another. The C++ runtime copies files in this way.
int CopyFile(int _iFrom, int _iTo, void* /*_pState*/, std::uint32_t /*_uiWhat*/)
{
    const CLS_ErrnoScope clsErrno;
    std::array<char, 65536> arrPiece;
    ssize_t iRead = 0;
    while ((iRead = read(_iFrom, arrPiece.data(), arrPiece.size())) > 0)
    {
        if (write(_iTo, arrPiece.data(), static_cast<std::size_t>(iRead)) != iRead)
        {
            return -1;
        }
    }
    return static_cast<int>(iRead);
}

void* MakeCopyState()
{
    return std::malloc(1); // CopyFile needs no state, but null means a failure
}

int FreeCopyState(void* _pState)
{
    std::free(_pState);
    return 0;
}

/// The address of a socket in the file system on Darwin. Its size comes first.
struct ST_SocketAddress
{
    std::uint8_t m_uiSize;
    std::uint8_t m_uiFamily;
    std::array<char, 104> m_arrPath;
};

int BindSocket(int _iSocket, const ST_SocketAddress* _pAddress, socklen_t /*_uiSize*/)
{
    if (_pAddress->m_uiFamily != AF_UNIX)
    {
        return Errno::Fail(EAFNOSUPPORT);
    }
    const CLS_ErrnoScope clsErrno;
    sockaddr_un stAddress{};
    stAddress.sun_family = AF_UNIX;
    std::memcpy(stAddress.sun_path, _pAddress->m_arrPath.data(), _pAddress->m_arrPath.size());
    return bind(_iSocket, reinterpret_cast<const sockaddr*>(&stAddress), sizeof(stAddress));
}
} // namespace

namespace Tables
{
const Shims& GetFiles()
{
    static const Shims s_vecShims{
        {"_open", &OpenFile},
        {"_openat", &OpenInFolder},
        {"_fcntl", &ControlFile},
        {"_close", WITH_ERRNO<&::close>},
        {"_read", WITH_ERRNO<&::read>},
        {"_write", WITH_ERRNO<&::write>},
        {"_fsync", WITH_ERRNO<&::fsync>},
        {"_truncate", WITH_ERRNO<&::truncate>},
        {"_dup", WITH_ERRNO<&::dup>},
        {"_dup2", WITH_ERRNO<&::dup2>},
        {"_pipe", WITH_ERRNO<&::pipe>},
        {"_isatty", WITH_ERRNO<&::isatty>},
        {"_stat$INODE64", &GetFacts},
        {"_lstat$INODE64", &GetFactsOfLink},
        {"_fstat$INODE64", &GetFactsOfOpenFile},
        {"_realpath$DARWIN_EXTSN", WITH_ERRNO<&::realpath>},
        {"_unlink", WITH_ERRNO<&::unlink>},
        {"_unlinkat", &UnlinkInFolder},
        {"_fchmodat", &SetRights},
        {"_remove", WITH_ERRNO<&::remove>},
        {"_rename", WITH_ERRNO<&::rename>},
        {"_symlink", WITH_ERRNO<&::symlink>},
        {"_mkdir", WITH_ERRNO<&::mkdir>},
        {"_mkdtemp", WITH_ERRNO<&::mkdtemp>},
        {"_mkstemp", WITH_ERRNO<&::mkstemp>},
        {"_chdir", WITH_ERRNO<&::chdir>},
        {"_getcwd", WITH_ERRNO<&::getcwd>},
        {"_opendir$INODE64", WITH_ERRNO<&::opendir>},
        {"_fdopendir$INODE64", WITH_ERRNO<&::fdopendir>},
        {"_readdir$INODE64", &ReadFolder},
        {"_closedir", WITH_ERRNO<&::closedir>},
        {"_fcopyfile", &CopyFile},
        {"_copyfile_state_alloc", &MakeCopyState},
        {"_copyfile_state_free", &FreeCopyState},
        {"_poll", &PollFiles},
        {"_socket", WITH_ERRNO<&::socket>},
        {"_bind", &BindSocket},
    };
    return s_vecShims;
}
} // namespace Tables
