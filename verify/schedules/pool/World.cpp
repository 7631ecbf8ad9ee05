#include "verify/schedules/pool/World.h"

#include "QuenHost/Core/CLS_LivingScope.h"
#include "QuenPlugins/ZelTaskPool/CLS_ShutdownClaim.h"
#include "tests/support/LivingScopeView.h"
#include "tests/support/PoolView.h"
#include "tests/support/ShutdownClaimView.h"
#include "tests/support/TaskView.h"
#include "verify/rules/TaskRules.h"
#include "verify/schedules/pool/Marks.h"
#include "verify/schedules/pool/Names.h"
#include "verify/schedules/pool/ScheduleLog.h"

#include <algorithm>
#include <array>
#include <iostream>
#include <new>
#include <sstream>

namespace
{
/// The largest number of polls of a slow program, one every 10 ms.
constexpr int SLOW_POLLS = 2000;

/// How long a removal may take beyond its polls. A worker releases a task a few steps after its run.
constexpr std::chrono::nanoseconds LAST_STEPS = 5ms;

/// About as many steps as a task takes from its queueing to its run.
constexpr int MOST_YIELDS = 40;

std::vector<CLS_World::ST_LogLine>* g_pRecords = nullptr;

void NoteRecord(int, const std::string& _strText)
{
    if (g_pRecords != nullptr)
    {
        g_pRecords->push_back({CLS_World::GetTime(), _strText});
    }
}

void RequireTime(const std::string& _strWhat, std::chrono::nanoseconds _nsBegin,
                 std::chrono::nanoseconds _nsMost)
{
    const auto nsTaken = CLS_World::GetTime() - _nsBegin;
    CLS_World::RequireTimely(nsTaken <= _nsMost, _strWhat + " takes " + std::to_string(nsTaken / 1us) +
                                                     " us, more than " + std::to_string(_nsMost / 1us));
}

/// How long Stop polls at most until the task is idle; zero if its runs are over.
std::chrono::nanoseconds GetLooks(const ST_Job& _stJob)
{
    const auto nsNow = CLS_World::GetTime();
    const bool bRuns = _stJob.m_iBegun > _stJob.m_iEnded;
    if (_stJob.m_iInterval < 0 && !bRuns && _stJob.m_iEnded == _stJob.m_iQueued && _stJob.m_nsEnded < nsNow)
    {
        return 0ns;
    }
    const auto nsLeft = _stJob.m_nsLength - (bRuns ? nsNow - _stJob.m_nsBegun : 0ns);
    return std::min<std::chrono::nanoseconds>((nsLeft / CLS_World::ONE_LOOK + 1) * CLS_World::ONE_LOOK,
                                              CLS_World::ALL_LOOKS);
}

bool IsSubmitted(const ST_Job& _stJob)
{
    return _stJob.m_iQueued > 0 || _stJob.m_iInterval >= 0;
}

void MarkRun(const ST_Job& _stJob, std::chrono::nanoseconds _nsBegin)
{
    if (_stJob.m_nsEnded > _nsBegin)
    {
        Marks::Reach(CLS_World::RUN_MET);
    }
    else if (_stJob.m_iBegun == 0 && IsSubmitted(_stJob))
    {
        Marks::Reach(CLS_World::RUN_FORESTALLED);
    }
}

/// Asserts that the callable of a removed task is destroyed, with two exceptions:
/// - The owner does not know a task that ended before, or that was submitted and ran meanwhile.
/// - A run that outlasts the removal destroys its callable later.
void RequireDestroyed(const ST_Job& _stJob, std::chrono::nanoseconds _nsBegin)
{
    const bool bLater = _stJob.m_nsQueued > _nsBegin;
    const bool bOver = _stJob.m_iEnded > 0 && (_stJob.m_nsEnded <= _nsBegin || bLater);
    const bool bOutlasts = _stJob.m_iBegun > _stJob.m_iEnded;
    CLS_World::RequireTimely(_stJob.m_bDestroyed || bOver || bOutlasts || !IsSubmitted(_stJob),
                             "the callable of " + _stJob.m_strName + " outlives its removal");
}

/// The time at which the service threads had ended; _nsBegin if no log record says so.
std::chrono::nanoseconds GetServicesEnd(std::chrono::nanoseconds _nsBegin)
{
    for (const CLS_World::ST_LogLine& stRecord : CLS_World::GetRecords())
    {
        if (stRecord.m_nsTime >= _nsBegin &&
            stRecord.m_strText == "----- TaskPool m_mapAllThreads start -----")
        {
            return stRecord.m_nsTime;
        }
    }
    return _nsBegin;
}

/// The job as the shared rules see it.
TaskRules::ST_TaskState GetState(const ST_Job& _stJob)
{
    TaskRules::ST_TaskState stTask;
    stTask.m_bLoop = _stJob.m_iInterval >= 0;
    stTask.m_iQueued = _stJob.m_iQueued;
    stTask.m_iBegun = _stJob.m_iBegun;
    stTask.m_iRunning = _stJob.m_iBegun - _stJob.m_iEnded;
    stTask.m_nsLastEnd = _stJob.m_nsEnded;
    stTask.m_nsInterval = std::chrono::milliseconds(std::max(_stJob.m_iInterval, 0));
    stTask.m_bRemoved = _stJob.m_bRemoved;
    stTask.m_bMayOverlap = _stJob.m_bMayOverlap;
    return stTask;
}

/// Fails if the job breaks a rule. Null stands for none.
void RequireUnbroken(const ST_Job& _stJob, const char* _szBroken)
{
    if (_szBroken != nullptr)
    {
        Require(false, _stJob.m_strName + " " + _szBroken);
    }
}

/// Asserts that the task does not run, except after a wait of 9 seconds. From now on, no run of it may begin.
void RequireOver(ST_Job& _stJob, std::chrono::nanoseconds _nsBegin)
{
    _stJob.m_bRemoved = true;
    TaskRules::ST_TaskState stTask = GetState(_stJob);
    stTask.m_bOverran = CLS_World::GetTime() - _nsBegin >= CLS_World::ALL_LOOKS;
    RequireUnbroken(_stJob, TaskRules::CheckRemoved(stTask));
}

void RequireMayBegin(const ST_Job& _stJob)
{
    const auto nsNow = CLS_World::GetTime();
    RequireUnbroken(_stJob, TaskRules::CheckBegin(GetState(_stJob), nsNow));
    CLS_World::RequireTimely(nsNow <= _stJob.m_nsLastBeginning,
                             _stJob.m_strName + " begins during its removal");
    if (_stJob.m_iInterval < 0)
    {
        CLS_World::RequireTimely(!_stJob.m_bAtOnce || nsNow == _stJob.m_nsQueued,
                                 _stJob.m_strName + " begins late");
    }
    else if (_stJob.m_iBegun > 0)
    {
        const auto nsDue = _stJob.m_nsEnded + std::chrono::milliseconds(_stJob.m_iInterval);
        CLS_World::RequireTimely(!_stJob.m_bInTime || nsNow <= nsDue + 10ms,
                                 _stJob.m_strName + " begins late");
    }
}

void Run(ST_Job& _stJob)
{
    RequireMayBegin(_stJob);
    ++_stJob.m_iBegun;
    _stJob.m_nsBegun = CLS_World::GetTime();
    if (_stJob.m_nsLength > 0ns)
    {
        std::this_thread::sleep_for(_stJob.m_nsLength);
    }
    if (_stJob.m_funWork)
    {
        _stJob.m_funWork();
    }
    _stJob.m_nsEnded = CLS_World::GetTime();
    ++_stJob.m_iEnded;
}
} // namespace

CLS_World::CLS_World()
{
    g_pRecords = new std::vector<ST_LogLine>;
}

CLS_World::~CLS_World()
{
    delete g_pRecords;
    g_pRecords = nullptr;
}

const std::vector<CLS_World::ST_LogLine>& CLS_World::GetRecords()
{
    return *g_pRecords;
}

std::chrono::nanoseconds CLS_World::GetTime()
{
    const CLS_Scheduler* const pScheduler = CLS_Scheduler::GetActive();
    return std::chrono::nanoseconds(pScheduler == nullptr ? 0 : pScheduler->GetTime());
}

bool CLS_World::IsTimely()
{
    const CLS_Scheduler* const pScheduler = CLS_Scheduler::GetActive();
    return pScheduler == nullptr || !pScheduler->HasSlowThreads();
}

void CLS_World::RequireTimely(bool _bSo, const std::string& _strOtherwise)
{
    Require(_bSo || !IsTimely(), _strOtherwise);
}

int CLS_World::Choose(int _iCount)
{
    CLS_Scheduler* const pScheduler = CLS_Scheduler::GetActive();
    return pScheduler == nullptr ? 0
                                 : static_cast<int>(pScheduler->Choose(static_cast<std::size_t>(_iCount)));
}

std::chrono::nanoseconds CLS_World::ChooseLength()
{
    // The watchdog polls every 180 ms, and Stop every 300 ms after that.
    static constexpr std::array<std::chrono::milliseconds, 7> LENGTHS{180ms, 0ms,   7ms,  179ms,
                                                                      181ms, 480ms, 780ms};
    return LENGTHS.at(static_cast<std::size_t>(Choose(LENGTHS.size())));
}

void CLS_World::LetOthersRun()
{
    for (int i = Choose(MOST_YIELDS); i > 0; --i)
    {
        std::this_thread::yield();
    }
}

CLS_QuenTaskPool& CLS_World::MakePool()
{
    const Names::CLS_ServiceScope clsScope;
    return *CLS_QuenTaskPool::GetInstance();
}

ST_Job& CLS_World::MakeJob(const std::string& _strName, std::chrono::nanoseconds _nsLength)
{
    m_vecJobs.push_back(std::make_unique<ST_Job>());
    m_vecJobs.back()->m_strName = _strName;
    m_vecJobs.back()->m_nsLength = _nsLength;
    return *m_vecJobs.back();
}

std::function<void()> CLS_World::MakeCallable(ST_Job& _stJob)
{
    const std::shared_ptr<void> pEnd(nullptr, [&_stJob](void*) { _stJob.m_bDestroyed = true; });
    return [&_stJob, pEnd] { Run(_stJob); };
}

void CLS_World::Submit(CLS_QuenTaskPool& _clsPool, ST_Job& _stJob, void* _pOwner)
{
    ++_stJob.m_iQueued;
    const auto nsBegin = GetTime();
    _stJob.m_nsQueued = nsBegin;
    Require(_clsPool.AddTmpTask(MakeCallable(_stJob), _pOwner, _stJob.m_strName), "the pool refuses a task");
    RequireTime("the submission", nsBegin, 0ns);
}

std::string CLS_World::SubmitLoop(CLS_QuenTaskPool& _clsPool, ST_Job& _stJob, int _iInterval)
{
    std::string strTaskId;
    const auto nsBegin = GetTime();
    _stJob.m_iInterval = _iInterval;
    _clsPool.AddLoopTask(MakeCallable(_stJob), _iInterval, strTaskId, _stJob.m_strName);
    Require(!strTaskId.empty(), "the pool refuses a loop task");
    RequireTime("the submission", nsBegin, 0ns);
    return strTaskId;
}

void CLS_World::RemoveOwner(CLS_QuenTaskPool& _clsPool, void* _pOwner, const std::vector<ST_Job*>& _vecJobs)
{
    const auto nsBegin = GetTime();
    std::chrono::nanoseconds nsMost = LAST_STEPS;
    for (ST_Job* const pJob : _vecJobs)
    {
        pJob->m_nsLastBeginning = IsSubmitted(*pJob) ? nsBegin : pJob->m_nsLastBeginning;
        nsMost += GetLooks(*pJob);
    }
    _clsPool.RemoveTmpTask(_pOwner, "scenario");
    for (ST_Job* const pJob : _vecJobs)
    {
        RequireOver(*pJob, nsBegin);
        RequireDestroyed(*pJob, nsBegin);
        MarkRun(*pJob, nsBegin);
    }
    RequireTime("the removal by owner", nsBegin, nsMost);
}

void CLS_World::RemoveLoop(CLS_QuenTaskPool& _clsPool, const std::string& _strTaskId, ST_Job& _stJob)
{
    const auto nsBegin = GetTime();
    const auto nsMost = GetLooks(_stJob) + LAST_STEPS;
    if (Choose(2) == 0)
    {
        _clsPool.RemoveTask(_strTaskId, "scenario");
    }
    else
    {
        _clsPool.KillTask(_strTaskId, "scenario");
    }
    RequireOver(_stJob, nsBegin);
    RequireTimely(_stJob.m_bDestroyed, "the callable of " + _stJob.m_strName + " outlives its removal");
    const auto& vecIds = PoolView::GetLoopIds(_clsPool);
    Require(std::find(vecIds.begin(), vecIds.end(), _strTaskId) == vecIds.end(),
            "the loop list keeps its id");
    MarkRun(_stJob, nsBegin);
    RequireTime("the removal", nsBegin, nsMost);
}

void CLS_World::Stop(CLS_QuenTaskPool& _clsPool, const std::string& _strTaskId, ST_Job& _stJob)
{
    const auto nsBegin = GetTime();
    const auto nsMost = GetLooks(_stJob);
    _clsPool.StopTask(_strTaskId);
    RequireOver(_stJob, nsBegin);
    MarkRun(_stJob, nsBegin);
    RequireTime("the stop", nsBegin, nsMost);
}

void CLS_World::EndPool(CLS_QuenTaskPool& _clsPool, std::chrono::nanoseconds _nsMost,
                        const std::vector<ST_Job*>& _vecOverrun)
{
    const auto nsBegin = GetTime();
    if (Choose(2) == 0)
    {
        _clsPool.UnInit();
    }
    else
    {
        _clsPool.KillTaskAll();
    }
    Require(CLS_QuenTaskPool::m_pInstance == nullptr, "the pool survives its end");
    const auto nsServicesEnd = GetServicesEnd(nsBegin);
    RequireTimely(nsServicesEnd <= nsBegin + IDLE_END, "the service threads end late");
    const std::vector<const ST_Job*> vecRunning = FindRunning(nsServicesEnd);
    RequireStopped(vecRunning);
    auto nsLastEnd = nsServicesEnd;
    for (const auto& pJob : m_vecJobs)
    {
        if (std::find(_vecOverrun.begin(), _vecOverrun.end(), pJob.get()) == _vecOverrun.end())
        {
            RequireOver(*pJob, nsBegin);
            nsLastEnd = std::max(nsLastEnd, pJob->m_nsEnded);
        }
        pJob->m_bRemoved = true;
    }
    RequireTime("the end of the pool", nsBegin, _nsMost);
    if (_vecOverrun.empty())
    {
        RequireTime("the end of the pool after the last run", nsLastEnd, ONE_LOOK);
    }
    if (!vecRunning.empty())
    {
        Marks::Reach(RUN_MET);
    }
}

/// The tasks that ran after _nsSince, and may still be running.
std::vector<const ST_Job*> CLS_World::FindRunning(std::chrono::nanoseconds _nsSince) const
{
    std::vector<const ST_Job*> vecRunning;
    for (const auto& pJob : m_vecJobs)
    {
        if (pJob->m_iBegun > pJob->m_iEnded || (pJob->m_iEnded > 0 && pJob->m_nsEnded > _nsSince))
        {
            vecRunning.push_back(pJob.get());
        }
    }
    return vecRunning;
}

/// Asserts that the shutdown has made these tasks invalid, if they are still registered.
void CLS_World::RequireStopped(const std::vector<const ST_Job*>& _vecRunning) const
{
    for (const ST_Job* const pJob : _vecRunning)
    {
        bool bValid = false;
        {
            const CLS_Scheduler::CLS_Inside clsInside;
            for (const auto& [strTaskId, pTask] : CLS_Task::m_mapTaskData)
            {
                bValid |=
                    TaskView::GetValidWord(*pTask) && pTask->Param("callinfo").ToString() == pJob->m_strName;
            }
        }
        RequireTimely(!bValid, pJob->m_strName + " was not stopped by the end of the pool");
    }
}

void CLS_World::Settle() const
{
    SettleUntil([this] { return HaveAllRun(); });
}

void CLS_World::SettleUntil(const std::function<bool()>& _funOver)
{
    std::this_thread::sleep_for(5ms);
    for (int i = 0; i < SLOW_POLLS && !IsTimely() && !_funOver(); ++i)
    {
        std::this_thread::sleep_for(10ms);
    }
}

bool CLS_World::HaveAllRun() const
{
    return std::all_of(m_vecJobs.begin(), m_vecJobs.end(),
                       [](const auto& _pJob)
                       { return _pJob->m_bRemoved || _pJob->m_iEnded >= _pJob->m_iQueued; });
}

void CLS_World::RequireAllRan() const
{
    Settle();
    for (const auto& pJob : m_vecJobs)
    {
        const TaskRules::ST_TaskState stTask = GetState(*pJob);
        Require(TaskRules::HasRun(stTask) && stTask.m_iRunning == 0,
                pJob->m_strName + " was queued " + std::to_string(pJob->m_iQueued) + " times and ran " +
                    std::to_string(pJob->m_iEnded));
    }
}

void CLS_World::RequireNoOtherThread()
{
    const CLS_Scheduler* const pScheduler = CLS_Scheduler::GetActive();
    for (int i = 0; i < SLOW_POLLS && !IsTimely() && pScheduler->CountThreads() > 1; ++i)
    {
        std::this_thread::sleep_for(10ms);
    }
    Require(pScheduler == nullptr || pScheduler->CountThreads() == 1, "a thread is left");
    std::map<std::string, std::shared_ptr<CLS_Task>> mapLeft;
    {
        const std::lock_guard<std::shared_mutex> lock(CLS_Task::m_smTaskDataLock);
        mapLeft.swap(CLS_Task::m_mapTaskData);
    }
    mapLeft.clear();
}

void ForgetPool()
{
    g_pRecords = nullptr;
    CLS_QuenTaskPool::m_pInstance = nullptr;
    // The old nodes are in memory of the last schedule.
    new (&CLS_Task::m_mapTaskData) std::map<std::string, std::shared_ptr<CLS_Task>>;
    // Lets the library notice the changed map now, and not later in a step of a schedule. Both calls notice
    // it, because a fault may disable one of them.
    CLS_Task::DeleteTask(CLS_Task::CreateTask({}, -1, "")->GetId());
    ShutdownClaimView::ForgetAll();
    CLS_TaskThread::SetWaitingOvertime(300000);
    LivingScopeView::ForgetAll();
    Names::Forget();
}

void PrepareProcess()
{
    CLS_LivingScope::Has(nullptr);
    // Binding the logging library prints lines. Formatting numbers fills caches of the C++ library.
    std::streambuf* const pBuffer = std::cout.rdbuf(nullptr);
    Logger::GetModuleFun("PrintLog", "");
    std::cout.rdbuf(pBuffer);
    std::cout.clear();
    std::ostringstream stream;
    stream.imbue(std::locale::classic());
    stream << 1 << 1U << 1L << 1UL << 1.5 << true;
    ScheduleLog::SetListener(NoteRecord);
}
