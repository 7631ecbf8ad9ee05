#include "examples/hash_tree/CancelSignal.h"

#include <atomic>
#include <csignal>
#include <signal.h>

namespace
{
std::atomic<int> g_iSignal{0};
static_assert(std::atomic<int>::is_always_lock_free, "a signal handler may use lock-free atomics only");

extern "C" void KeepFirstSignal(int _iSignal)
{
    int iNone = 0;
    g_iSignal.compare_exchange_strong(iNone, _iSignal);
}
} // namespace

void CatchCancelSignals()
{
    struct sigaction action = {};
    action.sa_handler = KeepFirstSignal;
    // Restart: a cancel must not make a read or write in some other thread fail.
    action.sa_flags = static_cast<int>(SA_RESETHAND | SA_RESTART);
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

int CancelSignal()
{
    return g_iSignal.load();
}
