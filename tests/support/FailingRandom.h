#pragma once

#include <functional>

/// During its life, no thread can open the system's source of random numbers, as if the process had no
/// descriptor left. Only one may exist at a time.
class CLS_FailingRandom
{
public:
    CLS_FailingRandom();
    ~CLS_FailingRandom();
    CLS_FailingRandom(const CLS_FailingRandom&) = delete;
    CLS_FailingRandom& operator=(const CLS_FailingRandom&) = delete;
};

/// During its life, a function is called each time the calling thread opens that source. It can check which
/// locks are held. Only one may exist at a time on a thread.
class CLS_WatchedRandom
{
public:
    explicit CLS_WatchedRandom(const std::function<void()>& _funHook);
    ~CLS_WatchedRandom();
    CLS_WatchedRandom(const CLS_WatchedRandom&) = delete;
    CLS_WatchedRandom& operator=(const CLS_WatchedRandom&) = delete;

private:
    const std::function<void()> m_funHook;
};
