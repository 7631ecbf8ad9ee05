#pragma once

#include <string>

/// Makes the first SIGINT (Ctrl-C) or SIGTERM ask for a cancel. The next one removes the file of
/// SetFileToDrop and ends the process, as the signal does by default. Called once, before the first thread is
/// started.
void CatchCancelSignals();

/// The signal that asked for a cancel; 0 if none did.
///
/// Threads: any; never blocks.
int GetCancelSignal();

/// Names the file that must not stay if a signal ends the process; "" for none.
///
/// Threads: one. A file must be taken back with "" before another one is named.
void SetFileToDrop(const std::string& _strPath);
