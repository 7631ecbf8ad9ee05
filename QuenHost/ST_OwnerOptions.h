#pragma once

#include "QuenHost/ST_TaskFailure.h"

/// The options of an owner.
struct ST_OwnerOptions
{
    /// How many of the owner's tasks run at once. With 0, only the scope's limit of 300 applies.
    ///
    /// - For computing: the number of cores, std::max(1U, std::thread::hardware_concurrency()). The function
    ///   returns 0 if it does not know.
    /// - For a disk: 2.
    /// - For one task after the other: 1. Then each task sees what the one before it wrote.
    ///
    /// The other tasks wait in the owner, in the order of submission, and occupy no worker.
    unsigned m_uiMaxRunning = 0;

    /// Called when a task fails. If it is empty, failures go to the scope.
    F_FailureHandler m_funOnFailure{};
};
