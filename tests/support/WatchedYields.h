#pragma once

#include <functional>

/// How often the dispatcher and a worker yield at most before they go to sleep after work.
constexpr int GIVE_WAYS = 4;

/// While one lives, the calling thread's yields are counted, and a function is called with each: the place to
/// make something happen meanwhile. One at a time on a thread.
class CLS_WatchedYields
{
public:
    explicit CLS_WatchedYields(const std::function<void()>& _funHook = {});
    ~CLS_WatchedYields();
    CLS_WatchedYields(const CLS_WatchedYields&) = delete;
    CLS_WatchedYields& operator=(const CLS_WatchedYields&) = delete;

    int GetYields() const { return m_iYields; }

    /// The thread gives way.
    void Note();

private:
    const std::function<void()> m_funHook;
    int m_iYields = 0;
};
