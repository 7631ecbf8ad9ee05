// machrun: process, time, memory, strings, dl and dyld functions, and the
// look-up over all shim tables.
#include "darwin.h"
#include "loader.h"

#include <atomic>
#include <cmath>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dlfcn.h>
#include <fcntl.h>
#include <limits.h>
#include <malloc.h>
#include <sched.h>
#include <string>
#include <sys/mman.h>
#include <sys/random.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/utsname.h>
#include <sys/wait.h>
#include <unistd.h>
#include <unordered_map>

extern "C"
{
    __int128 __divti3(__int128, __int128);
    __int128 __modti3(__int128, __int128);
    unsigned __int128 __udivti3(unsigned __int128, unsigned __int128);
    unsigned __int128 __umodti3(unsigned __int128, unsigned __int128);
    double __powidf2(double, int);
    float __powisf2(float, int);
    int d_setjmp(void*);
    [[noreturn]] void d_longjmp(void*, int);
    void d_chkstk();
}

namespace machrun
{

void addImageCallback(void (*callback)(const macho::Header*, intptr_t));
std::vector<std::string> g_selfArguments; // how machrun was started, for exec of another Mach-O program

// ---- errno ------------------------------------------------------------------------

namespace
{
struct ErrnoPair
{
    int linuxValue, darwinValue;
};
const ErrnoPair errnoPairs[] = {
    {EAGAIN, 35},        {EDEADLK, 11},          {ENAMETOOLONG, 63},    {ENOLCK, 77},
    {ENOSYS, 78},        {ENOTEMPTY, 66},        {ELOOP, 62},           {ENOMSG, 91},
    {EIDRM, 90},         {ENOSTR, 99},           {ENODATA, 96},         {ETIME, 101},
    {ENOSR, 98},         {EREMOTE, 71},          {ENOLINK, 97},         {EPROTO, 100},
    {EMULTIHOP, 95},     {EBADMSG, 94},          {EOVERFLOW, 84},       {EILSEQ, 92},
    {EUSERS, 68},        {ENOTSOCK, 38},         {EDESTADDRREQ, 39},    {EMSGSIZE, 40},
    {EPROTOTYPE, 41},    {ENOPROTOOPT, 42},      {EPROTONOSUPPORT, 43}, {ESOCKTNOSUPPORT, 44},
    {EOPNOTSUPP, 45},    {EPFNOSUPPORT, 46},     {EAFNOSUPPORT, 47},    {EADDRINUSE, 48},
    {EADDRNOTAVAIL, 49}, {ENETDOWN, 50},         {ENETUNREACH, 51},     {ENETRESET, 52},
    {ECONNABORTED, 53},  {ECONNRESET, 54},       {ENOBUFS, 55},         {EISCONN, 56},
    {ENOTCONN, 57},      {ESHUTDOWN, 58},        {ETOOMANYREFS, 59},    {ETIMEDOUT, 60},
    {ECONNREFUSED, 61},  {EHOSTDOWN, 64},        {EHOSTUNREACH, 65},    {EALREADY, 37},
    {EINPROGRESS, 36},   {ESTALE, 70},           {EDQUOT, 69},          {ECANCELED, 89},
    {EOWNERDEAD, 105},   {ENOTRECOVERABLE, 104},
};
thread_local int t_errno = 0;
} // namespace

int errnoToDarwin(int e)
{
    if (e <= 34 && e != EAGAIN)
        return e;
    for (const ErrnoPair& p : errnoPairs)
        if (p.linuxValue == e)
            return p.darwinValue;
    return e;
}
int errnoFromDarwin(int e)
{
    if (e == 102)
        return EOPNOTSUPP;
    for (const ErrnoPair& p : errnoPairs)
        if (p.darwinValue == e)
            return p.linuxValue;
    return e;
}
extern "C" int* darwinErrno()
{
    return &t_errno;
}

// ---- signals ----------------------------------------------------------------------

namespace
{
const int signalTable[32] = {
    // Darwin number -> Linux number
    0,       SIGHUP, SIGINT,  SIGQUIT, SIGILL,    SIGTRAP, SIGABRT,  0,       SIGFPE,  SIGKILL, SIGBUS,
    SIGSEGV, SIGSYS, SIGPIPE, SIGALRM, SIGTERM,   SIGURG,  SIGSTOP,  SIGTSTP, SIGCONT, SIGCHLD, SIGTTIN,
    SIGTTOU, SIGIO,  SIGXCPU, SIGXFSZ, SIGVTALRM, SIGPROF, SIGWINCH, 0,       SIGUSR1, SIGUSR2,
};
} // namespace
int signalFromDarwin(int number)
{
    return number > 0 && number < 32 && signalTable[number] ? signalTable[number] : number;
}
int signalToDarwin(int number)
{
    for (int i = 1; i < 32; ++i)
        if (signalTable[i] == number)
            return i;
    return number;
}

namespace
{

struct DSigaction
{
    void* handler;
    uint32_t mask;
    int flags;
};
struct DSiginfo
{
    int signo, error, code, pid;
    unsigned uid;
    int status;
    void* address;
    void* value;
    long band;
    unsigned long pad[7];
};
static_assert(sizeof(DSiginfo) == 104, "");
std::atomic<void*> g_handlers[65];
std::atomic<bool> g_handlerTakesInfo[65];

void handlerTrampoline(int number, siginfo_t* info, void*)
{
    void* handler = g_handlers[number].load();
    int saved = t_errno;
    if (g_handlerTakesInfo[number])
    {
        DSiginfo d{};
        d.signo = signalToDarwin(number);
        d.code = info->si_code;
        d.pid = info->si_pid;
        d.address = info->si_addr;
        reinterpret_cast<void (*)(int, DSiginfo*, void*)>(handler)(d.signo, &d, nullptr);
    }
    else
    {
        reinterpret_cast<void (*)(int)>(handler)(signalToDarwin(number));
    }
    t_errno = saved;
}
sigset_t setFromDarwin(uint32_t mask)
{
    sigset_t set;
    sigemptyset(&set);
    for (int i = 1; i < 32; ++i)
        if ((mask & (1u << (i - 1))) && signalTable[i])
            sigaddset(&set, signalTable[i]);
    return set;
}
uint32_t setToDarwin(const sigset_t& set)
{
    uint32_t mask = 0;
    for (int i = 1; i < 32; ++i)
        if (signalTable[i] && sigismember(&set, signalTable[i]) == 1)
            mask |= 1u << (i - 1);
    return mask;
}
int d_sigaction(int number, const DSigaction* act, DSigaction* old)
{
    ErrnoScope scope;
    int n = signalFromDarwin(number);
    if (n <= 0 || n > 64)
    {
        errno = EINVAL;
        return -1;
    }
    struct sigaction now, before;
    void* previous = g_handlers[n];
    bool previousInfo = g_handlerTakesInfo[n];
    if (act)
    {
        std::memset(&now, 0, sizeof now);
        now.sa_mask = setFromDarwin(act->mask);
        if (act->flags & 0x1)
            now.sa_flags |= SA_ONSTACK;
        if (act->flags & 0x2)
            now.sa_flags |= SA_RESTART;
        if (act->flags & 0x4)
            now.sa_flags |= static_cast<int>(SA_RESETHAND);
        if (act->flags & 0x8)
            now.sa_flags |= SA_NOCLDSTOP;
        if (act->flags & 0x10)
            now.sa_flags |= SA_NODEFER;
        if (reinterpret_cast<uintptr_t>(act->handler) <= 1)
        {
            now.sa_handler = reinterpret_cast<void (*)(int)>(act->handler);
        }
        else
        {
            now.sa_flags |= SA_SIGINFO;
            now.sa_sigaction = handlerTrampoline;
            g_handlerTakesInfo[n] = (act->flags & 0x40) != 0;
        }
        g_handlers[n] = act->handler;
    }
    int result = sigaction(n, act ? &now : nullptr, &before);
    if (result == 0 && old)
    {
        bool ours = (before.sa_flags & SA_SIGINFO) && before.sa_sigaction == handlerTrampoline;
        old->handler = ours ? previous : before.sa_handler == SIG_IGN ? reinterpret_cast<void*>(1) : nullptr;
        old->mask = setToDarwin(before.sa_mask);
        old->flags = ours && previousInfo ? 0x40 : 0;
    }
    return result;
}
void* d_signal(int number, void* handler)
{
    DSigaction act{handler, 0, 2}, old{};
    return d_sigaction(number, &act, &old) == 0 ? old.handler : reinterpret_cast<void*>(-1);
}
int maskHow(int how)
{
    return how == 1 ? SIG_BLOCK : how == 2 ? SIG_UNBLOCK : SIG_SETMASK;
}
int d_sigprocmask(int how, const uint32_t* set, uint32_t* old)
{
    ErrnoScope scope;
    sigset_t s, o;
    if (set)
        s = setFromDarwin(*set);
    int result = sigprocmask(maskHow(how), set ? &s : nullptr, &o);
    if (old)
        *old = setToDarwin(o);
    return result;
}
int d_pthread_sigmask(int how, const uint32_t* set, uint32_t* old)
{
    sigset_t s, o;
    if (set)
        s = setFromDarwin(*set);
    int result = pthread_sigmask(maskHow(how), set ? &s : nullptr, &o);
    if (old)
        *old = setToDarwin(o);
    return errnoToDarwin(result);
}
int d_sigemptyset(uint32_t* set)
{
    return *set = 0, 0;
}
int d_sigfillset(uint32_t* set)
{
    return *set = ~0u, 0;
}
int d_sigaddset(uint32_t* set, int n)
{
    return *set |= 1u << (n - 1), 0;
}
int d_sigdelset(uint32_t* set, int n)
{
    return *set &= ~(1u << (n - 1)), 0;
}
int d_sigismember(const uint32_t* set, int n)
{
    return (*set >> (n - 1)) & 1;
}
int d_raise(int n)
{
    return raise(signalFromDarwin(n));
}
int d_kill(pid_t pid, int n)
{
    ErrnoScope scope;
    return kill(pid, n ? signalFromDarwin(n) : 0);
}
pid_t d_waitpid(pid_t pid, int* status, int options)
{
    ErrnoScope scope;
    int s = 0;
    pid_t result = waitpid(pid, &s, options & 3);
    if (result > 0 && status)
    {
        if (WIFSIGNALED(s))
            s = (s & ~0x7f) | signalToDarwin(WTERMSIG(s));
        *status = s;
    }
    return result;
}
pid_t d_wait(int* status)
{
    return d_waitpid(-1, status, 0);
}

// ---- process ------------------------------------------------------------------------

int d_atexit(void (*fn)())
{
    registerAtExit(reinterpret_cast<void (*)(void*)>(fn), nullptr, nullptr);
    return 0;
}
int d___cxa_atexit(void (*fn)(void*), void* arg, void* dso)
{
    registerAtExit(fn, arg, dso);
    return 0;
}
void d___cxa_finalize(void*) {}
void d__tlv_atexit(void (*fn)(void*), void* object)
{
    tlvAtExit(fn, object);
}
int d___cxa_thread_atexit_impl(void (*fn)(void*), void* object, void*)
{
    return tlvAtExit(fn, object), 0;
}
[[noreturn]] void d_exit(int code)
{
    exitProcess(code);
}
[[noreturn]] void d__exit(int code)
{
    _exit(code & 0xff);
}
[[noreturn]] void d_abort()
{
    abort();
}
[[noreturn]] void d___assert_rtn(const char* function, const char* file, int line, const char* text)
{
    std::fprintf(stderr, "Assertion failed: (%s), function %s, file %s, line %d.\n", text, function, file,
                 line);
    abort();
}
[[noreturn]] void d___stack_chk_fail()
{
    std::fputs("machrun: stack smashing detected in the loaded program\n", stderr);
    abort();
}
uintptr_t g_guard = []
{
    uintptr_t v = 0;
    if (getrandom(&v, sizeof v, 0) != sizeof v)
        v = 0x5bd1e995cafef00dULL;
    return v & ~uintptr_t(0xff);
}();

char*** d__NSGetEnviron()
{
    return &environ;
}
int* d__NSGetArgc()
{
    return &g_argc;
}
char*** d__NSGetArgv()
{
    return &g_argv;
}
char** d__NSGetProgname()
{
    static char* name = nullptr;
    auto slash = g_executablePath.rfind('/');
    name = const_cast<char*>(g_executablePath.c_str() + (slash == std::string::npos ? 0 : slash + 1));
    return &name;
}
const char* d_getprogname()
{
    return *d__NSGetProgname();
}
int d__NSGetExecutablePath(char* buffer, uint32_t* size)
{
    uint32_t need = static_cast<uint32_t>(g_executablePath.size() + 1);
    if (*size < need)
    {
        *size = need;
        return -1;
    }
    std::memcpy(buffer, g_executablePath.c_str(), need);
    return 0;
}

bool isMachO(const char* path)
{
    int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    uint32_t magic = 0;
    ssize_t n = read(fd, &magic, 4);
    close(fd);
    return n == 4 && (magic == macho::MAGIC_64 || magic == macho::FAT_MAGIC_SWAPPED);
}
int execAny(const char* path, char* const argv[], char* const env[])
{
    if (!isMachO(path))
        return execve(path, argv, env);
    std::vector<char*> args;
    for (const std::string& a : g_selfArguments)
        args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(const_cast<char*>(path));
    for (size_t i = 1; argv[0] && argv[i]; ++i)
        args.push_back(argv[i]);
    args.push_back(nullptr);
    return execve("/proc/self/exe", args.data(), env);
}
int d_execve(const char* path, char* const argv[], char* const env[])
{
    ErrnoScope scope;
    return execAny(path, argv, env);
}
int d_execv(const char* path, char* const argv[])
{
    ErrnoScope scope;
    return execAny(path, argv, environ);
}
int d_execvp(const char* file, char* const argv[])
{
    ErrnoScope scope;
    return std::strchr(file, '/') ? execAny(file, argv, environ) : execvp(file, argv);
}

int limitFromDarwin(int which)
{
    switch (which)
    {
    case 5:
        return RLIMIT_AS;
    case 6:
        return RLIMIT_MEMLOCK;
    case 7:
        return RLIMIT_NPROC;
    case 8:
        return RLIMIT_NOFILE;
    default:
        return which; // CPU, FSIZE, DATA, STACK, CORE
    }
}
int d_getrlimit(int which, rlimit* out)
{
    ErrnoScope scope;
    int result = getrlimit(static_cast<__rlimit_resource>(limitFromDarwin(which & 0xff)), out);
    if (out->rlim_cur == RLIM_INFINITY)
        out->rlim_cur = 0x7fffffffffffffffULL;
    if (out->rlim_max == RLIM_INFINITY)
        out->rlim_max = 0x7fffffffffffffffULL;
    return result;
}
int d_setrlimit(int which, const rlimit* in)
{
    ErrnoScope scope;
    rlimit l = *in;
    if (l.rlim_cur == 0x7fffffffffffffffULL)
        l.rlim_cur = RLIM_INFINITY;
    if (l.rlim_max == 0x7fffffffffffffffULL)
        l.rlim_max = RLIM_INFINITY;
    return setrlimit(static_cast<__rlimit_resource>(limitFromDarwin(which & 0xff)), &l);
}

long d_sysconf(int name)
{
    ErrnoScope scope;
    switch (name)
    {
    case 1:
        return sysconf(_SC_ARG_MAX);
    case 2:
        return sysconf(_SC_CHILD_MAX);
    case 3:
        return sysconf(_SC_CLK_TCK);
    case 4:
        return sysconf(_SC_NGROUPS_MAX);
    case 5:
        return sysconf(_SC_OPEN_MAX);
    case 29:
        return sysconf(_SC_PAGESIZE);
    case 56:
        return sysconf(_SC_IOV_MAX);
    case 57:
        return sysconf(_SC_NPROCESSORS_CONF);
    case 58:
        return sysconf(_SC_NPROCESSORS_ONLN);
    case 71:
        return sysconf(_SC_GETPW_R_SIZE_MAX);
    case 72:
        return sysconf(_SC_HOST_NAME_MAX);
    case 74:
        return sysconf(_SC_MONOTONIC_CLOCK);
    case 93:
        return sysconf(_SC_THREAD_STACK_MIN);
    case 200:
        return sysconf(_SC_PHYS_PAGES);
    default:
        errno = EINVAL;
        return -1;
    }
}
int putSysctl(void* out, size_t* size, uint64_t value, size_t width)
{
    if (!size)
        return 0;
    if (!out)
    {
        *size = width;
        return 0;
    }
    if (*size < width)
        width = *size;
    std::memcpy(out, &value, width);
    *size = width;
    return 0;
}
int putSysctl(void* out, size_t* size, const char* text)
{
    size_t n = std::strlen(text) + 1;
    if (out && size)
    {
        if (*size < n)
            n = *size;
        std::memcpy(out, text, n);
    }
    if (size)
        *size = n;
    return 0;
}
int d_sysctlbyname(const char* name, void* out, size_t* size, void*, size_t)
{
    std::string n = name;
    if (n == "hw.ncpu" || n == "hw.logicalcpu" || n == "hw.physicalcpu" || n == "hw.activecpu" ||
        n == "hw.logicalcpu_max" || n == "hw.physicalcpu_max")
        return putSysctl(out, size, static_cast<uint64_t>(sysconf(_SC_NPROCESSORS_ONLN)), 4);
    if (n == "hw.memsize")
        return putSysctl(out, size, static_cast<uint64_t>(sysconf(_SC_PHYS_PAGES)) * 4096, 8);
    if (n == "hw.pagesize")
        return putSysctl(out, size, 4096, 8);
    if (n == "kern.osproductversion")
        return putSysctl(out, size, "11.0");
    if (n == "kern.osrelease")
        return putSysctl(out, size, "20.1.0");
    *darwinErrno() = 2;
    return -1;
}
int d_sysctl(const int* name, unsigned length, void* out, size_t* size, void*, size_t)
{
    if (length >= 2 && name[0] == 6)
    {
        if (name[1] == 3 || name[1] == 25)
            return putSysctl(out, size, static_cast<uint64_t>(sysconf(_SC_NPROCESSORS_ONLN)), 4);
        if (name[1] == 24)
            return putSysctl(out, size, static_cast<uint64_t>(sysconf(_SC_PHYS_PAGES)) * 4096, 8);
    }
    *darwinErrno() = 2;
    return -1;
}
struct DUtsname
{
    char sysname[256], nodename[256], release[256], version[256], machine[256];
};
int d_uname(DUtsname* u)
{
    std::memset(u, 0, sizeof *u);
    std::strcpy(u->sysname, "Darwin");
    gethostname(u->nodename, 255);
    std::strcpy(u->release, "20.1.0");
    std::strcpy(u->machine, "x86_64");
    return 0;
}

// ---- time ---------------------------------------------------------------------------

clockid_t clockFromDarwin(int id)
{
    switch (id)
    {
    case 0:
        return CLOCK_REALTIME;
    case 4:
    case 5:
        return CLOCK_MONOTONIC_RAW;
    case 6:
        return CLOCK_BOOTTIME; // counts sleep
    case 8:
    case 9:
        return CLOCK_MONOTONIC;
    case 12:
        return CLOCK_PROCESS_CPUTIME_ID;
    case 16:
        return CLOCK_THREAD_CPUTIME_ID;
    default:
        return -1;
    }
}
int d_clock_gettime(int id, timespec* t)
{
    ErrnoScope scope;
    return clock_gettime(clockFromDarwin(id), t);
}
int d_clock_getres(int id, timespec* t)
{
    ErrnoScope scope;
    return clock_getres(clockFromDarwin(id), t);
}
uint64_t d_clock_gettime_nsec_np(int id)
{
    timespec t{};
    clock_gettime(clockFromDarwin(id), &t);
    return uint64_t(t.tv_sec) * 1000000000u + uint64_t(t.tv_nsec);
}
uint64_t d_mach_absolute_time()
{
    return d_clock_gettime_nsec_np(8);
}
uint64_t d_mach_continuous_time()
{
    return d_clock_gettime_nsec_np(6);
}
struct DTimebase
{
    uint32_t numerator, denominator;
};
int d_mach_timebase_info(DTimebase* t)
{
    *t = {1, 1};
    return 0;
}
int d_gettimeofday(timeval* t, void*)
{
    return gettimeofday(t, nullptr);
}
long d_clock()
{
    return clock();
} // CLOCKS_PER_SEC is a million on both

// ---- mach ---------------------------------------------------------------------------

unsigned g_taskSelf = 0x103;
unsigned long g_pageSize = 4096, g_pageMask = 4095;
int g_pageShift = 12;
int d_task_threads(unsigned, unsigned** list, unsigned* count)
{
    unsigned n = 1;
    if (FILE* f = std::fopen("/proc/self/status", "r"))
    {
        char line[256];
        while (std::fgets(line, sizeof line, f))
            if (std::sscanf(line, "Threads: %u", &n) == 1)
                break;
        std::fclose(f);
    }
    *list = static_cast<unsigned*>(std::calloc(n, sizeof(unsigned)));
    for (unsigned i = 0; i < n; ++i)
        (*list)[i] = 0x200 + i;
    *count = n;
    return 0;
}
int d_vm_deallocate(unsigned, void* address, unsigned long)
{
    std::free(address); // only memory of task_threads comes here
    return 0;
}
int d_vm_region_64(unsigned, unsigned long* address, unsigned long* size, int, void*, unsigned*, unsigned*)
{
    FILE* f = std::fopen("/proc/self/maps", "r");
    char line[4096];
    int result = 1;
    while (f && std::fgets(line, sizeof line, f))
    {
        unsigned long a = 0, b = 0;
        if (std::sscanf(line, "%lx-%lx", &a, &b) == 2 && b > *address)
        {
            *address = a;
            *size = b - a;
            result = a >= 0x7fffffffffffffffUL ? 1 : 0;
            break;
        }
    }
    if (f)
        std::fclose(f);
    return result;
}
unsigned d_mach_thread_self()
{
    return static_cast<unsigned>(syscall(SYS_gettid));
}
int d_mach_port_deallocate(unsigned, unsigned)
{
    return 0;
}

// ---- memory and strings -----------------------------------------------------------------

template <size_t N>
void memsetPattern(void* out, const void* pattern, size_t size)
{
    auto p = static_cast<char*>(out);
    for (; size >= N; size -= N, p += N)
        std::memcpy(p, pattern, N);
    std::memcpy(p, pattern, size);
}
void d_bzero(void* p, size_t n)
{
    std::memset(p, 0, n);
}
int d_memset_s(void* p, size_t max, int c, size_t n)
{
    std::memset(p, c, n < max ? n : max);
    return n > max ? 84 : 0;
}
size_t d_strlcpy(char* d, const char* s, size_t size)
{
    size_t n = std::strlen(s);
    if (size)
    {
        size_t k = n < size - 1 ? n : size - 1;
        std::memcpy(d, s, k);
        d[k] = 0;
    }
    return n;
}
size_t d_strlcat(char* d, const char* s, size_t size)
{
    size_t have = strnlen(d, size);
    return have == size ? size + std::strlen(s) : have + d_strlcpy(d + have, s, size - have);
}
size_t d___strlcpy_chk(char* d, const char* s, size_t size, size_t)
{
    return d_strlcpy(d, s, size);
}
size_t d___strlcat_chk(char* d, const char* s, size_t size, size_t)
{
    return d_strlcat(d, s, size);
}
char* d_strnstr(const char* text, const char* part, size_t n)
{
    size_t length = std::strlen(part);
    for (size_t i = 0; i + length <= n && (text[i] || !length); ++i)
        if (std::strncmp(text + i, part, length) == 0)
            return const_cast<char*>(text + i);
    return nullptr;
}
char* d_strerror(int e)
{
    static thread_local char text[128];
    std::snprintf(text, sizeof text, "%s", strerror(errnoFromDarwin(e)));
    return text;
}
int d_strerror_r(int e, char* buffer, size_t size)
{
    char local[128];
    const char* text = strerror_r(errnoFromDarwin(e), local, sizeof local);
    d_strlcpy(buffer, text, size);
    return std::strlen(text) >= size ? 34 : 0;
}
void d_perror(const char* prefix)
{
    std::fprintf(stderr, "%s: %s\n", prefix, d_strerror(t_errno));
}
char* d_strsignal(int n)
{
    return strsignal(signalFromDarwin(n));
}
size_t d_malloc_good_size(size_t n)
{
    return (n + 15) & ~size_t(15);
}
void* d_reallocf(void* p, size_t n)
{
    void* q = std::realloc(p, n);
    if (!q)
        std::free(p);
    return q;
}
void* d_malloc_default_zone()
{
    return &g_pageSize;
}
uint32_t d_arc4random()
{
    uint32_t v = 0;
    if (getrandom(&v, sizeof v, 0) != sizeof v)
        abort();
    return v;
}
uint32_t d_arc4random_uniform(uint32_t bound)
{
    if (bound < 2)
        return 0;
    uint32_t least = -bound % bound, v;
    do
        v = d_arc4random();
    while (v < least);
    return v % bound;
}
void d_arc4random_buf(void* p, size_t n)
{
    auto out = static_cast<char*>(p);
    while (n)
    {
        ssize_t k = getrandom(out, n, 0);
        if (k > 0)
            out += k, n -= static_cast<size_t>(k);
    }
}
int d_vsnprintf_chk(char* s, size_t n, int, size_t, const char* f, va_list a)
{
    return vsnprintf(s, n, f, a);
}
int d_snprintf_chk(char* s, size_t n, int, size_t, const char* f, ...)
{
    va_list a;
    va_start(a, f);
    int result = vsnprintf(s, n, f, a);
    va_end(a);
    return result;
}
int d_vsprintf_chk(char* s, int, size_t, const char* f, va_list a)
{
    return vsprintf(s, f, a);
}
int d_sprintf_chk(char* s, int, size_t, const char* f, ...)
{
    va_list a;
    va_start(a, f);
    int result = vsprintf(s, f, a);
    va_end(a);
    return result;
}

// ---- mathematics ------------------------------------------------------------------------

template <class T>
int classify(T v)
{
    switch (std::fpclassify(v))
    {
    case FP_NAN:
        return 1;
    case FP_INFINITE:
        return 2;
    case FP_ZERO:
        return 3;
    case FP_SUBNORMAL:
        return 5;
    default:
        return 4;
    }
}
struct SinCos
{
    double s, c;
};
SinCos d___sincos_stret(double x)
{
    return {std::sin(x), std::cos(x)};
}
struct SinCosF
{
    float s, c;
};
SinCosF d___sincosf_stret(float x)
{
    return {std::sin(x), std::cos(x)};
}
double d___exp10(double x)
{
    return exp10(x);
}

// ---- dl and dyld ------------------------------------------------------------------------

void* d_dlopen(const char* path, int mode)
{
    return dlOpen(path, mode, __builtin_return_address(0));
}
int d_dlclose(void* handle)
{
    return dlClose(handle);
}
void* d_dlsym(void* handle, const char* name)
{
    return dlSym(handle, name, __builtin_return_address(0));
}
char* d_dlerror()
{
    return dlError();
}
bool d_dlopen_preflight(const char*)
{
    return true;
}
int d_dladdr(const void* address, Dl_info* info)
{
    Image* image = imageContaining(address);
    if (!image)
        return dladdr(address, info);
    info->dli_fname = image->path.c_str();
    info->dli_fbase = image->base;
    info->dli_sname = nullptr;
    info->dli_saddr = nullptr;
    void* at = nullptr;
    if (const char* name = nearestSymbol(image, address, &at))
    {
        info->dli_sname = name;
        info->dli_saddr = at;
    }
    return 1;
}
struct UnwindSections
{
    const void* header;
    const void* dwarf;
    uintptr_t dwarfLength;
    const void* compact;
    uintptr_t compactLength;
};
bool d__dyld_find_unwind_sections(void* address, UnwindSections* out)
{
    Image* image = imageContaining(address);
    if (!image)
        return false;
    *out = {};
    out->header = image->base;
    if (const Section* s = image->section("__TEXT", "__eh_frame"))
    {
        out->dwarf = image->at(s->addr);
        out->dwarfLength = s->size;
    }
    if (const Section* s = image->section("__TEXT", "__unwind_info"))
    {
        out->compact = image->at(s->addr);
        out->compactLength = s->size;
    }
    return true;
}
void d__dyld_register_func_for_add_image(void (*f)(const macho::Header*, intptr_t))
{
    addImageCallback(f);
}
void d__dyld_register_func_for_remove_image(void (*)(const macho::Header*, intptr_t)) {}
uint32_t d__dyld_image_count()
{
    return static_cast<uint32_t>(images().size());
}
Image* imageAt(uint32_t i)
{
    auto all = images();
    return i < all.size() ? all[i] : nullptr;
}
const void* d__dyld_get_image_header(uint32_t i)
{
    return imageAt(i) ? imageAt(i)->base : nullptr;
}
intptr_t d__dyld_get_image_vmaddr_slide(uint32_t i)
{
    return imageAt(i) ? imageAt(i)->slide() : 0;
}
const char* d__dyld_get_image_name(uint32_t i)
{
    return imageAt(i) ? imageAt(i)->path.c_str() : nullptr;
}
[[noreturn]] void d_dyld_stub_binder()
{
    std::fputs("machrun: dyld_stub_binder was called; lazy pointers are bound at load\n", stderr);
    abort();
}
int d_backtrace(void** frames, int count)
{
    return walkFrames(__builtin_frame_address(0), frames, count);
}
void d_backtrace_symbols_fd(void* const* frames, int count, int)
{
    printBacktrace(frames, count);
}

// Message catalogues: none is ever found, as with no catalogue installed.
void* d_catopen(const char*, int)
{
    *darwinErrno() = 2;
    return reinterpret_cast<void*>(-1);
}
char* d_catgets(void*, int, int, const char* text)
{
    return const_cast<char*>(text);
}
int d_catclose(void*)
{
    return -1;
}

char g_zeroes[256];

const ShimEntry entries[] = {
    SHIM_AS("___error", darwinErrno),
    SHIM(sigaction),
    SHIM(signal),
    SHIM(sigprocmask),
    SHIM(pthread_sigmask),
    SHIM(sigemptyset),
    SHIM(sigfillset),
    SHIM(sigaddset),
    SHIM(sigdelset),
    SHIM(sigismember),
    SHIM(raise),
    SHIM(kill),
    SHIM(waitpid),
    SHIM(wait),
    SHIM_ERRNO(fork),
    SHIM(execve),
    SHIM(execv),
    SHIM(execvp),
    SHIM(atexit),
    SHIM(__cxa_atexit),
    SHIM(__cxa_finalize),
    SHIM(_tlv_atexit),
    SHIM(__cxa_thread_atexit_impl),
    SHIM(exit),
    SHIM(_exit),
    SHIM_AS("__Exit", d__exit),
    SHIM(abort),
    SHIM(__assert_rtn),
    SHIM(__stack_chk_fail),
    SHIM_DATA("___stack_chk_guard", g_guard),
    SHIM(_NSGetEnviron),
    SHIM(_NSGetArgc),
    SHIM(_NSGetArgv),
    SHIM(_NSGetProgname),
    SHIM(_NSGetExecutablePath),
    SHIM(getprogname),
    SHIM_DATA("_environ", environ),
    SHIM(sysconf),
    SHIM(getrlimit),
    SHIM(setrlimit),
    SHIM(sysctl),
    SHIM(sysctlbyname),
    SHIM(uname),
    SHIM(clock_gettime),
    SHIM(clock_getres),
    SHIM(clock_gettime_nsec_np),
    SHIM(mach_absolute_time),
    SHIM(mach_continuous_time),
    SHIM_AS("_mach_approximate_time", d_mach_absolute_time),
    SHIM(mach_timebase_info),
    SHIM(gettimeofday),
    SHIM(clock),
    SHIM_ERRNO(nanosleep),
    SHIM_ERRNO(usleep),
    SHIM_AS("_sleep", ::sleep),
    SHIM_AS("_sched_yield", ::sched_yield),
    SHIM_DATA("_mach_task_self_", g_taskSelf),
    SHIM_DATA("_vm_page_size", g_pageSize),
    SHIM_DATA("_vm_page_mask", g_pageMask),
    SHIM_DATA("_vm_page_shift", g_pageShift),
    SHIM(task_threads),
    SHIM(vm_deallocate),
    SHIM(mach_thread_self),
    SHIM(vm_region_64),
    SHIM(mach_port_deallocate),
    SHIM_AS("_memset_pattern4", memsetPattern<4>),
    SHIM_AS("_memset_pattern8", memsetPattern<8>),
    SHIM_AS("_memset_pattern16", memsetPattern<16>),
    SHIM(bzero),
    SHIM_AS("___bzero", d_bzero),
    SHIM(memset_s),
    SHIM(strlcpy),
    SHIM(strlcat),
    SHIM(__strlcpy_chk),
    SHIM(__strlcat_chk),
    SHIM(strnstr),
    SHIM(strerror),
    SHIM(strerror_r),
    SHIM(perror),
    SHIM(strsignal),
    SHIM_AS("_malloc_size", ::malloc_usable_size),
    SHIM(malloc_good_size),
    SHIM(malloc_default_zone),
    SHIM(reallocf),
    SHIM_RESULT(posix_memalign),
    SHIM(arc4random),
    SHIM(arc4random_uniform),
    SHIM(arc4random_buf),
    SHIM_ERRNO(getentropy),
    SHIM_AS("___snprintf_chk", d_snprintf_chk),
    SHIM_AS("___vsnprintf_chk", d_vsnprintf_chk),
    SHIM_AS("___sprintf_chk", d_sprintf_chk),
    SHIM_AS("___vsprintf_chk", d_vsprintf_chk),
    SHIM_ERRNO(strtol),
    SHIM_ERRNO(strtoll),
    SHIM_ERRNO(strtoul),
    SHIM_ERRNO(strtoull),
    SHIM_ERRNO(strtod),
    SHIM_ERRNO(strtof),
    SHIM_ERRNO(strtold),
    SHIM_ERRNO(wcstol),
    SHIM_ERRNO(wcstoll),
    SHIM_ERRNO(wcstoul),
    SHIM_ERRNO(wcstoull),
    SHIM_ERRNO(wcstod),
    SHIM_ERRNO(wcstof),
    SHIM_ERRNO(wcstold),
    SHIM_ERRNO(setenv),
    SHIM_ERRNO(unsetenv),
    SHIM_ERRNO(gethostname),
    SHIM_ERRNO(getrusage),
    SHIM_AS("___fpclassifyd", classify<double>),
    SHIM_AS("___fpclassifyf", classify<float>),
    SHIM_AS("___fpclassifyl", classify<long double>),
    SHIM(__sincos_stret),
    SHIM(__sincosf_stret),
    SHIM(__exp10),
    SHIM_AS("___divti3", __divti3),
    SHIM_AS("___modti3", __modti3),
    SHIM_AS("___udivti3", __udivti3),
    SHIM_AS("___umodti3", __umodti3),
    SHIM_AS("___powidf2", __powidf2),
    SHIM_AS("___powisf2", __powisf2),
    SHIM(dlopen),
    SHIM(dlclose),
    SHIM(dlsym),
    SHIM(dlerror),
    SHIM(dlopen_preflight),
    SHIM(dladdr),
    SHIM(_dyld_find_unwind_sections),
    SHIM(_dyld_register_func_for_add_image),
    SHIM(_dyld_register_func_for_remove_image),
    SHIM(_dyld_image_count),
    SHIM(_dyld_get_image_header),
    SHIM(_dyld_get_image_vmaddr_slide),
    SHIM(_dyld_get_image_name),
    SHIM_AS("dyld_stub_binder", d_dyld_stub_binder),
    SHIM_AS("__tlv_bootstrap", d_dyld_stub_binder), // replaced in every descriptor at load
    SHIM(catopen),
    SHIM(catgets),
    SHIM(catclose),
    SHIM(backtrace),
    SHIM(backtrace_symbols_fd),
    SHIM_AS("_setjmp", d_setjmp),
    SHIM_AS("__setjmp", d_setjmp),
    SHIM_AS("_sigsetjmp", d_setjmp),
    SHIM_AS("_longjmp", d_longjmp),
    SHIM_AS("__longjmp", d_longjmp),
    SHIM_AS("_siglongjmp", d_longjmp),
    SHIM_AS("____chkstk_darwin", d_chkstk),
    SHIM_DATA("__NSConcreteStackBlock", g_zeroes),
    SHIM_DATA("__NSConcreteGlobalBlock", g_zeroes),
};

// Functions that mean the same on both systems: plain C library functions on
// plain C types, that neither set errno in a way that matters nor take a
// structure or constant that differs.
const char* const same[] = {
    "memcpy",
    "memmove",
    "memset",
    "memcmp",
    "memchr",
    "memrchr",
    "memmem",
    "memccpy",
    "bcmp",
    "bcopy",
    "strlen",
    "strnlen",
    "strcmp",
    "strncmp",
    "strcasecmp",
    "strncasecmp",
    "strcpy",
    "strncpy",
    "stpcpy",
    "stpncpy",
    "strcat",
    "strncat",
    "strchr",
    "strrchr",
    "strstr",
    "strcasestr",
    "strpbrk",
    "strspn",
    "strcspn",
    "strtok",
    "strtok_r",
    "strsep",
    "strdup",
    "strndup",
    "strcoll",
    "strxfrm",
    "ffs",
    "ffsl",
    "ffsll",
    "index",
    "rindex",
    "wcslen",
    "wcscmp",
    "wcsncmp",
    "wcscpy",
    "wcsncpy",
    "wcscat",
    "wcschr",
    "wcsrchr",
    "wcsstr",
    "wmemcpy",
    "wmemmove",
    "wmemset",
    "wmemcmp",
    "wmemchr",
    "wcscoll",
    "wcsxfrm",
    "mbrtowc",
    "wcrtomb",
    "mbsrtowcs",
    "wcsrtombs",
    "mbrlen",
    "mbtowc",
    "wctomb",
    "mbstowcs",
    "wcstombs",
    "btowc",
    "wctob",
    "mblen",
    "mbsinit",
    "mbsnrtowcs",
    "wcsnrtombs",
    "iswalpha",
    "iswdigit",
    "iswspace",
    "iswupper",
    "iswlower",
    "iswprint",
    "iswcntrl",
    "iswpunct",
    "iswalnum",
    "iswgraph",
    "iswblank",
    "iswxdigit",
    "towupper",
    "towlower",
    "malloc",
    "calloc",
    "realloc",
    "free",
    "aligned_alloc",
    "valloc",
    "qsort",
    "bsearch",
    "abs",
    "labs",
    "llabs",
    "div",
    "ldiv",
    "lldiv",
    "rand",
    "srand",
    "rand_r",
    "random",
    "srandom",
    "drand48",
    "srand48",
    "lrand48",
    "atoi",
    "atol",
    "atoll",
    "atof",
    "getenv",
    "system",
    "printf",
    "fprintf",
    "sprintf",
    "snprintf",
    "vprintf",
    "vfprintf",
    "vsprintf",
    "vsnprintf",
    "asprintf",
    "vasprintf",
    "dprintf",
    "vdprintf",
    "sscanf",
    "vsscanf",
    "scanf",
    "fscanf",
    "vfscanf",
    "swprintf",
    "vswprintf",
    "wprintf",
    "fwprintf",
    "swscanf",
    "puts",
    "putchar",
    "putc",
    "getc",
    "getchar",
    "ungetc",
    "getwc",
    "ungetwc",
    "putwc",
    "setbuf",
    "setvbuf",
    "setlinebuf",
    "fileno",
    "feof",
    "ferror",
    "clearerr",
    "rewind",
    "flockfile",
    "funlockfile",
    "ftrylockfile",
    "fputws",
    "fwide",
    "time",
    "localtime",
    "localtime_r",
    "gmtime",
    "gmtime_r",
    "mktime",
    "timegm",
    "asctime",
    "asctime_r",
    "ctime",
    "ctime_r",
    "strftime",
    "strptime",
    "difftime",
    "tzset",
    "wcsftime",
    "getpid",
    "getppid",
    "seteuid",
    "getuid",
    "geteuid",
    "getgid",
    "getegid",
    "umask",
    "alarm",
    "getpgrp",
    "setsid",
    "sched_get_priority_min",
    "sched_get_priority_max",
    "__memcpy_chk",
    "__memmove_chk",
    "__memset_chk",
    "__strcpy_chk",
    "__strncpy_chk",
    "__strcat_chk",
    "__strncat_chk",
    "__stpcpy_chk",
    "sin",
    "cos",
    "tan",
    "asin",
    "acos",
    "atan",
    "atan2",
    "sinh",
    "cosh",
    "tanh",
    "asinh",
    "acosh",
    "atanh",
    "exp",
    "exp2",
    "expm1",
    "log",
    "log2",
    "log10",
    "log1p",
    "logb",
    "pow",
    "sqrt",
    "cbrt",
    "hypot",
    "erf",
    "erfc",
    "tgamma",
    "lgamma",
    "ceil",
    "floor",
    "trunc",
    "round",
    "lround",
    "llround",
    "rint",
    "lrint",
    "llrint",
    "nearbyint",
    "fmod",
    "remainder",
    "fmin",
    "fmax",
    "fdim",
    "fma",
    "fabs",
    "copysign",
    "nan",
    "nextafter",
    "ldexp",
    "frexp",
    "modf",
    "scalbn",
    "ilogb",
    "sinf",
    "cosf",
    "tanf",
    "asinf",
    "acosf",
    "atanf",
    "atan2f",
    "expf",
    "exp2f",
    "logf",
    "log2f",
    "log10f",
    "log1pf",
    "powf",
    "sqrtf",
    "cbrtf",
    "hypotf",
    "ceilf",
    "floorf",
    "truncf",
    "roundf",
    "lroundf",
    "rintf",
    "fmodf",
    "fminf",
    "fmaxf",
    "fabsf",
    "copysignf",
    "ldexpf",
    "frexpf",
    "modff",
    "scalbnf",
    "nextafterf",
    "sinl",
    "cosl",
    "tanl",
    "expl",
    "exp2l",
    "logl",
    "log2l",
    "log10l",
    "powl",
    "sqrtl",
    "ceill",
    "floorl",
    "truncl",
    "roundl",
    "rintl",
    "fmodl",
    "fminl",
    "fmaxl",
    "fabsl",
    "copysignl",
    "ldexpl",
    "frexpl",
    "modfl",
    "scalbnl",
    "nextafterl",
};

const std::unordered_map<std::string_view, void*>& table()
{
    static const auto* t = []
    {
        auto map = new std::unordered_map<std::string_view, void*>;
        for (const char* name : same)
        {
            void* address = dlsym(RTLD_DEFAULT, name);
            if (!address)
                continue; // reported as missing when a program wants it
            auto symbol = new std::string(std::string("_") + name);
            map->emplace(*symbol, address);
        }
        for (ShimTable part : {coreShims(), fileShims(), pthreadShims(), localeShims()})
            for (size_t i = 0; i < part.count; ++i)
                (*map)[part.entries[i].name] = part.entries[i].address;
        return map;
    }();
    return *t;
}

} // namespace

ShimTable coreShims()
{
    return {entries, sizeof entries / sizeof *entries};
}

void* lookupNative(std::string_view name)
{
    const auto& t = table();
    auto it = t.find(name);
    return it == t.end() ? nullptr : it->second;
}

} // namespace machrun

// setjmp/longjmp into Darwin's 148-byte buffer (glibc's is larger). The signal
// mask is not kept.
asm(R"(
.text
.globl d_setjmp
.type d_setjmp, @function
d_setjmp:
    movq %rbx, 0(%rdi)
    movq %rbp, 8(%rdi)
    movq %r12, 16(%rdi)
    movq %r13, 24(%rdi)
    movq %r14, 32(%rdi)
    movq %r15, 40(%rdi)
    leaq 8(%rsp), %rax
    movq %rax, 48(%rdi)
    movq (%rsp), %rax
    movq %rax, 56(%rdi)
    stmxcsr 64(%rdi)
    fnstcw 68(%rdi)
    xorl %eax, %eax
    ret
.size d_setjmp, .-d_setjmp
.globl d_longjmp
.type d_longjmp, @function
d_longjmp:
    movl %esi, %eax
    testl %eax, %eax
    jnz 1f
    incl %eax
1:
    movq 0(%rdi), %rbx
    movq 8(%rdi), %rbp
    movq 16(%rdi), %r12
    movq 24(%rdi), %r13
    movq 32(%rdi), %r14
    movq 40(%rdi), %r15
    movq 48(%rdi), %rsp
    ldmxcsr 64(%rdi)
    fldcw 68(%rdi)
    jmpq *56(%rdi)
.size d_longjmp, .-d_longjmp
.globl d_chkstk
.type d_chkstk, @function
d_chkstk:
    ret
.size d_chkstk, .-d_chkstk
)");
