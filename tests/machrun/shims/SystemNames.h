#pragma once

#include <string>

namespace SystemNames
{
/// The replacement for a name of the system's library, with its leading underscore; null if there is none.
///
/// Threads: any.
void* Find(const std::string& _strName);
} // namespace SystemNames
