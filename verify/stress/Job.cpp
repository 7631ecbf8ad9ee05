#include "verify/stress/Job.h"

#include <algorithm>
#include <stdexcept>
#include <thread>

namespace
{
/// Sleeps in steps that are shorter than any scaled sleep.
void Pause(std::chrono::milliseconds _msLength)
{
    constexpr std::chrono::milliseconds STEP{5};
    const auto tpEnd = std::chrono::steady_clock::now() + _msLength;
    for (auto tpNow = std::chrono::steady_clock::now(); tpNow < tpEnd;
         tpNow = std::chrono::steady_clock::now())
    {
        std::this_thread::sleep_for(std::min<std::chrono::nanoseconds>(STEP, tpEnd - tpNow));
    }
}

/// Counts a run from its beginning to its end, also after an exception.
class CLS_CountedRun
{
public:
    CLS_CountedRun(CLS_Model& _clsModel, ST_Entry& _stEntry) : m_clsModel(_clsModel), m_stEntry(_stEntry)
    {
        m_clsModel.BeginRun(m_stEntry);
    }
    ~CLS_CountedRun() { m_clsModel.EndRun(m_stEntry); }
    CLS_CountedRun(const CLS_CountedRun&) = delete;
    CLS_CountedRun& operator=(const CLS_CountedRun&) = delete;

private:
    CLS_Model& m_clsModel;
    ST_Entry& m_stEntry;
};
} // namespace

CLS_Job::CLS_Job(ST_World& _stWorld, const Entry& _pEntry, n_Behaviour _iBehaviour, ST_TaskOwner* _pOwner)
    : m_pWorld(&_stWorld), m_pEntry(_pEntry), m_clsCopy(_pEntry->m_pCopies), m_iBehaviour(_iBehaviour),
      m_pOwner(_pOwner)
{
}

void CLS_Job::operator()() const
{
    const CLS_CountedRun clsRun(m_pWorld->m_clsModel, *m_pEntry);
    Act();
}

void CLS_Job::Act() const
{
    switch (m_iBehaviour)
    {
    case BEHAVIOUR_QUICK:
        return;
    case BEHAVIOUR_PAUSE:
        return Pause(std::chrono::milliseconds(m_pEntry->m_iNumber % 4));
    case BEHAVIOUR_LONG:
        return Pause(std::chrono::milliseconds(30));
    case BEHAVIOUR_OUTLAST:
        return Pause(std::chrono::milliseconds(250));
    case BEHAVIOUR_THROW:
        throw std::runtime_error("thrown on purpose");
    case BEHAVIOUR_SUBMIT:
    case BEHAVIOUR_REMOVE_SELF:
        return CallPool();
    }
}

void CLS_Job::CallPool() const
{
    const std::shared_lock<std::shared_mutex> lock(m_pWorld->m_smPoolUse, std::try_to_lock);
    if (!lock.owns_lock() || m_pWorld->m_bPoolEnding)
    {
        return;
    }
    if (m_iBehaviour == BEHAVIOUR_SUBMIT)
    {
        SubmitTmp(*m_pWorld, *m_pOwner, BEHAVIOUR_QUICK);
    }
    else if (m_pEntry->m_iRuns == 2)
    {
        RemoveSelf();
    }
}

/// The removal waits for this run, and gives up at its limit.
void CLS_Job::RemoveSelf() const
{
    const std::string strTaskId = m_pEntry->GetTaskId();
    if (!strTaskId.empty() && !m_pEntry->m_bDoomed.exchange(true))
    {
        RemoveTask(strTaskId, "by itself");
        m_pEntry->m_bForgotten = true;
        m_pWorld->m_clsModel.NoteEnded(*m_pEntry);
    }
}

void SubmitTmp(ST_World& _stWorld, ST_TaskOwner& _stOwner, n_Behaviour _iBehaviour)
{
    const Entry pEntry = _stWorld.m_clsModel.MakeEntry(KIND_TMP);
    pEntry->m_iQueued = 1;
    {
        const std::lock_guard<std::mutex> lock(_stOwner.m_mtxEntries);
        pEntry->m_bDoomed = _stOwner.m_bRemoving;
        _stOwner.m_vecEntries.push_back(pEntry);
    }
    const CLS_Job clsJob(_stWorld, pEntry, _iBehaviour, &_stOwner);
    if (!AddTmpTask(clsJob, &_stOwner, CLS_Model::MakeCallInfo(*pEntry)))
    {
        _stWorld.m_clsModel.Break("the pool refuses a task", *pEntry);
    }
    _stWorld.m_clsModel.NoteAccepted(*pEntry);
}
