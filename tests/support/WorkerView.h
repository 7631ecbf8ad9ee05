#pragma once

#include "QuenPlugins/ZelTaskPool/CLS_TaskThread.h"
#include "tests/support/ClassLayout.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <thread>

/// The private side of CLS_TaskThread, for tests that look inside. Only WorkerView.cpp writes the private
/// names.
namespace WorkerView
{
using Job = std::function<void(CLS_TaskThread*)>;

std::atomic<bool>& GetRunFlag(CLS_TaskThread& _clsWorker);
CLS_Mutex& GetJobLock(CLS_TaskThread& _clsWorker);
/// The job in hand. The caller holds GetJobLock.
Job& GetJob(CLS_TaskThread& _clsWorker);
std::condition_variable& GetJobSignal(CLS_TaskThread& _clsWorker);
std::unique_ptr<std::thread>& GetThread(CLS_TaskThread& _clsWorker);
std::atomic<std::int32_t>& GetOrderWord(CLS_TaskThread& _clsWorker);
std::atomic<std::chrono::steady_clock::time_point>& GetLastActive(CLS_TaskThread& _clsWorker);

/// Whether the worker was told that more tasks wait.
bool HasBacklog(const CLS_TaskThread& _clsWorker);

/// The members in the order of their declarations.
ClassLayout::Members ListMembers(const CLS_TaskThread& _clsWorker);

/// The memory may be freed: only the address counts.
const CLS_RunGate& GetRunGate(const CLS_TaskThread& _clsWorker);

/// One pass of the worker's thread. False if the thread must end.
bool RunPass(CLS_TaskThread& _clsWorker, std::int32_t& _iShownId);
/// Tells the worker's thread to end.
void RequestEnd(CLS_TaskThread& _clsWorker);
} // namespace WorkerView
