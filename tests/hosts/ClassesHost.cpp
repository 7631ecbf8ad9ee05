// Uses the pool through its classes:  zel_classes_host
// The library is linked. Texts, the map of the task registry, callables and exceptions cross its boundary.

#include "QuenPlugins/ZelTaskPool/CLS_QuenTaskPool.h"
#include "QuenPlugins/ZelTaskPool/CLS_Task.h"
#include "tests/support/Waiting.h"

#include <iostream>
#include <mutex>
#include <shared_mutex>
#include <stdexcept>

namespace
{
constexpr int MOST_WORKERS = 301;

void Tell(const std::string& _strWhat, bool _bHolds)
{
    std::cout << _strWhat << ": " << (_bHolds ? "yes" : "no") << std::endl;
}

/// Whether the library's map has the task under the id that the library returned.
bool IsRegistered(const std::string& _strTaskId)
{
    const std::shared_lock<std::shared_mutex> lock(CLS_Task::m_smTaskDataLock);
    const auto itTask = CLS_Task::m_mapTaskData.find(_strTaskId);
    return itTask != CLS_Task::m_mapTaskData.end() && itTask->second->IsLoop();
}

void UseRegistry(CLS_QuenTaskPool& _clsPool)
{
    CLS_Counter clsRuns;
    std::string strTaskId;
    _clsPool.AddLoopTask(
        [&]
        {
            clsRuns.Add();
            throw std::out_of_range("left the task");
        },
        1, strTaskId, "throwing loop");
    Tell("loop goes on although it throws", clsRuns.Wait(3));
    Tell("loop in the registry", IsRegistered(strTaskId));
    _clsPool.RemoveTask(strTaskId, "throwing loop");
    Tell("loop gone from the registry", !IsRegistered(strTaskId));
}

void UseEveryWorker(CLS_QuenTaskPool& _clsPool)
{
    CLS_Counter clsStarted;
    CLS_Counter clsEnded;
    CLS_Gate clsMayEnd;
    for (int i = 0; i < MOST_WORKERS + 50; ++i)
    {
        _clsPool.AddTmpTask(
            [&]
            {
                clsStarted.Add();
                if (clsMayEnd.Wait())
                {
                    clsEnded.Add();
                }
            },
            &clsStarted, "waiting");
    }
    Tell("301 tasks at once", clsStarted.Wait(MOST_WORKERS));
    Tell("301 workers", _clsPool.GetTaskThreadNum() == MOST_WORKERS);
    clsMayEnd.Open();
    Tell("the rest after them", clsEnded.Wait(MOST_WORKERS + 50));
    _clsPool.RemoveTmpTask(&clsStarted, "waiting");
}

void UsePool()
{
    CLS_QuenTaskPool& clsPool = *CLS_QuenTaskPool::GetInstance();
    UseRegistry(clsPool);
    UseEveryWorker(clsPool);
    clsPool.UnInit();
    Tell("pool ended", CLS_QuenTaskPool::m_pInstance == nullptr);
}
} // namespace

int main()
{
    UsePool();
    std::cout << "again" << std::endl;
    UsePool();
    return 0;
}
