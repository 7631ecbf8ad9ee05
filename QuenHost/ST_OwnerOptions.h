#pragma once

#include "QuenHost/ST_TaskFailure.h"

/// What a host may give an owner.
struct ST_OwnerOptions
{
    /// How many of the owner's tasks run at once: std::thread::hardware_concurrency() for computing, 2 for a
    /// disk, 1 for one after the other. The rest waits in the owner, in the order of submission, and takes no
    /// worker. With 1, each task sees what the one before has written. 0: no limit but the scope's 300.
    unsigned m_uiMaxRunning = 0;

    /// Hears of failures; empty: they go to the scope.
    F_FailureHandler m_funOnFailure{};
};
