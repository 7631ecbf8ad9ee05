#include "verify/fuzz/PoolModel.h"

#include "QuenPlugins/ZelTaskPool/CLS_QuenTaskPool.h"
#include "verify/fuzz/FuzzInput.h"

#include <stdexcept>
#include <thread>

namespace
{
std::atomic<int> g_iLiveCallables{0};
constexpr std::chrono::microseconds SLEEP{300};
} // namespace

/// Counts its copies.
class CLS_PoolModel::CLS_Callable
{
public:
    CLS_Callable(CLS_PoolModel& _clsModel, const std::shared_ptr<ST_Probe>& _pProbe)
        : m_clsModel(_clsModel), m_pProbe(_pProbe)
    {
        ++g_iLiveCallables;
    }
    CLS_Callable(const CLS_Callable& _clsOther)
        : m_clsModel(_clsOther.m_clsModel), m_pProbe(_clsOther.m_pProbe)
    {
        ++g_iLiveCallables;
    }
    ~CLS_Callable() { --g_iLiveCallables; }
    CLS_Callable& operator=(const CLS_Callable&) = delete;

    void operator()() const { m_clsModel.Run(*m_pProbe); }

private:
    CLS_PoolModel& m_clsModel;
    const std::shared_ptr<ST_Probe> m_pProbe;
};

std::shared_ptr<ST_Probe> CLS_PoolModel::AddProbe(std::size_t _iOwner, bool _bLoop, bool _bByTask,
                                                  n_Deed _iDeed)
{
    const std::lock_guard<std::mutex> lock(m_mtxProbes);
    m_vecProbes.push_back(
        std::shared_ptr<ST_Probe>(new ST_Probe{m_vecProbes.size(), _iOwner, _bLoop, _bByTask, _iDeed}));
    return m_vecProbes.back();
}

std::string CLS_PoolModel::MakeCallInfo(const ST_Probe& _stProbe)
{
    return std::to_string(_stProbe.m_iNumber);
}

std::function<void()> CLS_PoolModel::MakeCallable(const std::shared_ptr<ST_Probe>& _pProbe)
{
    return CLS_Callable(*this, _pProbe);
}

std::shared_ptr<ST_Probe> CLS_PoolModel::FindProbe(const std::string& _strTaskId)
{
    const std::shared_ptr<CLS_Task> pTask = CLS_Task::GetTask(_strTaskId).lock();
    if (!pTask)
    {
        return nullptr;
    }
    const std::size_t iNumber = std::stoul(pTask->Param("callinfo").ToString());
    const std::lock_guard<std::mutex> lock(m_mtxProbes);
    return m_vecProbes.at(iNumber);
}

void CLS_PoolModel::AddLoopId(const std::string& _strTaskId)
{
    const std::lock_guard<std::mutex> lock(m_mtxProbes);
    m_vecLoopIds.push_back(_strTaskId);
}

std::vector<std::string> CLS_PoolModel::GetLoopIds()
{
    const std::lock_guard<std::mutex> lock(m_mtxProbes);
    return m_vecLoopIds;
}

std::vector<std::shared_ptr<ST_Probe>>
CLS_PoolModel::GetProbes(const std::function<bool(const ST_Probe&)>& _funWanted)
{
    std::vector<std::shared_ptr<ST_Probe>> vecWanted;
    const std::lock_guard<std::mutex> lock(m_mtxProbes);
    for (const std::shared_ptr<ST_Probe>& pProbe : m_vecProbes)
    {
        if (_funWanted(*pProbe))
        {
            vecWanted.push_back(pProbe);
        }
    }
    return vecWanted;
}

TaskRules::ST_TaskState CLS_PoolModel::GetState(const ST_Probe& _stProbe)
{
    TaskRules::ST_TaskState stTask;
    stTask.m_bLoop = _stProbe.m_bLoop;
    stTask.m_iQueued = _stProbe.m_iQueued;
    stTask.m_iBegun = _stProbe.m_iStarted;
    stTask.m_iRunning = _stProbe.m_iRunning;
    stTask.m_bRemoved = _stProbe.m_bForbidden;
    stTask.m_bOverran = _stProbe.m_bRequeued;
    stTask.m_bMayOverlap = _stProbe.m_bRequeued;
    return stTask;
}

int CLS_PoolModel::GetLiveCallables()
{
    return g_iLiveCallables;
}

void CLS_PoolModel::Run(ST_Probe& _stProbe)
{
    const int iBegun = _stProbe.m_iStarted++;
    const int iRunning = _stProbe.m_iRunning++;
    TaskRules::ST_TaskState stTask = GetState(_stProbe);
    stTask.m_iBegun = iBegun;
    stTask.m_iRunning = iRunning;
    RequireUnbroken(TaskRules::CheckBegin(stTask, {}));
    // Also after an exception.
    const std::shared_ptr<void> pEnd(nullptr, [&_stProbe](void*) { --_stProbe.m_iRunning; });
    DoDeed(_stProbe);
}

void CLS_PoolModel::DoDeed(const ST_Probe& _stProbe)
{
    switch (_stProbe.m_iDeed)
    {
    case DEED_THROW:
        throw std::runtime_error("deed");
    case DEED_THROW_INTEGER:
        throw 1;
    case DEED_SLEEP:
        std::this_thread::sleep_for(SLEEP);
        break;
    case DEED_SUBMIT:
        SubmitTask(_stProbe);
        break;
    case DEED_KILL_LOOP:
        KillLoopTask(_stProbe);
        break;
    default:
        break;
    }
}

/// The first run submits a task for the same owner.
void CLS_PoolModel::SubmitTask(const ST_Probe& _stProbe)
{
    if (_stProbe.m_iStarted == 1 && !m_bRest)
    {
        const auto pProbe = AddProbe(_stProbe.m_iOwner, false, true, DEED_NOTHING);
        CLS_QuenTaskPool::GetInstance()->AddTmpTask(MakeCallable(pProbe), GetOwner(_stProbe.m_iOwner),
                                                    MakeCallInfo(*pProbe));
    }
}

/// The first run kills a loop task, perhaps its own.
void CLS_PoolModel::KillLoopTask(const ST_Probe& _stProbe)
{
    const std::vector<std::string> vecLoopIds = GetLoopIds();
    if (_stProbe.m_iStarted != 1 || m_bRest || vecLoopIds.empty())
    {
        return;
    }
    const std::string& strTaskId = vecLoopIds[_stProbe.m_iNumber % vecLoopIds.size()];
    if (const std::shared_ptr<ST_Probe> pKilled = FindProbe(strTaskId))
    {
        pKilled->m_bExcused = true;
    }
    CLS_QuenTaskPool::GetInstance()->KillTask(strTaskId, "call");
}
