#pragma once

namespace CrashReport
{
/// From now on, a fault of the program is reported on the standard error, with the functions that were being
/// called, before it ends the process as it would have done. A program that handles the signal itself does
/// so.
void Install();
} // namespace CrashReport
