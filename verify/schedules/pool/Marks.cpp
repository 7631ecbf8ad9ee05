#include "verify/schedules/pool/Marks.h"

#include "verify/schedules/core/Scheduler.h"

#include <algorithm>
#include <iterator>
#include <set>

namespace
{
std::set<std::string> s_setReached;
}

namespace Marks
{
void Reach(const char* _szMark)
{
    // They outlive the schedule.
    const CLS_Scheduler::CLS_Inside clsInside;
    s_setReached.insert(_szMark);
}

std::vector<std::string> FindMissing(const std::vector<std::string>& _vecMarks)
{
    std::vector<std::string> vecMissing;
    std::copy_if(_vecMarks.begin(), _vecMarks.end(), std::back_inserter(vecMissing),
                 [](const std::string& _strMark) { return s_setReached.count(_strMark) == 0; });
    return vecMissing;
}

void Forget()
{
    s_setReached.clear();
}
} // namespace Marks
