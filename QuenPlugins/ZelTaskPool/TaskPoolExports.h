#pragma once

#include "QuenPlugins/ZelTaskPool/Export.h"

#include <functional>
#include <string>

/// \file
/// The pool's functions with plain names, for hosts that load the library as a plug-in.
///
/// A host that links nothing includes this header for the types alone and looks the names up:
///
///     auto pAddTmpTask = reinterpret_cast<decltype(&AddTmpTask)>(dlsym(pLibrary, "AddTmpTask"));
///
/// Host and library must use the same C++ standard library: texts and callables cross the boundary.
///
/// Each function builds the pool when there is none, then forwards to the member of CLS_QuenTaskPool with
/// the same name, KillTask to RemoveTask. What the member does, blocks on and records is written there.
/// Building the pool is not synchronised: the first call must not race another. When the pool cannot be built
/// (no thread or no memory to be had), the exception goes to the caller, nothing is left behind, and a later
/// call tries again.
extern "C"
{
    /// Runs _funTask once in the background, on behalf of the owner _pObj, after what is queued already.
    /// False, with a record, for a null owner or when the task could not be queued; when memory ran out after
    /// the queueing, too, and then it still runs, without an owner, so that no removal waits for it.
    ZEL_TASKPOOL_EXPORT bool AddTmpTask(const std::function<void()>& _funTask, void* _pObj,
                                        const std::string& _strCallInfo);

    /// Cancels everything that _pObj submitted; waits, with a poll every 300 ms, up to 9 seconds for each of
    /// its tasks that is running, and once up to 9 seconds for all that they submit meanwhile. A run that
    /// outlasts that goes on, and only a log record says so.
    ZEL_TASKPOOL_EXPORT void RemoveTmpTask(void* _pObj, const std::string& _strCallInfo);

    /// Queues _funTask at once, and again each time _iInterval milliseconds after its last run ended. Writes
    /// the task's id to _strTaskId, before the first run can begin. On failure there is a log record. If the
    /// id changed although the call failed, pass it to RemoveTask: that task runs once, or never.
    ZEL_TASKPOOL_EXPORT void AddLoopTask(const std::function<void()>& _funTask, int _iInterval,
                                         std::string& _strTaskId, const std::string& _strCallInfo);

    /// Stops and forgets the task with this id; waits, up to about 9 seconds, for a run in progress.
    ZEL_TASKPOOL_EXPORT void RemoveTask(const std::string& _strTaskId, const std::string& _strCallInfo);

    /// The same as RemoveTask.
    ZEL_TASKPOOL_EXPORT void KillTask(const std::string& _strTaskId, const std::string& _strCallInfo);

    /// Ends the pool, as UnInit does, and destroys it even when UnInit failed, except on a service thread of
    /// the pool. Not from a task.
    ZEL_TASKPOOL_EXPORT void KillTaskAll();

    /// Ends the pool: waits, up to 9 seconds a task, for what is running, then frees everything. When another
    /// thread is ending it, waits until that is over. Not from a task. The next call of any function builds a
    /// new pool.
    ZEL_TASKPOOL_EXPORT void UnInit();
}
