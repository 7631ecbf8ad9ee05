#pragma once

#include <functional>
#include <pthread.h>
#include <vector>

/// While one lives, it keeps the threads that anybody waits for the end of, in order, and may refuse one of
/// these waits, as the system does when it sees a deadlock (EDEADLK). One at a time.
class CLS_WatchedJoins
{
public:
    /// Refuses the _iFailing-th wait from now on, 1 being the next; none when 0. _funHook is called with each
    /// thread before it is waited for, on the thread that waits, with no lock held.
    explicit CLS_WatchedJoins(int _iFailing, const std::function<void(pthread_t)>& _funHook = {});
    ~CLS_WatchedJoins();
    CLS_WatchedJoins(const CLS_WatchedJoins&) = delete;
    CLS_WatchedJoins& operator=(const CLS_WatchedJoins&) = delete;

    /// The threads so far, oldest first, the refused one included.
    std::vector<pthread_t> GetThreads() const;
};
