#pragma once

#include "QuenHost/CLS_TaskOwner.h"
#include "QuenHost/Core/CLS_DebounceCore.h"

#include <chrono>
#include <memory>
#include <string>
#include <utility>

/// Runs a task once after a quiet time without triggers.
///
/// Use it to search while the user types, or to save while changes arrive. Its runs never overlap. As a
/// member, declare it after its owner. It can be neither copied nor moved.
///
/// Threads: Trigger: any, several at once, even in the task. The destructor: one.
///
/// Waits: the destructor waits for nothing. A run in progress goes on, and the owner's removal waits for it.
///
/// Owns: the callable. The destructor destroys it on its thread, or the run in progress does so on its
/// worker.
class CLS_Debounce
{
public:
    /// Runs nothing until Trigger.
    ///
    /// - _clsOwner receives the failures. A removal of its tasks cancels a waiting run.
    /// - _msQuiet: a negative quiet time counts as 0. The longest is a hundred years.
    /// - _funTask is called without an argument or with a stop token.
    /// - _strCallInfo describes the task.
    ///
    /// Fails: with what copying the callable throws, and std::bad_alloc.
    template <typename T_Callable>
    CLS_Debounce(const CLS_TaskOwner& _clsOwner, std::chrono::milliseconds _msQuiet, T_Callable&& _funTask,
                 const std::string& _strCallInfo)
        : m_pCore(std::make_shared<CLS_DebounceCore>(_clsOwner.GetLink(), _msQuiet, _strCallInfo,
                                                     MakeCallableTask(std::forward<T_Callable>(_funTask))))
    {
    }

    /// From now on, no run starts.
    ~CLS_Debounce() { m_pCore->Close(); }

    CLS_Debounce(const CLS_Debounce&) = delete;
    CLS_Debounce& operator=(const CLS_Debounce&) = delete;

    /// Restarts the quiet time. The task runs up to about 10 milliseconds after it is over.
    ///
    /// Returns false if the owner takes nothing, the callable is empty, or there is no memory. Then no run
    /// follows. If memory runs out later, the lost run is a failure of the owner.
    ///
    /// Waits: for no task; a few steps for locks.
    bool Trigger() { return m_pCore->Trigger(); }

private:
    const std::shared_ptr<CLS_DebounceCore> m_pCore;
};
