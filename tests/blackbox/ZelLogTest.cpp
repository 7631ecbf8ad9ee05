#include "examples/zel_log/ZelLog.h"

#include "tests/support/TempFolder.h"

#include <cstdlib>
#include <dlfcn.h>
#include <fstream>
#include <gmock/gmock.h>
#include <pthread.h>
#include <sstream>
#include <string>
#include <thread>

namespace
{
using ::testing::MatchesRegex;

void NameThread(const char* _szName)
{
#if defined(__APPLE__)
    pthread_setname_np(_szName);
#else
    pthread_setname_np(pthread_self(), _szName);
#endif
}

TEST(ZelLogTest, EachLineNamesItsThread)
{
    const CLS_TempFolder clsFolder;
    const std::string strLog = clsFolder.GetPath("log");
    ASSERT_EQ(0, setenv("ZEL_LOG_FILE", strLog.c_str(), 1));
    void* const pLibrary = dlopen(LOG_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(nullptr, pLibrary) << dlerror();
    const auto funPrint = reinterpret_cast<decltype(&PrintLog)>(dlsym(pLibrary, "PrintLog"));
    ASSERT_NE(nullptr, funPrint);

    for (const char* const szName : {"first", "my second"})
    {
        std::thread(
            [&]
            {
                NameThread(szName);
                funPrint(3, "Module", "folder/File.cpp", 7, "Function", "text");
            })
            .join();
    }

    std::ostringstream ossLog;
    ossLog << std::ifstream(strLog).rdbuf();
    const std::string strTime = "[-0-9]+ [:.0-9]+ ";
    const std::string strRest = "\\] \\[Module\\] Function File.cpp:7 text\n";
    EXPECT_THAT(ossLog.str(), MatchesRegex(strTime + "error \\[first" + strRest + strTime +
                                           "error \\[my second" + strRest));
}
} // namespace
