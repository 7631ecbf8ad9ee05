#include "verify/schedules/pool/Marks.h"
#include "verify/schedules/pool/Scenarios.h"
#include "verify/schedules/pool/World.h"

#include <algorithm>
#include <array>
#include <mutex>
#include <shared_mutex>

// The linker redirects the library's calls of Util::GetUuid to MakeUuid. These are its names for the two
// functions.
std::string MakeUuid() __asm__("__wrap__ZN4Util7GetUuidB5cxx11Ev");
std::string MakeNewUuid() __asm__("__real__ZN4Util7GetUuidB5cxx11Ev");

namespace
{
/// The id that the next record gets; null for a new one.
const std::string* g_pRepeatedId = nullptr;

constexpr const char* RAN = "the record leaves the registry after the look-up";
constexpr const char* NOT_FOUND = "the record leaves the registry before the look-up";

/// A task on its way to a worker. A host holds its record and changes the registry meanwhile.
struct ST_RegistryCase
{
    CLS_World m_clsWorld;
    CLS_QuenTaskPool& m_clsPool = CLS_World::MakePool();
    int m_iOwner = 0;
    ST_Job& m_stOld = m_clsWorld.MakeJob("A");
    ST_Job& m_stNew = m_clsWorld.MakeJob("B"); ///< runs instead, if the change registers its record
    std::string m_strTaskId;
    std::shared_ptr<CLS_Task> m_pOld;
    std::shared_ptr<CLS_Task> m_pNew; ///< null unless it is made before the change
};

/// Submits the first task, the only one, and takes its record from the library.
void SubmitAndGet(ST_RegistryCase& _stCase)
{
    _stCase.m_clsWorld.Submit(_stCase.m_clsPool, _stCase.m_stOld, &_stCase.m_iOwner);
    {
        const std::shared_lock<std::shared_mutex> lock(CLS_Task::m_smTaskDataLock);
        _stCase.m_strTaskId = CLS_Task::m_mapTaskData.begin()->first;
    }
    _stCase.m_pOld = CLS_Task::GetTask(_stCase.m_strTaskId).lock();
}

/// Does the same, but copies the reference out of the exported registry. The library does not notice.
void SubmitAndCopy(ST_RegistryCase& _stCase)
{
    _stCase.m_clsWorld.Submit(_stCase.m_clsPool, _stCase.m_stOld, &_stCase.m_iOwner);
    const std::shared_lock<std::shared_mutex> lock(CLS_Task::m_smTaskDataLock);
    _stCase.m_strTaskId = CLS_Task::m_mapTaskData.begin()->first;
    _stCase.m_pOld = CLS_Task::m_mapTaskData.begin()->second;
}

/// Creates the record without the pool, and queues it.
void CreateAndQueue(ST_RegistryCase& _stCase)
{
    _stCase.m_stOld.m_iQueued = 1;
    _stCase.m_stOld.m_nsQueued = CLS_World::GetTime();
    _stCase.m_pOld = CLS_Task::CreateTask(CLS_World::MakeCallable(_stCase.m_stOld), -1, "A");
    _stCase.m_strTaskId = _stCase.m_pOld->GetId();
    _stCase.m_clsPool.AddWaitingTasks(_stCase.m_strTaskId);
}

/// Creates the record of the second task, which a look-up of the first task's id may find from now on.
std::shared_ptr<CLS_Task> CreateNew(ST_RegistryCase& _stCase)
{
    _stCase.m_stNew.m_iQueued = 1;
    _stCase.m_stNew.m_nsQueued = _stCase.m_stOld.m_nsQueued;
    return CLS_Task::CreateTask(CLS_World::MakeCallable(_stCase.m_stNew), -1, "B");
}

int CountFailedLookUps(const ST_RegistryCase& _stCase)
{
    const auto& vecRecords = CLS_World::GetRecords();
    return static_cast<int>(
        std::count_if(vecRecords.begin(), vecRecords.end(),
                      [&_stCase](const CLS_World::ST_LogLine& _stRecord)
                      { return _stRecord.m_strText == "task id is fail - " + _stCase.m_strTaskId; }));
}

/// Asserts that the record that a look-up finds has run, and no other record.
void RequireOutcome(ST_RegistryCase& _stCase)
{
    const auto funCount = [&_stCase]
    { return _stCase.m_stOld.m_iEnded + _stCase.m_stNew.m_iEnded + CountFailedLookUps(_stCase); };
    CLS_World::SettleUntil([&funCount] { return funCount() > 0; });
    const bool bReplaced = _stCase.m_stNew.m_iQueued > 0;
    Require(funCount() == 1, "the id that was queued once led to " + std::to_string(funCount()) + " results");
    Require(!bReplaced || CountFailedLookUps(_stCase) == 0, "the replacing record is not found");
    Marks::Reach(_stCase.m_stOld.m_iBegun > 0 ? RAN : NOT_FOUND);
}

/// The host changes the registry at any moment. After the change, the first record runs only if a worker
/// found it before.
void Change(void (*_funSubmit)(ST_RegistryCase&), void (*_funChange)(ST_RegistryCase&))
{
    ST_RegistryCase stCase;
    _funSubmit(stCase);
    CLS_World::LetOthersRun();
    _funChange(stCase);
    RequireOutcome(stCase);
    stCase.m_pOld.reset();
    stCase.m_pNew.reset();
    stCase.m_clsWorld.EndPool(stCase.m_clsPool);
    CLS_World::RequireNoOtherThread();
}

/// The record has left the registry. No run of it begins unless another thread holds it, too.
void ForbidRun(ST_RegistryCase& _stCase)
{
    _stCase.m_stOld.m_bRemoved = _stCase.m_pOld.use_count() == 1;
}

void ChooseSubmission(ST_RegistryCase& _stCase)
{
    constexpr std::array<void (*)(ST_RegistryCase&), 3> SUBMISSIONS{SubmitAndCopy, SubmitAndGet,
                                                                    CreateAndQueue};
    SUBMISSIONS.at(static_cast<std::size_t>(CLS_World::Choose(SUBMISSIONS.size())))(_stCase);
}

void DeleteRecord()
{
    Change(ChooseSubmission,
           [](ST_RegistryCase& _stCase)
           {
               CLS_Task::DeleteTask(_stCase.m_strTaskId);
               ForbidRun(_stCase);
           });
}

void ReplaceRecord()
{
    Change(ChooseSubmission,
           [](ST_RegistryCase& _stCase)
           {
               g_pRepeatedId = &_stCase.m_strTaskId;
               CreateNew(_stCase);
               g_pRepeatedId = nullptr;
               ForbidRun(_stCase);
           });
}

/// The library changes the registry, too, before a worker looks.
void EraseRecord()
{
    Change(ChooseSubmission,
           [](ST_RegistryCase& _stCase)
           {
               const std::string strOther = CLS_Task::CreateTask({}, -1, "C")->GetId();
               {
                   const std::lock_guard<std::shared_mutex> lock(CLS_Task::m_smTaskDataLock);
                   CLS_Task::m_mapTaskData.erase(_stCase.m_strTaskId);
               }
               ForbidRun(_stCase);
               if (CLS_World::Choose(2) == 0)
               {
                   CLS_Task::DeleteTask(strOther);
               }
               else
               {
                   CLS_Task::CreateTask({}, -1, "D");
               }
           });
}

/// Replaces the record in the exported registry, which stays as large as it was.
void AssignRecord()
{
    const auto funSubmit = [](ST_RegistryCase& _stCase)
    {
        _stCase.m_pNew = CreateNew(_stCase);
        CLS_Task::DeleteTask(_stCase.m_pNew->GetId());
        (CLS_World::Choose(2) == 0 ? SubmitAndGet : CreateAndQueue)(_stCase);
    };
    Change(funSubmit,
           [](ST_RegistryCase& _stCase)
           {
               {
                   const std::lock_guard<std::shared_mutex> lock(CLS_Task::m_smTaskDataLock);
                   CLS_Task::m_mapTaskData[_stCase.m_strTaskId] = _stCase.m_pNew;
               }
               ForbidRun(_stCase);
           });
}
} // namespace

std::string MakeUuid()
{
    return g_pRepeatedId == nullptr ? MakeNewUuid() : *g_pRepeatedId;
}

Scenarios GetRegistryScenarios()
{
    const std::vector<std::string> vecBoth{RAN, NOT_FOUND};
    return {{"registry-delete", DeleteRecord, vecBoth, true},
            {"registry-replace", ReplaceRecord, vecBoth, true},
            {"registry-erase", EraseRecord, vecBoth, true},
            {"registry-assign", AssignRecord, vecBoth, true}};
}
