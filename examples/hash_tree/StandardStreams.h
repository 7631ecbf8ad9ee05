#pragma once

#include <string>

/// Makes writes to closed standard streams and to pipes without a reader fail.
///
/// Without it, the next opened file would take the place of a closed stream and receive the output. A pipe
/// without a reader would end the process.
///
/// Threads: called once, before the first file is opened and the first thread starts.
void GuardStandardStreams();

/// Flushes standard output. Returns why a part of the output is lost; "" if all was written.
std::string FlushStandardOutput();
