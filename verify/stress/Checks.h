#pragma once

#include "verify/stress/World.h"

/// What has to hold while the host's threads are paused. Polls each condition; one that does not hold within
/// WAIT_LIMIT breaks the model.
namespace Checks
{
/// Everything accepted and not removed has run, loop tasks go on, and, once finished tasks are swept, pool
/// and registry keep what the model says. The pool lives.
void CheckSettled(ST_World& _stWorld);

/// Only runs that outlasted the shutdown still run, and they end, too. The registry can be emptied, every
/// callable is destroyed, and only _iThreads threads are left. Forgets all tasks.
void CheckEnded(ST_World& _stWorld, int _iThreads);
} // namespace Checks
