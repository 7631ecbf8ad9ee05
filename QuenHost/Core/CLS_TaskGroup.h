#pragma once

#include "QuenHost/Core/CLS_QueuedTask.h"
#include "QuenHost/Core/CLS_RemovedTasks.h"
#include "QuenHost/Core/ThreadInfo.h"
#include "QuenHost/ST_PoolSnapshot.h"
#include "QuenHost/ST_TaskFailure.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <list>
#include <memory>
#include <string>
#include <thread>
#include <utility>

/// The thread of a run, with the name and number that debuggers show.
struct ST_RunThread
{
    std::thread::id m_idThread = ThreadInfo::GetSelf();
    std::uint64_t m_uiThread = ThreadInfo::GetId();
    std::string m_strThread = ThreadInfo::GetName();
};

/// A run in progress.
///
/// Threads: the hub's mutex guards what changes. It lives on the stack of its thread.
struct ST_Run
{
    const CLS_QueuedTask& m_clsTask;
    const ST_RunThread& m_stThread;
    std::chrono::steady_clock::time_point m_tpStart;
    int m_iRemoving = 0;        ///< removals of its own group that it has called
    bool m_bHandedOver = false; ///< a removal did not wait for it; from then on, none waits
    bool m_bGivenUp = false;    ///< a removal waited for the full time; from then on, none waits
    bool m_bFailed = false;     ///< written and read by its thread
    bool m_bDelivery = false;   ///< it is on a thread of the host; constant
    std::shared_ptr<ST_Leftover> m_pLeftover{}; ///< what it must keep alive
    ST_Link<ST_Run> m_stHubLink{};
    ST_Link<ST_Run> m_stGroupLink{};
};

/// A removal that is destroying cancelled tasks. It lives on the stack of its thread.
struct ST_Destroyer
{
    std::thread::id m_idThread = ThreadInfo::GetSelf();
    ST_Link<ST_Destroyer> m_stLink{};
};

/// The waiting tasks and the runs of one owner, or of one loop task.
///
/// A run in progress keeps it alive, even after the owner.
///
/// Threads: the hub's mutex guards all but what is constant.
class CLS_TaskGroup
{
public:
    /// _uiMaxRunning: how many of its one-shot tasks run at once; 0 for no limit.
    CLS_TaskGroup(std::string _strName, F_FailureHandler _funOnFailure, unsigned _uiMaxRunning = 0)
        : m_strName(std::move(_strName)), m_uiMaxRunning(_uiMaxRunning),
          m_funOnFailure(std::move(_funOnFailure))
    {
    }

    CLS_TaskGroup(const CLS_TaskGroup&) = delete;
    CLS_TaskGroup& operator=(const CLS_TaskGroup&) = delete;

    const std::string m_strName;
    const unsigned m_uiMaxRunning; ///< 0 for no limit
    /// Not guarded: it changes only after the owner has ended, with no run left and m_iReports at 0.
    F_FailureHandler m_funOnFailure;

    std::shared_ptr<CLS_StopState> m_pStop = std::make_shared<CLS_StopState>(); ///< null after a removal
    /// For a removal without a wait when there is no memory. Never empty while m_pStop is set.
    std::list<std::shared_ptr<ST_Leftover>> m_lstReserve{std::make_shared<ST_Leftover>()};
    unsigned m_uiActive = 0; ///< tasks in m_chnWaiting, and their runs
    CLS_Chain<CLS_QueuedTask, &CLS_QueuedTask::m_stGroupLink> m_chnWaiting; ///< in the hub's queue
    CLS_Chain<CLS_QueuedTask, &CLS_QueuedTask::m_stGroupLink> m_chnHeld;    ///< held by the group's limit
    CLS_Chain<CLS_QueuedTask, &CLS_QueuedTask::m_stGroupLink> m_chnDelayed; ///< until they are due
    CLS_Chain<CLS_QueuedTask, &CLS_QueuedTask::m_stGroupLink> m_chnPosted;  ///< to the host's thread
    CLS_Chain<ST_Run, &ST_Run::m_stGroupLink> m_chnRuns;
    CLS_Chain<ST_Destroyer, &ST_Destroyer::m_stLink> m_chnDestroyers;
    std::condition_variable m_cvRuns; ///< notified when a removal may have less to wait for
    int m_iRemovals = 0;              ///< removals in progress: no task is taken
    int m_iReports = 0;               ///< removals that are reporting runs without the lock
    bool m_bClosed = false;           ///< the owner has ended: no task is taken
    ST_PoolCounters m_stCounters;
    ST_Link<CLS_TaskGroup> m_stHubLink; ///< among the groups with an owner
};
