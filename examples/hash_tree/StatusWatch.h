#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <thread>

/// Calls for a status when the process gets SIGUSR1, on macOS also SIGINFO (Ctrl-T), and once whenever
/// nothing has moved for 10 seconds. One at a time.
class CLS_StatusWatch
{
public:
    /// _funReport shows the status; _funCount grows as long as things move. Both are called on a thread of
    /// this object's. Throws std::system_error when there is no pipe or no thread.
    CLS_StatusWatch(std::function<void()> _funReport, std::function<std::uint64_t()> _funCount,
                    std::chrono::milliseconds _msStuck = std::chrono::seconds(10));

    /// From now on the signals are ignored. Waits for a report that is being made.
    ~CLS_StatusWatch();

    CLS_StatusWatch(const CLS_StatusWatch&) = delete;
    CLS_StatusWatch& operator=(const CLS_StatusWatch&) = delete;

private:
    void Watch() const;

    const std::function<void()> m_funReport;
    const std::function<std::uint64_t()> m_funCount;
    const std::chrono::milliseconds m_msStuck; ///< without a move, after which there is a report
    std::atomic<bool> m_bEnd{false};
    std::thread m_thrWatch;
};
