// Must not compile: the pool's and its workers' members are read without their locks.

#include "QuenPlugins/ZelTaskPool/CLS_QuenTaskPool.h"

bool LookInto(const CLS_QuenTaskPool& _clsPool)
{
    // expected-error@+6 {{reading variable 'm_vecWaitingTasks' requires holding mutex '_clsPool.m_mtxWaitingTasks'}}
    // expected-error@+6 {{reading variable 'm_vecLoopTasks' requires holding mutex '_clsPool.m_smLoopTasksLock'}}
    // expected-error@+6 {{reading variable 'm_mapTmpTasks' requires holding mutex '_clsPool.m_mtxTmpTasks'}}
    // expected-error@+6 {{reading variable 'm_mapTmpTaskOwner' requires holding mutex '_clsPool.m_mtxTmpTasks'}}
    // expected-error@+6 {{reading variable 'm_vecIdleThreads' requires holding mutex '_clsPool.m_mtxIdleThreads'}}
    // expected-error@+6 {{reading variable 'm_mapThreadTask' requires holding mutex '_clsPool.m_smThreadTaskLock'}}
    return _clsPool.m_vecWaitingTasks.empty() &&
           _clsPool.m_vecLoopTasks.empty() &&
           _clsPool.m_mapTmpTasks.empty() &&
           _clsPool.m_mapTmpTaskOwner.empty() &&
           _clsPool.m_vecIdleThreads.empty() &&
           _clsPool.m_mapThreadTask.empty();
}

bool LookInto(const CLS_TaskThread& _clsWorker)
{
    // expected-error@+1 {{reading variable 'm_funFunction' requires holding mutex '_clsWorker.m_mtxFunction'}}
    return _clsWorker.m_funFunction == nullptr;
}

bool LookInto(const CLS_Basic& _clsBasic)
{
    // expected-error@+2 {{reading variable 'm_mapParam' requires holding mutex '_clsBasic.m_smParamLock'}}
    // expected-error@+2 {{reading variable 'm_mapCallBackFun' requires holding mutex '_clsBasic.m_smCallBackLock'}}
    return _clsBasic.m_mapParam.empty() &&
           _clsBasic.m_mapCallBackFun.empty();
}
