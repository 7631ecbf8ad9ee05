#pragma once

#include <string>
#include <vector>

/// What scenarios have reached, in any of their schedules: a scenario that passes may have missed what it is
/// for.
namespace Marks
{
void Reach(const char* _szMark);

/// Those that were not reached since the last call of Forget.
std::vector<std::string> FindMissing(const std::vector<std::string>& _vecMarks);

void Forget();
} // namespace Marks
