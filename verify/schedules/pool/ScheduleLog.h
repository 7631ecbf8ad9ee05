#pragma once

#include <string>

/// Where the records go.
namespace ScheduleLog
{
using Listener = void (*)(int _iLevel, const std::string& _strMessage);
void SetListener(Listener _funListener);
} // namespace ScheduleLog
