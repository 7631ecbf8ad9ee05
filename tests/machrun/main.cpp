// machrun: runs a macOS x86-64 program (or a function of a library) on Linux x86-64.
#include "darwin.h"
#include "loader.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cxxabi.h>
#include <dlfcn.h>
#include <sys/uio.h>
#include <ucontext.h>
#include <unistd.h>

namespace machrun
{

extern std::vector<std::string> g_selfArguments;

// Reads memory that may not be mapped.
static bool peek(const void* from, void* to, size_t size)
{
    iovec local{to, size}, remote{const_cast<void*>(from), size};
    return process_vm_readv(getpid(), &local, 1, &remote, 1, 0) == static_cast<ssize_t>(size);
}

int walkFrames(void* rbp, void** frames, int max)
{
    int count = 0;
    auto frame = reinterpret_cast<uintptr_t>(rbp);
    while (count < max && frame)
    {
        uintptr_t pair[2];
        if ((frame & 7) || !peek(reinterpret_cast<void*>(frame), pair, sizeof pair) || !pair[1])
            break;
        frames[count++] = reinterpret_cast<void*>(pair[1]);
        if (pair[0] <= frame || pair[0] - frame > (64u << 20))
            break;
        frame = pair[0];
    }
    return count;
}

void printBacktrace(void* const* frames, int count)
{
    for (int i = 0; i < count; ++i)
    {
        void* at = nullptr;
        const char* name = nullptr;
        const char* file = "?";
        if (Image* image = imageContaining(frames[i]))
        {
            name = nearestSymbol(image, frames[i], &at);
            file = image->path.c_str();
        }
        else
        {
            Dl_info info;
            if (dladdr(frames[i], &info))
            {
                name = info.dli_sname;
                at = info.dli_saddr;
                file = info.dli_fname;
            }
        }
        const char* leaf = std::strrchr(file, '/');
        int status = -1;
        char* plain = name && name[0] == '_' ? abi::__cxa_demangle(name, nullptr, nullptr, &status) : nullptr;
        std::fprintf(stderr, "  #%-2d %p %s %s+%ld\n", i, frames[i], leaf ? leaf + 1 : file,
                     plain  ? plain
                     : name ? name
                            : "?",
                     at ? static_cast<long>(static_cast<char*>(frames[i]) - static_cast<char*>(at)) : 0L);
        std::free(plain);
    }
}

static void onCrash(int number, siginfo_t* info, void* context)
{
    auto uc = static_cast<ucontext_t*>(context);
    auto pc = reinterpret_cast<void*>(uc->uc_mcontext.gregs[REG_RIP]);
    std::fprintf(stderr, "machrun: signal %d (%s), address %p\n", number, strsignal(number), info->si_addr);
    void* frames[64];
    frames[0] = pc;
    int count = 1 + walkFrames(reinterpret_cast<void*>(uc->uc_mcontext.gregs[REG_RBP]), frames + 1, 63);
    printBacktrace(frames, count);
    std::signal(number, SIG_DFL);
    raise(number);
}

void installCrashReporter()
{
    static char stack[65536];
    stack_t alternate{};
    alternate.ss_sp = stack;
    alternate.ss_size = sizeof stack;
    sigaltstack(&alternate, nullptr);
    struct sigaction act;
    std::memset(&act, 0, sizeof act);
    act.sa_sigaction = onCrash;
    act.sa_flags = SA_SIGINFO | SA_ONSTACK | static_cast<int>(SA_RESETHAND);
    for (int number : {SIGSEGV, SIGBUS, SIGILL, SIGFPE})
        sigaction(number, &act, nullptr);
}

} // namespace machrun

using namespace machrun;

static int usage()
{
    std::fputs("usage: machrun [options] FILE [arguments]\n"
               "  --root DIR      look for /usr/lib/... below DIR first (the C++ runtime)\n"
               "  -L DIR          look for libraries by leaf name in DIR first (also DYLD_LIBRARY_PATH)\n"
               "  --call NAME     FILE is a library: call its function int NAME(int argc, char** argv)\n"
               "  --check         load and bind only; list what is missing, status 1 if anything is\n"
               "  --linux-stacks  thread stacks of the Linux default size (macOS: 512 KiB)\n"
               "  --trace         tell what is loaded (also DYLD_PRINT_LIBRARIES)\n",
               stderr);
    return 64;
}

int main(int argc, char** argv)
{
    std::string call;
    int i = 1;
    g_selfArguments.push_back(argv[0]);
    for (; i < argc && argv[i][0] == '-'; ++i)
    {
        std::string option = argv[i];
        auto value = [&]() -> const char* { return i + 1 < argc ? argv[++i] : ""; };
        int first = i;
        if (option == "--root")
            g_options.root = value();
        else if (option == "-L")
            g_options.libraryPaths.push_back(value());
        else if (option == "--call")
            call = value();
        else if (option == "--check")
            g_options.check = true;
        else if (option == "--linux-stacks")
            g_options.smallStacks = false;
        else if (option == "--trace")
            g_options.trace = true;
        else
            return usage();
        for (int k = first; k <= i; ++k)
            g_selfArguments.push_back(argv[k]);
    }
    if (i >= argc)
        return usage();
    if (!g_options.root.empty())
    {
        char full[4096];
        if (realpath(g_options.root.c_str(), full))
            g_options.root = full;
    }
    if (const char* paths = std::getenv("DYLD_LIBRARY_PATH"))
    {
        std::string text = paths, part;
        for (size_t at = 0; at <= text.size();)
        {
            size_t end = text.find(':', at);
            if (end == std::string::npos)
                end = text.size();
            if (!(part = text.substr(at, end - at)).empty())
                g_options.libraryPaths.push_back(part);
            at = end + 1;
        }
    }
    if (std::getenv("DYLD_PRINT_LIBRARIES"))
        g_options.trace = true;

    g_argc = argc - i;
    g_argv = argv + i;
    g_envp = environ;
    static std::string executable;
    std::string error;
    Image* image = loadMain(argv[i], error);
    if (!image)
    {
        std::fprintf(stderr, "machrun: %s\n", error.c_str());
        return 127;
    }
    executable = "executable_path=" + g_executablePath;
    static char* apple[] = {executable.data(), nullptr};
    g_apple = apple;
    if (g_options.check)
    {
        bool ok = linkAndInit(image, error, false);
        for (const std::string& name : g_missing)
            std::printf("missing: %s\n", name.c_str());
        if (!ok)
            std::printf("%s\n", error.c_str());
        std::printf("%s: %s\n", argv[i],
                    ok && g_missing.empty() ? "all imports are there" : "imports are missing");
        return ok && g_missing.empty() ? 0 : 1;
    }
    installCrashReporter();
    if (!linkAndInit(image, error, true))
    {
        std::fprintf(stderr, "machrun: %s\n", error.c_str());
        return 127;
    }
    void* entry = nullptr;
    if (!call.empty())
        entry = lookupIn(image, "_" + call);
    else if (image->hasMain)
        entry = image->base + image->entryoff;
    if (!entry)
    {
        std::fprintf(stderr, "machrun: %s\n",
                     call.empty() ? "the file is no program (use --call NAME)"
                                  : ("no function " + call).c_str());
        return 127;
    }
    exitProcess(
        reinterpret_cast<int (*)(int, char**, char**, char**)>(entry)(g_argc, g_argv, g_envp, g_apple));
}
