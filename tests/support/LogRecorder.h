#pragma once

#include <functional>
#include <ostream>
#include <string>
#include <vector>

/// The tests' own logging library: keeps every log record that reaches "PrintLog". Thread-safe.
namespace LogRecorder
{
/// One log record as "PrintLog" received it; a null text reads "(null)".
struct ST_Record
{
    int m_iLevel;
    std::string m_strModule;
    std::string m_strFile;
    int m_iLine;
    std::string m_strFunction;
    std::string m_strMessage;
};

/// Returns all log records since the last Take or Clear, oldest first, and forgets them.
std::vector<ST_Record> Take();

/// A copy of the log records, which are kept.
std::vector<ST_Record> Peek();

void Clear();

/// Sets a function that is called with each log record, on the thread that logs, after the record was kept
/// and with no lock held. An empty function removes it.
void SetHook(const std::function<void(const ST_Record&)>& _funHook);

void PrintTo(const ST_Record& _stRecord, std::ostream* _pOut);
} // namespace LogRecorder
