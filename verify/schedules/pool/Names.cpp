#include "verify/schedules/pool/Names.h"

#include "QuenPlugins/ZelTaskPool/CLS_QuenTaskPool.h"
#include "tests/support/BasicView.h"
#include "tests/support/PoolView.h"
#include "tests/support/RunGateView.h"
#include "tests/support/TaskView.h"
#include "tests/support/WorkerView.h"
#include "verify/schedules/core/Memory.h"

#include <array>
#include <map>
#include <set>

namespace
{
constexpr std::array<const char*, 3> SERVICES{"dispatcher", "loop scheduler", "watchdog"};

std::size_t g_uiService = SERVICES.size(); ///< the index of the next service thread
int g_iPools = 0;
int g_iWorkers = 0;
int g_iHosts = 0;
std::set<int> g_setDispatchers;

// The objects that Learn has seen. They may be destroyed, so only their members' addresses are used.
std::map<const CLS_QuenTaskPool*, std::string> g_mapPools;
std::map<const CLS_TaskThread*, std::string> g_mapWorkers;
std::map<const CLS_Task*, std::string> g_mapTasks;

/// Whether the place is in the object.
template <typename T_Object>
bool IsIn(const void* _pPlace, const T_Object& _clsObject)
{
    return ClassLayout::Describe("", _clsObject).Contains(_pPlace);
}

ClassLayout::Members ListMembers(const CLS_QuenTaskPool& _clsPool)
{
    return PoolView::ListMembers(_clsPool);
}

ClassLayout::Members ListMembers(const CLS_TaskThread& _clsWorker)
{
    ClassLayout::Members vecMembers = RunGateView::ListMembers(WorkerView::GetRunGate(_clsWorker));
    const ClassLayout::Members vecOwn = WorkerView::ListMembers(_clsWorker);
    vecMembers.insert(vecMembers.end(), vecOwn.begin(), vecOwn.end());
    return vecMembers;
}

ClassLayout::Members ListMembers(const CLS_Task& _clsTask)
{
    ClassLayout::Members vecMembers = TaskView::ListMembers(_clsTask);
    const ClassLayout::Members vecBase = BasicView::ListMembers(_clsTask);
    vecMembers.insert(vecMembers.end(), vecBase.begin(), vecBase.end());
    return vecMembers;
}

template <typename T_Object>
std::string NameMember(const void* _pPlace, const T_Object& _clsObject)
{
    for (const ClassLayout::ST_Member& stMember : ListMembers(_clsObject))
    {
        if (stMember.Contains(_pPlace))
        {
            return stMember.m_szName;
        }
    }
    return "a member";
}

/// The member of a learnt object that contains the place; "" if there is none.
template <typename T_Object>
std::string Find(const std::map<const T_Object*, std::string>& _mapLearnt, const void* _pPlace)
{
    for (const auto& [pObject, strName] : _mapLearnt)
    {
        if (IsIn(_pPlace, *pObject))
        {
            return NameMember(_pPlace, *pObject) + " of " + strName;
        }
    }
    return "";
}
} // namespace

namespace Names
{
CLS_ServiceScope::CLS_ServiceScope()
{
    g_uiService = 0;
    ++g_iPools;
}

CLS_ServiceScope::~CLS_ServiceScope()
{
    g_uiService = SERVICES.size();
}

std::string NameThread(int _iThread, int _iMaker)
{
    if (g_uiService < SERVICES.size())
    {
        if (g_uiService == 0)
        {
            g_setDispatchers.insert(_iThread);
        }
        const std::string strPool = g_iPools > 1 ? " " + std::to_string(g_iPools) : "";
        return SERVICES[g_uiService++] + strPool;
    }
    if (IsDispatcher(_iMaker))
    {
        return "worker " + std::to_string(g_iWorkers++);
    }
    return "host " + std::to_string(g_iHosts++);
}

void Learn()
{
    CLS_QuenTaskPool* const pPool = CLS_QuenTaskPool::m_pInstance;
    if (pPool == nullptr || Memory::IsFreed(pPool))
    {
        return;
    }
    g_mapPools.try_emplace(pPool, "pool " + std::to_string(g_mapPools.size() + 1));
    for (const auto& [pWorker, strTaskId] : PoolView::GetWorkers(*pPool))
    {
        g_mapWorkers.try_emplace(pWorker, "worker " + std::to_string(g_mapWorkers.size()));
    }
    for (const auto& [strTaskId, pTask] : CLS_Task::m_mapTaskData)
    {
        if (g_mapTasks.count(pTask.get()) == 0)
        {
            g_mapTasks.try_emplace(pTask.get(), "task " + pTask->Param("callinfo").ToString());
        }
    }
}

std::string NameObject(const void* _pObject)
{
    if (_pObject == &CLS_Task::m_smTaskDataLock)
    {
        return "the registry's lock";
    }
    for (const std::string& strName :
         {Find(g_mapPools, _pObject), Find(g_mapWorkers, _pObject), Find(g_mapTasks, _pObject)})
    {
        if (!strName.empty())
        {
            return strName;
        }
    }
    return Memory::Describe(_pObject);
}

bool IsDispatcher(int _iThread)
{
    return g_setDispatchers.count(_iThread) > 0;
}

void Forget()
{
    g_uiService = SERVICES.size();
    g_iPools = 0;
    g_iWorkers = 0;
    g_iHosts = 0;
    g_setDispatchers.clear();
    g_mapPools.clear();
    g_mapWorkers.clear();
    g_mapTasks.clear();
}
} // namespace Names
