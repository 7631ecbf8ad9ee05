// The logging library of the programs under the scheduler. Passes each log record on, and keeps none.

#include "verify/schedules/pool/ScheduleLog.h"

namespace
{
ScheduleLog::Listener g_funListener = nullptr;
} // namespace

namespace ScheduleLog
{
void SetListener(Listener _funListener)
{
    g_funListener = _funListener;
}
} // namespace ScheduleLog

extern "C" void PrintLog(int _iLevel, const char*, const char*, int, const char*,
                         const std::string& _strMessage)
{
    if (g_funListener != nullptr)
    {
        g_funListener(_iLevel, _strMessage);
    }
}
