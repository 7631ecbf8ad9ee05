#pragma once

#include "QuenInclude/CLS_CVariant.h"

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

/// Free functions that the whole system shares.
///
/// Threads: any.
/// Waits: for nothing, and takes no lock, unless a comment says so.
namespace Util
{
/// The pieces of _strText between separators.
///
/// Each character of _strSeparators separates by itself, runs of separators count as one, and no piece is
/// empty. Without separators the whole text is one piece. A text ends at its first null character.
std::vector<std::string> SplitStdString(const std::string& _strText, const std::string& _strSeparators);

/// A new id, "%08x-%04x-%08llx-%04x": random word, calling thread, steady clock in nanoseconds, and a
/// counter.
///
/// The counter runs from 0 to 65534 and starts again; two threads may draw the same value. The id is unique
/// in practice, but not a standard UUID.
///
/// Fails: std::exception when the random device cannot be opened or read.
std::string GetUuid();

/// Each entry in key order as "[key] : [value]" and a newline.
std::string MapToString(const std::map<std::string, CLS_CVariant>& _mapParam);

/// Whether _strPath can be opened for reading.
bool FileExists(const std::string& _strPath);

/// Keeps the library that contains this code loaded for good, even if the host closes it.
///
/// For a thread that will return to the library's code later. Does nothing if the program itself contains the
/// code.
void PinLibrary();

/// Sets the name that debuggers and system monitors show for the calling thread: at most 15 characters.
///
/// A system may refuse a longer name, and then nothing changes. On Linux, threads that the calling thread
/// starts inherit the name.
void SetThreadName(const char* _szName);

/// Whole milliseconds between _tpStart and now, truncated; never negative.
std::int64_t GetElapsedMilliseconds(std::chrono::steady_clock::time_point _tpStart);

/// Opens the shared library _strPath, exactly as given, and looks names up in it.
///
/// Returns the address of each name; null where the library lacks it. While this code stays loaded, a path is
/// opened only once, and never closed. A failed open is remembered and not tried again.
///
/// Writes a line to standard output for each first open and for each name. For a failed open, writes a line
/// with the loader's reason to standard error.
///
/// Waits: one thread at a time opens a library. The others wait up to CLS_LoadTurn::WAIT_LIMIT. No lock is
/// held while the library's initialisers run.
///
/// Fails: an empty map in these cases:
/// - the library cannot be opened;
/// - the call comes from an initialiser of a library that is being opened;
/// - the wait ran out.
std::map<std::string, void*> GetDllFunction(const std::string& _strPath,
                                            const std::vector<std::string>& _vecNames);
} // namespace Util
