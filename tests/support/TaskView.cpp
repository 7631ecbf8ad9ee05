#include "tests/support/TaskView.h"

namespace TaskView
{
std::atomic<n_TaskStatus>& GetStatusWord(CLS_Task& _clsTask)
{
    return _clsTask.m_iTaskStatus;
}

std::atomic<std::int32_t>& GetIntervalWord(CLS_Task& _clsTask)
{
    return _clsTask.m_iLoopInterval;
}

std::atomic<std::chrono::steady_clock::time_point>& GetLastRun(CLS_Task& _clsTask)
{
    return _clsTask.m_tpLastRun;
}

std::atomic<bool>& GetValidWord(CLS_Task& _clsTask)
{
    return _clsTask.m_bValid;
}

std::uint32_t GetEra(const CLS_Task& _clsTask)
{
    return _clsTask.m_uiEra;
}

ClassLayout::Members ListMembers(const CLS_Task& _clsTask)
{
    return {ClassLayout::Describe("m_iTaskStatus", _clsTask.m_iTaskStatus),
            ClassLayout::Describe("m_funTask", _clsTask.m_funTask),
            ClassLayout::Describe("m_iLoopInterval", _clsTask.m_iLoopInterval),
            ClassLayout::Describe("m_tpLastRun", _clsTask.m_tpLastRun),
            ClassLayout::Describe("m_bValid", _clsTask.m_bValid)};
}
} // namespace TaskView
