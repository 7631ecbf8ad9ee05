#pragma once

#include "QuenPlugins/ZelTaskPool/CLS_Task.h"

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <stdexcept>
#include <string>

/// A task whose ParamToString throws from a certain call on.
class CLS_ThrowingTextTask final : public CLS_Task
{
public:
    /// Makes a one-shot task that throws from the _iThrowing-th call on. 1 is the first call.
    CLS_ThrowingTextTask(const std::function<void()>& _funTask, int _iThrowing)
        : CLS_Task(_funTask, -1, "call"), m_iThrowing(_iThrowing)
    {
    }

    std::string ParamToString() override
    {
        if (++m_iCalls >= m_iThrowing)
        {
            throw std::runtime_error("no text");
        }
        return CLS_Task::ParamToString();
    }

    /// Makes one and registers it; returns its id.
    static std::string Make(const std::function<void()>& _funTask, int _iThrowing)
    {
        const auto pTask = std::make_shared<CLS_ThrowingTextTask>(_funTask, _iThrowing);
        const std::unique_lock<std::shared_mutex> lock(m_smTaskDataLock);
        m_mapTaskData[pTask->GetId()] = pTask;
        return pTask->GetId();
    }

private:
    const int m_iThrowing;
    std::atomic<int> m_iCalls{0};
};
