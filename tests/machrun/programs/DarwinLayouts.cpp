// Checks the layouts and numbers that the loader's functions rely on against the headers of macOS. It is only
// compiled, never run.

#include <cerrno>
#include <clocale>
#include <csignal>
#include <cstddef>
#include <ctime>
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <mach-o/loader.h>
#include <pthread.h>
#include <regex.h>
#include <runetype.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

// Locks (shims/Inside.h).
static_assert(sizeof(pthread_mutex_t) == 64 && sizeof(pthread_mutexattr_t) == 16 &&
              sizeof(pthread_cond_t) == 48);
static_assert(sizeof(pthread_rwlock_t) == 200 && sizeof(pthread_once_t) == 16 && sizeof(pthread_key_t) == 8);
static_assert(_PTHREAD_MUTEX_SIG_init == 0x32AAABA7 && _PTHREAD_COND_SIG_init == 0x3CB0B1BB);
static_assert(_PTHREAD_ONCE_SIG_init == 0x30B1BCBA && _PTHREAD_RWLOCK_SIG_init == 0x2DA8B3B4);
static_assert(PTHREAD_MUTEX_NORMAL == 0 && PTHREAD_MUTEX_ERRORCHECK == 1 && PTHREAD_MUTEX_RECURSIVE == 2);

// Errors (shims/Errno.cpp).
static_assert(EDEADLK == 11 && EAGAIN == 35 && EINPROGRESS == 36 && EALREADY == 37 && ENOTSOCK == 38);
static_assert(ENOTSUP == 45 && EAFNOSUPPORT == 47 && EADDRINUSE == 48 && ETIMEDOUT == 60 &&
              ECONNREFUSED == 61);
static_assert(ELOOP == 62 && ENAMETOOLONG == 63 && EHOSTUNREACH == 65 && ENOTEMPTY == 66 && EUSERS == 68);
static_assert(EDQUOT == 69 && ESTALE == 70 && EREMOTE == 71 && ENOLCK == 77 && ENOSYS == 78 &&
              EOVERFLOW == 84);
static_assert(ECANCELED == 89 && EIDRM == 90 && ENOMSG == 91 && EILSEQ == 92 && EBADMSG == 94 &&
              EMULTIHOP == 95);
static_assert(ENODATA == 96 && ENOLINK == 97 && EPROTO == 100 && ENOTRECOVERABLE == 104 && EOWNERDEAD == 105);
static_assert(ENOENT == 2 && EINVAL == 22 && EMFILE == 24 && ENOTTY == 25 && ERANGE == 34);

// Signals (shims/Signals.cpp).
static_assert(SIGABRT == 6 && SIGFPE == 8 && SIGBUS == 10 && SIGSEGV == 11 && SIGSYS == 12 && SIGURG == 16);
static_assert(SIGSTOP == 17 && SIGCONT == 19 && SIGCHLD == 20 && SIGIO == 23 && SIGWINCH == 28 &&
              SIGUSR1 == 30);
static_assert(sizeof(struct sigaction) == 16 && sizeof(sigset_t) == 4 && SA_RESTART == 2 &&
              SA_RESETHAND == 4);
static_assert(SA_SIGINFO == 0x40 && SIG_BLOCK == 1 && SIG_UNBLOCK == 2 && SIG_SETMASK == 3);

// Files (shims/Files.cpp).
static_assert(O_NONBLOCK == 0x4 && O_APPEND == 0x8 && O_NOFOLLOW == 0x100 && O_CREAT == 0x200 &&
              O_TRUNC == 0x400);
static_assert(O_EXCL == 0x800 && O_DIRECTORY == 0x100000 && O_CLOEXEC == 0x1000000 && AT_FDCWD == -2);
static_assert(AT_REMOVEDIR == 0x80 && AT_SYMLINK_NOFOLLOW == 0x20 && F_GETFD == 1 && F_SETFD == 2);
static_assert(F_GETFL == 3 && F_SETFL == 4 && F_DUPFD_CLOEXEC == 67);
static_assert(sizeof(struct stat) == 144 && offsetof(struct stat, st_ino) == 8);
static_assert(offsetof(struct stat, st_atimespec) == 32 && offsetof(struct stat, st_size) == 96);
static_assert(offsetof(struct stat, st_blksize) == 112 && sizeof(dirent) == 1048);
static_assert(offsetof(dirent, d_type) == 20 && offsetof(dirent, d_name) == 21);
static_assert(offsetof(sockaddr_un, sun_family) == 1 && offsetof(sockaddr_un, sun_path) == 2);
static_assert(sizeof(sockaddr_un) == 106);

// The process, its memory and its time (shims/Process.cpp, Memory.cpp, Threads.cpp).
static_assert(RLIMIT_AS == 5 && RLIMIT_NOFILE == 8 && RLIM_INFINITY == 0x7fffffffffffffff);
static_assert(_SC_PAGESIZE == 29 && _SC_NPROCESSORS_ONLN == 58 && MAP_FIXED == 0x10 && MAP_ANON == 0x1000);
static_assert(CLOCK_REALTIME == 0 && CLOCK_MONOTONIC_RAW == 4 && CLOCK_MONOTONIC == 6 &&
              CLOCK_UPTIME_RAW == 8);
static_assert(CLOCK_PROCESS_CPUTIME_ID == 12 && sizeof(tm) == 56);

// Texts (shims/Characters.cpp, Locales.cpp, Patterns.cpp).
static_assert(sizeof(_RuneLocale) == 3208 && offsetof(_RuneLocale, __runetype) == 60);
static_assert(offsetof(_RuneLocale, __maplower) == 1084 && offsetof(_RuneLocale, __mapupper) == 2108);
static_assert(LC_ALL == 0 && LC_COLLATE == 1 && LC_CTYPE == 2 && LC_MONETARY == 3 && LC_NUMERIC == 4);
static_assert(LC_TIME == 5 && LC_MESSAGES == 6 && sizeof(lconv) == 96);
static_assert(sizeof(regex_t) == 32 && sizeof(regmatch_t) == 16 && REG_EXTENDED == 1);

// The loader's own.
static_assert(RTLD_NOLOAD == 0x10 && RTLD_NODELETE == 0x80);
static_assert(sizeof(segment_command_64) == 72 && sizeof(section_64) == 80 &&
              sizeof(dyld_info_command) == 48);
static_assert(S_THREAD_LOCAL_VARIABLES == 0x13 && S_INIT_FUNC_OFFSETS == 0x16 && LC_MAIN == 0x80000028);
