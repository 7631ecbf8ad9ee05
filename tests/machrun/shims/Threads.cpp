// Threads, thread-specific data, and time.

#include "tests/machrun/shims/Threads.h"

#include "tests/machrun/ExitHandlers.h"
#include "tests/machrun/shims/Tables.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <ctime>
#include <memory>
#include <pthread.h>
#include <sched.h>
#include <unistd.h>

namespace
{
/// The stack size of every thread but the first on macOS.
constexpr std::size_t STACK_SIZE = std::size_t{512} * 1024;

/// A program for macOS never receives the key zero: the first keys are the system's own.
constexpr std::uint64_t FIRST_KEY = 256;

/// Darwin's numbers of the clocks that Linux has, too.
constexpr std::array<std::pair<int, clockid_t>, 5> CLOCKS{{{0, CLOCK_REALTIME},
                                                           {4, CLOCK_MONOTONIC_RAW},
                                                           {6, CLOCK_BOOTTIME}, // counts sleep, as Darwin's
                                                           {8, CLOCK_MONOTONIC},
                                                           {12, CLOCK_PROCESS_CPUTIME_ID}}};

std::atomic<int> g_iThreads{1};

struct ST_Start
{
    void* (*m_funThread)(void*);
    void* m_pArgument;
};

void* RunThread(void* _pStart)
{
    const std::unique_ptr<ST_Start> pStart(static_cast<ST_Start*>(_pStart));
    void* const pResult = pStart->m_funThread(pStart->m_pArgument);
    ExitHandlers::RunForThread();
    --g_iThreads;
    return pResult;
}

int StartThread(pthread_t* _pThread, const void* _pAttributes, void* (*_funThread)(void*), void* _pArgument)
{
    if (_pAttributes != nullptr)
    {
        return EINVAL; // C++ threads have no attributes
    }
    auto pStart = std::make_unique<ST_Start>(ST_Start{_funThread, _pArgument});
    pthread_attr_t stAttributes;
    pthread_attr_init(&stAttributes);
    pthread_attr_setstacksize(&stAttributes, STACK_SIZE);
    // Only the thread that forks goes on in a new process.
    static const int s_iAtFork = pthread_atfork(nullptr, nullptr, [] { g_iThreads = 1; });
    ++g_iThreads;
    const int iResult =
        s_iAtFork == 0 ? pthread_create(_pThread, &stAttributes, RunThread, pStart.get()) : s_iAtFork;
    pthread_attr_destroy(&stAttributes);
    if (iResult == 0)
    {
        static_cast<void>(pStart.release()); // the thread owns it now
    }
    else
    {
        --g_iThreads;
    }
    return Errno::ToDarwin(iResult);
}

int SetOwnName(const char* _szName)
{
    const std::string strName = _szName;
    return Errno::ToDarwin(pthread_setname_np(pthread_self(), strName.substr(0, 15).c_str()));
}

int GetThreadName(pthread_t _idThread, char* _pName, std::size_t _uiSize)
{
    std::array<char, 16> arrName{};
    const int iResult = pthread_getname_np(_idThread, arrName.data(), arrName.size());
    if (iResult == 0 && _uiSize > 0)
    {
        _pName[std::string(arrName.data()).copy(_pName, _uiSize - 1)] = '\0';
    }
    return Errno::ToDarwin(iResult);
}

/// The system-wide number of the calling thread. Programs ask for no other.
int GetThreadNumber(pthread_t _idThread, std::uint64_t* _pNumber)
{
    if (_idThread != 0 && pthread_equal(_idThread, pthread_self()) == 0)
    {
        return EINVAL;
    }
    *_pNumber = static_cast<std::uint64_t>(gettid());
    return 0;
}

std::uint32_t GetKernelName(pthread_t _idThread)
{
    return static_cast<std::uint32_t>(_idThread >> 6) | 1; // any unique number
}

int MakeKey(std::uint64_t* _pKey, void (*_funDestroy)(void*))
{
    pthread_key_t uiKey = 0;
    const int iResult = pthread_key_create(&uiKey, _funDestroy);
    *_pKey = uiKey + FIRST_KEY;
    return Errno::ToDarwin(iResult);
}

int DeleteKey(std::uint64_t _uiKey)
{
    return Errno::ToDarwin(pthread_key_delete(static_cast<pthread_key_t>(_uiKey - FIRST_KEY)));
}

void* GetValue(std::uint64_t _uiKey)
{
    return pthread_getspecific(static_cast<pthread_key_t>(_uiKey - FIRST_KEY));
}

int SetValue(std::uint64_t _uiKey, const void* _pValue)
{
    return Errno::ToDarwin(pthread_setspecific(static_cast<pthread_key_t>(_uiKey - FIRST_KEY), _pValue));
}

int GetTime(int _iClock, timespec* _pTime)
{
    const CLS_ErrnoScope clsErrno;
    for (const auto& [iDarwin, iLinux] : CLOCKS)
    {
        if (iDarwin == _iClock)
        {
            return clock_gettime(iLinux, _pTime);
        }
    }
    errno = EINVAL;
    return -1;
}
} // namespace

namespace Threads
{
int Count()
{
    return g_iThreads;
}
} // namespace Threads

namespace Tables
{
const Shims& GetThreads()
{
    static const Shims s_vecShims{
        {"_pthread_create", &StartThread},
        {"_pthread_join", WITH_RESULT<&::pthread_join>},
        {"_pthread_detach", WITH_RESULT<&::pthread_detach>},
        {"_pthread_self", &::pthread_self},
        {"_pthread_equal", &::pthread_equal},
        {"_pthread_setname_np", &SetOwnName},
        {"_pthread_getname_np", &GetThreadName},
        {"_pthread_threadid_np", &GetThreadNumber},
        {"_pthread_mach_thread_np", &GetKernelName},
        {"_pthread_key_create", &MakeKey},
        {"_pthread_key_delete", &DeleteKey},
        {"_pthread_getspecific", &GetValue},
        {"_pthread_setspecific", &SetValue},
        {"_clock_gettime", &GetTime},
        {"_nanosleep", WITH_ERRNO<&::nanosleep>},
        {"_usleep", WITH_ERRNO<&::usleep>},
    };
    return s_vecShims;
}
} // namespace Tables
