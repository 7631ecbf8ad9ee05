#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>

/// While one lives, every wait with a limit on one condition variable, on all threads, wakes after a
/// millisecond, notified or not; how long it was meant to last is noted, and notifications are counted. On
/// macOS the program's functions must replace the system's for the C++ library, too. One at a time.
class CLS_CutWaits
{
public:
    /// _funHook is called before each notification, on the thread that sends it.
    explicit CLS_CutWaits(std::condition_variable& _cvWatched, const std::function<void()>& _funHook = {});
    ~CLS_CutWaits();
    CLS_CutWaits(const CLS_CutWaits&) = delete;
    CLS_CutWaits& operator=(const CLS_CutWaits&) = delete;

    /// The longest wait so far. A thread that is held up between looking at the clock and waiting seems to
    /// wait for less than it is meant to, and never for more.
    std::chrono::nanoseconds GetLongest() const;

    /// Notifications of one waiting thread.
    int GetNotifications() const;

private:
    const std::function<void()> m_funHook;
};
