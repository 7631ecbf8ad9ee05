// Uses the pool before main begins and after it has ended:  zel_static_host
//
// The environment variable ZEL_TEST_LIBRARY is the path of the library, because there are no arguments yet.

#include "tests/hosts/PoolLibrary.h"
#include "tests/support/Waiting.h"

namespace
{
class CLS_Early
{
public:
    CLS_Early() : m_clsPool(GetPath())
    {
        m_clsPool.m_pAddLoopTask([this] { m_clsRuns.Add(); }, 1, m_strTaskId, "early");
    }

    ~CLS_Early()
    {
        const int iRuns = m_clsRuns.Get();
        std::cout << "goes on after main: " << m_clsRuns.Wait(iRuns + 3) << std::endl;
        m_clsPool.m_pKillTask(m_strTaskId, "early");
        m_clsPool.m_pUnInit();
        std::cout << "ended" << std::endl;
    }

    bool RunsInMain()
    {
        const int iRuns = m_clsRuns.Get();
        return m_clsRuns.Wait(iRuns + 3);
    }

private:
    static std::string GetPath()
    {
        const char* const szPath = std::getenv("ZEL_TEST_LIBRARY");
        return szPath == nullptr ? "" : szPath;
    }

    CLS_HostLibrary m_clsPool;
    CLS_Counter m_clsRuns;
    std::string m_strTaskId;
};

CLS_Early g_clsEarly;
} // namespace

int main()
{
    std::cout << "runs in main: " << g_clsEarly.RunsInMain() << std::endl;
    return 7;
}
