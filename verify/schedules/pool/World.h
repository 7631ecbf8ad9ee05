#pragma once

#include "QuenPlugins/ZelTaskPool/CLS_QuenTaskPool.h"
#include "verify/schedules/core/Explore.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

using std::chrono_literals::operator""ns;
using std::chrono_literals::operator""us;
using std::chrono_literals::operator""ms;
using std::chrono_literals::operator""s;

/// The state of one task of a scenario.
///
/// The task's callable updates it and checks the rules: no run begins after the removal has returned, and no
/// two runs of a task overlap unless that is allowed.
struct ST_Job
{
    std::string m_strName;
    std::chrono::nanoseconds m_nsLength{0}; ///< of a run
    int m_iQueued = 0;                      ///< how often it was queued
    std::chrono::nanoseconds m_nsQueued{0}; ///< when it was last queued
    int m_iBegun = 0;                       ///< runs
    int m_iEnded = 0;                       ///< runs
    std::chrono::nanoseconds m_nsBegun{0};  ///< the last run
    std::chrono::nanoseconds m_nsEnded{0};  ///< the last run
    bool m_bRemoved = false;                ///< no run may begin
    bool m_bMayOverlap = false;
    bool m_bAtOnce = true;                                 ///< a run begins at the moment of its queueing
    bool m_bInTime = true;                                 ///< of a loop task: each run begins within 10 ms
    int m_iInterval = -1;                                  ///< of a loop task
    std::chrono::nanoseconds m_nsLastBeginning{INT64_MAX}; ///< no run may begin later
    std::function<void()> m_funWork;                       ///< done in each run, after its length
    bool m_bDestroyed = false;                             ///< the callable, with all that it captured
};

/// A host's view of one process. It makes a pool, submits tasks, and asserts what must hold.
///
/// For the threads of one schedule. A failed assertion fails the schedule.
class CLS_World
{
public:
    CLS_World();
    ~CLS_World();
    CLS_World(const CLS_World&) = delete;
    CLS_World& operator=(const CLS_World&) = delete;

    static CLS_QuenTaskPool& MakePool();

    /// Makes the state of a new task. The world owns it.
    ST_Job& MakeJob(const std::string& _strName, std::chrono::nanoseconds _nsLength = 0ns);

    /// The callable of a task. The job is destroyed when its last copy is.
    static std::function<void()> MakeCallable(ST_Job& _stJob);

    void Submit(CLS_QuenTaskPool& _clsPool, ST_Job& _stJob, void* _pOwner);
    std::string SubmitLoop(CLS_QuenTaskPool& _clsPool, ST_Job& _stJob, int _iInterval);

    /// Each call removes or stops tasks. Then it asserts the rules, and that it took no longer than the polls
    /// of the runs. It marks RUN_MET if it met a run, and RUN_FORESTALLED if a task never ran.
    static void RemoveOwner(CLS_QuenTaskPool& _clsPool, void* _pOwner, const std::vector<ST_Job*>& _vecJobs);
    static void RemoveLoop(CLS_QuenTaskPool& _clsPool, const std::string& _strTaskId, ST_Job& _stJob);
    static void Stop(CLS_QuenTaskPool& _clsPool, const std::string& _strTaskId, ST_Job& _stJob);

    /// Shuts the pool down in one of its two ways, and asserts these rules:
    /// - The shutdown takes at most _nsMost, and no longer than a poll after the last run.
    /// - Tasks that were running are stopped.
    /// - Afterwards, no run of a known task begins, and only those of _vecOverrun are in progress.
    ///
    /// Marks RUN_MET if a run outlasts the service threads.
    void EndPool(CLS_QuenTaskPool& _clsPool, std::chrono::nanoseconds _nsMost = IDLE_END,
                 const std::vector<ST_Job*>& _vecOverrun = {});

    static constexpr const char* RUN_MET = "a call waits for a run";
    static constexpr const char* RUN_FORESTALLED = "a run is prevented";

    /// Settles, and asserts that each queued task has run.
    void RequireAllRan() const;

    /// Empties the registry and asserts that only the calling thread is left.
    static void RequireNoOtherThread();

    static std::chrono::nanoseconds GetTime();

    /// Whether threads take time only where they wait. If they may be slow, times are not asserted.
    static bool IsTimely();
    static void RequireTimely(bool _bSo, const std::string& _strOtherwise);

    /// Lets the tasks run: for a moment or, if threads may be slow, until they have run.
    void Settle() const;

    /// Lets the tasks run for a moment or, if threads may be slow, until _funOver returns true.
    static void SettleUntil(const std::function<bool()>& _funOver);

    /// A random number below _iCount.
    static int Choose(int _iCount);

    /// A random length of a run. Some lengths end a run exactly when the shutdown polls it. In an exhaustive
    /// search, it is the first length.
    static std::chrono::nanoseconds ChooseLength();

    /// Lets the other threads take some steps.
    static void LetOthersRun();

    /// How long the shutdown of an idle pool takes: until the watchdog polls.
    static constexpr std::chrono::nanoseconds IDLE_END = 180ms;

    /// The time between two polls of Stop.
    static constexpr std::chrono::nanoseconds ONE_LOOK = 300ms;

    /// How long Stop polls for a run that does not end.
    static constexpr std::chrono::nanoseconds ALL_LOOKS = 9s;

    /// The log records since the beginning, each with its time.
    struct ST_LogLine
    {
        std::chrono::nanoseconds m_nsTime;
        std::string m_strText;
    };
    static const std::vector<ST_LogLine>& GetRecords();

private:
    bool HaveAllRun() const;
    std::vector<const ST_Job*> FindRunning(std::chrono::nanoseconds _nsSince) const;
    void RequireStopped(const std::vector<const ST_Job*>& _vecRunning) const;

    std::vector<std::unique_ptr<ST_Job>> m_vecJobs;
};

/// Restores the state that every schedule starts from: no pool and an empty registry.
void ForgetPool();

/// Creates what the library keeps for the whole process. Call it once, before the first schedule.
void PrepareProcess();
