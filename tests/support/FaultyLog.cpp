// A logging library that misbehaves in the way that ZEL_TEST_LOG names: "slow" or "throw".

#include <chrono>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <thread>

extern "C"
{
    void PrintLog(int /*_iLevel*/, const char* /*_szModule*/, const char* /*_szFile*/, int /*_iLine*/,
                  const char* /*_szFunction*/, const std::string& /*_strMessage*/)
    {
        // No thread changes the environment.
        const char* const szFault = std::getenv("ZEL_TEST_LOG"); // NOLINT(concurrency-mt-unsafe)
        const std::string strFault = szFault == nullptr ? "" : szFault;
        if (strFault == "throw")
        {
            throw std::runtime_error("out of PrintLog");
        }
        if (strFault == "slow")
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(300));
        }
    }

    void Init() {}
    void SetLoggerConfig() {}
    void SetLoggerConfigAll() {}
    void UnInit() {}
}
