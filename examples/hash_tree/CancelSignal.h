#pragma once

/// Makes the first SIGINT (Ctrl-C) and the first SIGTERM ask for a cancel instead of ending the process. The
/// second one of its kind ends it as usual. Called once, before the first thread is started.
void CatchCancelSignals();

/// The first signal that asked for a cancel; 0 as long as none did. Any thread, never blocks.
int CancelSignal();
