#include "verify/stress/Operations.h"

#include "QuenHost/TaskSweep.h"
#include "tests/support/Waiting.h"

namespace
{
constexpr std::size_t MOST_LOOPS = 40;
constexpr std::size_t MOST_HELD = 40;
} // namespace

void CLS_Operations::DoOne()
{
    struct ST_WeightedOperation
    {
        std::uint64_t m_uiWeight;
        void (CLS_Operations::*m_pOperation)();
    };
    // The weights add up to 10000.
    static constexpr std::array<ST_WeightedOperation, 14> CHOICES{{{5199, &CLS_Operations::AddTmp},
                                                                   {100, &CLS_Operations::AddWithoutOwner},
                                                                   {700, &CLS_Operations::RemoveOwner},
                                                                   {1000, &CLS_Operations::AddAndRemove},
                                                                   {300, &CLS_Operations::AddLoop},
                                                                   {100, &CLS_Operations::StopLoop},
                                                                   {300, &CLS_Operations::RemoveLoop},
                                                                   {400, &CLS_Operations::AddHeld},
                                                                   {800, &CLS_Operations::QueueHeld},
                                                                   {300, &CLS_Operations::RemoveHeld},
                                                                   {200, &CLS_Operations::SetThreshold},
                                                                   {500, &CLS_Operations::CountWorkers},
                                                                   {100, &CLS_Operations::Sweep},
                                                                   {1, &CLS_Operations::FillPool}}};
    std::uint64_t uiDrawn = Draw(10000);
    for (const ST_WeightedOperation& stChoice : CHOICES)
    {
        if (uiDrawn < stChoice.m_uiWeight)
        {
            (this->*stChoice.m_pOperation)();
            break;
        }
        uiDrawn -= stChoice.m_uiWeight;
    }
    ++m_stWorld.m_clsModel.m_stCounts.m_iOperations;
}

n_Behaviour CLS_Operations::DrawBehaviour()
{
    const std::uint64_t uiDrawn = Draw(1000);
    return uiDrawn < 600   ? BEHAVIOUR_QUICK
           : uiDrawn < 850 ? BEHAVIOUR_PAUSE
           : uiDrawn < 900 ? BEHAVIOUR_LONG
           : uiDrawn < 905 ? BEHAVIOUR_OUTLAST
           : uiDrawn < 950 ? BEHAVIOUR_THROW
                           : BEHAVIOUR_SUBMIT;
}

void CLS_Operations::AddTmp()
{
    ST_TaskOwner& stOwner = m_stWorld.m_arrOwners[Draw(ST_World::OWNERS)];
    SubmitTmp(m_stWorld, stOwner, DrawBehaviour());
}

void CLS_Operations::AddWithoutOwner()
{
    if (AddTmpTask([] {}, nullptr, "nobody"))
    {
        m_stWorld.m_clsModel.Break("the pool accepts a task without an owner");
    }
}

void CLS_Operations::RemoveOwner()
{
    RemoveTasksOf(m_stWorld.m_arrOwners[Draw(ST_World::OWNERS)]);
}

/// Removes a task at about the time when a worker takes it.
void CLS_Operations::AddAndRemove()
{
    ST_TaskOwner& stOwner = m_stWorld.m_arrOwners[Draw(ST_World::OWNERS)];
    const std::chrono::microseconds usDelay(Draw(60));
    SubmitTmp(m_stWorld, stOwner, BEHAVIOUR_QUICK);
    const auto tpEnd = std::chrono::steady_clock::now() + usDelay;
    while (std::chrono::steady_clock::now() < tpEnd)
    {
    }
    RemoveTasksOf(stOwner);
}

void CLS_Operations::RemoveTasksOf(ST_TaskOwner& _stOwner)
{
    const std::unique_lock<std::mutex> lockRemoval(_stOwner.m_mtxRemoval, std::try_to_lock);
    if (!lockRemoval.owns_lock())
    {
        return;
    }
    std::vector<Entry> vecBound; // must be over when the removal returns
    {
        const std::lock_guard<std::mutex> lock(_stOwner.m_mtxEntries);
        _stOwner.m_bRemoving = true;
        for (const Entry& pEntry : _stOwner.m_vecEntries)
        {
            pEntry->m_bDoomed = true;
            if (pEntry->m_bAccepted)
            {
                vecBound.push_back(pEntry);
            }
        }
        _stOwner.m_vecEntries.clear();
    }
    RemoveTmpTask(&_stOwner, "stress");
    for (const Entry& pEntry : vecBound)
    {
        m_stWorld.m_clsModel.NoteEnded(*pEntry);
    }
    const std::lock_guard<std::mutex> lock(_stOwner.m_mtxEntries);
    _stOwner.m_bRemoving = false;
}

void CLS_Operations::AddLoop()
{
    const auto iInterval = static_cast<int>(Draw(20));
    n_Behaviour iBehaviour = DrawBehaviour();
    if (m_stWorld.m_clsLoops.GetSize() >= MOST_LOOPS)
    {
        return;
    }
    if (iBehaviour == BEHAVIOUR_SUBMIT)
    {
        iBehaviour = BEHAVIOUR_REMOVE_SELF;
    }
    const Entry pEntry = m_stWorld.m_clsModel.MakeEntry(KIND_LOOP, iInterval);
    std::string strTaskId = "left over";
    AddLoopTask(CLS_Job(m_stWorld, pEntry, iBehaviour), iInterval, strTaskId,
                CLS_Model::MakeCallInfo(*pEntry));
    pEntry->SetTaskId(strTaskId);
    m_stWorld.m_clsModel.NoteAccepted(*pEntry);
    m_stWorld.m_clsLoops.Add(pEntry);
}

void CLS_Operations::StopLoop()
{
    if (const Entry pEntry = m_stWorld.m_clsLoops.Pick(Draw(1000), false))
    {
        pEntry->m_bDoomed = true;
        CLS_QuenTaskPool::GetInstance()->StopTask(pEntry->GetTaskId());
        m_stWorld.m_clsModel.NoteEnded(*pEntry);
    }
}

void CLS_Operations::RemoveLoop()
{
    const bool bKill = Draw(2) == 0;
    if (const Entry pEntry = m_stWorld.m_clsLoops.Pick(Draw(1000), true))
    {
        pEntry->m_bDoomed = true;
        (bKill ? KillTask : RemoveTask)(pEntry->GetTaskId(), "stress");
        pEntry->m_bForgotten = true;
        m_stWorld.m_clsModel.NoteEnded(*pEntry);
    }
}

void CLS_Operations::AddHeld()
{
    const n_Behaviour iBehaviour = DrawBehaviour();
    if (m_stWorld.m_clsHelds.GetSize() >= MOST_HELD)
    {
        return;
    }
    const auto pHeld = std::make_shared<ST_Held>();
    pHeld->m_pEntry = m_stWorld.m_clsModel.MakeEntry(KIND_HELD);
    const CLS_Job clsJob(m_stWorld, pHeld->m_pEntry,
                         iBehaviour == BEHAVIOUR_SUBMIT ? BEHAVIOUR_QUICK : iBehaviour);
    pHeld->m_pTask = CLS_Task::CreateTask(clsJob, -1, CLS_Model::MakeCallInfo(*pHeld->m_pEntry));
    pHeld->m_pEntry->SetTaskId(pHeld->m_pTask->GetId());
    m_stWorld.m_clsModel.NoteAccepted(*pHeld->m_pEntry);
    m_stWorld.m_clsHelds.Add(pHeld);
}

/// Queues a task that the host holds, unless it is still queued or running.
void CLS_Operations::QueueHeld()
{
    if (const auto pHeld = m_stWorld.m_clsHelds.Pick(Draw(1000), false))
    {
        const std::lock_guard<std::mutex> lock(pHeld->m_mtxTask);
        if (pHeld->m_pTask && !pHeld->m_pTask->IsRunning())
        {
            ++pHeld->m_pEntry->m_iQueued;
            CLS_QuenTaskPool::GetInstance()->AddWaitingTasks(pHeld->m_pEntry->GetTaskId());
        }
    }
}

void CLS_Operations::RemoveHeld()
{
    if (const auto pHeld = m_stWorld.m_clsHelds.Pick(Draw(1000), true))
    {
        const std::lock_guard<std::mutex> lock(pHeld->m_mtxTask);
        ST_Entry& stEntry = *pHeld->m_pEntry;
        stEntry.m_bDoomed = true;
        pHeld->m_pTask.reset();
        RemoveTask(stEntry.GetTaskId(), "stress");
        stEntry.m_bForgotten = true;
        m_stWorld.m_clsModel.NoteEnded(stEntry);
    }
}

/// Lets the watchdog retire workers that have been idle for a few milliseconds, or none.
void CLS_Operations::SetThreshold()
{
    constexpr std::array<int, 5> THRESHOLDS{0, 1, 5, 20, 300000};
    CLS_TaskThread::SetWaitingOvertime(THRESHOLDS[Draw(THRESHOLDS.size())]);
}

void CLS_Operations::CountWorkers()
{
    m_stWorld.m_clsModel.NoteWorkers(CLS_QuenTaskPool::GetInstance()->GetTaskThreadNum());
}

void CLS_Operations::Sweep()
{
    TaskSweep::DeleteFinished();
}

/// Submits more tasks than there can be workers. Each task waits until the pool reaches its worker limit.
void CLS_Operations::FillPool()
{
    const auto pFull = std::make_shared<CLS_Gate>();
    ST_TaskOwner stOwner;
    for (int i = 0; i < CLS_Model::MOST_WORKERS + 9; ++i)
    {
        if (!AddTmpTask([pFull] { (void)pFull->Wait(); }, &stOwner, "stress 0"))
        {
            m_stWorld.m_clsModel.Break("the pool refuses a task");
        }
    }
    const auto funFull = [this]
    {
        CountWorkers();
        return CLS_QuenTaskPool::GetInstance()->GetTaskThreadNum() >= CLS_Model::MOST_WORKERS;
    };
    if (!WaitUntil(funFull))
    {
        m_stWorld.m_clsModel.Break("the pool does not reach its worker limit");
    }
    // Gives the dispatcher time to create one worker too many.
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    CountWorkers();
    pFull->Open();
    RemoveTmpTask(&stOwner, "stress");
}
