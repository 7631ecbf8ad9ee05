#pragma once

#include "QuenHost/CLS_TraceFile.h"
#include "QuenHost/Core/CLS_QueuedTask.h"
#include "QuenHost/PoolCall.h"

#include <memory>
#include <optional>
#include <string>
#include <utility>

/// Tasks that were removed before they ran.
///
/// Threads: one at a time.
///
/// Owns: the tasks. The destructor destroys them on its thread, in the order of submission.
class CLS_RemovedTasks
{
public:
    explicit CLS_RemovedTasks(std::shared_ptr<CLS_TraceFile> _pTrace) : m_pTrace(std::move(_pTrace)) {}
    ~CLS_RemovedTasks()
    {
        while (const std::unique_ptr<CLS_QueuedTask> pTask{m_chnTasks.TakeFirst()})
        {
            const auto funTrace = [&]
            {
                m_pTrace->Add('i', "cancel", pTask->m_strCallInfo,
                              R"(,"s":"t","args":{"task":)" + std::to_string(pTask->m_uiNumber) + "}");
            };
            if (m_pTrace)
            {
                PoolCall::Catch(funTrace); // without memory, the event is left out
            }
        }
    }

    CLS_RemovedTasks(const CLS_RemovedTasks&) = delete;
    CLS_RemovedTasks& operator=(const CLS_RemovedTasks&) = delete;

    /// Takes a task over. Allocates nothing.
    void Add(CLS_QueuedTask& _clsTask) { m_chnTasks.Append(_clsTask); }

private:
    const std::shared_ptr<CLS_TraceFile> m_pTrace; ///< null for none
    CLS_Chain<CLS_QueuedTask, &CLS_QueuedTask::m_stGroupLink> m_chnTasks;
};

/// What a removal without a wait leaves to the runs and to a worker. They share it.
struct ST_Leftover
{
    std::shared_ptr<const void> m_pKept;             ///< what the runs use
    std::unique_ptr<CLS_QueuedTask> m_pLoopCallable; ///< destroyed by the worker
    std::optional<CLS_RemovedTasks> m_clsRemoved;    ///< destroyed by the worker
};
