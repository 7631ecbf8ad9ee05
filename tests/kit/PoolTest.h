#pragma once

#include "QuenHost/CLS_PoolScope.h"

#include <gtest/gtest.h>

/// Tests with the built library's pool, which ends with each test.
class CLS_PoolTest : public ::testing::Test
{
protected:
    const ST_PoolFunctions& Functions() const { return m_clsPool.Functions(); }

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
