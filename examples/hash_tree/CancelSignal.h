#pragma once

#include <string>

/// Makes the first SIGINT (Ctrl-C), SIGTERM or SIGHUP request a cancel.
///
/// A signal that the program was started to ignore stays ignored.
///
/// The next one removes the file of SetFileToDrop and ends the process, as the signal does by default.
///
/// Threads: called once, before the first thread starts.
void CatchCancelSignals();

/// Returns the signal that requested a cancel; 0 if none did.
///
/// Threads: any; never blocks.
int GetCancelSignal();

/// Names the file to remove if a signal ends the process; "" for none.
///
/// Threads: one. Call it with "" before you name another file.
void SetFileToDrop(const std::string& _strPath);
