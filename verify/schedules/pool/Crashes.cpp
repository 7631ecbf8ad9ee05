#include "verify/schedules/pool/Crashes.h"

#include "verify/schedules/core/Scheduler.h"

#include <array>
#include <csignal>

namespace
{
constexpr std::size_t STACK_SIZE = std::size_t{64} * 1024;

void FailSchedule(int _iSignal)
{
    CLS_Scheduler::FailRunning("crash: signal " + std::to_string(_iSignal));
    // Outside of a schedule, crash as usual.
    std::signal(_iSignal, SIG_DFL);
    std::raise(_iSignal);
}
} // namespace

namespace Crashes
{
void TurnIntoFailures()
{
    // The handler has its own stack, because the other stack may be full.
    static std::array<char, STACK_SIZE> s_arrStack;
    stack_t stStack{};
    stStack.ss_sp = s_arrStack.data();
    stStack.ss_size = s_arrStack.size();
    sigaltstack(&stStack, nullptr);
    struct sigaction stAction
    {
    };
    stAction.sa_handler = FailSchedule;
    stAction.sa_flags = SA_ONSTACK | SA_NODEFER;
    for (const int iSignal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT})
    {
        sigaction(iSignal, &stAction, nullptr);
    }
}
} // namespace Crashes
