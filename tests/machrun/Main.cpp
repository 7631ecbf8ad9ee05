// Runs a program for macOS on x86-64 on a Linux machine with such a processor:
//
//   machrun --root FOLDER PROGRAM [ARGUMENT...]
//
// FOLDER has the C++ runtime below usr/lib, as cmake/macos/make-runtime.sh builds it. The program's own
// libraries are searched for as on macOS, also in DYLD_LIBRARY_PATH. MACHRUN_INTERPOSE lists names that all
// images take from the program (tests/machrun/Binding.h).
//
// This program maps and binds the files. Its own functions replace the system's library, and translate
// between the two systems (tests/machrun/shims).
//
// The exit status is that of the program; 64 for wrong arguments; 127 if the program cannot be loaded.

#include "tests/machrun/CLS_Loader.h"
#include "tests/machrun/CrashReport.h"
#include "tests/machrun/ExitHandlers.h"
#include "tests/machrun/LibrarySearch.h"
#include "tests/machrun/shims/Restart.h"

#include <array>
#include <cstdio>
#include <filesystem>
#include <malloc.h>
#include <unistd.h>

namespace
{
constexpr int WRONG_CALL = 64;
constexpr int NOT_LOADED = 127;

/// "machrun", "--root" and FOLDER. The program and its arguments follow.
constexpr int OWN_ARGUMENTS = 3;

using MainFunction = int (*)(int, char**, char**, char**);

MainFunction LoadProgram(const std::string& _strRoot, const std::string& _strProgram)
{
    namespace fs = std::filesystem;
    std::error_code errRoot;
    std::error_code errProgram;
    const std::string strRoot = fs::canonical(_strRoot, errRoot).string();
    const std::string strProgram = fs::canonical(_strProgram, errProgram).string();
    if (errRoot || errProgram)
    {
        throw std::runtime_error("'" + (errRoot ? _strRoot : _strProgram) +
                                 "' cannot be opened: " + (errRoot ? errRoot : errProgram).message());
    }
    LibrarySearch::SetPlaces({strRoot, strProgram});
    const CLS_Image* const pProgram =
        CLS_Loader::Get().LoadProgram(strProgram, strRoot + "/usr/lib/system/libunwind.dylib");
    return reinterpret_cast<MainFunction>(pProgram->GetEntry());
}

[[noreturn]] void RunProgram(MainFunction _funMain, int _iCount, char** _ppTexts)
{
    static std::string s_strPath = "executable_path=" + LibrarySearch::GetProgramPath();
    static std::array<char*, 2> s_arrApple{s_strPath.data(), nullptr};
    // Threads that contend for memory would get heaps of their own, which stay. Tests count what stays
    // mapped.
    mallopt(M_ARENA_MAX, 1); // NOLINT(concurrency-mt-unsafe): there is one thread
    CrashReport::Install();
    CLS_Loader::Get().InitialiseProgram({_iCount, _ppTexts, environ, s_arrApple.data()});
    ExitHandlers::EndProcess(_funMain(_iCount, _ppTexts, environ, s_arrApple.data()));
}
} // namespace

int main(int _iCount, char** _ppArguments)
{
    if (_iCount <= OWN_ARGUMENTS || std::string(_ppArguments[1]) != "--root")
    {
        std::fputs("usage: machrun --root FOLDER PROGRAM [ARGUMENT...]\n", stderr);
        return WRONG_CALL;
    }
    Restart::SetOwnArguments({_ppArguments, _ppArguments + OWN_ARGUMENTS});
    MainFunction funMain = nullptr;
    try
    {
        funMain = LoadProgram(_ppArguments[2], _ppArguments[OWN_ARGUMENTS]);
    }
    catch (const std::exception& error)
    {
        std::fprintf(stderr, "machrun: %s\n", error.what());
        return NOT_LOADED;
    }
    RunProgram(funMain, _iCount - OWN_ARGUMENTS, _ppArguments + OWN_ARGUMENTS);
}
