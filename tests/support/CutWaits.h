#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>

/// During its life, every timed wait on one condition variable ends after a millisecond, on all threads.
///
/// It records how long each wait was to last, and counts notifications. On macOS, the program's functions
/// must replace the system's for the C++ library as well. Only one may exist at a time.
class CLS_CutWaits
{
public:
    /// _funHook is called before each notification, on the thread that sends it.
    explicit CLS_CutWaits(std::condition_variable& _cvWatched, const std::function<void()>& _funHook = {});
    ~CLS_CutWaits();
    CLS_CutWaits(const CLS_CutWaits&) = delete;
    CLS_CutWaits& operator=(const CLS_CutWaits&) = delete;

    /// The longest wait so far. If a thread is delayed after it has read the clock, its wait seems shorter,
    /// but never longer.
    std::chrono::nanoseconds GetLongest() const;

    /// Notifications of one waiting thread.
    int GetNotifications() const;

private:
    const std::function<void()> m_funHook;
};
