#pragma once

/// A program under a schedule that crashes has failed that schedule; the process goes on.
namespace Crashes
{
void TurnIntoFailures();
} // namespace Crashes
