#include "tests/schedule/pool/Names.h"

#include "QuenPlugins/ZelTaskPool/CLS_QuenTaskPool.h"
#include "tests/schedule/core/Memory.h"

#include <array>
#include <set>

namespace
{
constexpr std::array<const char*, 3> SERVICES{"dispatcher", "loop scheduler", "watchdog"};

std::size_t s_uiService = SERVICES.size(); ///< the next one to be made
int s_iPools = 0;
int s_iWorkers = 0;
int s_iHosts = 0;
std::set<int> s_setDispatchers;

/// Whether the place is in the member; if so, its name.
template <typename Member>
bool IsIn(const void* _pPlace, const Member& _clsMember)
{
    const auto* const pBegin = reinterpret_cast<const char*>(&_clsMember);
    const auto* const pPlace = static_cast<const char*>(_pPlace);
    return pPlace >= pBegin && pPlace < pBegin + sizeof(Member);
}

std::string NameOfPool(const void* _pPlace, const CLS_QuenTaskPool& _clsPool)
{
    return IsIn(_pPlace, _clsPool.m_mtxWaitingTasks)    ? "m_mtxWaitingTasks"
           : IsIn(_pPlace, _clsPool.m_cvWaitingTasks)   ? "m_cvWaitingTasks"
           : IsIn(_pPlace, _clsPool.m_smLoopTasksLock)  ? "m_smLoopTasksLock"
           : IsIn(_pPlace, _clsPool.m_mtxTmpTasks)      ? "m_mtxTmpTasks"
           : IsIn(_pPlace, _clsPool.m_mtxIdleThreads)   ? "m_mtxIdleThreads"
           : IsIn(_pPlace, _clsPool.m_smThreadTaskLock) ? "m_smThreadTaskLock"
           : IsIn(_pPlace, _clsPool.m_bRun)             ? "the pool's m_bRun"
           : IsIn(_pPlace, _clsPool.m_bEnding)          ? "the pool's m_bEnding"
                                                        : "the pool";
}

std::string NameOfWorker(const void* _pPlace, const CLS_TaskThread& _clsWorker)
{
    const std::string strWorker = " of worker " + std::to_string(_clsWorker.m_iOrderId.load());
    return (IsIn(_pPlace, _clsWorker.m_mtxFunction)    ? "m_mtxFunction"
            : IsIn(_pPlace, _clsWorker.m_cvFunction)   ? "m_cvFunction"
            : IsIn(_pPlace, _clsWorker.m_bRun)         ? "m_bRun"
            : IsIn(_pPlace, _clsWorker.m_iOrderId)     ? "m_iOrderId"
            : IsIn(_pPlace, _clsWorker.m_tpLastActive) ? "m_tpLastActive"
            : IsIn(_pPlace, _clsWorker.m_clsRunGate)   ? "m_clsRunGate"
                                                       : "a member") +
           strWorker;
}

std::string NameOfTask(const void* _pPlace, CLS_Task& _clsTask)
{
    const std::string strTask = " of " + _clsTask.Param("callinfo").ToString();
    return (IsIn(_pPlace, _clsTask.m_iTaskStatus)     ? "m_iTaskStatus"
            : IsIn(_pPlace, _clsTask.m_bValid)        ? "m_bValid"
            : IsIn(_pPlace, _clsTask.m_iLoopInterval) ? "m_iLoopInterval"
            : IsIn(_pPlace, _clsTask.m_tpLastRun)     ? "m_tpLastRun"
            : IsIn(_pPlace, _clsTask.m_smParamLock)   ? "m_smParamLock"
                                                      : "a member") +
           strTask;
}
} // namespace

namespace Names
{
CLS_ServiceScope::CLS_ServiceScope()
{
    s_uiService = 0;
    ++s_iPools;
}

CLS_ServiceScope::~CLS_ServiceScope()
{
    s_uiService = SERVICES.size();
}

std::string NameThread(int _iThread, int _iMaker)
{
    if (s_uiService < SERVICES.size())
    {
        if (s_uiService == 0)
        {
            s_setDispatchers.insert(_iThread);
        }
        const std::string strPool = s_iPools > 1 ? " " + std::to_string(s_iPools) : "";
        return SERVICES[s_uiService++] + strPool;
    }
    if (IsDispatcher(_iMaker))
    {
        return "worker " + std::to_string(s_iWorkers++);
    }
    return "host " + std::to_string(s_iHosts++);
}

std::string NameObject(const void* _pObject)
{
    if (CLS_QuenTaskPool* const pPool = CLS_QuenTaskPool::m_pInstance;
        pPool != nullptr && !Memory::IsFreed(pPool))
    {
        if (IsIn(_pObject, *pPool))
        {
            return NameOfPool(_pObject, *pPool);
        }
        for (const auto& [pWorker, strTaskId] : pPool->m_mapThreadTask)
        {
            if (!Memory::IsFreed(pWorker) && IsIn(_pObject, *pWorker))
            {
                return NameOfWorker(_pObject, *pWorker);
            }
        }
    }
    for (const auto& [strTaskId, pTask] : CLS_Task::m_mapTaskData)
    {
        if (IsIn(_pObject, *pTask))
        {
            return NameOfTask(_pObject, *pTask);
        }
    }
    return _pObject == &CLS_Task::m_smTaskDataLock ? "the registry's lock" : Memory::Describe(_pObject);
}

bool IsDispatcher(int _iThread)
{
    return s_setDispatchers.count(_iThread) > 0;
}

void Forget()
{
    s_uiService = SERVICES.size();
    s_iPools = 0;
    s_iWorkers = 0;
    s_iHosts = 0;
    s_setDispatchers.clear();
}
} // namespace Names
