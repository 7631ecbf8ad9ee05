#pragma once

// The sources of the product and of a test are compiled with this before everything else where the linker
// cannot lead calls of a record's constructor and destructor to the test (zel_hook_records). They make
// records of the class below.

#include "QuenInclude/Logger.h"

/// A test program has one pair of these.
namespace RecordHooks
{
/// A record is about to be made. An exception passes to the one that makes it.
void Begin();
/// It has come to its end.
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

/// The hook is a base that comes first, so that it begins before the record and ends behind it.
class CLS_HookedRecord : private CLS_RecordHook, public LogMessageStream
{
public:
    using LogMessageStream::LogMessageStream;
};
} // namespace Logger

#define LogMessageStream CLS_HookedRecord
#define ZEL_TEST_HOOKED_RECORDS
