#include "tests/machrun/shims/Signals.h"

#include "tests/machrun/shims/Tables.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <cstdint>

namespace
{
/// Linux's number for each of Darwin's; 0 if it has none.
constexpr std::array<int, 32> NUMBERS{
    0,       SIGHUP, SIGINT,  SIGQUIT, SIGILL,    SIGTRAP, SIGABRT,  0,       SIGFPE,  SIGKILL, SIGBUS,
    SIGSEGV, SIGSYS, SIGPIPE, SIGALRM, SIGTERM,   SIGURG,  SIGSTOP,  SIGTSTP, SIGCONT, SIGCHLD, SIGTTIN,
    SIGTTOU, SIGIO,  SIGXCPU, SIGXFSZ, SIGVTALRM, SIGPROF, SIGWINCH, 0,       SIGUSR1, SIGUSR2};

/// The structure of sigaction on Darwin.
struct ST_Action
{
    void* m_pHandler;
    std::uint32_t m_uiBlocked;
    int m_iFlags;
};
constexpr int ACTION_RESTARTS = 2;
constexpr int ACTION_ONCE = 4;
constexpr int ACTION_WITH_FACTS = 0x40;

/// On both systems, null stands for the default, and 1 for ignoring the signal.
constexpr std::uintptr_t LAST_SPECIAL_HANDLER = 1;

/// The program's handler for each of Linux's signals.
std::array<std::atomic<void*>, NSIG> g_arrHandlers{};

void CallHandler(int _iSignal)
{
    const int iErrno = *Errno::GetDarwins();
    void* const pHandler = g_arrHandlers[static_cast<std::size_t>(_iSignal)];
    reinterpret_cast<void (*)(int)>(pHandler)(Signals::ToDarwin(_iSignal));
    *Errno::GetDarwins() = iErrno;
}

sigset_t SetFromDarwin(std::uint32_t _uiSet)
{
    sigset_t stSet;
    sigemptyset(&stSet);
    for (std::size_t i = 1; i < NUMBERS.size(); ++i)
    {
        if ((_uiSet >> (i - 1) & 1) != 0 && NUMBERS[i] != 0)
        {
            sigaddset(&stSet, NUMBERS[i]);
        }
    }
    return stSet;
}

std::uint32_t SetToDarwin(const sigset_t& _stSet)
{
    std::uint32_t uiSet = 0;
    for (std::size_t i = 1; i < NUMBERS.size(); ++i)
    {
        if (NUMBERS[i] != 0 && sigismember(&_stSet, NUMBERS[i]) == 1)
        {
            uiSet |= 1U << (i - 1);
        }
    }
    return uiSet;
}

struct sigaction ActionFromDarwin(const ST_Action& _stAction)
{
    struct sigaction stAction
    {
    };
    stAction.sa_mask = SetFromDarwin(_stAction.m_uiBlocked);
    stAction.sa_flags = ((_stAction.m_iFlags & ACTION_RESTARTS) != 0 ? SA_RESTART : 0) |
                        ((_stAction.m_iFlags & ACTION_ONCE) != 0 ? static_cast<int>(SA_RESETHAND) : 0);
    stAction.sa_handler = reinterpret_cast<std::uintptr_t>(_stAction.m_pHandler) <= LAST_SPECIAL_HANDLER
                              ? reinterpret_cast<void (*)(int)>(_stAction.m_pHandler)
                              : CallHandler;
    return stAction;
}

int SetAction(int _iSignal, const ST_Action* _pNew, ST_Action* _pOld)
{
    const CLS_ErrnoScope clsErrno;
    const int iSignal = Signals::FromDarwin(_iSignal);
    if (iSignal <= 0 || iSignal >= NSIG || (_pNew != nullptr && (_pNew->m_iFlags & ACTION_WITH_FACTS) != 0))
    {
        errno = EINVAL;
        return -1;
    }
    std::atomic<void*>& pHandler = g_arrHandlers[static_cast<std::size_t>(iSignal)];
    void* const pBefore = pHandler;
    struct sigaction stNew
    {
    };
    if (_pNew != nullptr)
    {
        stNew = ActionFromDarwin(*_pNew);
        pHandler = _pNew->m_pHandler;
    }
    struct sigaction stOld
    {
    };
    const int iResult = sigaction(iSignal, _pNew == nullptr ? nullptr : &stNew, &stOld);
    if (iResult == 0 && _pOld != nullptr)
    {
        // The loader's own handler is the default for the program.
        void* const pOther = reinterpret_cast<void*>(stOld.sa_handler == SIG_IGN ? SIG_IGN : SIG_DFL);
        *_pOld = {stOld.sa_handler == CallHandler ? pBefore : pOther, SetToDarwin(stOld.sa_mask), 0};
    }
    return iResult;
}

void* SetHandler(int _iSignal, void* _pHandler)
{
    const ST_Action stNew{_pHandler, 0, ACTION_RESTARTS};
    ST_Action stOld{};
    return SetAction(_iSignal, &stNew, &stOld) == 0 ? stOld.m_pHandler : reinterpret_cast<void*>(SIG_ERR);
}

int SetThreadsMask(int _iHow, const std::uint32_t* _pNew, std::uint32_t* _pOld)
{
    constexpr std::array<int, 3> HOW{SIG_BLOCK, SIG_UNBLOCK, SIG_SETMASK}; // Darwin's numbers start at 1
    if (_iHow < 1 || _iHow > static_cast<int>(HOW.size()))
    {
        return EINVAL;
    }
    const sigset_t stNew = SetFromDarwin(_pNew == nullptr ? 0 : *_pNew);
    sigset_t stOld;
    const int iResult = pthread_sigmask(HOW[static_cast<std::size_t>(_iHow) - 1],
                                        _pNew == nullptr ? nullptr : &stNew, &stOld);
    if (_pOld != nullptr)
    {
        *_pOld = SetToDarwin(stOld);
    }
    return Errno::ToDarwin(iResult);
}

int SendSignal(pid_t _iProcess, int _iSignal)
{
    const CLS_ErrnoScope clsErrno;
    return kill(_iProcess, Signals::FromDarwin(_iSignal));
}
} // namespace

namespace Signals
{
int ToDarwin(int _iLinux)
{
    const auto* const pFound = std::find(NUMBERS.begin() + 1, NUMBERS.end(), _iLinux);
    return pFound == NUMBERS.end() ? _iLinux : static_cast<int>(pFound - NUMBERS.begin());
}

int FromDarwin(int _iDarwin)
{
    const bool bKnown = _iDarwin > 0 && _iDarwin < static_cast<int>(NUMBERS.size());
    const int iLinux = bKnown ? NUMBERS[static_cast<std::size_t>(_iDarwin)] : 0;
    return iLinux == 0 ? _iDarwin : iLinux;
}
} // namespace Signals

namespace Tables
{
const Shims& GetSignals()
{
    static const Shims s_vecShims{
        {"_sigaction", &SetAction},
        {"_signal", &SetHandler},
        {"_pthread_sigmask", &SetThreadsMask},
        {"_kill", &SendSignal},
    };
    return s_vecShims;
}
} // namespace Tables
