#include "examples/hash_tree/StatusWatch.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace
{
constexpr int POLL_MILLISECONDS = 500;

/// The ends of a pipe, because a signal handler may do little but write. They stay open: a handler may still
/// run.
std::array<int, 2> g_arrPipe{-1, -1};

/// Wakes the reader. If the pipe is full, it is awake already.
void Wake()
{
    const char chWake = 0;
    static_cast<void>(!write(g_arrPipe[1], &chWake, 1));
}

extern "C" void AskForReport(int)
{
    const int iError = errno;
    Wake();
    errno = iError;
}

void OpenPipe()
{
    if (g_arrPipe[0] < 0 && pipe(g_arrPipe.data()) != 0)
    {
        throw std::system_error(errno, std::generic_category(), "no pipe for signals");
    }
    for (const int iEnd : g_arrPipe)
    {
        fcntl(iEnd, F_SETFL, O_NONBLOCK);
        fcntl(iEnd, F_SETFD, FD_CLOEXEC);
    }
}

void HandleSignals(void (*_funHandler)(int))
{
    struct sigaction action = {};
    action.sa_handler = _funHandler;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    sigaction(SIGUSR1, &action, nullptr);
#ifdef SIGINFO
    sigaction(SIGINFO, &action, nullptr);
#endif
}

/// Waits for one poll interval. Returns whether it was woken.
bool WaitForWake()
{
    pollfd stPipe{g_arrPipe[0], POLLIN, 0};
    std::array<char, 64> arrWakes = {};
    return poll(&stPipe, 1, POLL_MILLISECONDS) > 0 &&
           read(g_arrPipe[0], arrWakes.data(), arrWakes.size()) > 0;
}
} // namespace

CLS_StatusWatch::CLS_StatusWatch(std::function<void()> _funReport, std::function<std::uint64_t()> _funCount,
                                 std::chrono::milliseconds _msStuck)
    : m_funReport(std::move(_funReport)), m_funCount(std::move(_funCount)), m_msStuck(_msStuck)
{
    OpenPipe();
    m_thrWatch = std::thread([this] { Watch(); });
    HandleSignals(AskForReport);
}

CLS_StatusWatch::~CLS_StatusWatch()
{
    HandleSignals(SIG_IGN);
    m_bEnd = true;
    Wake();
    m_thrWatch.join();
}

void CLS_StatusWatch::Watch() const
{
    std::uint64_t uiLastCount = m_funCount();
    auto tpStuck = std::chrono::steady_clock::now() + m_msStuck;
    bool bReported = false;
    for (bool bAsked = WaitForWake(); !m_bEnd; bAsked = WaitForWake())
    {
        const auto tpNow = std::chrono::steady_clock::now();
        if (const std::uint64_t uiCount = m_funCount(); uiCount != uiLastCount)
        {
            uiLastCount = uiCount;
            tpStuck = tpNow + m_msStuck;
            bReported = false;
        }
        const bool bStuck = tpNow >= tpStuck && !bReported;
        if (bAsked || bStuck)
        {
            m_funReport();
        }
        bReported |= bStuck;
    }
}
