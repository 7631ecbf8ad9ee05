#pragma once

#include <string>
#include <vector>

namespace Restart
{
/// How this program was started: its name and its own arguments, without those of the program that it runs.
///
/// A process that executes another program for macOS starts this program again with them.
void SetOwnArguments(const std::vector<std::string>& _vecArguments);

/// As execve, with errno in Linux's numbering.
int Execute(const char* _szPath, char* const* _ppArguments, char* const* _ppEnvironment);
} // namespace Restart
