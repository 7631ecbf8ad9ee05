// What a process can query about itself and its children, and how it ends.

#include "tests/machrun/CLS_Loader.h"
#include "tests/machrun/ExitHandlers.h"
#include "tests/machrun/shims/Restart.h"
#include "tests/machrun/shims/Signals.h"
#include "tests/machrun/shims/Tables.h"

#include <array>
#include <cstdlib>
#include <grp.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{
// Darwin's numbers.
constexpr int LIMIT_ADDRESSES = 5;
constexpr int LIMIT_FILES = 8;
constexpr rlim_t NO_LIMIT = 0x7fffffffffffffff;
constexpr int FACT_PAGE_SIZE = 29;
constexpr int FACT_PROCESSORS = 58;
constexpr int WAIT_OPTIONS = 3; ///< both mean the same on both systems

int AddExitHandler(void (*_funHandler)(void*), void* _pArgument, const void* _pImage)
{
    ExitHandlers::Add(_funHandler, _pArgument, _pImage);
    return 0;
}

int AddPlainExitHandler(void (*_funHandler)())
{
    // A function without parameters ignores an argument. The handler belongs to the image that contains it.
    return AddExitHandler(reinterpret_cast<void (*)(void*)>(_funHandler), nullptr,
                          reinterpret_cast<const void*>(_funHandler));
}

[[noreturn]] void EndAtOnce(int _iStatus)
{
    _exit(_iStatus);
}

int* GetArgumentCount()
{
    static int s_iCount = CLS_Loader::Get().GetArguments().m_iCount;
    return &s_iCount;
}

char*** GetArguments()
{
    static char** s_ppTexts = CLS_Loader::Get().GetArguments().m_ppTexts;
    return &s_ppTexts;
}

int BecomeProgram(const char* _szPath, char* const* _ppArguments, char* const* _ppEnvironment)
{
    const CLS_ErrnoScope clsErrno;
    return Restart::Execute(_szPath, _ppArguments, _ppEnvironment);
}

int BecomeProgramHere(const char* _szPath, char* const* _ppArguments)
{
    return BecomeProgram(_szPath, _ppArguments, environ);
}

pid_t WaitForChild(pid_t _iProcess, int* _pStatus, int _iOptions)
{
    const CLS_ErrnoScope clsErrno;
    int iStatus = 0;
    const pid_t iResult = waitpid(_iProcess, &iStatus, _iOptions & WAIT_OPTIONS);
    if (iResult > 0 && _pStatus != nullptr)
    {
        // The signal that ended it is in the lowest bits on both systems.
        *_pStatus = WIFSIGNALED(iStatus) ? (iStatus & ~0x7f) | Signals::ToDarwin(WTERMSIG(iStatus)) : iStatus;
    }
    return iResult;
}

/// The limits of a process have the same numbers up to that of memory.
__rlimit_resource ToLimit(int _iDarwin)
{
    return _iDarwin == LIMIT_FILES       ? RLIMIT_NOFILE
           : _iDarwin == LIMIT_ADDRESSES ? RLIMIT_AS
                                         : static_cast<__rlimit_resource>(_iDarwin);
}

int GetLimit(int _iWhich, rlimit* _pLimit)
{
    const CLS_ErrnoScope clsErrno;
    const int iResult = getrlimit(ToLimit(_iWhich), _pLimit);
    for (rlim_t* const pValue : {&_pLimit->rlim_cur, &_pLimit->rlim_max})
    {
        *pValue = *pValue == RLIM_INFINITY ? NO_LIMIT : *pValue;
    }
    return iResult;
}

int SetLimit(int _iWhich, const rlimit* _pLimit)
{
    const CLS_ErrnoScope clsErrno;
    rlimit stLimit = *_pLimit;
    for (rlim_t* const pValue : {&stLimit.rlim_cur, &stLimit.rlim_max})
    {
        *pValue = *pValue == NO_LIMIT ? RLIM_INFINITY : *pValue;
    }
    return setrlimit(ToLimit(_iWhich), &stLimit);
}

long GetFact(int _iWhich)
{
    switch (_iWhich)
    {
    case FACT_PAGE_SIZE:
        return sysconf(_SC_PAGESIZE);
    case FACT_PROCESSORS:
        return sysconf(_SC_NPROCESSORS_ONLN);
    default:
        return Errno::Fail(EINVAL);
    }
}

int SetGroups(int _iCount, const gid_t* _pGroups)
{
    const CLS_ErrnoScope clsErrno;
    return setgroups(static_cast<std::size_t>(_iCount), _pGroups);
}
} // namespace

namespace Tables
{
const Shims& GetProcess()
{
    static const Shims s_vecShims{
        {"___error", &Errno::GetDarwins},
        {"_atexit", &AddPlainExitHandler},
        {"___cxa_atexit", &AddExitHandler},
        {"__tlv_atexit", &ExitHandlers::AddForThread},
        {"_exit", &ExitHandlers::EndProcess},
        {"__exit", &EndAtOnce},
        {"__Exit", &EndAtOnce},
        {"_abort", &std::abort},
        {"__NSGetArgc", &GetArgumentCount},
        {"__NSGetArgv", &GetArguments},
        {"_environ", &environ},
        {"_fork", WITH_ERRNO<&::fork>},
        {"_execve", &BecomeProgram},
        {"_execv", &BecomeProgramHere},
        {"_waitpid", &WaitForChild},
        {"_getrlimit", &GetLimit},
        {"_setrlimit", &SetLimit},
        {"_sysconf", &GetFact},
        {"_setgid", WITH_ERRNO<&::setgid>},
        {"_setuid", WITH_ERRNO<&::setuid>},
        {"_setgroups", &SetGroups},
    };
    return s_vecShims;
}
} // namespace Tables
