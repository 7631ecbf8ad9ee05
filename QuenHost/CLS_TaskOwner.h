#pragma once

#include "QuenHost/PoolCall.h"
#include "QuenHost/ST_PoolFunctions.h"

#include <functional>
#include <string>
#include <utility>

/// Owns the one-shot tasks that are submitted through it, and removes them when it is destroyed.
///
/// As a member it comes last, so that it goes first: its tasks are gone before the members that they use. It
/// must go before the pool's end, and before the library is unloaded.
///
/// Submitting is safe from any thread, from within tasks, too. Neither copied nor moved: the pool knows it by
/// its address.
class CLS_TaskOwner
{
public:
    /// _strName says whose tasks are removed, in the pool's records.
    CLS_TaskOwner(const ST_PoolFunctions& _stFunctions, std::string _strName)
        : m_stFunctions(_stFunctions), m_strName(std::move(_strName))
    {
    }

    /// The same as RemoveTasks. Not from one of the owner's tasks, which would wait for itself.
    ~CLS_TaskOwner()
    {
        PoolCall::Guard([this] { RemoveTasks(); });
    }

    CLS_TaskOwner(const CLS_TaskOwner&) = delete;
    CLS_TaskOwner& operator=(const CLS_TaskOwner&) = delete;

    /// Queues _funTask, copied, to run once in the background; it may run before the call returns.
    /// _strCallInfo says, in records, what it is. False, with a record of the pool's, when it could not be
    /// queued, usually because memory ran out; it may still run once when that was after the queueing, and no
    /// removal waits for it then. Waits for no task. What the callable captured lives for as
    /// long as the pool keeps the task, which is until the library is gone unless the task is removed before
    /// it has run.
    [[nodiscard]] bool Submit(const std::function<void()>& _funTask, const std::string& _strCallInfo)
    {
        return m_stFunctions.m_funAddTmpTask(_funTask, this, _strCallInfo);
    }

    /// Cancels what has not started, and waits, up to about 9 seconds a task, for what is running. What the
    /// removed callables captured is destroyed on this thread. The owner can go on submitting afterwards.
    void RemoveTasks() { m_stFunctions.m_funRemoveTmpTask(this, m_strName); }

private:
    ST_PoolFunctions m_stFunctions;
    std::string m_strName;
};
