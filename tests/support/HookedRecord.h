#pragma once

// For systems where the linker cannot redirect calls of a log record's constructor and destructor
// (zel_hook_records). There, the sources of the product and of a test include this header first. So they
// create log records of the class below.

#include "QuenInclude/Logger.h"

/// A test program defines both.
namespace RecordHooks
{
/// Called before a log record is constructed. An exception reaches the code that constructs it.
void Begin();
/// Called after the log record is destroyed.
void End() noexcept;
} // namespace RecordHooks

namespace Logger
{
class CLS_RecordHook
{
protected:
    CLS_RecordHook() { RecordHooks::Begin(); }
    ~CLS_RecordHook() { RecordHooks::End(); }
    CLS_RecordHook(const CLS_RecordHook&) = delete;
    CLS_RecordHook& operator=(const CLS_RecordHook&) = delete;
};

/// The hook is the first base, so it is constructed before the log record and destroyed after it.
class CLS_HookedRecord : private CLS_RecordHook, public LogMessageStream
{
public:
    using LogMessageStream::LogMessageStream;
};
} // namespace Logger

#define LogMessageStream CLS_HookedRecord
#define ZEL_TEST_HOOKED_RECORDS
