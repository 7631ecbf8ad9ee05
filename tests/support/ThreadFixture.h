#pragma once

#include "QuenPlugins/ZelTaskPool/CLS_TaskThread.h"
#include "tests/support/LogRecorder.h"

#include <cstdint>
#include <gtest/gtest.h>

/// Base of the tests of workers. Each test starts and ends with the default threshold and without log
/// records.
class CLS_ThreadFixture : public ::testing::Test
{
protected:
    void SetUp() override { Clean(); }
    void TearDown() override { Clean(); }

private:
    /// As the library has it when the program starts.
    static inline const std::int32_t s_iDefault = CLS_TaskThread::GetWaitingOvertime();

    static void Clean()
    {
        LogRecorder::SetHook({});
        LogRecorder::Clear();
        CLS_TaskThread::SetWaitingOvertime(s_iDefault);
    }
};
