// The logging library of the programs under the scheduler: passes each record on, and keeps none.

#include "verify/schedules/pool/ScheduleLog.h"

namespace
{
ScheduleLog::Listener s_funListener = nullptr;
} // namespace

namespace ScheduleLog
{
void SetListener(Listener _funListener)
{
    s_funListener = _funListener;
}
} // namespace ScheduleLog

extern "C" void PrintLog(int _iLevel, const char*, const char*, int, const char*,
                         const std::string& _strMessage)
{
    if (s_funListener != nullptr)
    {
        s_funListener(_iLevel, _strMessage);
    }
}
