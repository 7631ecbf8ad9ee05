#include "verify/schedules/core/Step.h"

#include <algorithm>
#include <array>
#include <cstdio>

const char* GetStepText(n_Step _iStep)
{
    static constexpr std::array<const char*, STEP_FENCE + 1> TEXTS{
        "begins",     "locks",        "locks shared", "tries to lock", "unlocks", "waits for",
        "wakes from", "notifies one", "notifies all", "sleeps",        "yields",  "starts",
        "joins",      "detaches",     "reads",        "writes",        "changes", "fences"};
    return TEXTS[static_cast<std::size_t>(_iStep)];
}

std::string ToText(const ST_Step& _stStep)
{
    std::array<char, 64> arrTime{};
    std::snprintf(arrTime.data(), arrTime.size(), "%11.3f ms  ", static_cast<double>(_stStep.m_nsTime) / 1e6);
    std::string strThread = _stStep.m_strThread;
    strThread.resize(std::max<std::size_t>(strThread.size(), 16), ' ');
    return arrTime.data() + strThread + "  " + GetStepText(_stStep.m_iStep) + " " + _stStep.m_strObject;
}
