// Submission, stopping and removal of tasks.

#include "QuenPlugins/ZelTaskPool/CLS_QuenTaskPool.h"
#include "QuenPlugins/ZelTaskPool/TaskPoolRecord.h"

#include <stdexcept>

using TaskPoolRecord::FILE_POOL;

namespace
{
/// The interval of a task that runs once.
constexpr int ONE_SHOT = -1;

/// How often a removal by owner looks for tasks that were submitted meanwhile, and how long it waits for all
/// of them. Bounded, because a task may submit others forever.
constexpr int LATE_ROUNDS = 29;
constexpr std::chrono::milliseconds LATE_LIMIT = CLS_Task::STOP_POLL * CLS_Task::STOP_POLLS;

/// Only Stop bounds the wait for a task.
constexpr auto NO_LIMIT = std::chrono::steady_clock::time_point::max();

/// How often, and how many times in all, a removal polls whether it holds the last reference to a task. In
/// all this is as long as one sleep of Stop, which another thread may be in.
constexpr std::chrono::milliseconds REFERENCE_POLL{1};
constexpr int REFERENCE_POLLS = 300;

/// Makes the tasks invalid, so that none of them starts from now on.
void InvalidateTasks(const std::list<std::string>& _lstTaskIds)
{
    for (const std::string& strTaskId : _lstTaskIds)
    {
        if (const std::shared_ptr<CLS_Task> pTask = CLS_Task::GetTask(strTaskId).lock())
        {
            pTask->SetValid(false);
        }
    }
}

/// Waits until the caller's reference is the last one. A worker lets go of a task a moment after its run, and
/// a service thread may be looking at it. False when _iPollsLeft, from which the sleeps are taken, reaches
/// zero first.
bool WaitForLastReference(const std::shared_ptr<CLS_Task>& _pTask, int& _iPollsLeft)
{
    while (_pTask.use_count() > 1)
    {
        if (_iPollsLeft == 0)
        {
            return false;
        }
        --_iPollsLeft;
        std::this_thread::sleep_for(REFERENCE_POLL);
    }
    // The count is read relaxed. Releasing one more reference orders what other threads did before they
    // released theirs before what the caller does next.
    std::shared_ptr<CLS_Task>(_pTask).reset();
    return true;
}

/// Stops a task, until _tpLimit at most, and takes it out of the registry.
///
/// _pTask, null for an unknown id, keeps the task alive meanwhile. The captured objects may call the pool or
/// shut it down when they are destroyed, and must not do so under the registry's lock.
void StopAndDelete(const std::shared_ptr<CLS_Task>& _pTask, const std::string& _strTaskId,
                   std::chrono::steady_clock::time_point _tpLimit, int& _iPollsLeft)
{
    const bool bStopped = _pTask && _pTask->StopUntil(_tpLimit);
    CLS_Task::DeleteTask(_strTaskId);
    if (bStopped && WaitForLastReference(_pTask, _iPollsLeft))
    {
        // A worker or the loop scheduler may still get a strong reference and release it last. So the
        // captured objects are destroyed here and now.
        _pTask->TakeCallable();
    }
}

/// Stops and deletes tasks, front to back. All are made invalid first: none may start while an earlier one
/// still runs, because their owner may be half destroyed.
void RemoveTasks(const std::list<std::string>& _lstTaskIds, std::chrono::steady_clock::time_point _tpLimit,
                 int& _iPollsLeft)
{
    InvalidateTasks(_lstTaskIds);
    for (const std::string& strTaskId : _lstTaskIds)
    {
        const std::shared_ptr<CLS_Task> pTask = CLS_Task::GetTask(strTaskId).lock();
        StopAndDelete(pTask, strTaskId, _tpLimit, _iPollsLeft);
    }
}
} // namespace

std::shared_ptr<CLS_Task> CLS_QuenTaskPool::MakeTask(const std::function<void()>& _funTask, int _iInterval,
                                                     const std::string& _strCallInfo, std::string& _strTaskId)
{
    // Copying the callable calls the host, which may shut the pool down. Nothing may be queued on a pool that
    // is gone, and no member may be touched before this is known. A second pool that a racing first
    // call built takes tasks, too.
    const bool bInstance = LoadInstance() == this;
    std::shared_ptr<CLS_Task> pTask =
        CLS_Task::CreatePoolTask(_funTask, _iInterval, _strCallInfo, _strTaskId);
    if (bInstance && LoadInstance() != this)
    {
        CLS_Task::DeleteTask(_strTaskId);
        throw std::runtime_error("the pool has ended");
    }
    return pTask;
}

bool CLS_QuenTaskPool::AddTmpTask(const std::function<void()>& _funTask, void* _pObj,
                                  const std::string& _strCallInfo)
{
    if (_pObj == nullptr)
    {
        TaskPoolRecord::Make(FILE_POOL, "AddTmpTask", Logger::LOG_LEVEL_ERROR)
            << "AddTmpTask error, nullptr == _pObj [" << _strCallInfo << "]";
        return false;
    }
    try
    {
        std::string strTaskId;
        QueueTask(MakeTask(_funTask, ONE_SHOT, _strCallInfo, strTaskId), strTaskId);
        // The task may have run by now. Its owner is noted in any case.
        AddOwnedTask(std::move(strTaskId), _pObj);
        return true;
    }
    catch (...)
    {
        TaskPoolRecord::Make(FILE_POOL, "AddTmpTask", Logger::LOG_LEVEL_ERROR)
            << "AddTmpTask error [" << _strCallInfo << "]";
        return false;
    }
}

void CLS_QuenTaskPool::AddLoopTask(const std::function<void()>& _funTask, int _iInterval,
                                   std::string& _strTaskId, const std::string& _strCallInfo)
{
    try
    {
        std::string strTaskId;
        const std::shared_ptr<CLS_Task> pTask = MakeTask(_funTask, _iInterval, _strCallInfo, strTaskId);
        _strTaskId = strTaskId;
        // From here on the task may run, and change the caller's text.
        QueueTask(pTask, strTaskId);
        ListLoopTask(strTaskId);
        if (pTask->IsRemoved())
        {
            // By its own run, for example. That removal looked at the list before the id was on it.
            ForgetLoopTask(strTaskId);
        }
    }
    catch (...)
    {
        TaskPoolRecord::Make(FILE_POOL, "AddLoopTask", Logger::LOG_LEVEL_ERROR)
            << "AddLoopTask error [" << _strCallInfo << "]";
    }
}

void CLS_QuenTaskPool::StopTask(const std::string& _strTaskId)
{
    if (const std::shared_ptr<CLS_Task> pTask = CLS_Task::GetTask(_strTaskId).lock())
    {
        pTask->Stop();
    }
}

void CLS_QuenTaskPool::RemoveTmpTask(void* _pObj, const std::string& _strCallInfo)
{
    try
    {
        const std::list<std::string> lstTaskIds = TakeOwnedTasks(_pObj);
        if (!lstTaskIds.empty())
        {
            int iPollsLeft = REFERENCE_POLLS;
            RemoveTasks(lstTaskIds, NO_LIMIT, iPollsLeft);
            RemoveLateTasks(_pObj, iPollsLeft);
        }
    }
    catch (...)
    {
        TaskPoolRecord::Make(FILE_POOL, "RemoveTmpTask", Logger::LOG_LEVEL_ERROR)
            << "RemoveTmpTask error [" << _strCallInfo << "]";
    }
}

void CLS_QuenTaskPool::RemoveLateTasks(void* _pObj, int& _iPollsLeft)
{
    const auto tpLimit = std::chrono::steady_clock::now() + LATE_LIMIT;
    // Captured objects may have shut the pool down: members are touched only while this is the pool.
    for (int i = 0; i < LATE_ROUNDS && LoadInstance() == this; ++i)
    {
        const std::list<std::string> lstTaskIds = TakeOwnedTasks(_pObj);
        if (lstTaskIds.empty())
        {
            return;
        }
        RemoveTasks(lstTaskIds, tpLimit, _iPollsLeft);
    }
}

void CLS_QuenTaskPool::RemoveTask(const std::string& _strTaskId, const std::string& _strCallInfo)
{
    try
    {
        int iPollsLeft = REFERENCE_POLLS;
        const std::shared_ptr<CLS_Task> pTask = CLS_Task::GetTask(_strTaskId).lock();
        if (pTask)
        {
            pTask->SetRemoved();
        }
        ForgetLoopTask(_strTaskId);
        StopAndDelete(pTask, _strTaskId, NO_LIMIT, iPollsLeft);
    }
    catch (...)
    {
        TaskPoolRecord::Make(FILE_POOL, "RemoveTask", Logger::LOG_LEVEL_ERROR)
            << "RemoveTask error [" << _strCallInfo << "]";
    }
}

void CLS_QuenTaskPool::KillTask(const std::string& _strTaskId, const std::string& _strCallInfo)
{
    RemoveTask(_strTaskId, _strCallInfo);
}
