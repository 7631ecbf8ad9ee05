#pragma once

#include <functional>

/// How often the dispatcher and a worker yield at most before they go to sleep after work.
constexpr int MOST_YIELDS_BEFORE_SLEEP = 4;

/// During its life, it counts the calling thread's yields, and calls a function at each. Only one may exist
/// at a time on a thread. The function is the place to make something happen meanwhile.
class CLS_WatchedYields
{
public:
    explicit CLS_WatchedYields(const std::function<void()>& _funHook = {});
    ~CLS_WatchedYields();
    CLS_WatchedYields(const CLS_WatchedYields&) = delete;
    CLS_WatchedYields& operator=(const CLS_WatchedYields&) = delete;

    int GetYields() const { return m_iYields; }

    /// The thread yields.
    void Note();

private:
    const std::function<void()> m_funHook;
    int m_iYields = 0;
};
