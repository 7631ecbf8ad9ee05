// Uses the pool for a long time as a linked host, and measures memory, threads and descriptors:
//
//   zel_soak_host [--seconds 3600] [--tasks 10000000] [--loops 3000] [--submitters 3] [--samples 60]
//                 [--sweep 1000]
//
// Sweeps finished tasks every --sweep milliseconds. With 0, it does not sweep, and fails. Exits with status 1
// if something grows.

#include "QuenHost/TaskSweep.h"
#include "QuenPlugins/ZelTaskPool/CLS_QuenTaskPool.h"
#include "tests/support/Options.h"
#include "tests/support/ProcessCounts.h"
#include "tests/support/ThreadCount.h"
#include "tests/support/Waiting.h"
#include "verify/soak/Figures.h"
#include "verify/soak/Growth.h"
#include "verify/soak/Load.h"

#include <cstdio>
#include <future>

namespace
{
class CLS_Soak
{
public:
    explicit CLS_Soak(const CLS_Options& _clsOptions)
        : m_clsOptions(_clsOptions), m_msSweep(_clsOptions.Get("--sweep")), m_clsGrowth(TakeFigures())
    {
        const auto iSubmitters = static_cast<int>(m_clsOptions.Get("--submitters"));
        for (int i = 0; i < iSubmitters; ++i)
        {
            const auto iLoops = static_cast<int>(m_clsOptions.Get("--loops") / iSubmitters);
            m_vecSubmitters.push_back(std::make_unique<CLS_Submitter>(m_stTotals, iLoops));
        }
    }

    /// Runs the soak. Returns the errors; empty for none.
    std::string Run()
    {
        PrintHead();
        for (long long i = 0; i < m_clsOptions.Get("--samples") && m_strWrong.empty(); ++i)
        {
            RunRound();
            Sample();
        }
        if (m_strWrong.empty())
        {
            m_strWrong = CLS_Growth::JudgeTrend(m_vecFigures);
        }
        End();
        return m_strWrong + JudgeFailures();
    }

private:
    /// Lets the submitters work for one round, and sweeps meanwhile.
    void RunRound()
    {
        const auto iRounds = m_clsOptions.Get("--samples");
        const auto iTasks = m_clsOptions.Get("--tasks") / iRounds / m_clsOptions.Get("--submitters");
        const std::chrono::milliseconds msLength(m_clsOptions.Get("--seconds") * 1000 / iRounds);
        std::vector<std::future<void>> vecRounds;
        for (const auto& pSubmitter : m_vecSubmitters)
        {
            vecRounds.push_back(std::async(std::launch::async, [&pSubmitter, iTasks, msLength]
                                           { pSubmitter->RunRound(iTasks, msLength); }));
        }
        for (std::future<void>& futRound : vecRounds)
        {
            while (futRound.wait_for(std::chrono::milliseconds(std::max<long long>(m_msSweep.count(), 1))) !=
                   std::future_status::ready)
            {
                Sweep();
            }
            futRound.get();
        }
    }

    void Sweep() const
    {
        if (m_msSweep.count() > 0)
        {
            TaskSweep::DeleteFinished();
        }
    }

    /// Takes the figures when the last workers have finished their tasks.
    void Sample()
    {
        ST_Figures stFigures;
        const auto funSettled = [&]
        {
            Sweep();
            stFigures = TakeFigures();
            return m_clsGrowth.Judge(stFigures).empty();
        };
        // Without sweeps, there is nothing to wait for.
        if (!WaitUntil(funSettled, m_msSweep.count() > 0 ? WAIT_LIMIT : std::chrono::seconds(1)))
        {
            m_strWrong = m_clsGrowth.Judge(stFigures);
        }
        m_vecFigures.push_back(stFigures);
        Print(stFigures);
    }

    /// Shuts the pool down. Then everything must be as before its start.
    void End()
    {
        for (const auto& pSubmitter : m_vecSubmitters)
        {
            pSubmitter->RemoveLoops();
        }
        UnInit();
        TaskSweep::DeleteLeftBehind();
        ST_Figures stFigures;
        const auto funGone = [&]
        {
            stFigures = TakeFigures();
            stFigures.m_iThreads += CLS_Growth::SERVICE_THREADS; // none is left, but Judge expects them
            return m_clsGrowth.Judge(stFigures).empty();
        };
        if (!WaitUntil(funGone))
        {
            m_strWrong += "after the end: " + m_clsGrowth.Judge(stFigures);
        }
    }

    ST_Figures TakeFigures() const
    {
        ST_Figures stFigures;
        const std::chrono::duration<double> durSince = std::chrono::steady_clock::now() - m_tpStart;
        stFigures.m_dSeconds = durSince.count();
        stFigures.m_iSubmitted = m_stTotals.m_iSubmitted;
        stFigures.m_iHeap = Figures::GetHeap();
        stFigures.m_iResident = Figures::GetResident();
        stFigures.m_iDescriptors = CountDescriptors();
        stFigures.m_iThreads = CountThreads();
        if (CLS_QuenTaskPool* const pPool = CLS_QuenTaskPool::m_pInstance)
        {
            stFigures.m_iWorkers = pPool->GetTaskThreadNum();
        }
        stFigures.m_iRegistered = CountRegistered();
        stFigures.m_iLiveCopies = *m_stTotals.m_pLiveCopies;
        for (const auto& pSubmitter : m_vecSubmitters)
        {
            stFigures.m_iKept += pSubmitter->CountLoops();
        }
        return stFigures;
    }

    static std::int64_t CountRegistered()
    {
        const std::shared_lock<std::shared_mutex> lock(CLS_Task::m_smTaskDataLock);
        return static_cast<std::int64_t>(CLS_Task::m_mapTaskData.size());
    }

    static void PrintHead()
    {
        std::printf("%8s %11s %11s %11s %9s %8s %8s %8s %6s %6s %6s\n", "seconds", "submitted", "run",
                    "loop runs", "owners", "records", "heap KB", "RSS KB", "files", "thrds", "wrkrs");
    }

    void Print(const ST_Figures& _stFigures) const
    {
        const auto funShort = [](std::int64_t _iValue) { return static_cast<long long>(_iValue); };
        std::printf("%8.1f %11lld %11lld %11lld %9lld %8lld %8lld %8lld %6d %6d %6d\n", _stFigures.m_dSeconds,
                    funShort(_stFigures.m_iSubmitted), funShort(m_stTotals.m_iRuns),
                    funShort(m_stTotals.m_iLoopRuns), funShort(m_stTotals.m_iOwners),
                    funShort(_stFigures.m_iRegistered), funShort(_stFigures.m_iHeap / 1024),
                    funShort(_stFigures.m_iResident / 1024), _stFigures.m_iDescriptors, _stFigures.m_iThreads,
                    _stFigures.m_iWorkers);
        std::fflush(stdout);
    }

    std::string JudgeFailures() const
    {
        const int iFailures = m_stTotals.m_iFailures;
        return iFailures == 0 ? "" : "refused or not run: " + std::to_string(iFailures) + "\n";
    }

    const CLS_Options& m_clsOptions;
    const std::chrono::steady_clock::time_point m_tpStart = std::chrono::steady_clock::now();
    const std::chrono::milliseconds m_msSweep;
    ST_Totals m_stTotals;
    std::vector<std::unique_ptr<CLS_Submitter>> m_vecSubmitters;
    std::vector<ST_Figures> m_vecFigures;
    std::string m_strWrong;
    const CLS_Growth m_clsGrowth; ///< knows the figures before the pool
};
} // namespace

int main(int _iCount, char** _ppTexts)
{
    const CLS_Options clsOptions(_iCount, _ppTexts,
                                 {{"--seconds", 3600},
                                  {"--tasks", 10000000},
                                  {"--loops", 3000},
                                  {"--submitters", 3},
                                  {"--samples", 60},
                                  {"--sweep", 1000}});
    Figures::ShareHeap();
    const std::string strWrong = CLS_Soak(clsOptions).Run();
    if (!strWrong.empty())
    {
        std::printf("soak failed\n%s", strWrong.c_str());
        return 1;
    }
    std::printf("soak passed: nothing grows\n");
    return 0;
}
