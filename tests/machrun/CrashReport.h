#pragma once

namespace CrashReport
{
/// From now on, a fault of the program is reported to standard error with the chain of function calls. Then
/// it ends the process as usual. If the program handles the signal itself, nothing is reported.
void Install();
} // namespace CrashReport
