#pragma once

#include <string>
#include <vector>

/// The situations that scenarios have reached in any of their schedules. Without marks, a scenario could pass
/// although it never reached what it tests.
namespace Marks
{
void Reach(const char* _szMark);

/// The given marks that were not reached since the last call of Forget.
std::vector<std::string> FindMissing(const std::vector<std::string>& _vecMarks);

void Forget();
} // namespace Marks
