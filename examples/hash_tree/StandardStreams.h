#pragma once

#include <string>

/// Makes sure that output which goes nowhere is noticed, and goes nowhere.
///
/// A standard stream that is closed keeps its place: otherwise the next file that is opened would get what is
/// printed. Writing to such a stream fails, and so does writing to a pipe without a reader, which would end
/// the process by default.
///
/// Threads: called once, before the first file is opened and the first thread is started.
void GuardStandardStreams();

/// Writes out what was printed to standard output. Returns why not all of it could be written; "" if it was.
std::string FlushStandardOutput();
