#include "examples/hash_tree/CancelSignal.h"

#include <array>
#include <atomic>
#include <csignal>
#include <cstddef>
#include <signal.h>
#include <unistd.h>

namespace
{
std::atomic<int> g_iSignal{0};
static_assert(std::atomic<int>::is_always_lock_free, "a signal handler may use lock-free atomics only");

/// Large enough for every path that the system accepts.
std::array<char, 4096> g_arrFileToDrop{};
std::atomic<bool> g_bHasFileToDrop{false}; ///< whether the name is complete

void EndAtOnce(int _iSignal)
{
    if (g_bHasFileToDrop)
    {
        unlink(g_arrFileToDrop.data());
    }
    // The signal is blocked in its handler. It ends the process at the latest when the handler returns.
    std::signal(_iSignal, SIG_DFL);
    kill(getpid(), _iSignal);
}

extern "C" void CancelOrEnd(int _iSignal)
{
    int iNone = 0;
    if (!g_iSignal.compare_exchange_strong(iNone, _iSignal))
    {
        EndAtOnce(_iSignal);
    }
}

/// Whether the program was started to ignore the signal, as nohup does with SIGHUP.
bool IsIgnored(int _iSignal)
{
    struct sigaction action = {};
    return sigaction(_iSignal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}
} // namespace

void CatchCancelSignals()
{
    struct sigaction action = {};
    action.sa_handler = CancelOrEnd;
    // Restart: a cancel must not fail a read or write on another thread.
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    for (const int iSignal : {SIGHUP, SIGINT, SIGTERM})
    {
        if (!IsIgnored(iSignal))
        {
            sigaction(iSignal, &action, nullptr);
        }
    }
}

int GetCancelSignal()
{
    return g_iSignal.load();
}

void SetFileToDrop(const std::string& _strPath)
{
    g_bHasFileToDrop = false;
    if (!_strPath.empty() && _strPath.size() < g_arrFileToDrop.size())
    {
        const std::size_t uiSize = _strPath.copy(g_arrFileToDrop.data(), _strPath.size());
        g_arrFileToDrop[uiSize] = '\0';
        g_bHasFileToDrop = true;
    }
}
