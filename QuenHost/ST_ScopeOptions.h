#pragma once

#include "QuenHost/CLS_TraceFile.h"
#include "QuenHost/ST_TaskFailure.h"

#include <memory>

/// The options of a scope.
struct ST_ScopeOptions
{
    /// Called for failures of owners and loop tasks without a handler of their own.
    ///
    /// If it is empty, failures go to standard error. The first one for each call information is written
    /// there. Repetitions are only counted.
    F_FailureHandler m_funOnFailure{};

    /// Receives the events of all tasks of the scope; null for no trace.
    ///
    /// - The categories are "submit", "run", "deliver", "cancel", "loop" and "remove".
    /// - The name of an event is the call information of the task.
    /// - The events of a one-shot task have the same argument "task", a number. Viewers join them by it.
    std::shared_ptr<CLS_TraceFile> m_pTrace{};
};
