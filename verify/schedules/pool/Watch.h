#pragma once

#include "QuenPlugins/ZelTaskPool/CLS_QuenTaskPool.h"
#include "verify/rules/PoolRules.h"

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

class CLS_Scheduler;

/// Checks the pool at every step of a schedule, while no thread runs. Ends the schedule if a rule is broken.
/// Checks what a lock guards only while the lock is free. One thread alone made all changes since the last
/// check.
class CLS_Watch
{
public:
    void Look(CLS_Scheduler& _clsScheduler);

private:
    void LookAtLocks(CLS_Scheduler& _clsScheduler, CLS_QuenTaskPool& _clsPool);
    void LookAtTasks(CLS_Scheduler& _clsScheduler);
    void LookAtBindings(CLS_Scheduler& _clsScheduler, CLS_QuenTaskPool& _clsPool);
    void NoteUnbound(CLS_Scheduler& _clsScheduler, CLS_QuenTaskPool& _clsPool, const CLS_TaskThread* _pWorker,
                     const std::string& _strTaskId);
    void LookAtIdleList(CLS_Scheduler& _clsScheduler, CLS_QuenTaskPool& _clsPool);
    void NoteIdle(CLS_Scheduler& _clsScheduler, const CLS_TaskThread* _pWorker);
    void LookAtOwners(CLS_Scheduler& _clsScheduler, CLS_QuenTaskPool& _clsPool) const;

    const CLS_QuenTaskPool* m_pPool = nullptr;     ///< the pool of the last check
    std::int64_t m_nsNow = 0;                      ///< the time of the last check
    std::set<int> m_setHolders;                    ///< the threads that hold one of the pool's locks
    std::vector<const CLS_Task*> m_vecValid;       ///< the valid tasks of this check
    std::vector<const CLS_Task*> m_vecValidBefore; ///< those of the last check
    bool m_bRun = true;                            ///< the pool's run flag at the last check of bindings
    std::map<const CLS_TaskThread*, std::string> m_mapBound; ///< the bindings of the last check
    std::set<const CLS_TaskThread*> m_setLate;               ///< workers whose task ended with the pool
    std::map<const CLS_TaskThread*, std::string>
        m_mapLastTask;                               ///< of each unbound worker, if it had an owner
    std::set<std::string> m_setOver;                 ///< tasks that may have lost their owner
    std::vector<PoolRules::ST_IdleWorker> m_vecIdle; ///< the idle list of the last check
    std::set<std::string> m_setQueued;               ///< the ids that were seen in the queue
};
