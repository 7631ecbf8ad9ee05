#pragma once

#include <functional>
#include <pthread.h>
#include <vector>

/// During its life, it records the joined threads in order. It may refuse one of the joins with EDEADLK, as
/// the system does when it detects a deadlock. Only one may exist at a time.
class CLS_WatchedJoins
{
public:
    /// Refuses the _iFailing-th join from now on: 1 is the next, 0 is none. _funHook is called with each
    /// thread before it is joined, on the thread that joins, with no lock held.
    explicit CLS_WatchedJoins(int _iFailing, const std::function<void(pthread_t)>& _funHook = {});
    ~CLS_WatchedJoins();
    CLS_WatchedJoins(const CLS_WatchedJoins&) = delete;
    CLS_WatchedJoins& operator=(const CLS_WatchedJoins&) = delete;

    /// The threads so far, oldest first, including the refused one.
    std::vector<pthread_t> GetThreads() const;
};
