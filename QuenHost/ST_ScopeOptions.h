#pragma once

#include "QuenHost/CLS_TraceFile.h"
#include "QuenHost/ST_TaskFailure.h"

#include <memory>

/// What a host may give a scope.
struct ST_ScopeOptions
{
    /// Hears of the failures that no owner's handler takes. Empty: they go to standard error, once for each
    /// call information, and are counted from then on.
    F_FailureHandler m_funOnFailure{};

    /// Receives what becomes of each task of the scope; null for no trace. Categories: "submit", "run",
    /// "cancel", "loop" and "remove". An event has the task's call information as its name. The events of a
    /// one-shot task share a number, "task" among their arguments, by which viewers join them.
    std::shared_ptr<CLS_TraceFile> m_pTrace{};
};
