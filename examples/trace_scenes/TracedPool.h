#pragma once

#include "QuenHost/CLS_TraceFile.h"
#include "QuenHost/ST_PoolFunctions.h"

#include <functional>
#include <memory>
#include <string>

/// Calls the pool's bare functions for one-shot tasks, and traces each task.
///
/// The scenes show the pool, to which the host kit does not submit tasks one by one. The events have the
/// categories "submit", "run", "cancel" and "remove", and the call info as their name. The argument "task" is
/// the task's number, with which viewers connect its submission and its run.
///
/// Threads: any. Tasks may outlive this object.
class CLS_TracedPool
{
public:
    CLS_TracedPool(const ST_PoolFunctions& _stFunctions, std::shared_ptr<CLS_TraceFile> _pTrace);

    /// Submits a task like the pool's function. A task that is destroyed without a run counts as cancelled.
    ///
    /// Fails: also std::bad_alloc.
    bool AddTmpTask(const std::function<void()>& _funTask, void* _pObj,
                    const std::string& _strCallInfo) const;

    /// Removes the owner's tasks like the pool's function.
    void RemoveTmpTask(void* _pObj, const std::string& _strCallInfo) const;

private:
    const ST_PoolFunctions m_stFunctions;
    const std::shared_ptr<CLS_TraceFile> m_pTrace;
};
