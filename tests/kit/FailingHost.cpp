// Hosts with mistakes, one for each value of WHAT:  zel_failing_host WHAT LIBRARY

#include "QuenHost/CLS_LoopTask.h"
#include "QuenHost/CLS_TaskOwner.h"
#include "tests/support/Waiting.h"

#include <functional>
#include <map>
#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>

namespace
{
bool Submit(CLS_TaskOwner& _clsOwner, const std::function<void()>& _funTask, const std::string& _strCallInfo)
{
    const std::uint64_t uiFailed = _clsOwner.GetCounters().m_uiFailed;
    return _clsOwner.Submit(_funTask, _strCallInfo) &&
           WaitUntil([&] { return _clsOwner.GetCounters().m_uiFailed == uiFailed + 1; });
}

int Fail(const std::string& _strLibrary)
{
    const CLS_PoolScope clsPool{CLS_PoolLibrary(_strLibrary)};
    CLS_TaskOwner clsOwner(clsPool, "owner");
    bool bTaken = Submit(
        clsOwner, [] { throw 1; }, "number");
    for (int i = 0; i < 5; ++i)
    {
        bTaken = Submit(
                     clsOwner, [] { throw std::runtime_error("again"); }, "often") &&
                 bTaken;
    }
    return bTaken ? 0 : 1;
}

int FailOften(const std::string& _strLibrary)
{
    const CLS_PoolScope clsPool{CLS_PoolLibrary(_strLibrary)};
    CLS_TaskOwner clsOwner(clsPool, "owner");
    bool bTaken = true;
    for (int i = 0; i < 120; ++i)
    {
        bTaken = Submit(
                     clsOwner, [] { throw std::runtime_error("again"); }, "task " + std::to_string(i)) &&
                 bTaken;
    }
    return bTaken ? 0 : 1;
}

int FailInHandler(const std::string& _strLibrary)
{
    const CLS_PoolScope clsPool{CLS_PoolLibrary(_strLibrary)};
    CLS_TaskOwner clsOwner(clsPool, "owner",
                           [](const ST_TaskFailure&) { throw std::runtime_error("the handler's"); });
    return Submit(
               clsOwner, [] { throw std::runtime_error("mine"); }, "task")
               ? 0
               : 1;
}

/// The owner and the loop task outlive their scope.
int Outlive(const std::string& _strLibrary)
{
    std::optional<CLS_TaskOwner> clsOwner;
    std::optional<CLS_LoopTask> clsLoop;
    CLS_Gate clsStarted;
    CLS_Gate clsLoopStarted;
    std::atomic<bool> bStopped{false};
    std::atomic<bool> bLoopStopped{false};
    {
        const CLS_PoolScope clsPool{CLS_PoolLibrary(_strLibrary)};
        clsOwner.emplace(clsPool, "late");
        const auto funLoop = [&](const CLS_StopToken& _clsToken)
        {
            clsLoopStarted.Open();
            bLoopStopped = !_clsToken.SleepFor(WAIT_LIMIT);
        };
        clsLoop.emplace(clsPool, funLoop, 1, "loop");
        const auto funTask = [&](const CLS_StopToken& _clsToken)
        {
            clsStarted.Open();
            bStopped = !_clsToken.SleepFor(WAIT_LIMIT);
        };
        if (!clsOwner->Submit(funTask, "task") || !clsStarted.Wait() || !clsLoopStarted.Wait())
        {
            return 1;
        }
    }
    const bool bRefused = !clsOwner->Submit([] {}, "too late");
    const bool bRemoved = clsOwner->RemoveTasks() && clsLoop->Remove();
    return bRefused && bRemoved && bStopped && bLoopStopped ? 0 : 1;
}

/// The owner is constructed before its scope.
int MakeEarly(const std::string& _strLibrary)
{
    alignas(CLS_PoolScope) unsigned char arrScope[sizeof(CLS_PoolScope)] = {};
    auto& clsPool = *reinterpret_cast<CLS_PoolScope*>(arrScope);
    CLS_TaskOwner clsOwner(clsPool, "early");
    new (arrScope) CLS_PoolScope{CLS_PoolLibrary(_strLibrary)};
    const bool bRefused = !clsOwner.Submit([] {}, "task") && clsOwner.RemoveTasks();
    clsPool.~CLS_PoolScope();
    return bRefused ? 0 : 1;
}

int UseMovedScope(const std::string& _strLibrary)
{
    CLS_PoolScope clsFirst{CLS_PoolLibrary(_strLibrary)};
    const CLS_PoolScope clsSecond(std::move(clsFirst));
    CLS_TaskOwner clsOwner(clsFirst, "owner"); // NOLINT(bugprone-use-after-move)
    return clsOwner.Submit([] {}, "task") ? 1 : 0;
}
} // namespace

int main(int argc, char** argv)
{
    const std::map<std::string, int (*)(const std::string&)> mapMistakes{
        {"failures", Fail},    {"many", FailOften},  {"handler", FailInHandler},
        {"outlives", Outlive}, {"early", MakeEarly}, {"moved", UseMovedScope}};
    return argc == 3 ? mapMistakes.at(argv[1])(argv[2]) : 2;
}
