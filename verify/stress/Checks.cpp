#include "verify/stress/Checks.h"

#include "QuenHost/TaskSweep.h"
#include "tests/support/PoolView.h"
#include "tests/support/ThreadCount.h"
#include "tests/support/Waiting.h"
#include "verify/rules/PoolRules.h"

#include <algorithm>

namespace
{
template <typename T_Condition>
void AwaitEach(ST_World& _stWorld, const std::string& _strBroken, T_Condition _funCondition)
{
    for (const Entry& pEntry : _stWorld.m_clsModel.GetEntries())
    {
        if (!WaitUntil([&] { return _funCondition(*pEntry); }))
        {
            _stWorld.m_clsModel.Break(_strBroken, *pEntry);
        }
    }
}

template <typename T_Condition>
void Await(ST_World& _stWorld, const std::string& _strBroken, T_Condition _funCondition)
{
    if (!WaitUntil(_funCondition))
    {
        _stWorld.m_clsModel.Break(_strBroken);
    }
}

bool HasRun(ST_Entry& _stEntry)
{
    return _stEntry.m_bDoomed || TaskRules::HasRun(CLS_Model::GetState(_stEntry));
}

void CheckLoopsGoOn(ST_World& _stWorld)
{
    std::map<const ST_Entry*, int> mapRuns;
    for (const Entry& pEntry : _stWorld.m_clsModel.GetEntries())
    {
        mapRuns[pEntry.get()] = pEntry->m_iRuns;
    }
    AwaitEach(_stWorld, "a loop task does not go on",
              [&](ST_Entry& _stEntry) {
                  return _stEntry.m_iKind != KIND_LOOP || _stEntry.m_bDoomed ||
                         _stEntry.m_iRuns > mapRuns[&_stEntry];
              });
}

/// Whether the registry has a record of the task once finished ones are swept.
bool IsKept(const ST_Entry& _stEntry)
{
    return _stEntry.m_iKind != KIND_TMP && !_stEntry.m_bForgotten;
}

/// The ids of the tasks that are kept. With _bLoopsAlone, only those of loop tasks.
std::vector<std::string> GetKept(ST_World& _stWorld, bool _bLoopsAlone)
{
    std::vector<std::string> vecKept;
    for (const Entry& pEntry : _stWorld.m_clsModel.GetEntries())
    {
        if (IsKept(*pEntry) && (!_bLoopsAlone || pEntry->m_iKind == KIND_LOOP))
        {
            vecKept.push_back(pEntry->GetTaskId());
        }
    }
    std::sort(vecKept.begin(), vecKept.end());
    return vecKept;
}

bool AreLoopsListed(ST_World& _stWorld, CLS_QuenTaskPool& _clsPool)
{
    std::vector<std::string> vecListed = PoolView::GetLoopTasks(_clsPool);
    std::sort(vecListed.begin(), vecListed.end());
    return vecListed == GetKept(_stWorld, true);
}

bool IsRegistryRight(ST_World& _stWorld)
{
    TaskSweep::DeleteFinished();
    const std::set<std::string> setRegistered = PoolView::GetRegistered();
    return std::vector<std::string>(setRegistered.begin(), setRegistered.end()) == GetKept(_stWorld, false);
}

void ForgetOwned(ST_World& _stWorld)
{
    for (ST_TaskOwner& stOwner : _stWorld.m_arrOwners)
    {
        const std::lock_guard<std::mutex> lock(stOwner.m_mtxEntries);
        stOwner.m_vecEntries.clear();
    }
}
} // namespace

void Checks::CheckSettled(ST_World& _stWorld)
{
    CLS_QuenTaskPool& clsPool = *CLS_QuenTaskPool::GetInstance();
    AwaitEach(_stWorld, "an accepted task does not run", HasRun);
    CheckLoopsGoOn(_stWorld);
    AwaitEach(_stWorld, "live copies of a callable are wrong",
              [](ST_Entry& _stEntry)
              {
                  TaskSweep::DeleteFinished();
                  return *_stEntry.m_pCopies == (IsKept(_stEntry) ? 1 : 0);
              });
    Await(_stWorld, "the registry differs from the model", [&] { return IsRegistryRight(_stWorld); });
    Await(_stWorld, "the list of loop tasks differs from the model",
          [&] { return AreLoopsListed(_stWorld, clsPool); });
    if (const char* const szBroken = PoolRules::CheckPool(clsPool))
    {
        _stWorld.m_clsModel.Break(szBroken);
    }
    ForgetOwned(_stWorld);
    _stWorld.m_clsModel.Forget([](const ST_Entry& _stEntry) { return !IsKept(_stEntry); });
}

void Checks::CheckEnded(ST_World& _stWorld, int _iThreads)
{
    CLS_Model& clsModel = _stWorld.m_clsModel;
    for (const Entry& pEntry : clsModel.GetEntries())
    {
        clsModel.NoteEnded(*pEntry);
    }
    if (CLS_QuenTaskPool::m_pInstance != nullptr)
    {
        clsModel.Break("a pool exists after its end");
    }
    _stWorld.m_clsHelds.TakeAll();
    _stWorld.m_clsLoops.TakeAll();
    AwaitEach(_stWorld, "a run does not end", [](ST_Entry& _stEntry) { return !_stEntry.m_bRunning; });
    AwaitEach(_stWorld, "a callable is left after the end of the pool",
              [](ST_Entry& _stEntry)
              {
                  TaskSweep::DeleteLeftBehind();
                  return *_stEntry.m_pCopies == 0;
              });
    Await(_stWorld, "the registry is not empty", [] { return PoolView::GetRegistered().empty(); });
    Await(_stWorld, "threads are left", [&] { return CountThreads() == _iThreads; });
    ForgetOwned(_stWorld);
    clsModel.Forget([](const ST_Entry&) { return true; });
}
