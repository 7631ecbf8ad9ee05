#pragma once

#include <string>

/// The receiver of the log records.
namespace ScheduleLog
{
using Listener = void (*)(int _iLevel, const std::string& _strMessage);
void SetListener(Listener _funListener);
} // namespace ScheduleLog
