#pragma once

#include "QuenHost/CLS_TaskOwner.h"
#include "QuenHost/Core/CLS_DebounceCore.h"

#include <chrono>
#include <memory>
#include <string>
#include <utility>

/// Runs a task once when it has been quiet for a while: a search while the user types, or a save while
/// changes come. Its runs never overlap.
///
/// As a member it comes after its owner.
///
/// Threads: Trigger: any, several at once, also in the task. The end: one.
///
/// Waits: the end waits for nothing. A run in progress goes on; the removal by its owner waits for it.
///
/// Owns: the callable. It is destroyed by the end, on its thread, or by the run in progress, on its worker.
/// Neither copied nor moved.
class CLS_Debounce
{
public:
    /// Runs nothing until Trigger. The callable is called without an argument or with a stop token. A removal
    /// of _clsOwner's tasks cancels it. Its failures go to _clsOwner. A negative quiet time counts as 0, and
    /// the longest is a hundred years.
    ///
    /// Fails: what copying the callable throws, and std::bad_alloc.
    template <typename T_Callable>
    CLS_Debounce(const CLS_TaskOwner& _clsOwner, std::chrono::milliseconds _msQuiet, T_Callable&& _funTask,
                 const std::string& _strCallInfo)
        : m_pCore(std::make_shared<CLS_DebounceCore>(_clsOwner.GetLink(), _msQuiet, _strCallInfo,
                                                     MakeCallableTask(std::forward<T_Callable>(_funTask))))
    {
    }

    /// From here on, no run starts.
    ~CLS_Debounce() { m_pCore->Close(); }

    CLS_Debounce(const CLS_Debounce&) = delete;
    CLS_Debounce& operator=(const CLS_Debounce&) = delete;

    /// The task runs after the quiet time, plus up to about 10 milliseconds, unless this is called again
    /// before. False when the owner takes nothing, when the callable is empty, and without memory. If memory
    /// runs out later, the lost run is a failure of the owner.
    ///
    /// Waits: for no task; a few steps for locks.
    bool Trigger() { return m_pCore->Trigger(); }

private:
    const std::shared_ptr<CLS_DebounceCore> m_pCore;
};
