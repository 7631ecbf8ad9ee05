// machrun: files, folders, descriptors, stdio.
#include "darwin.h"
#include "loader.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/select.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/time.h>
#include <sys/uio.h>
#include <unistd.h>

namespace machrun
{
namespace
{

int openFlags(int d)
{
    int f = d & 3;
    if (d & 0x4)
        f |= O_NONBLOCK;
    if (d & 0x8)
        f |= O_APPEND;
    if (d & 0x80)
        f |= O_SYNC;
    if (d & 0x100)
        f |= O_NOFOLLOW;
    if (d & 0x200)
        f |= O_CREAT;
    if (d & 0x400)
        f |= O_TRUNC;
    if (d & 0x800)
        f |= O_EXCL;
    if (d & 0x20000)
        f |= O_NOCTTY;
    if (d & 0x100000)
        f |= O_DIRECTORY;
    if (d & 0x400000)
        f |= O_DSYNC;
    if (d & 0x1000000)
        f |= O_CLOEXEC;
    return f;
}
int flagsToDarwin(int f)
{
    int d = f & 3;
    if (f & O_NONBLOCK)
        d |= 0x4;
    if (f & O_APPEND)
        d |= 0x8;
    return d;
}
int dirFd(int fd)
{
    return fd == -2 ? AT_FDCWD : fd;
}
int atFlags(int d)
{
    int f = 0;
    if (d & 0x10)
        f |= AT_EACCESS;
    if (d & 0x20)
        f |= AT_SYMLINK_NOFOLLOW;
    if (d & 0x40)
        f |= AT_SYMLINK_FOLLOW;
    if (d & 0x80)
        f |= AT_REMOVEDIR;
    return f;
}

int d_open(const char* path, int flags, ...)
{
    int mode = 0;
    if (flags & 0x200)
    {
        va_list args;
        va_start(args, flags);
        mode = va_arg(args, int);
        va_end(args);
    }
    ErrnoScope scope;
    return open(path, openFlags(flags), mode);
}
int d_openat(int fd, const char* path, int flags, ...)
{
    int mode = 0;
    if (flags & 0x200)
    {
        va_list args;
        va_start(args, flags);
        mode = va_arg(args, int);
        va_end(args);
    }
    ErrnoScope scope;
    return openat(dirFd(fd), path, openFlags(flags), mode);
}
int d_creat(const char* path, mode_t mode)
{
    ErrnoScope scope;
    return creat(path, mode);
}
int d_fcntl(int fd, int command, ...)
{
    va_list args;
    va_start(args, command);
    long arg = va_arg(args, long);
    va_end(args);
    ErrnoScope scope;
    switch (command)
    {
    case 0:
        return fcntl(fd, F_DUPFD, arg);
    case 1:
        return fcntl(fd, F_GETFD);
    case 2:
        return fcntl(fd, F_SETFD, arg);
    case 3:
    {
        int f = fcntl(fd, F_GETFL);
        return f < 0 ? f : flagsToDarwin(f);
    }
    case 4:
        return fcntl(fd, F_SETFL, openFlags(static_cast<int>(arg)));
    case 51:
        return fsync(fd); // F_FULLFSYNC
    case 67:
        return fcntl(fd, F_DUPFD_CLOEXEC, arg);
    default:
        errno = EINVAL;
        return -1;
    }
}
int d_ioctl(int, unsigned long, ...)
{
    *darwinErrno() = 25; // ENOTTY
    return -1;
}

struct DStat
{
    int32_t dev;
    uint16_t mode, nlink;
    uint64_t ino;
    uint32_t uid, gid;
    int32_t rdev;
    timespec atime, mtime, ctime, birthtime;
    int64_t size, blocks;
    int32_t blksize;
    uint32_t flags, gen;
    int32_t spare;
    int64_t qspare[2];
};
static_assert(sizeof(DStat) == 144 && offsetof(DStat, size) == 96 && offsetof(DStat, atime) == 32, "");
void convert(DStat* d, const struct stat& s)
{
    std::memset(d, 0, sizeof *d);
    d->dev = static_cast<int32_t>(s.st_dev);
    d->mode = static_cast<uint16_t>(s.st_mode);
    d->nlink = static_cast<uint16_t>(s.st_nlink);
    d->ino = s.st_ino;
    d->uid = s.st_uid;
    d->gid = s.st_gid;
    d->rdev = static_cast<int32_t>(s.st_rdev);
    d->atime = s.st_atim;
    d->mtime = s.st_mtim;
    d->ctime = s.st_ctim;
    d->birthtime = s.st_ctim;
    d->size = s.st_size;
    d->blocks = s.st_blocks;
    d->blksize = static_cast<int32_t>(s.st_blksize);
}
int d_stat(const char* path, DStat* out)
{
    ErrnoScope scope;
    struct stat s;
    int result = stat(path, &s);
    if (result == 0)
        convert(out, s);
    return result;
}
int d_lstat(const char* path, DStat* out)
{
    ErrnoScope scope;
    struct stat s;
    int result = lstat(path, &s);
    if (result == 0)
        convert(out, s);
    return result;
}
int d_fstat(int fd, DStat* out)
{
    ErrnoScope scope;
    struct stat s;
    int result = fstat(fd, &s);
    if (result == 0)
        convert(out, s);
    return result;
}
int d_fstatat(int fd, const char* path, DStat* out, int flags)
{
    ErrnoScope scope;
    struct stat s;
    int result = fstatat(dirFd(fd), path, &s, atFlags(flags));
    if (result == 0)
        convert(out, s);
    return result;
}
int d_unlinkat(int fd, const char* path, int flags)
{
    ErrnoScope scope;
    return unlinkat(dirFd(fd), path, atFlags(flags));
}
int d_fchmodat(int fd, const char* path, mode_t mode, int flags)
{
    ErrnoScope scope;
    return fchmodat(dirFd(fd), path, mode, atFlags(flags));
}
int d_utimensat(int fd, const char* path, const timespec times[2], int flags)
{
    ErrnoScope scope;
    return utimensat(dirFd(fd), path, times, atFlags(flags));
}
struct DStatvfs
{
    unsigned long bsize, frsize;
    uint32_t blocks, bfree, bavail, files, ffree, favail;
    unsigned long fsid, flag, namemax;
};
static_assert(sizeof(DStatvfs) == 64, "");
int d_statvfs(const char* path, DStatvfs* out)
{
    ErrnoScope scope;
    struct statvfs s;
    int result = statvfs(path, &s);
    if (result == 0)
        *out = DStatvfs{s.f_bsize,           s.f_frsize,           uint32_t(s.f_blocks),
                        uint32_t(s.f_bfree), uint32_t(s.f_bavail), uint32_t(s.f_files),
                        uint32_t(s.f_ffree), uint32_t(s.f_favail), s.f_fsid,
                        s.f_flag & 3,        s.f_namemax};
    return result;
}

struct DDirent
{
    uint64_t ino, seekoff;
    uint16_t reclen, namlen;
    uint8_t type;
    char name[1024];
} __attribute__((packed));
static_assert(offsetof(DDirent, name) == 21, "");
DDirent* d_readdir(DIR* dir)
{
    static thread_local char buffer[1048];
    ErrnoScope scope;
    struct dirent* e = readdir(dir);
    if (!e)
        return nullptr;
    auto d = reinterpret_cast<DDirent*>(buffer);
    d->ino = e->d_ino;
    d->seekoff = static_cast<uint64_t>(e->d_off);
    d->reclen = 1048;
    d->namlen = static_cast<uint16_t>(std::strlen(e->d_name));
    d->type = e->d_type;
    std::strcpy(d->name, e->d_name);
    return d;
}

void* d_mmap(void* want, size_t size, int prot, int flags, int fd, off_t offset)
{
    int f = flags & 3;
    if (flags & 0x10)
        f |= MAP_FIXED;
    if (flags & 0x40)
        f |= MAP_NORESERVE;
    if (flags & 0x1000)
        f |= MAP_ANONYMOUS;
    ErrnoScope scope;
    return mmap(want, size, prot, f, flags & 0x1000 ? -1 : fd, offset);
}
int d_select(int n, fd_set* r, fd_set* w, fd_set* e, timeval* t)
{
    ErrnoScope scope;
    timeval copy;
    if (t)
        copy = timeval{t->tv_sec, *reinterpret_cast<int32_t*>(&t->tv_usec)};
    return select(n, r, w, e, t ? &copy : nullptr);
}
int d_fgetpos(FILE* f, int64_t* position)
{
    ErrnoScope scope;
    *position = ftello(f);
    return *position < 0 ? -1 : 0;
}
int d_fsetpos(FILE* f, const int64_t* position)
{
    ErrnoScope scope;
    return fseeko(f, *position, SEEK_SET);
}
int d___swbuf(int c, FILE* f)
{
    return fputc(c, f);
}
int d___srget(FILE* f)
{
    return fgetc(f);
}
ssize_t d_readlink(const char* path, char* buffer, size_t size)
{
    ErrnoScope scope;
    return readlink(path, buffer, size);
}

int d_fcopyfile(int from, int to, void*, uint32_t)
{
    ErrnoScope scope;
    char buffer[65536];
    for (;;)
    {
        ssize_t n = read(from, buffer, sizeof buffer);
        if (n <= 0)
            return static_cast<int>(n);
        for (ssize_t done = 0; done < n;)
        {
            ssize_t k = write(to, buffer + done, static_cast<size_t>(n - done));
            if (k < 0)
                return -1;
            done += k;
        }
    }
}
void* d_copyfile_state_alloc()
{
    return std::calloc(1, 64);
}
int d_copyfile_state_free(void* state)
{
    std::free(state);
    return 0;
}

const ShimEntry entries[] = {
    SHIM(fcopyfile),
    SHIM(copyfile_state_alloc),
    SHIM(copyfile_state_free),
    SHIM_DATA("___stdinp", stdin),
    SHIM_DATA("___stdoutp", stdout),
    SHIM_DATA("___stderrp", stderr),
    SHIM(open),
    SHIM_AS("_open$NOCANCEL", d_open),
    SHIM(openat),
    SHIM(creat),
    SHIM(fcntl),
    SHIM(ioctl),
    SHIM(stat),
    SHIM(lstat),
    SHIM(fstat),
    SHIM(fstatat),
    SHIM_AS("_stat$INODE64", d_stat),
    SHIM_AS("_lstat$INODE64", d_lstat),
    SHIM_AS("_fstat$INODE64", d_fstat),
    SHIM_AS("_fstatat$INODE64", d_fstatat),
    SHIM(unlinkat),
    SHIM(fchmodat),
    SHIM(utimensat),
    SHIM(statvfs),
    {"_opendir", reinterpret_cast<void*>(&WithErrno<&::opendir>::call)},
    {"_opendir$INODE64", reinterpret_cast<void*>(&WithErrno<&::opendir>::call)},
    {"_fdopendir", reinterpret_cast<void*>(&WithErrno<&::fdopendir>::call)},
    {"_fdopendir$INODE64", reinterpret_cast<void*>(&WithErrno<&::fdopendir>::call)},
    SHIM(readdir),
    SHIM_AS("_readdir$INODE64", d_readdir),
    SHIM_ERRNO(closedir),
    SHIM_AS("_rewinddir", ::rewinddir),
    SHIM_AS("_dirfd", ::dirfd),
    SHIM(mmap),
    SHIM_ERRNO(munmap),
    SHIM_ERRNO(mprotect),
    SHIM(select),
    SHIM_AS("_select$1050", d_select),
    SHIM_AS("_select$DARWIN_EXTSN", d_select),
    SHIM_ERRNO(poll),
    SHIM(fgetpos),
    SHIM(fsetpos),
    SHIM(__swbuf),
    SHIM(__srget),
    SHIM(readlink),
    SHIM_ERRNO(read),
    SHIM_ERRNO(write),
    SHIM_ERRNO(readv),
    SHIM_ERRNO(writev),
    SHIM_ERRNO(pread),
    SHIM_ERRNO(pwrite),
    SHIM_ERRNO(close),
    SHIM_ERRNO(lseek),
    SHIM_ERRNO(unlink),
    SHIM_ERRNO(rmdir),
    SHIM_ERRNO(mkdir),
    SHIM_ERRNO(chmod),
    SHIM_ERRNO(fchmod),
    SHIM_ERRNO(access),
    SHIM_ERRNO(dup),
    SHIM_ERRNO(dup2),
    SHIM_ERRNO(pipe),
    SHIM_ERRNO(fsync),
    SHIM_ERRNO(flock),
    SHIM_ERRNO(getcwd),
    SHIM_ERRNO(chdir),
    SHIM_ERRNO(symlink),
    SHIM_ERRNO(link),
    SHIM_ERRNO(rename),
    SHIM_ERRNO(remove),
    SHIM_ERRNO(truncate),
    SHIM_ERRNO(ftruncate),
    SHIM_ERRNO(isatty),
    SHIM_ERRNO(mkstemp),
    SHIM_ERRNO(mkdtemp),
    SHIM_ERRNO(realpath),
    {"_realpath$DARWIN_EXTSN", reinterpret_cast<void*>(&WithErrno<&::realpath>::call)},
    SHIM_ERRNO(fopen),
    {"_fopen$DARWIN_EXTSN", reinterpret_cast<void*>(&WithErrno<&::fopen>::call)},
    SHIM_ERRNO(fdopen),
    {"_fdopen$DARWIN_EXTSN", reinterpret_cast<void*>(&WithErrno<&::fdopen>::call)},
    SHIM_ERRNO(freopen),
    SHIM_ERRNO(fclose),
    SHIM_ERRNO(fflush),
    SHIM_ERRNO(fread),
    SHIM_ERRNO(fwrite),
    {"_fwrite$UNIX2003", reinterpret_cast<void*>(&WithErrno<&::fwrite>::call)},
    SHIM_ERRNO(fputs),
    {"_fputs$UNIX2003", reinterpret_cast<void*>(&WithErrno<&::fputs>::call)},
    SHIM_ERRNO(fputc),
    SHIM_ERRNO(fgets),
    SHIM_ERRNO(fgetc),
    SHIM_ERRNO(fseek),
    SHIM_ERRNO(fseeko),
    SHIM_ERRNO(ftell),
    SHIM_ERRNO(ftello),
    SHIM_ERRNO(tmpfile),
    SHIM_ERRNO(popen),
    SHIM_ERRNO(pclose),
    SHIM_ERRNO(getline),
    SHIM_ERRNO(getdelim),
    SHIM_ERRNO(fputwc),
    SHIM_ERRNO(fgetwc),
};

} // namespace

ShimTable fileShims()
{
    return {entries, sizeof entries / sizeof *entries};
}

} // namespace machrun
