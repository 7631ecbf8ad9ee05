#pragma once

/// While one lives, no log record can be made, on any thread: its constructor throws std::bad_alloc. One at a
/// time.
class CLS_FailingRecords
{
public:
    CLS_FailingRecords();
    ~CLS_FailingRecords();
    CLS_FailingRecords(const CLS_FailingRecords&) = delete;
    CLS_FailingRecords& operator=(const CLS_FailingRecords&) = delete;

    /// Records that could not be made so far.
    int GetFailures() const;
};
