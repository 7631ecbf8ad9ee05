#pragma once

/// Makes a crash fail the schedule. The process goes on.
namespace Crashes
{
void TurnIntoFailures();
} // namespace Crashes
