#pragma once

#include "tests/machrun/shims/Shim.h"

/// The replacements for the system's library, by subject. Each function is in the file of its name.
namespace Tables
{
const Shims& GetCharacters();
const Shims& GetConditions();
const Shims& GetDynamic();
const Shims& GetFiles();
const Shims& GetKernel();
const Shims& GetLocales();
const Shims& GetLocks();
const Shims& GetMemory();
const Shims& GetPatterns();
const Shims& GetProcess();
const Shims& GetSignals();
const Shims& GetStreams();
const Shims& GetTexts();
const Shims& GetThreads();

/// Functions of the C library that are the same on both systems, without the leading underscore.
///
/// Their types and constants are equal, and no caller reads their errno.
const std::vector<const char*>& GetSame();
} // namespace Tables
