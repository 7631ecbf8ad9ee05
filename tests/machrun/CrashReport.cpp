#include "tests/machrun/CrashReport.h"

#include "tests/machrun/CLS_Images.h"

#include <array>
#include <csignal>
#include <cstdio>
#include <dlfcn.h>
#include <sys/uio.h>
#include <ucontext.h>
#include <unistd.h>

namespace
{
constexpr int MOST_CALLS = 64;

/// Reads memory that may not be there.
bool Peek(std::uint64_t _uiFrom, void* _pTo, std::size_t _uiSize)
{
    const iovec stTo{_pTo, _uiSize};
    const iovec stFrom{reinterpret_cast<void*>(_uiFrom), _uiSize};
    return process_vm_readv(getpid(), &stTo, 1, &stFrom, 1, 0) == static_cast<ssize_t>(_uiSize);
}

/// Prints the function and the file that have this place in their code.
void PrintPlace(std::uint64_t _uiPlace)
{
    const auto* const pPlace = reinterpret_cast<const void*>(_uiPlace);
    std::uint64_t uiSymbol = 0;
    std::string strName;
    std::string strFile = "?";
    Dl_info stInfo{};
    if (const CLS_Image* const pImage = CLS_Images::Get().FindByAddress(pPlace))
    {
        strName = pImage->GetFile().FindSymbol(pImage->GetLinkedAddress(pPlace), uiSymbol);
        uiSymbol += pImage->GetSlide();
        strFile = pImage->GetPath();
    }
    else if (dladdr(pPlace, &stInfo) != 0)
    {
        strName = stInfo.dli_sname == nullptr ? "" : stInfo.dli_sname;
        uiSymbol = reinterpret_cast<std::uint64_t>(stInfo.dli_saddr);
        strFile = stInfo.dli_fname;
    }
    std::fprintf(stderr, "  %p in %s", pPlace, strFile.c_str());
    std::fprintf(stderr, strName.empty() ? "\n" : ": %s + %lu\n", strName.c_str(), _uiPlace - uiSymbol);
}

/// Every function on both systems begins with the address of its caller's frame.
void PrintCallers(std::uint64_t _uiFrame)
{
    std::array<std::uint64_t, 2> arrFrame{};
    for (int i = 0; i < MOST_CALLS && Peek(_uiFrame, arrFrame.data(), sizeof(arrFrame)); ++i)
    {
        PrintPlace(arrFrame[1]);
        if (arrFrame[0] <= _uiFrame)
        {
            return;
        }
        _uiFrame = arrFrame[0];
    }
}

void Report(int _iSignal, siginfo_t* _pInfo, void* _pContext)
{
    const auto& arrRegisters = static_cast<ucontext_t*>(_pContext)->uc_mcontext.gregs;
    std::fprintf(stderr, "machrun: signal %d at address %p\n", _iSignal, _pInfo->si_addr);
    PrintPlace(static_cast<std::uint64_t>(arrRegisters[REG_RIP]));
    PrintCallers(static_cast<std::uint64_t>(arrRegisters[REG_RBP]));
    raise(_iSignal); // again, for the system
}
} // namespace

namespace CrashReport
{
void Install()
{
    // The stack that overflows cannot take the report. The first thread's can.
    static std::array<char, 65536> s_arrStack;
    stack_t stStack{};
    stStack.ss_sp = s_arrStack.data();
    stStack.ss_size = s_arrStack.size();
    sigaltstack(&stStack, nullptr);
    struct sigaction stAction
    {
    };
    stAction.sa_sigaction = Report;
    stAction.sa_flags = SA_SIGINFO | SA_ONSTACK | static_cast<int>(SA_RESETHAND);
    for (const int iSignal : {SIGSEGV, SIGBUS, SIGILL, SIGFPE})
    {
        sigaction(iSignal, &stAction, nullptr);
    }
}
} // namespace CrashReport
