#pragma once

#include "QuenInclude/CLS_CVariant.h"

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

/// Free functions that the whole system shares. Any thread may call them; where it is not said, they take no
/// lock and wait for nothing.
namespace Util
{
/// The pieces of _strText between separators. Each character of _strSeparators separates by itself, runs of
/// separators count as one, and no piece is empty; without separators the whole text is one piece. A text
/// ends at its first null character.
std::vector<std::string> SplitStdString(const std::string& _strText, const std::string& _strSeparators);

/// A new id, "%08x-%04x-%08llx-%04x": random word, calling thread, steady clock in nanoseconds, and a counter
/// that runs from 0 to 65534 and starts again. Unique in practice; no standard UUID. Two threads may draw
/// the same counter value. std::exception when the random device cannot be opened or read.
std::string GetUuid();

/// Each entry in key order as "[key] : [value]" and a newline.
std::string MapToString(const std::map<std::string, CLS_CVariant>& _mapParam);

/// Whether _strPath can be opened for reading.
bool FileExists(const std::string& _strPath);

/// Keeps the library that this code stands in loaded for good, whatever the host closes: for a thread that is
/// bound to come back to it later. Does nothing in a program that contains the code itself.
void PinLibrary();

/// The name under which debuggers and system monitors show the calling thread: at most 15 characters, for a
/// system may refuse a longer one, which changes nothing. Threads that it starts inherit the name on Linux.
void SetThreadName(const char* _szName);

/// Whole milliseconds between _tpStart and now, truncated; never negative.
std::int64_t GetElapsedMilliseconds(std::chrono::steady_clock::time_point _tpStart);

/// Opens the shared library _strPath, exactly as given, and looks names up in it.
///
/// A path is opened once, as long as this code stays loaded, and never closed; a failed open is remembered
/// and not tried again. Returns the address of each name, null where the library lacks it; an empty map when
/// the library cannot be opened, or when the call comes out of an initialiser of a library that is being
/// opened.
///
/// Writes a line to standard output for each first open and for each name, and a line with the loader's
/// reason to standard error for a failed open.
///
/// Any thread. One thread at a time gets in; the others wait up to CLS_LoadTurn::WAIT_LIMIT and then come
/// back empty-handed. No lock is held while the library's initialisers run.
std::map<std::string, void*> GetDllFunction(const std::string& _strPath,
                                            const std::vector<std::string>& _vecNames);
} // namespace Util
