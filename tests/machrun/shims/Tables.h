#pragma once

#include "tests/machrun/shims/Shim.h"

/// What stands for the system's library, by subject. Each function is in the file of its name.
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

/// Functions of the C library that mean the same on both systems, without the leading underscore: their types
/// do not differ, nor do the constants that they take, and no caller looks at their errno.
const std::vector<const char*>& GetSame();
} // namespace Tables
