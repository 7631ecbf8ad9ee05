#pragma once

#include "QuenPlugins/ZelTaskPool/CLS_Task.h"
#include "tests/support/ClassLayout.h"

#include <atomic>
#include <chrono>
#include <cstdint>

/// The private side of CLS_Task, for tests that look inside. Only TaskView.cpp writes the private names.
namespace TaskView
{
std::atomic<n_TaskStatus>& GetStatusWord(CLS_Task& _clsTask);
std::atomic<std::int32_t>& GetIntervalWord(CLS_Task& _clsTask);
std::atomic<std::chrono::steady_clock::time_point>& GetLastRun(CLS_Task& _clsTask);
std::atomic<bool>& GetValidWord(CLS_Task& _clsTask);
/// The era of the registry from which a kept reference to the task serves; 0 if none does.
std::uint32_t GetEra(const CLS_Task& _clsTask);

/// The members in the order of their declarations.
ClassLayout::Members ListMembers(const CLS_Task& _clsTask);
} // namespace TaskView
