#pragma once

#include <exception>
#include <functional>
#include <string>

/// What went wrong with a task or a delivery.
enum class n_FailureKind
{
    Threw,     ///< the callable threw m_pException
    Outlasted, ///< the run goes on although its owner, or loop task, has ended: it took longer than 9 seconds
    NotDelivered, ///< the host's post function threw m_pException, or dropped the delivery
};

/// A failure of a one-shot task or of a run of a loop task. What the callable of a result task throws is no
/// failure here: it comes out of the future.
struct ST_TaskFailure
{
    n_FailureKind m_enKind = n_FailureKind::Threw; ///< what went wrong
    std::string m_strOwner;          ///< the name of the owner; that of a loop task is its call information
    std::string m_strCallInfo;       ///< as it was submitted
    std::exception_ptr m_pException; ///< null unless something threw
};

/// Hears of failures.
///
/// Threads: called on the thread of the failed run, or on the one that ends the owner; on several at once.
///
/// Waits: no lock of the kit is held. It may submit tasks.
///
/// Fails: what it throws is written to standard error.
using F_FailureHandler = std::function<void(const ST_TaskFailure&)>;
