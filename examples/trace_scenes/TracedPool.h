#pragma once

#include "QuenHost/CLS_TraceFile.h"
#include "QuenHost/ST_PoolFunctions.h"

#include <functional>
#include <memory>
#include <string>

/// The pool's bare functions for one-shot tasks, which also write into a trace what becomes of each task:
/// categories "submit", "run", "cancel" and "remove". The host kit's owners do not give their tasks to the
/// pool one by one, and these scenes show the pool. An event is named as the
/// pool's records name the task. The events of a one-shot task share a number, "task" among their arguments,
/// by which viewers join its submission and its run.
///
/// Safe on any thread. What it adds to the pool may outlive it.
class CLS_TracedPool
{
public:
    CLS_TracedPool(const ST_PoolFunctions& _stFunctions, std::shared_ptr<CLS_TraceFile> _pTrace);

    /// As the pool's, but throws std::bad_alloc. A task that is destroyed without having run, be it that the
    /// pool did not take it, counts as cancelled at that moment.
    bool AddTmpTask(const std::function<void()>& _funTask, void* _pObj,
                    const std::string& _strCallInfo) const;

    /// As the pool's.
    void RemoveTmpTask(void* _pObj, const std::string& _strCallInfo) const;

private:
    const ST_PoolFunctions m_stFunctions;
    const std::shared_ptr<CLS_TraceFile> m_pTrace;
};
