#pragma once

#include "QuenPlugins/ZelTaskPool/CLS_QuenTaskPool.h"

#include <set>
#include <string>
#include <vector>

class CLS_Scheduler;

/// Looks at the pool at every step of a schedule, while nobody moves, and ends the schedule when what must
/// always hold does not. What a lock guards is looked at when nobody holds the lock.
class CLS_Watch
{
public:
    void Begin() { *this = CLS_Watch(); }
    void Look(CLS_Scheduler& _clsScheduler);

private:
    void LookAtIdleList(CLS_Scheduler& _clsScheduler, const CLS_QuenTaskPool& _clsPool);
    void LookAtOwners(CLS_Scheduler& _clsScheduler, const CLS_QuenTaskPool& _clsPool) const;

    const CLS_QuenTaskPool* m_pPool = nullptr; ///< that was looked at before
    struct ST_Idle
    {
        CLS_TaskThread* m_pWorker;
        int m_iOrderId;
    };
    std::vector<ST_Idle> m_vecIdle;    ///< the idle list of the last look
    std::set<std::string> m_setQueued; ///< the ids that were seen in the queue
};
