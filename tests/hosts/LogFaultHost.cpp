// Lets the pool make log records on workers and on the host's threads while other tasks run:
//
//   zel_log_fault_host LIBRARY
//
// Prints the outcome once the pool has ended: until then, a thread of the pool may print how it opens the
// logging library. What happens to the log records depends on the logging library that it finds.

#include "tests/hosts/PoolLibrary.h"
#include "tests/support/Waiting.h"

#include <stdexcept>

namespace
{
std::string Tell(const std::string& _strWhat, bool _bHolds)
{
    return _strWhat + ": " + (_bHolds ? "yes" : "no") + "\n";
}
} // namespace

int main(int _iCount, char** _ppTexts)
{
    CLS_HostLibrary clsPool(_iCount > 1 ? _ppTexts[1] : "");
    CLS_Counter clsThrown;
    CLS_Counter clsRuns;
    for (int i = 0; i < 5; ++i)
    {
        clsPool.m_pAddTmpTask(
            [&]
            {
                clsThrown.Add();
                throw std::runtime_error("a record");
            },
            &clsThrown, "throwing");
    }
    for (int i = 0; i < 100; ++i)
    {
        clsPool.m_pAddTmpTask([&] { clsRuns.Add(); }, &clsRuns, "quiet");
    }
    std::string strOutcome;
    strOutcome += Tell("null owner refused", !clsPool.m_pAddTmpTask([] {}, nullptr, "nobody"));
    strOutcome += Tell("all ran", clsThrown.Wait(5) && clsRuns.Wait(100));
    std::string strTaskId;
    clsPool.m_pAddLoopTask([&] { clsRuns.Add(); }, 1, strTaskId, "loop");
    strOutcome += Tell("loop runs", clsRuns.Wait(110));
    clsPool.m_pRemoveTask(strTaskId, "loop");
    clsPool.m_pRemoveTmpTask(&clsThrown, "throwing");
    clsPool.m_pUnInit();
    std::cout << strOutcome << Tell("ended", true) << std::flush;
    return 0;
}
