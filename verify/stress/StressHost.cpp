// Performs random operations on the pool from several threads and compares the results with a simple model:
//
//   zel_stress_host [--seed N] [--seconds 10] [--operations 0] [--threads 4]
//
// Ends after the given seconds or, if --operations is not 0, after that many operations. Without --seed, it
// draws a seed. It prints the seed. With one thread, the seed determines every operation. With more threads,
// the system chooses their order.

#include "tests/support/FastSleep.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/Options.h"
#include "tests/support/ThreadCount.h"
#include "verify/stress/Checks.h"
#include "verify/stress/Operations.h"

#include <cstdio>
#include <thread>

namespace
{
constexpr int OPERATIONS_PER_PHASE = 1000; ///< of each thread

/// Shortens sleeps: Stop waits for at most 90 ms, and the watchdog makes a pass about every tenth of a
/// second.
std::chrono::nanoseconds ScaleSleep(std::chrono::nanoseconds _nsAsked)
{
    constexpr std::chrono::milliseconds WATCHDOG_STEP{180};
    return _nsAsked == WATCHDOG_STEP ? std::chrono::microseconds(100) : _nsAsked / 100;
}

bool StartsWith(const std::string& _strText, const std::string& _strStart)
{
    return _strText.compare(0, _strStart.size(), _strStart) == 0;
}

class CLS_Stress
{
public:
    CLS_Stress(std::uint64_t _uiSeed, const CLS_Options& _clsOptions)
        : m_clsOptions(_clsOptions), m_rngDice(_uiSeed),
          m_iThreads(static_cast<int>(_clsOptions.Get("--threads"))), m_stWorld(_uiSeed)
    {
        LogRecorder::SetHook([this](const LogRecorder::ST_Record& _stRecord) { JudgeRecord(_stRecord); });
    }

    ~CLS_Stress() { LogRecorder::SetHook({}); }
    CLS_Stress(const CLS_Stress&) = delete;
    CLS_Stress& operator=(const CLS_Stress&) = delete;

    void Run()
    {
        const auto tpEnd =
            std::chrono::steady_clock::now() + std::chrono::seconds(m_clsOptions.Get("--seconds"));
        const auto iOperations = m_clsOptions.Get("--operations");
        const auto funGoesOn = [&]
        {
            return iOperations > 0 ? m_stCounts.m_iOperations < iOperations
                                   : std::chrono::steady_clock::now() < tpEnd;
        };
        while (funGoesOn())
        {
            RunPhase();
            EndPhase(m_rngDice() % 10);
            LogRecorder::Clear();
        }
        CLS_QuenTaskPool::GetInstance();
        EndPhase(SETTLE_AND_END);
    }

    void Print() const
    {
        const auto funShort = [](const auto& _iValue) { return static_cast<long long>(_iValue.load()); };
        std::printf("%lld operations, %lld tasks, %lld one-shot runs, %lld loop runs, %lld overruns, "
                    "%lld workers retired, %d workers at most, %lld pools\nstress passed\n",
                    funShort(m_stCounts.m_iOperations), funShort(m_stCounts.m_iTasks),
                    funShort(m_stCounts.m_iRuns), funShort(m_stCounts.m_iLoopRuns),
                    funShort(m_stCounts.m_iOverruns), funShort(m_stCounts.m_iRetired),
                    m_stCounts.m_iMostWorkers.load(), funShort(m_stCounts.m_iPools));
    }

private:
    /// Limits for a draw of ten. Below the first, the pool goes on. Below the second, it shuts down when it
    /// is idle. Otherwise, it shuts down at once.
    static constexpr std::uint64_t SETTLE_AND_END = 6;
    static constexpr std::uint64_t END_AT_ONCE = 8;

    /// Lets each thread do its operations. The first use of the pool must not race another.
    void RunPhase()
    {
        CLS_QuenTaskPool::GetInstance();
        std::vector<std::thread> vecThreads;
        vecThreads.reserve(static_cast<std::size_t>(m_iThreads));
        for (int i = 0; i < m_iThreads; ++i)
        {
            vecThreads.emplace_back(
                [this, uiSeed = m_rngDice()]
                {
                    CLS_Operations clsOperations(m_stWorld, uiSeed);
                    for (int iDone = 0; iDone < OPERATIONS_PER_PHASE; ++iDone)
                    {
                        clsOperations.DoOne();
                    }
                });
        }
        for (std::thread& thEach : vecThreads)
        {
            thEach.join();
        }
    }

    void EndPhase(std::uint64_t _uiDrawn)
    {
        if (_uiDrawn < END_AT_ONCE)
        {
            Checks::CheckSettled(m_stWorld);
        }
        if (_uiDrawn >= SETTLE_AND_END)
        {
            EndPool(_uiDrawn % 2 == 0);
            Checks::CheckEnded(m_stWorld, m_iThreadsBefore);
            ++m_stCounts.m_iPools;
        }
    }

    void EndPool(bool _bKill)
    {
        m_stWorld.m_bPoolEnding = true;
        for (const Entry& pEntry : m_stWorld.m_clsModel.GetEntries())
        {
            pEntry->m_bDoomed = true;
        }
        const std::unique_lock<std::shared_mutex> lock(m_stWorld.m_smPoolUse);
        (_bKill ? KillTaskAll : UnInit)();
        m_stWorld.m_bPoolEnding = false;
    }

    void JudgeRecord(const LogRecorder::ST_Record& _stRecord)
    {
        const std::string& strMessage = _stRecord.m_strMessage;
        if (StartsWith(strMessage, "delete pThread - "))
        {
            ++m_stCounts.m_iRetired;
        }
        else if (StartsWith(strMessage, "StopTask overtime task info : ["))
        {
            m_stWorld.m_clsModel.NoteOverrun(strMessage);
        }
        else if (_stRecord.m_iLevel == 3 &&
                 !StartsWith(strMessage, "run function error :thrown on purpose") &&
                 strMessage != "AddTmpTask error, nullptr == _pObj [nobody]")
        {
            m_stWorld.m_clsModel.Break("the pool logs an error: " + strMessage);
        }
    }

    const CLS_Options& m_clsOptions;
    std::mt19937_64 m_rngDice;
    const int m_iThreads;
    const int m_iThreadsBefore = CountThreads();
    const CLS_ScaledSleep m_clsScaledSleep{ScaleSleep};
    ST_World m_stWorld;
    ST_Counts& m_stCounts = m_stWorld.m_clsModel.m_stCounts;
};

std::uint64_t DrawSeed()
{
    return std::random_device()() % 1000000 + 1;
}
} // namespace

int main(int _iCount, char** _ppTexts)
{
    const CLS_Options clsOptions(_iCount, _ppTexts,
                                 {{"--seed", 0}, {"--seconds", 10}, {"--operations", 0}, {"--threads", 4}});
    const auto uiGiven = static_cast<std::uint64_t>(clsOptions.Get("--seed"));
    const std::uint64_t uiSeed = uiGiven == 0 ? DrawSeed() : uiGiven;
    std::printf("stress: seed %llu, %lld threads\n", static_cast<unsigned long long>(uiSeed),
                clsOptions.Get("--threads"));
    std::fflush(stdout);

    CLS_Stress clsStress(uiSeed, clsOptions);
    clsStress.Run();
    clsStress.Print();
    return 0;
}
