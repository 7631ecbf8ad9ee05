#pragma once

/// During its life, it counts the threads that the process requests from the system. It may refuse one of
/// them with EAGAIN, as a system without free threads does. Only one may exist at a time.
class CLS_FailingThreads
{
public:
    /// Refuses the _iFailing-th request from now on: 1 is the next, 0 is none.
    explicit CLS_FailingThreads(int _iFailing);
    ~CLS_FailingThreads();
    CLS_FailingThreads(const CLS_FailingThreads&) = delete;
    CLS_FailingThreads& operator=(const CLS_FailingThreads&) = delete;

    /// The number of requests so far, including the refused one.
    int GetRequests() const;
};
