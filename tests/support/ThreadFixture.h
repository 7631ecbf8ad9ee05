#pragma once

#include "QuenPlugins/ZelTaskPool/CLS_TaskThread.h"
#include "tests/support/LogRecorder.h"

#include <gtest/gtest.h>

/// Base of the tests of workers: each starts with the default threshold and no record, and leaves it so.
class CLS_ThreadFixture : public ::testing::Test
{
protected:
    void SetUp() override { Clean(); }
    void TearDown() override { Clean(); }

private:
    static void Clean()
    {
        LogRecorder::SetHook({});
        LogRecorder::Clear();
        CLS_TaskThread::m_iWaitingOvertime = 300000;
    }
};
