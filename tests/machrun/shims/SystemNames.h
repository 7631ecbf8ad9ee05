#pragma once

#include <string>

namespace SystemNames
{
/// What stands for a name of the system's library, with its leading underscore; null when nothing does. Any
/// thread may call.
void* Find(const std::string& _strName);
} // namespace SystemNames
