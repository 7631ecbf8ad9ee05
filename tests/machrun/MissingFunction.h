#pragma once

#include <string>

namespace MissingFunction
{
/// The replacement for a function of the system that this program lacks. There is one for each name.
///
/// When it is called, it writes the name to standard error and aborts.
///
/// Threads: any.
///
/// Fails: std::runtime_error if there is no memory for code.
///
/// Owns: the function is never freed.
void* Make(const std::string& _strName);
} // namespace MissingFunction
