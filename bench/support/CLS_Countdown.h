#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <mutex>

/// Blocks threads until a number of events has happened. Counting is cheap, because tasks do it.
///
/// Threads: any.
class CLS_Countdown
{
public:
    explicit CLS_Countdown(std::size_t _uiCount) : m_uiLeft(_uiCount) {}

    void CountDown()
    {
        if (m_uiLeft.fetch_sub(1) == 1)
        {
            const std::lock_guard<std::mutex> lock(m_mtxZero);
            m_bZero = true;
            m_cvZero.notify_all();
        }
    }

    void Wait()
    {
        std::unique_lock<std::mutex> lock(m_mtxZero);
        m_cvZero.wait(lock, [this] { return m_bZero; });
    }

private:
    std::atomic<std::size_t> m_uiLeft;
    std::mutex m_mtxZero; ///< guards m_bZero
    std::condition_variable m_cvZero;
    bool m_bZero = false;
};
