#pragma once

#include <exception>
#include <functional>
#include <string>

/// What went wrong with a task or a delivery.
enum class n_FailureKind
{
    Threw,        ///< the callable threw m_pException
    Outlasted,    ///< the run goes on more than 9 seconds after the removal of its task
    NotDelivered, ///< the host's post function threw m_pException, or dropped the delivery
};

/// A failure of a one-shot task, of a delivery, or of a run of a loop task.
///
/// An exception from a result task is not such a failure. The future throws it.
struct ST_TaskFailure
{
    n_FailureKind m_enKind = n_FailureKind::Threw; ///< what went wrong
    std::string m_strOwner;          ///< the name of the owner; that of a loop task is its call information
    std::string m_strCallInfo;       ///< as it was submitted
    std::exception_ptr m_pException; ///< null unless something threw
};

/// Handles failures. It may submit tasks.
///
/// Threads: called on the thread of the failed run, or on the thread that removes its task; on several at
/// once. No lock of the kit is held.
///
/// Fails: what it throws is written to standard error.
using F_FailureHandler = std::function<void(const ST_TaskFailure&)>;
