#pragma once

#include <atomic>
#include <memory>

/// Counts its living copies, including itself. For captures. Thread-safe.
class CLS_LiveCopy
{
public:
    using Count = std::shared_ptr<std::atomic<long>>;

    static Count MakeCount() { return std::make_shared<std::atomic<long>>(0); }

    explicit CLS_LiveCopy(Count _pCount) : m_pCount(std::move(_pCount)) { ++*m_pCount; }
    CLS_LiveCopy(const CLS_LiveCopy& _clsOther) : CLS_LiveCopy(_clsOther.m_pCount) {}
    ~CLS_LiveCopy() { --*m_pCount; }
    CLS_LiveCopy& operator=(const CLS_LiveCopy&) = delete;

private:
    Count m_pCount;
};
