#pragma once

/// While one lives, it counts the threads that the process asks the system for, on any thread, and may refuse
/// one of them, as a system that has run out of threads does (EAGAIN). One at a time.
class CLS_FailingThreads
{
public:
    /// Refuses the _iFailing-th request from now on, 1 being the next; none when 0.
    explicit CLS_FailingThreads(int _iFailing);
    ~CLS_FailingThreads();
    CLS_FailingThreads(const CLS_FailingThreads&) = delete;
    CLS_FailingThreads& operator=(const CLS_FailingThreads&) = delete;

    /// Requests so far, the refused one included.
    int GetRequests() const;
};
