#pragma once

#include "QuenHost/ST_TaskFailure.h"

/// What a host may give an owner.
struct ST_OwnerOptions
{
    /// How many of the owner's tasks run at once. 0 is no limit but the scope's 300.
    ///
    /// - For computing: std::max(1U, std::thread::hardware_concurrency()), which is 0 where it is unknown.
    /// - For a disk: 2.
    /// - For one after the other: 1. Then each task sees what the one before it wrote.
    ///
    /// The other tasks wait in the owner, in the order of submission, and occupy no worker.
    unsigned m_uiMaxRunning = 0;

    /// Is called when a task fails. Empty: failures go to the scope.
    F_FailureHandler m_funOnFailure{};
};
