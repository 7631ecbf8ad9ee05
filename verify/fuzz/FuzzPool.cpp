// Runs any sequence of the pool's operations. Long sleeps of the pool take a fraction of their time. Checks
// the rules after each operation and at the end.

#include "QuenPlugins/ZelTaskPool/CLS_QuenTaskPool.h"
#include "tests/support/FastSleep.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/PoolView.h"
#include "tests/support/Waiting.h"
#include "verify/fuzz/FuzzInput.h"
#include "verify/fuzz/PoolModel.h"
#include "verify/rules/PoolRules.h"

#include <algorithm>

namespace
{
constexpr int MOST_STEPS = 60;
constexpr int SLEEP_DIVISOR = 50;
constexpr std::chrono::milliseconds SHORTEST_CUT{10};

/// Sleeps for a fraction of the requested time.
void SleepBriefly(const ST_Sleep& _stSleep)
{
    std::this_thread::sleep_for(std::chrono::microseconds(_stSleep.m_msAsked) / SLEEP_DIVISOR);
}

/// Whether a wait for a run timed out since the last call. That run may still be in progress.
bool TakeOvertime()
{
    const std::vector<LogRecorder::ST_Record> vecRecords = LogRecorder::Take();
    return std::any_of(vecRecords.begin(), vecRecords.end(),
                       [](const LogRecorder::ST_Record& _stRecord)
                       { return _stRecord.m_strMessage.rfind("StopTask overtime", 0) == 0; });
}

std::vector<std::string> GetRegisteredIds()
{
    std::vector<std::string> vecIds;
    const std::shared_lock<std::shared_mutex> lock(CLS_Task::m_smTaskDataLock);
    vecIds.reserve(CLS_Task::m_mapTaskData.size());
    for (const auto& [strTaskId, pTask] : CLS_Task::m_mapTaskData)
    {
        vecIds.push_back(strTaskId);
    }
    return vecIds;
}

void ClearRegistry()
{
    std::map<std::string, std::shared_ptr<CLS_Task>> mapLeft; // destroyed outside the lock
    const std::unique_lock<std::shared_mutex> lock(CLS_Task::m_smTaskDataLock);
    mapLeft.swap(CLS_Task::m_mapTaskData);
}

/// The pool and the model, side by side.
class CLS_Sequence
{
public:
    explicit CLS_Sequence(CLS_FuzzInput& _clsInput) : m_clsInput(_clsInput) {}

    void MakeStep()
    {
        switch (m_clsInput.TakeBelow(16))
        {
        case 0:
        case 1:
        case 2:
            AddTmpTask();
            break;
        case 3:
        case 4:
            AddLoopTask();
            break;
        case 5:
            RemoveOwner();
            break;
        case 6:
            EndTask([](const std::string& _strTaskId) { GetPool().RemoveTask(_strTaskId, "call"); }, true);
            break;
        case 7:
            EndTask([](const std::string& _strTaskId) { GetPool().KillTask(_strTaskId, "call"); }, true);
            break;
        case 8:
            EndTask([](const std::string& _strTaskId) { GetPool().StopTask(_strTaskId); }, false);
            break;
        case 9:
            ForgetOwner();
            break;
        case 10:
            QueueAgain();
            break;
        case 11:
            SetInterval();
            break;
        case 12:
            RetireIdleWorkers();
            break;
        case 13:
            EndPool();
            break;
        case 14:
            WaitForRuns();
            break;
        default:
            AddWithoutOwner();
            break;
        }
    }

    static void RequireOrder() { RequireUnbroken(PoolRules::CheckPool(GetPool())); }

    /// Lets the remaining tasks run, ends the pool, and checks that only the registry keeps callables.
    void End()
    {
        WaitForRuns();
        EndPool();
        RequireCallables("only the registry keeps callables");
        ClearRegistry();
        RequireCallables("no callable is left without the registry");
    }

private:
    static CLS_QuenTaskPool& GetPool() { return *CLS_QuenTaskPool::GetInstance(); }

    n_Deed TakeDeed() { return static_cast<n_Deed>(m_clsInput.TakeBelow(DEED_COUNT)); }

    /// The id of a registered task, of one that may be gone, or of none.
    std::string TakeTaskId()
    {
        const std::size_t iChoice = m_clsInput.TakeBelow(256);
        std::vector<std::string> vecIds = GetRegisteredIds();
        for (const std::string& strLoopId : m_clsModel.GetLoopIds())
        {
            vecIds.push_back(strLoopId);
        }
        vecIds.push_back(m_clsInput.TakeText(4));
        return vecIds[iChoice % vecIds.size()];
    }

    void AddTmpTask()
    {
        const auto pProbe =
            m_clsModel.AddProbe(m_clsInput.TakeBelow(CLS_PoolModel::OWNERS), false, false, TakeDeed());
        Require(GetPool().AddTmpTask(m_clsModel.MakeCallable(pProbe), m_clsModel.GetOwner(pProbe->m_iOwner),
                                     CLS_PoolModel::MakeCallInfo(*pProbe)),
                "the pool accepts a task");
    }

    void AddWithoutOwner()
    {
        const std::size_t iBefore = GetRegisteredIds().size();
        const bool bQuiet = m_clsModel.GetProbes([](const ST_Probe&) { return true; }).empty();
        Require(!GetPool().AddTmpTask([] { Require(false, "a task without an owner never runs"); }, nullptr,
                                      m_clsInput.TakeText(16)),
                "a task without an owner is refused");
        Require(!bQuiet || GetRegisteredIds().size() == iBefore, "a refused task is not registered");
    }

    void AddLoopTask()
    {
        const auto pProbe = m_clsModel.AddProbe(0, true, false, TakeDeed());
        const int iInterval = static_cast<int>(m_clsInput.TakeBelow(5)) - 1;
        std::string strTaskId = m_clsInput.TakeText(4);
        GetPool().AddLoopTask(m_clsModel.MakeCallable(pProbe), iInterval, strTaskId,
                              CLS_PoolModel::MakeCallInfo(*pProbe));
        m_clsModel.AddLoopId(strTaskId);
    }

    void RemoveOwner()
    {
        const std::size_t iOwner = m_clsInput.TakeBelow(CLS_PoolModel::OWNERS);
        const auto funOwned = [iOwner](const ST_Probe& _stProbe)
        { return !_stProbe.m_bLoop && _stProbe.m_iOwner == iOwner && !_stProbe.m_bExcused; };
        const auto vecBefore = m_clsModel.GetProbes(funOwned);
        Excuse(vecBefore);
        TakeOvertime();
        GetPool().RemoveTmpTask(m_clsModel.GetOwner(iOwner), m_clsInput.TakeText(4));
        const bool bOvertime = TakeOvertime();
        for (const auto& pProbe : vecBefore)
        {
            if (!bOvertime && !pProbe->m_bDisowned && !pProbe->m_bByTask)
            {
                // A task that has run no longer has an owner, so it may be requeued.
                Forbid(*pProbe, pProbe->m_iStarted == 0);
            }
        }
        Excuse(m_clsModel.GetProbes(funOwned)); // what these tasks submitted meanwhile
    }

    void ForgetOwner()
    {
        const std::string strTaskId = TakeTaskId();
        if (const std::shared_ptr<ST_Probe> pProbe = m_clsModel.FindProbe(strTaskId))
        {
            pProbe->m_bDisowned = true;
        }
        GetPool().RemoveTmpTask(strTaskId);
    }

    /// Stops a task by _funEnd. With _bForgets, _funEnd must also remove it from the registry.
    void EndTask(const std::function<void(const std::string&)>& _funEnd, bool _bForgets)
    {
        const std::string strTaskId = TakeTaskId();
        const std::shared_ptr<ST_Probe> pProbe = m_clsModel.FindProbe(strTaskId);
        if (pProbe)
        {
            pProbe->m_bExcused = true;
        }
        TakeOvertime();
        _funEnd(strTaskId);
        if (pProbe && !TakeOvertime())
        {
            Forbid(*pProbe, true);
        }
        Require(!_bForgets || !CLS_Task::GetTask(strTaskId).lock(), "a removed task is not registered");
    }

    /// Notes that the task's removal has returned after waiting for its run.
    static void Forbid(ST_Probe& _stProbe, bool _bForGood)
    {
        RequireUnbroken(TaskRules::CheckRemoved(CLS_PoolModel::GetState(_stProbe)));
        _stProbe.m_bForbidden = _bForGood;
    }

    void QueueAgain()
    {
        const std::string strTaskId = TakeTaskId();
        if (const std::shared_ptr<ST_Probe> pProbe = m_clsModel.FindProbe(strTaskId))
        {
            pProbe->m_bRequeued = true;
            ++pProbe->m_iQueued;
        }
        GetPool().AddWaitingTasks(strTaskId);
    }

    void SetInterval()
    {
        const std::string strTaskId = TakeTaskId();
        const int iInterval = static_cast<int>(m_clsInput.TakeBelow(4));
        const std::shared_ptr<CLS_Task> pTask = CLS_Task::GetTask(strTaskId).lock();
        if (pTask && pTask->IsLoop())
        {
            pTask->SetLoopInterval(iInterval);
            Require(pTask->GetLoopInterval() == iInterval, "the interval");
        }
    }

    static void RetireIdleWorkers()
    {
        CLS_TaskThread::SetWaitingOvertime(0);
        PoolView::RunWatchdogPass(GetPool());
        CLS_TaskThread::SetWaitingOvertime(300000);
    }

    void EndPool()
    {
        const CLS_PoolModel::CLS_Rest clsRest(m_clsModel);
        if (m_clsInput.TakeBelow(2) == 0)
        {
            GetPool().UnInit();
        }
        else
        {
            GetPool().KillTaskAll();
        }
        Require(CLS_QuenTaskPool::m_pInstance == nullptr, "no pool exists after its end");
        Excuse(m_clsModel.GetProbes([](const ST_Probe&) { return true; }));
    }

    void WaitForRuns()
    {
        Require(WaitUntil(
                    [this]
                    {
                        return m_clsModel
                            .GetProbes(
                                [](const ST_Probe& _stProbe) {
                                    return !_stProbe.m_bExcused &&
                                           !TaskRules::HasRun(CLS_PoolModel::GetState(_stProbe));
                                })
                            .empty();
                    }),
                "every task that is not removed runs as often as it is queued");
    }

    /// Waits until there is one callable for each registered task. An abandoned worker keeps one until its
    /// run ends.
    static void RequireCallables(const char* _szWhat)
    {
        Require(
            WaitUntil(
                []
                { return CLS_PoolModel::GetLiveCallables() == static_cast<int>(GetRegisteredIds().size()); }),
            _szWhat);
    }

    static void Excuse(const std::vector<std::shared_ptr<ST_Probe>>& _vecProbes)
    {
        for (const std::shared_ptr<ST_Probe>& pProbe : _vecProbes)
        {
            pProbe->m_bExcused = true;
        }
    }

    CLS_FuzzInput& m_clsInput;
    CLS_PoolModel m_clsModel;
};
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* _pData, std::size_t _iSize)
{
    const CLS_FastSleep clsFastSleep(SleepBriefly, SHORTEST_CUT);
    CLS_FuzzInput clsInput(_pData, _iSize);
    CLS_Sequence clsSequence(clsInput);
    for (int iStep = 0; iStep < MOST_STEPS && !clsInput.IsAtEnd(); ++iStep)
    {
        clsSequence.MakeStep();
        CLS_Sequence::RequireOrder();
    }
    clsSequence.End();
    LogRecorder::Clear();
    return 0;
}
