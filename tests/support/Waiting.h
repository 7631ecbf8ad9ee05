#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

/// The longest time that a test waits for an expected event. It is generous, because loaded machines and
/// sanitizers are slow. A test waits this long only if it fails.
constexpr std::chrono::seconds WAIT_LIMIT{60};

/// Polls until _funCondition holds. False if it does not within the limit.
template <typename T_Condition>
[[nodiscard]] bool WaitUntil(T_Condition _funCondition, std::chrono::milliseconds _msLimit = WAIT_LIMIT)
{
    const auto tpEnd = std::chrono::steady_clock::now() + _msLimit;
    while (!_funCondition())
    {
        if (std::chrono::steady_clock::now() >= tpEnd)
        {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

/// A gate that is opened once. Thread-safe.
class CLS_Gate
{
public:
    void Open()
    {
        const std::lock_guard<std::mutex> lock(m_mtxGate);
        m_bOpen = true;
        m_cvGate.notify_all();
    }

    bool IsOpen()
    {
        const std::lock_guard<std::mutex> lock(m_mtxGate);
        return m_bOpen;
    }

    /// Whether the gate was opened within the limit.
    [[nodiscard]] bool Wait(std::chrono::milliseconds _msLimit = WAIT_LIMIT)
    {
        std::unique_lock<std::mutex> lock(m_mtxGate);
        return m_cvGate.wait_for(lock, _msLimit, [this] { return m_bOpen; });
    }

private:
    std::mutex m_mtxGate; ///< guards m_bOpen
    std::condition_variable m_cvGate;
    bool m_bOpen = false;
};

/// Counts events and lets a test wait for a number of them. Thread-safe.
class CLS_Counter
{
public:
    void Add()
    {
        const std::lock_guard<std::mutex> lock(m_mtxCount);
        ++m_iCount;
        m_cvCount.notify_all();
    }

    int Get()
    {
        const std::lock_guard<std::mutex> lock(m_mtxCount);
        return m_iCount;
    }

    /// Whether at least _iCount events came within the limit.
    [[nodiscard]] bool Wait(int _iCount, std::chrono::milliseconds _msLimit = WAIT_LIMIT)
    {
        std::unique_lock<std::mutex> lock(m_mtxCount);
        return m_cvCount.wait_for(lock, _msLimit, [this, _iCount] { return m_iCount >= _iCount; });
    }

private:
    std::mutex m_mtxCount; ///< guards m_iCount
    std::condition_variable m_cvCount;
    int m_iCount = 0;
};
