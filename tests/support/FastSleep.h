#pragma once

#include <chrono>
#include <functional>
#include <thread>
#include <vector>

/// One sleep that was cut short.
struct ST_Sleep
{
    std::thread::id m_idThread;
    std::chrono::milliseconds m_msAsked;
};

/// During its life, every sleep of at least 50 ms takes a few microseconds, on any thread, and is recorded.
///
/// So tests of long waits run fast, step by step. Shorter sleeps do not change. A test may set another limit.
/// Only one may exist at a time.
class CLS_FastSleep
{
public:
    /// _funHook is called after each cut sleep, on the thread that slept, with no lock held. It can act in
    /// the middle of a wait. _msShortest is the shortest sleep that is cut.
    explicit CLS_FastSleep(const std::function<void(const ST_Sleep&)>& _funHook = {},
                           std::chrono::milliseconds _msShortest = std::chrono::milliseconds(50));
    ~CLS_FastSleep();
    CLS_FastSleep(const CLS_FastSleep&) = delete;
    CLS_FastSleep& operator=(const CLS_FastSleep&) = delete;

    /// The sleeps cut so far, oldest first: of every thread, or of one.
    std::vector<ST_Sleep> GetSleeps() const;
    std::vector<ST_Sleep> GetSleeps(std::thread::id _idThread) const;
};

/// During its life, every sleep of at least 50 ms takes the time that _funScale returns. For programs that
/// run for minutes.
///
/// Nothing is recorded. Only one may exist at a time, and not together with a CLS_FastSleep.
class CLS_ScaledSleep
{
public:
    using Scale = std::chrono::nanoseconds (*)(std::chrono::nanoseconds);

    explicit CLS_ScaledSleep(Scale _funScale);
    ~CLS_ScaledSleep();
    CLS_ScaledSleep(const CLS_ScaledSleep&) = delete;
    CLS_ScaledSleep& operator=(const CLS_ScaledSleep&) = delete;
};
