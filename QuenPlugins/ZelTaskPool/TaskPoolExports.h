#pragma once

#include "QuenPlugins/ZelTaskPool/Export.h"

#include <functional>
#include <string>

/// \file
/// The pool's functions with plain names, for hosts that load the library as a plug-in.
///
/// A host that links nothing includes this header only for the types, and looks the names up:
///
///     auto pAddTmpTask = reinterpret_cast<decltype(&AddTmpTask)>(dlsym(pLibrary, "AddTmpTask"));
///
/// Host and library must use the same C++ standard library, because strings and callables cross the boundary.
///
/// Each function builds the pool when there is none, then forwards to the member of CLS_QuenTaskPool with the
/// same name (KillTask to RemoveTask). The member's comment says what it does, what it waits for and what it
/// logs.
///
/// Threads: any, but the first call must not race another, because building the pool is not synchronised.
/// Fails: when the pool cannot be built (no thread, no memory), the exception propagates. Nothing is left
/// behind, and a later call tries again.
extern "C"
{
    /// Runs _funTask once in the background on behalf of the owner _pObj, after the tasks that are already
    /// queued.
    ///
    /// Fails: false, with a log record, for a null owner or when the task cannot be queued. Also false when
    /// memory runs out after the task was queued: it then still runs, but without an owner, so no removal
    /// waits for it.
    ZEL_TASKPOOL_EXPORT bool AddTmpTask(const std::function<void()>& _funTask, void* _pObj,
                                        const std::string& _strCallInfo);

    /// Cancels all tasks that _pObj submitted.
    ///
    /// Waits: up to 9 seconds for each of its running tasks, then up to 9 seconds in all for tasks that these
    /// submitted during the call. Polls every 300 ms. A run that outlasts this goes on, and only a log record
    /// says so.
    ZEL_TASKPOOL_EXPORT void RemoveTmpTask(void* _pObj, const std::string& _strCallInfo);

    /// Queues _funTask at once, and again each time _iInterval milliseconds after its last run has ended.
    ///
    /// Writes the id of the task to _strTaskId before the first run can begin.
    ///
    /// Fails: with a log record. If the id changed although the call failed, pass it to RemoveTask: that task
    /// runs once, or never.
    ZEL_TASKPOOL_EXPORT void AddLoopTask(const std::function<void()>& _funTask, int _iInterval,
                                         std::string& _strTaskId, const std::string& _strCallInfo);

    /// Stops and forgets the task with this id.
    ///
    /// Waits: up to about 9 seconds for a run in progress.
    ZEL_TASKPOOL_EXPORT void RemoveTask(const std::string& _strTaskId, const std::string& _strCallInfo);

    /// Does the same as RemoveTask.
    ZEL_TASKPOOL_EXPORT void KillTask(const std::string& _strTaskId, const std::string& _strCallInfo);

    /// Shuts the pool down as UnInit does, and destroys it even when that fails, except on a thread of
    /// the pool.
    ///
    /// Threads: any, except in a task.
    ZEL_TASKPOOL_EXPORT void KillTaskAll();

    /// Shuts the pool down and frees everything. The next call of any function builds a new pool.
    ///
    /// Threads: any, except in a task.
    /// Waits: see CLS_QuenTaskPool::UnInit. When another thread shuts the pool down, waits until that is
    /// over.
    ZEL_TASKPOOL_EXPORT void UnInit();
}
