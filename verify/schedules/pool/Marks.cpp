#include "verify/schedules/pool/Marks.h"

#include "verify/schedules/core/Scheduler.h"

#include <algorithm>
#include <iterator>
#include <set>

namespace
{
std::set<std::string> g_setReached;
}

namespace Marks
{
void Reach(const char* _szMark)
{
    // The marks outlive the schedule.
    const CLS_Scheduler::CLS_Inside clsInside;
    g_setReached.insert(_szMark);
}

std::vector<std::string> FindMissing(const std::vector<std::string>& _vecMarks)
{
    std::vector<std::string> vecMissing;
    std::copy_if(_vecMarks.begin(), _vecMarks.end(), std::back_inserter(vecMissing),
                 [](const std::string& _strMark) { return g_setReached.count(_strMark) == 0; });
    return vecMissing;
}

void Forget()
{
    g_setReached.clear();
}
} // namespace Marks
