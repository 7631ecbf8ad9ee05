#pragma once

#include "QuenPlugins/ZelTaskPool/CLS_Task.h"
#include "tests/support/LogRecorder.h"

#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <string>

/// The text of a registered task's parameters in its log records.
inline std::string MakeParamText(const std::string& _strTaskId, const std::string& _strCallInfo)
{
    return "[__id__] : [" + _strTaskId + "]\n[callinfo] : [" + _strCallInfo + "]\n";
}

/// For captures: calls _funEnd when its last copy is destroyed.
inline std::shared_ptr<void> MakeEndHook(const std::function<void()>& _funEnd)
{
    return {nullptr, [_funEnd](void*) { _funEnd(); }};
}

/// Base of the tests of tasks. Each test begins and ends with an empty registry and without log records.
class CLS_TaskFixture : public ::testing::Test
{
protected:
    void SetUp() override { Clean(); }
    void TearDown() override { Clean(); }

private:
    static void Clean()
    {
        LogRecorder::SetHook({});
        std::map<std::string, std::shared_ptr<CLS_Task>> mapLeft; // destroyed outside the lock
        {
            const std::unique_lock<std::shared_mutex> lock(CLS_Task::m_smTaskDataLock);
            mapLeft.swap(CLS_Task::m_mapTaskData);
        }
        mapLeft.clear();
        LogRecorder::Clear();
    }
};
