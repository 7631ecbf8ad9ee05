#pragma once

#include "verify/stress/World.h"

/// What must hold while the host's threads are paused. Polls each condition. The model breaks if one does not
/// hold within WAIT_LIMIT.
namespace Checks
{
/// Checks a running pool. All accepted tasks that were not removed have run, and loop tasks go on. After a
/// sweep of finished tasks, the pool and the registry keep what the model says.
void CheckSettled(ST_World& _stWorld);

/// Checks the state after a shutdown. Runs that outlasted the shutdown end. The registry can be emptied,
/// every callable is destroyed, and only _iThreads threads are left. Forgets all tasks.
void CheckEnded(ST_World& _stWorld, int _iThreads);
} // namespace Checks
