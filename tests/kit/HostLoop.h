#pragma once

#include "QuenHost/CLS_HostThread.h"
#include "QuenHost/ST_TaskFailure.h"
#include "tests/support/Waiting.h"

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <gtest/gtest.h>
#include <mutex>
#include <utility>
#include <vector>

/// A host's queue of calls, which RunUntil and RunAll execute on the calling thread. Thread-safe.
class CLS_HostLoop
{
public:
    CLS_HostThread GetThread()
    {
        return CLS_HostThread([this](std::function<void()> _funCall) { Add(std::move(_funCall)); });
    }

    /// Runs posted calls until _funCondition holds. False if it does not within the limit.
    template <typename T_Condition>
    [[nodiscard]] bool RunUntil(T_Condition _funCondition)
    {
        return WaitUntil(
            [&]
            {
                RunAll();
                return _funCondition();
            });
    }

    /// Runs the queued calls.
    void RunAll()
    {
        for (const std::function<void()>& funCall : TakeAll())
        {
            funCall();
        }
    }

    /// Takes the queued calls without running them.
    std::deque<std::function<void()>> TakeAll()
    {
        const std::lock_guard<std::mutex> lock(m_mtxCalls);
        return std::exchange(m_lstCalls, {});
    }

    /// Waits until at least _uiCalls calls are queued. False at the limit.
    [[nodiscard]] bool WaitForCalls(std::size_t _uiCalls)
    {
        std::unique_lock<std::mutex> lock(m_mtxCalls);
        return m_cvCalls.wait_for(lock, WAIT_LIMIT, [&] { return m_lstCalls.size() >= _uiCalls; });
    }

private:
    void Add(std::function<void()> _funCall)
    {
        const std::lock_guard<std::mutex> lock(m_mtxCalls);
        m_lstCalls.push_back(std::move(_funCall));
        m_cvCalls.notify_all();
    }

    std::mutex m_mtxCalls; ///< guards m_lstCalls
    std::condition_variable m_cvCalls;
    std::deque<std::function<void()>> m_lstCalls;
};

/// Stores the reported failures. Thread-safe.
class CLS_Failures
{
public:
    F_FailureHandler MakeHandler()
    {
        return [this](const ST_TaskFailure& _stFailure)
        {
            const std::lock_guard<std::mutex> lock(m_mtxFailures);
            m_vecFailures.push_back(_stFailure);
        };
    }

    std::vector<ST_TaskFailure> GetAll()
    {
        const std::lock_guard<std::mutex> lock(m_mtxFailures);
        return m_vecFailures;
    }

    /// Waits for a failure and returns it. Expects no other.
    ST_TaskFailure WaitForOne()
    {
        EXPECT_TRUE(WaitUntil([this] { return !GetAll().empty(); }));
        const std::vector<ST_TaskFailure> vecFailures = GetAll();
        EXPECT_EQ(1U, vecFailures.size());
        return vecFailures.empty() ? ST_TaskFailure() : vecFailures.front();
    }

private:
    std::mutex m_mtxFailures; ///< guards m_vecFailures
    std::vector<ST_TaskFailure> m_vecFailures;
};
