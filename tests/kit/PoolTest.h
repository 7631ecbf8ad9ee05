#pragma once

#include "QuenHost/CLS_PoolScope.h"
#include "QuenHost/CLS_TaskOwner.h"
#include "tests/support/Waiting.h"

#include <gtest/gtest.h>
#include <memory>

/// Base of the tests that use the built library's pool. Each test ends with a shutdown.
class CLS_PoolTest : public ::testing::Test
{
protected:
    const CLS_PoolScope& GetPool() const { return m_clsPool; }

    /// Occupies every worker for one-shot tasks with a task of _clsOwner until the gate opens. Both outlive
    /// the tasks.
    static void KeepEveryWorkerBusy(CLS_TaskOwner& _clsOwner, CLS_Gate& _clsMayEnd)
    {
        const auto pStarted = std::make_shared<CLS_Counter>();
        for (int i = 0; i < CLS_PoolHub::MOST_CARRIERS; ++i)
        {
            const auto funTask = [pStarted, &_clsMayEnd]
            {
                pStarted->Add();
                EXPECT_TRUE(_clsMayEnd.Wait());
            };
            ASSERT_TRUE(_clsOwner.Submit(funTask, "fill"));
        }
        ASSERT_TRUE(pStarted->Wait(CLS_PoolHub::MOST_CARRIERS));
    }

private:
    const CLS_PoolScope m_clsPool{CLS_PoolLibrary(POOL_LIBRARY)};
};

/// Something that a callable captures. Counts how often it was destroyed, and where.
class CLS_Witness
{
public:
    struct ST_End
    {
        std::atomic<int> m_iEnds{0};
        std::atomic<std::thread::id> m_idThread{};
    };

    explicit CLS_Witness(ST_End& _stEnd) : m_pEnd(&_stEnd) {}
    CLS_Witness(CLS_Witness&& _clsOther) noexcept : m_pEnd(std::exchange(_clsOther.m_pEnd, nullptr)) {}
    CLS_Witness(const CLS_Witness&) = delete;
    CLS_Witness& operator=(const CLS_Witness&) = delete;
    CLS_Witness& operator=(CLS_Witness&&) = delete;
    ~CLS_Witness()
    {
        if (m_pEnd != nullptr)
        {
            m_pEnd->m_idThread = std::this_thread::get_id();
            ++m_pEnd->m_iEnds;
        }
    }

private:
    ST_End* m_pEnd;
};
