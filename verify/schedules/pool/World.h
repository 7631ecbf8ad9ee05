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

/// What a scenario knows about one of its tasks. Its callable keeps it up to date and holds the rules: no run
/// begins after the removal has returned, and no two runs of a task overlap unless that is allowed.
struct ST_Job
{
    std::string m_strName;
    std::chrono::nanoseconds m_nsLength{0}; ///< of a run
    int m_iQueued = 0;                      ///< how often
    std::chrono::nanoseconds m_nsQueued{0}; ///< when for the last time
    int m_iBegun = 0;                       ///< runs
    int m_iEnded = 0;                       ///< runs
    std::chrono::nanoseconds m_nsBegun{0};  ///< the last run
    std::chrono::nanoseconds m_nsEnded{0};  ///< the last run
    bool m_bRemoved = false;                ///< no run may begin any more
    bool m_bMayOverlap = false;
    bool m_bAtOnce = true;                                 ///< a run begins at the moment of its queueing
    bool m_bInTime = true;                                 ///< of a loop task: each run begins within 10 ms
    int m_iInterval = -1;                                  ///< of a loop task
    std::chrono::nanoseconds m_nsLastBeginning{INT64_MAX}; ///< no run may begin later
    std::function<void()> m_funWork;                       ///< done in each run, after its length
    bool m_bDestroyed = false;                             ///< the callable, with all that it captured
};

/// One process as a host knows it: makes a pool, gives it tasks, and asserts what must hold. For the threads
/// of one schedule; asserts by ending the schedule.
class CLS_World
{
public:
    CLS_World();
    ~CLS_World();
    CLS_World(const CLS_World&) = delete;
    CLS_World& operator=(const CLS_World&) = delete;

    static CLS_QuenTaskPool& MakePool();

    /// A task that is known from here on; the world keeps it.
    ST_Job& MakeJob(const std::string& _strName, std::chrono::nanoseconds _nsLength = 0ns);

    /// The callable of a task. The job is destroyed when its last copy is.
    static std::function<void()> MakeCallable(ST_Job& _stJob);

    void Submit(CLS_QuenTaskPool& _clsPool, ST_Job& _stJob, void* _pOwner);
    std::string SubmitLoop(CLS_QuenTaskPool& _clsPool, ST_Job& _stJob, int _iInterval);

    /// Each removes or stops, asserts that it takes no longer than the looks at the runs do, and what holds
    /// then. What a run met is marked: RUN_MET, and RUN_FORESTALLED when a task never ran.
    static void RemoveOwner(CLS_QuenTaskPool& _clsPool, void* _pOwner, const std::vector<ST_Job*>& _vecJobs);
    static void RemoveLoop(CLS_QuenTaskPool& _clsPool, const std::string& _strTaskId, ST_Job& _stJob);
    static void Stop(CLS_QuenTaskPool& _clsPool, const std::string& _strTaskId, ST_Job& _stJob);

    /// Ends the pool, in one of its two ways, which takes _nsMost at most, and no longer than a look after
    /// the last run. The tasks that run then were stopped; no run of a known task begins from then on, and
    /// none is going on but those of _vecOverrun. Marks RUN_MET when a run outlasts the service threads.
    void EndPool(CLS_QuenTaskPool& _clsPool, std::chrono::nanoseconds _nsMost = IDLE_END,
                 const std::vector<ST_Job*>& _vecOverrun = {});

    static constexpr const char* RUN_MET = "a run is waited for";
    static constexpr const char* RUN_FORESTALLED = "a run is forestalled";

    /// Settles, and asserts that each queued run has taken place.
    void RequireAllRan() const;

    /// Empties the registry and asserts that only the calling thread is left.
    static void RequireNobodyLeft();

    static std::chrono::nanoseconds GetTime();

    /// Whether threads take time only where they wait. If they may be slow, times cannot be predicted and
    /// are not asserted.
    static bool IsTimely();
    static void RequireTimely(bool _bSo, const std::string& _strOtherwise);

    /// Lets the tasks run: for a moment or, if threads may be slow, until they have run.
    void Settle() const;

    /// The same, until _funOver says that what happens is over.
    static void SettleUntil(const std::function<bool()>& _funOver);

    /// A random number below _iCount.
    static int Choose(int _iCount);

    /// One of the lengths, some of which end a run at the very moment that the end of the pool looks at it;
    /// without chance, the first.
    static std::chrono::nanoseconds ChooseLength();

    /// Lets the other threads take some steps at this moment.
    static void GiveWay();

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
