// Runs many tasks through the host kit, as a host that opens the library by name, and measures the memory:
//
//   zel_kit_soak_host LIBRARY TASKS
//
// Prints the number of tasks and the resident memory as comma-separated values, a hundred lines in all. Exits
// with status 1 if the memory grows by more than 8 MiB after the first 100,000 tasks.

#include "QuenHost/CLS_LoopTask.h"
#include "QuenHost/SubmitForResult.h"
#include "verify/soak/Figures.h"

#include <algorithm>
#include <array>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>

namespace
{
constexpr std::int64_t FIRST_TASKS = 100000;
constexpr std::int64_t MOST_GROWTH = std::int64_t{8} << 20;

/// Limits the number of tasks that are submitted and have not run.
class CLS_Turns
{
public:
    void Take()
    {
        std::unique_lock<std::mutex> lock(m_mtxTurns);
        m_cvTurns.wait(lock, [this] { return m_iTurns > 0; });
        --m_iTurns;
    }

    void Give()
    {
        const std::lock_guard<std::mutex> lock(m_mtxTurns);
        ++m_iTurns;
        m_cvTurns.notify_one();
    }

private:
    std::mutex m_mtxTurns; ///< guards m_iTurns
    std::condition_variable m_cvTurns;
    int m_iTurns = 1000;
};

/// The captures of a task: a kibibyte, and the turn that the run gives back.
class CLS_Work
{
public:
    explicit CLS_Work(CLS_Turns& _clsTurns) : m_clsTurns(_clsTurns) { m_arrData.fill(1); }
    void operator()() const { m_clsTurns.Give(); }

private:
    CLS_Turns& m_clsTurns;
    std::array<char, 1024> m_arrData;
};

/// Submits a thousand tasks of all kinds. One in ten has a result, and one in a hundred throws. The last ones
/// are removed with their owner.
void RunThousand(const CLS_PoolScope& _clsPool, CLS_Turns& _clsTurns)
{
    CLS_TaskOwner clsOwner(_clsPool, "soak", [](const ST_TaskFailure&) {});
    for (int i = 0; i < 1000; ++i)
    {
        _clsTurns.Take();
        const CLS_Work clsWork(_clsTurns);
        const auto funResult = [clsWork]
        {
            clsWork();
            return std::string(65536, 'x');
        };
        const auto funThrow = [clsWork]
        {
            clsWork();
            throw std::runtime_error("thrown on purpose");
        };
        const bool bTaken = i % 10 == 0    ? SubmitForResult(clsOwner, funResult, "result").valid()
                            : i % 100 == 1 ? clsOwner.Submit(funThrow, "thrower")
                                           : clsOwner.Submit(clsWork, "task");
        if (!bTaken)
        {
            std::puts("the owner refuses a task");
            std::exit(1);
        }
    }
    for (int i = 0; i < 1000; ++i)
    {
        // All turns are free again when all tasks have run.
        _clsTurns.Take();
    }
    for (int i = 0; i < 1000; ++i)
    {
        _clsTurns.Give();
    }
}
} // namespace

int main(int _iCount, char** _ppTexts)
{
    const std::int64_t iTasks = _iCount > 2 ? std::atoll(_ppTexts[2]) : 0;
    if (iTasks < 2 * FIRST_TASKS)
    {
        std::fputs("usage: zel_kit_soak_host LIBRARY TASKS, 200000 tasks at least\n", stderr);
        return 2;
    }
    const CLS_PoolScope clsPool{CLS_PoolLibrary(_ppTexts[1])};
    CLS_Turns clsTurns;
    std::int64_t iFirst = 0;
    std::int64_t iMost = 0;
    std::puts("tasks,resident_bytes");
    for (std::int64_t iDone = 0; iDone < iTasks;)
    {
        RunThousand(clsPool, clsTurns);
        iDone += 1000;
        if (iDone % std::max<std::int64_t>(iTasks / 100000 * 1000, 1000) == 0)
        {
            const std::int64_t iResident = Figures::GetResident();
            iFirst = iDone <= FIRST_TASKS ? std::max(iFirst, iResident) : iFirst;
            iMost = std::max(iMost, iResident);
            std::printf("%lld,%lld\n", static_cast<long long>(iDone), static_cast<long long>(iResident));
            std::fflush(stdout);
        }
    }
    const ST_PoolCounters stCounters = clsPool.TakeSnapshot().m_stCounters;
    const bool bFlat = iMost - iFirst <= MOST_GROWTH;
    std::fprintf(stderr, "%llu tasks run, %llu failed; memory grew by %.1f MiB after the first %lld: %s\n",
                 static_cast<unsigned long long>(stCounters.m_uiRun),
                 static_cast<unsigned long long>(stCounters.m_uiFailed),
                 static_cast<double>(iMost - iFirst) / 1048576, static_cast<long long>(FIRST_TASKS),
                 bFlat ? "flat" : "too much");
    return bFlat ? 0 : 1;
}
