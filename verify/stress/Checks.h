#pragma once

#include "verify/stress/World.h"

/// What has to hold when the host's threads have stopped for a moment. Polls until it does; what does not
/// within WAIT_LIMIT breaks the model.
namespace Checks
{
/// Everything accepted and not removed has run, loop tasks go on, and, once finished tasks are swept, pool
/// and registry keep what the model says. The pool lives.
void CheckSettled(ST_World& _stWorld);

/// Nothing runs any more but what outlasted the pool's end, and that comes to its end, too; the registry can
/// be emptied, every callable is gone, and no thread is left but _iThreads. Forgets all tasks.
void CheckEnded(ST_World& _stWorld, int _iThreads);
} // namespace Checks
