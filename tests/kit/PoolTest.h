#pragma once

#include "QuenHost/CLS_PoolScope.h"
#include "QuenHost/CLS_TaskOwner.h"
#include "tests/support/Waiting.h"

#include <gtest/gtest.h>
#include <memory>

/// Tests with the built library's pool, which ends with each test.
class CLS_PoolTest : public ::testing::Test
{
protected:
    const ST_PoolFunctions& Functions() const { return m_clsPool.Functions(); }

    /// Returns when every worker that the pool may have is in a task of _clsOwner, which ends with the gate's
    /// opening. Both outlive the tasks.
    static void KeepEveryWorkerBusy(CLS_TaskOwner& _clsOwner, CLS_Gate& _clsMayEnd)
    {
        constexpr int WORKERS = 301;
        const auto pStarted = std::make_shared<CLS_Counter>();
        for (int i = 0; i < WORKERS; ++i)
        {
            const auto funTask = [pStarted, &_clsMayEnd]
            {
                pStarted->Add();
                EXPECT_TRUE(_clsMayEnd.Wait());
            };
            ASSERT_TRUE(_clsOwner.Submit(funTask, "fill"));
        }
        ASSERT_TRUE(pStarted->Wait(WORKERS));
    }

private:
    const CLS_PoolScope m_clsPool{CLS_PoolLibrary(POOL_LIBRARY)};
};

/// A pool that takes nothing.
inline ST_PoolFunctions MakeRefusingPool()
{
    ST_PoolFunctions stFunctions;
    stFunctions.m_funAddTmpTask = [](const std::function<void()>&, void*, const std::string&)
    { return false; };
    stFunctions.m_funRemoveTmpTask = [](void*, const std::string&) {};
    stFunctions.m_funAddLoopTask = [](const std::function<void()>&, int, std::string&, const std::string&) {};
    return stFunctions;
}
