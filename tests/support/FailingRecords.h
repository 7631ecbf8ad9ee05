#pragma once

/// During its life, the constructor of a log record throws std::bad_alloc on every thread. Only one may exist
/// at a time.
class CLS_FailingRecords
{
public:
    CLS_FailingRecords();
    ~CLS_FailingRecords();
    CLS_FailingRecords(const CLS_FailingRecords&) = delete;
    CLS_FailingRecords& operator=(const CLS_FailingRecords&) = delete;

    /// The number of log records that failed so far.
    int GetFailures() const;
};
