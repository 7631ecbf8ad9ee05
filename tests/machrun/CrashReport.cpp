#include "tests/machrun/CrashReport.h"

#include "tests/machrun/CLS_Images.h"

#include <array>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <dlfcn.h>
#include <sys/uio.h>
#include <ucontext.h>
#include <unistd.h>

namespace
{
constexpr int MOST_CALLS = 64;

/// What every function on both systems pushes first.
struct ST_Frame
{
    const ST_Frame* m_pCaller;
    const void* m_pReturn;
};

/// Reads a frame. Its memory may not exist.
bool Peek(const ST_Frame* _pFrame, ST_Frame& _stFrame)
{
    const iovec stTo{&_stFrame, sizeof(_stFrame)};
    const iovec stFrom{const_cast<ST_Frame*>(_pFrame), sizeof(_stFrame)};
    return process_vm_readv(getpid(), &stTo, 1, &stFrom, 1, 0) == sizeof(_stFrame);
}

/// Prints the file and the function that contain this place.
void PrintPlace(const void* _pPlace)
{
    const void* pSymbol = nullptr;
    std::string strName;
    std::string strFile = "?";
    Dl_info stInfo{};
    if (const CLS_Image* const pImage = CLS_Images::Get().FindByAddress(_pPlace))
    {
        std::uint64_t uiSymbol = 0;
        strName = pImage->GetFile().FindSymbol(pImage->GetLinkedAddress(_pPlace), uiSymbol);
        pSymbol = pImage->At(uiSymbol);
        strFile = pImage->GetPath();
    }
    else if (dladdr(_pPlace, &stInfo) != 0)
    {
        strName = stInfo.dli_sname == nullptr ? "" : stInfo.dli_sname;
        pSymbol = stInfo.dli_saddr;
        strFile = stInfo.dli_fname;
    }
    std::fprintf(stderr, "  %p in %s", _pPlace, strFile.c_str());
    if (!strName.empty())
    {
        std::fprintf(stderr, ": %s + %td", strName.c_str(),
                     static_cast<const char*>(_pPlace) - static_cast<const char*>(pSymbol));
    }
    std::fputc('\n', stderr);
}

void PrintCallers(const ST_Frame* _pFrame)
{
    ST_Frame stFrame{};
    for (int i = 0; i < MOST_CALLS && Peek(_pFrame, stFrame); ++i)
    {
        PrintPlace(stFrame.m_pReturn);
        if (stFrame.m_pCaller <= _pFrame)
        {
            return;
        }
        _pFrame = stFrame.m_pCaller;
    }
}

/// The value of a register.
const void* ToPointer(greg_t _iRegister)
{
    const void* pAddress = nullptr;
    static_assert(sizeof(pAddress) == sizeof(_iRegister));
    std::memcpy(&pAddress, &_iRegister, sizeof(pAddress));
    return pAddress;
}

void Report(int _iSignal, siginfo_t* _pInfo, void* _pContext)
{
    const auto& arrRegisters = static_cast<ucontext_t*>(_pContext)->uc_mcontext.gregs;
    std::fprintf(stderr, "machrun: signal %d at address %p\n", _iSignal, _pInfo->si_addr);
    PrintPlace(ToPointer(arrRegisters[REG_RIP]));
    PrintCallers(static_cast<const ST_Frame*>(ToPointer(arrRegisters[REG_RBP])));
    raise(_iSignal); // again: now the system handles it
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
