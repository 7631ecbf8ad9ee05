// The behaviour of a program for macOS under the loader. macOS meets the same expectations.

#include "tests/support/ChildProcess.h"
#include "tests/support/TempFolder.h"
#include "tests/support/Waiting.h"

#include <atomic>
#include <cctype>
#include <cerrno>
#include <clocale>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <mutex>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace
{
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr pid_t OWN_PROCESS_NUMBER = 12345;

template <typename T_Fun>
T_Fun* Find(void* _pLibrary, const char* _szName)
{
    void* const pFound = dlsym(_pLibrary, _szName);
    EXPECT_NE(nullptr, pFound) << _szName;
    return reinterpret_cast<T_Fun*>(pFound);
}

void* Open(const char* _szPath, int _iMode = RTLD_NOW)
{
    void* const pLibrary = dlopen(_szPath, _iMode);
    EXPECT_NE(nullptr, pLibrary) << dlerror();
    return pLibrary;
}

bool IsLoaded(const char* _szPath)
{
    void* const pLibrary = dlopen(_szPath, RTLD_NOW | RTLD_NOLOAD);
    return pLibrary != nullptr && dlclose(pLibrary) == 0;
}

std::string TakeReason()
{
    const char* const szReason = dlerror();
    return szReason == nullptr ? "none" : szReason;
}

std::atomic<int> g_iSignal{0};
} // namespace

/// Replaces the system's function of the same name, also for the libraries (MACHRUN_INTERPOSE).
extern "C" pid_t getpid()
{
    return OWN_PROCESS_NUMBER;
}

namespace
{
TEST(DarwinLibraryTest, AClosedLibraryIsUnloadedWithItsObjects)
{
    std::vector<std::string> vecEvents;
    void* const pLibrary = Open(GUEST_LIBRARY);
    EXPECT_EQ(pLibrary, Open(GUEST_LIBRARY)) << "opened again";
    Find<void(std::vector<std::string>*)>(pLibrary, "NoteEvents")(&vecEvents);
    EXPECT_EQ(0, dlclose(pLibrary));
    EXPECT_TRUE(IsLoaded(GUEST_LIBRARY));
    EXPECT_THAT(vecEvents, IsEmpty());
    EXPECT_EQ(0, dlclose(pLibrary));
    EXPECT_FALSE(IsLoaded(GUEST_LIBRARY));
    EXPECT_THAT(vecEvents, ElementsAre("object destroyed"));
    EXPECT_EQ(-1, dlclose(pLibrary)) << "closed more often than opened";
}

TEST(DarwinLibraryTest, ALibraryOpenedWithNoDeleteStaysLoaded)
{
    void* const pLibrary = Open(GUEST_LIBRARY_TO_KEEP, RTLD_NOW | RTLD_NODELETE);
    EXPECT_EQ(0, dlclose(pLibrary));
    EXPECT_TRUE(IsLoaded(GUEST_LIBRARY_TO_KEEP));
}

TEST(DarwinLibraryTest, ThreadLocalVariablesAreTheThreadsOwnAndKeepTheLibrary)
{
    void* const pLibrary = Open(GUEST_LIBRARY_THREAD_LOCAL);
    auto* const pCount = Find<int()>(pLibrary, "CountCallsOnThisThread");
    EXPECT_EQ(41, pCount());
    EXPECT_EQ(42, pCount());
    std::thread([pCount] { EXPECT_EQ(41, pCount()); }).join();
    EXPECT_EQ(43, pCount());
    EXPECT_EQ(0, dlclose(pLibrary));
    EXPECT_TRUE(IsLoaded(GUEST_LIBRARY_THREAD_LOCAL));
}

TEST(DarwinLibraryTest, AnExceptionOfALibraryIsCaughtByItsType)
{
    void* const pLibrary = Open(GUEST_LIBRARY);
    auto* const pThrow = Find<void(const char*)>(pLibrary, "ThrowText");
    try
    {
        pThrow("from afar");
        ADD_FAILURE() << "nothing was thrown";
    }
    catch (const std::runtime_error& error)
    {
        EXPECT_STREQ("from afar", error.what());
    }
    dlclose(pLibrary);
}

TEST(DarwinLibraryTest, FunctionsOfTheProgramReplaceTheSystems)
{
    void* const pLibrary = Open(GUEST_LIBRARY);
    EXPECT_EQ(OWN_PROCESS_NUMBER, Find<pid_t()>(pLibrary, "GetProcessNumber")());
    EXPECT_NE(OWN_PROCESS_NUMBER, Find<pid_t()>(RTLD_NEXT, "getpid")());
    dlclose(pLibrary);
}

TEST(DarwinLibraryTest, AFailureLeavesItsReasonOnce)
{
    EXPECT_EQ("none", TakeReason());
    EXPECT_EQ(nullptr, dlopen("/nowhere/lib", RTLD_NOW));
    EXPECT_EQ("dlopen(/nowhere/lib, 0x0002): tried: '/nowhere/lib' (no such file)", TakeReason());
    EXPECT_EQ("none", TakeReason());
    EXPECT_EQ(nullptr, dlopen("/nowhere/lib", RTLD_NOW | RTLD_NOLOAD));
    EXPECT_EQ("none", TakeReason()) << "a query is not a failure";
    EXPECT_EQ(nullptr, dlsym(RTLD_DEFAULT, "MissingName"));
    EXPECT_EQ("dlsym(0xfffffffffffffffe, MissingName): symbol not found", TakeReason());
    EXPECT_NE(nullptr, dlsym(RTLD_DEFAULT, "malloc"));
    EXPECT_EQ("none", TakeReason());
    dlsym(RTLD_DEFAULT, "MissingName");
    std::thread([] { EXPECT_EQ("none", TakeReason()); }).join();
}

TEST(DarwinLibraryTest, AFileThatIsNoLibraryIsRefused)
{
    const CLS_TempFolder clsFolder;
    const std::string strPath = clsFolder.GetPath("lib");
    std::ofstream(strPath) << std::string(5000, 'x');
    EXPECT_EQ(nullptr, dlopen(strPath.c_str(), RTLD_NOW));
    EXPECT_THAT(TakeReason(), ::testing::EndsWith(" cannot be loaded: it is not a 64-bit Mach-O file"));
}

TEST(DarwinLibraryTest, AddressesHaveNames)
{
    void* const pLibrary = Open(GUEST_LIBRARY);
    Dl_info stInfo{};
    EXPECT_NE(0, dladdr(dlsym(pLibrary, "ThrowText"), &stInfo));
    EXPECT_STREQ("ThrowText", stInfo.dli_sname);
    EXPECT_THAT(stInfo.dli_fname, ::testing::EndsWith("zel_guest_library.so"));
    dlclose(pLibrary);
}

TEST(DarwinErrorTest, NumbersAreDarwins)
{
    errno = 0;
    EXPECT_EQ(-1, open("/nowhere/file", O_RDONLY));
    EXPECT_EQ(ENOENT, errno);
    const CLS_TempFolder clsFolder;
    EXPECT_EQ(0, mkdir(clsFolder.GetPath("inner").c_str(), 0700));
    EXPECT_EQ(-1, unlink("/nowhere/file"));
    EXPECT_EQ(-1, std::rename(clsFolder.GetPath("inner").c_str(), clsFolder.GetPath().c_str()));
    EXPECT_EQ(ENOTEMPTY, errno);
    EXPECT_EQ(66, ENOTEMPTY);
    EXPECT_STREQ("Directory not empty", std::strerror(ENOTEMPTY));
}

TEST(DarwinLockTest, DestroyedObjectsAreRefused)
{
    pthread_mutex_t stMutex = PTHREAD_MUTEX_INITIALIZER;
    EXPECT_EQ(0, pthread_mutex_lock(&stMutex));
    EXPECT_EQ(EBUSY, pthread_mutex_trylock(&stMutex));
    EXPECT_EQ(0, pthread_mutex_unlock(&stMutex));
    EXPECT_EQ(0, pthread_mutex_destroy(&stMutex));
    EXPECT_EQ(EINVAL, pthread_mutex_lock(&stMutex));
    pthread_cond_t stCondition = PTHREAD_COND_INITIALIZER;
    EXPECT_EQ(0, pthread_cond_signal(&stCondition));
    EXPECT_EQ(0, pthread_cond_destroy(&stCondition));
    EXPECT_EQ(EINVAL, pthread_cond_signal(&stCondition));
}

TEST(DarwinLockTest, AWaitEndsAtItsTimeout)
{
    std::mutex mtxWait;
    pthread_cond_t stCondition = PTHREAD_COND_INITIALIZER;
    const std::lock_guard<std::mutex> lock(mtxWait);
    const timespec stLongAgo{1, 0};
    EXPECT_EQ(ETIMEDOUT, pthread_cond_timedwait(&stCondition, mtxWait.native_handle(), &stLongAgo));
    EXPECT_EQ(60, ETIMEDOUT);
    EXPECT_EQ(0, pthread_cond_destroy(&stCondition));
}

TEST(DarwinThreadTest, DestructorsOfThreadLocalVariablesRunAtTheEndOfTheThread)
{
    static std::atomic<int> s_iDestroyed{0};
    struct ST_Counting
    {
        ~ST_Counting() { ++s_iDestroyed; }
    };
    std::thread([] { thread_local const ST_Counting t_stCounting; }).join();
    EXPECT_EQ(1, s_iDestroyed);
}

TEST(DarwinSignalTest, HandlersGetDarwinsNumbers)
{
    const auto pBefore = std::signal(SIGUSR1, [](int _iSignal) { g_iSignal = _iSignal; });
    EXPECT_EQ(SIG_DFL, pBefore);
    EXPECT_EQ(0, kill(Find<pid_t()>(RTLD_NEXT, "getpid")(), SIGUSR1));
    EXPECT_TRUE(WaitUntil([] { return g_iSignal != 0; }));
    EXPECT_EQ(30, g_iSignal);
    std::signal(SIGUSR1, SIG_DFL);
}

TEST(DarwinSignalTest, ASignalThatEndsAChildHasDarwinsNumber)
{
    const ST_ChildResult stResult = RunChild("/bin/sh", {"-c", "kill -BUS $$"});
    EXPECT_EQ(SIGBUS, stResult.m_iSignal);
    EXPECT_EQ(10, SIGBUS);
}

TEST(DarwinProcessTest, ItsOwnProgramStartsAgainUnderTheLoader)
{
    const ST_ChildResult stResult =
        RunChild(OWN_PROGRAM, {"--gtest_list_tests", "--gtest_filter=DarwinErrorTest.*"});
    EXPECT_THAT(stResult.m_strOut, ::testing::EndsWith("DarwinErrorTest.\n  NumbersAreDarwins\n"));
    EXPECT_EQ(0, stResult.m_iExit);
}

TEST(DarwinProcessTest, LimitsHoldAndAreReportedAsOnDarwin)
{
    rlimit stLimit{};
    EXPECT_EQ(0, getrlimit(RLIMIT_NOFILE, &stLimit));
    const rlimit stNone{3, stLimit.rlim_max};
    EXPECT_EQ(0, setrlimit(RLIMIT_NOFILE, &stNone));
    EXPECT_EQ(-1, open("/dev/null", O_RDONLY));
    EXPECT_EQ(EMFILE, errno);
    EXPECT_EQ(0, setrlimit(RLIMIT_NOFILE, &stLimit));
    rlimit stCpu{};
    EXPECT_EQ(0, getrlimit(RLIMIT_CPU, &stCpu));
    EXPECT_EQ(RLIM_INFINITY, stCpu.rlim_max);
}

TEST(DarwinFileTest, FlagsFactsAndFoldersAreDarwins)
{
    const CLS_TempFolder clsFolder;
    const std::string strPath = clsFolder.GetPath("file");
    const int iFile = open(strPath.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_APPEND | O_CLOEXEC, 0640);
    ASSERT_NE(-1, iFile);
    EXPECT_EQ(O_WRONLY | O_APPEND, fcntl(iFile, F_GETFL) & (O_ACCMODE | O_APPEND | O_NONBLOCK));
    EXPECT_EQ(FD_CLOEXEC, fcntl(iFile, F_GETFD));
    EXPECT_EQ(5, write(iFile, "12345", 5));
    close(iFile);
    struct stat stFacts
    {
    };
    EXPECT_EQ(0, stat(strPath.c_str(), &stFacts));
    EXPECT_EQ(5, stFacts.st_size);
    EXPECT_EQ(S_IFREG | 0640, stFacts.st_mode);
    DIR* const pFolder = opendir(clsFolder.GetPath().c_str());
    std::vector<std::string> vecNames;
    while (const dirent* const pEntry = readdir(pFolder))
    {
        vecNames.emplace_back(pEntry->d_name, pEntry->d_namlen);
    }
    closedir(pFolder);
    EXPECT_THAT(vecNames, ::testing::UnorderedElementsAre(".", "..", "file"));
}

TEST(DarwinCharacterTest, KindsAreThoseOfTheCLocale)
{
    EXPECT_TRUE(std::isalpha('a') != 0 && std::isalpha('1') == 0 && std::isdigit('1') != 0);
    EXPECT_TRUE(std::isspace('\t') != 0 && std::ispunct('!') != 0 && std::iscntrl(127) != 0);
    EXPECT_TRUE(std::isalpha(0xe4) == 0 && std::isprint(0xe4) == 0);
    EXPECT_EQ('A', std::toupper('a'));
    EXPECT_EQ('a', std::tolower('A'));
    EXPECT_STREQ("C", std::setlocale(LC_ALL, nullptr));
    EXPECT_STREQ(".", std::localeconv()->decimal_point);
}
} // namespace
