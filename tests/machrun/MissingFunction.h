#pragma once

#include <string>

namespace MissingFunction
{
/// A function in place of one of the system's that this program lacks. When it is called, it names the
/// missing one on the standard error and aborts. Each name has one, which lives for ever. Throws
/// std::runtime_error when there is no memory for code. Any thread may call.
void* Make(const std::string& _strName);
} // namespace MissingFunction
