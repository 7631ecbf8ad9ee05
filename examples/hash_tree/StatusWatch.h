#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <thread>

/// Requests a report on SIGUSR1, on macOS also on SIGINFO (Ctrl-T), and once after 10 seconds without
/// progress.
///
/// A process has one such object at a time.
class CLS_StatusWatch
{
public:
    /// Starts to watch. _funReport prints the report; _funCount grows with the progress.
    ///
    /// Threads: both callables run on the thread of this object.
    /// Fails: std::system_error if there is no pipe or no thread.
    CLS_StatusWatch(std::function<void()> _funReport, std::function<std::uint64_t()> _funCount,
                    std::chrono::milliseconds _msStuck = std::chrono::seconds(10));

    /// Ignores the signals from now on.
    ///
    /// Waits: for the report in progress.
    ~CLS_StatusWatch();

    CLS_StatusWatch(const CLS_StatusWatch&) = delete;
    CLS_StatusWatch& operator=(const CLS_StatusWatch&) = delete;

private:
    void Watch() const;

    const std::function<void()> m_funReport;
    const std::function<std::uint64_t()> m_funCount;
    const std::chrono::milliseconds m_msStuck; ///< the time without progress before a report
    std::atomic<bool> m_bEnd{false};
    std::thread m_thrWatch;
};
