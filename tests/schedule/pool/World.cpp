#include "tests/schedule/pool/World.h"

#include "tests/schedule/core/Memory.h"
#include "tests/schedule/pool/Names.h"
#include "tests/schedule/pool/ScheduleLog.h"

#include <algorithm>
#include <iostream>
#include <new>
#include <sstream>

namespace
{
/// How often a slow program looks at most, 10 ms apart.
constexpr int SLOW_POLLS = 2000;

std::vector<CLS_World::ST_Record>* s_pRecords = nullptr;

void NoteRecord(int, const std::string& _strText)
{
    if (s_pRecords != nullptr)
    {
        s_pRecords->push_back({CLS_World::GetTime(), _strText});
    }
}

void RequireTime(const std::string& _strWhat, std::chrono::nanoseconds _nsBegin,
                 std::chrono::nanoseconds _nsMost)
{
    const auto nsTaken = CLS_World::GetTime() - _nsBegin;
    CLS_World::RequireTimely(nsTaken <= _nsMost, _strWhat + " takes " + std::to_string(nsTaken / 1us) +
                                                     " us, more than " + std::to_string(_nsMost / 1us));
}

/// From now on no run of the task begins, and none is going on unless 9 seconds were not enough for it.
void RequireOver(ST_Job& _stJob, std::chrono::nanoseconds _nsBegin)
{
    _stJob.m_bRemoved = true;
    Require(_stJob.m_iBegun == _stJob.m_iEnded || CLS_World::GetTime() - _nsBegin >= CLS_World::ALL_LOOKS,
            _stJob.m_strName + " still runs");
}

void RequireMayBegin(const ST_Job& _stJob)
{
    const auto nsNow = CLS_World::GetTime();
    Require(!_stJob.m_bRemoved, _stJob.m_strName + " begins after its removal has returned");
    CLS_World::RequireTimely(nsNow <= _stJob.m_nsLastBeginning,
                             _stJob.m_strName + " begins during its removal");
    Require(_stJob.m_bMayOverlap || _stJob.m_iBegun == _stJob.m_iEnded,
            _stJob.m_strName + " overlaps itself");
    if (_stJob.m_iInterval < 0)
    {
        Require(_stJob.m_iBegun < _stJob.m_iQueued, _stJob.m_strName + " runs more often than it was queued");
        CLS_World::RequireTimely(!_stJob.m_bAtOnce || nsNow == _stJob.m_nsQueued,
                                 _stJob.m_strName + " begins late");
    }
    else if (_stJob.m_iBegun > 0)
    {
        const auto nsDue = _stJob.m_nsEnded + std::chrono::milliseconds(_stJob.m_iInterval);
        Require(nsNow >= nsDue, _stJob.m_strName + " begins early");
        CLS_World::RequireTimely(!_stJob.m_bInTime || nsNow <= nsDue + 10ms,
                                 _stJob.m_strName + " begins late");
    }
}

void Run(ST_Job& _stJob)
{
    RequireMayBegin(_stJob);
    ++_stJob.m_iBegun;
    _stJob.m_nsBegun = CLS_World::GetTime();
    if (_stJob.m_funWork)
    {
        _stJob.m_funWork();
    }
    if (_stJob.m_nsLength > 0ns)
    {
        std::this_thread::sleep_for(_stJob.m_nsLength);
    }
    _stJob.m_nsEnded = CLS_World::GetTime();
    ++_stJob.m_iEnded;
}
} // namespace

CLS_World::CLS_World()
{
    s_pRecords = new std::vector<ST_Record>;
}

CLS_World::~CLS_World()
{
    delete s_pRecords;
    s_pRecords = nullptr;
}

const std::vector<CLS_World::ST_Record>& CLS_World::GetRecords()
{
    return *s_pRecords;
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
    _stJob.m_nsQueued = GetTime();
    Require(_clsPool.AddTmpTask(MakeCallable(_stJob), _pOwner, _stJob.m_strName), "the pool takes no task");
}

std::string CLS_World::SubmitLoop(CLS_QuenTaskPool& _clsPool, ST_Job& _stJob, int _iInterval)
{
    std::string strTaskId;
    _stJob.m_iInterval = _iInterval;
    _clsPool.AddLoopTask(MakeCallable(_stJob), _iInterval, strTaskId, _stJob.m_strName);
    Require(!strTaskId.empty(), "the pool takes no loop task");
    return strTaskId;
}

void CLS_World::RemoveOwner(CLS_QuenTaskPool& _clsPool, void* _pOwner, const std::vector<ST_Job*>& _vecJobs,
                            std::chrono::nanoseconds _nsMost)
{
    const auto nsBegin = GetTime();
    for (ST_Job* const pJob : _vecJobs)
    {
        pJob->m_nsLastBeginning = nsBegin;
    }
    _clsPool.RemoveTmpTask(_pOwner, "scenario");
    for (ST_Job* const pJob : _vecJobs)
    {
        RequireOver(*pJob, nsBegin);
    }
    RequireTime("the removal by owner", nsBegin, _nsMost);
}

void CLS_World::RemoveLoop(CLS_QuenTaskPool& _clsPool, const std::string& _strTaskId, ST_Job& _stJob,
                           std::chrono::nanoseconds _nsMost)
{
    const auto nsBegin = GetTime();
    _clsPool.RemoveTask(_strTaskId, "scenario");
    RequireOver(_stJob, nsBegin);
    RequireTimely(_stJob.m_bDestroyed, "the callable of " + _stJob.m_strName + " outlives its removal");
    RequireTime("the removal", nsBegin, _nsMost);
}

void CLS_World::Stop(CLS_QuenTaskPool& _clsPool, const std::string& _strTaskId, ST_Job& _stJob,
                     std::chrono::nanoseconds _nsMost)
{
    const auto nsBegin = GetTime();
    _clsPool.StopTask(_strTaskId);
    RequireOver(_stJob, nsBegin);
    RequireTime("the stop", nsBegin, _nsMost);
}

void CLS_World::EndPool(CLS_QuenTaskPool& _clsPool, std::chrono::nanoseconds _nsMost,
                        const std::vector<ST_Job*>& _vecOverrun)
{
    const auto nsBegin = GetTime();
    _clsPool.UnInit();
    Require(CLS_QuenTaskPool::m_pInstance == nullptr, "the pool survives its end");
    for (const auto& pJob : m_vecJobs)
    {
        if (std::find(_vecOverrun.begin(), _vecOverrun.end(), pJob.get()) == _vecOverrun.end())
        {
            RequireOver(*pJob, nsBegin);
        }
        pJob->m_bRemoved = true;
    }
    RequireTime("the end of the pool", nsBegin, _nsMost);
}

void CLS_World::Settle() const
{
    std::this_thread::sleep_for(5ms);
    for (int i = 0; i < SLOW_POLLS && !IsTimely() && !HaveAllRun(); ++i)
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
        Require(pJob->m_iEnded == pJob->m_iQueued, pJob->m_strName + " was queued " +
                                                       std::to_string(pJob->m_iQueued) + " times and ran " +
                                                       std::to_string(pJob->m_iEnded));
    }
}

void CLS_World::RequireNobodyLeft()
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
    s_pRecords = nullptr;
    CLS_QuenTaskPool::m_pInstance = nullptr;
    // The nodes were memory of the last schedule.
    new (&CLS_Task::m_mapTaskData) std::map<std::string, std::shared_ptr<CLS_Task>>;
    CLS_TaskThread::SetWaitingOvertime(300000);
    Names::Forget();
}

void PrepareProcess()
{
    // Binding the logging library prints lines; formatting numbers fills caches of the C++ library.
    std::streambuf* const pBuffer = std::cout.rdbuf(nullptr);
    Logger::GetModuleFun("PrintLog", "");
    std::cout.rdbuf(pBuffer);
    std::cout.clear();
    std::ostringstream stream;
    stream.imbue(std::locale::classic());
    stream << 1 << 1U << 1L << 1UL << 1.5 << true;
    ScheduleLog::SetListener(NoteRecord);
}
