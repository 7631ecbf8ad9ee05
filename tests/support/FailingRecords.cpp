#include "tests/support/FailingRecords.h"

#include "QuenInclude/Logger.h"

#include <atomic>
#include <new>

namespace
{
std::atomic<bool> g_bFailing{false};
std::atomic<int> g_iFailures{0};
} // namespace

CLS_FailingRecords::CLS_FailingRecords()
{
    g_iFailures = 0;
    g_bFailing = true;
}

CLS_FailingRecords::~CLS_FailingRecords()
{
    g_bFailing = false;
}

int CLS_FailingRecords::GetFailures() const
{
    return g_iFailures;
}

namespace
{
void FailRecord()
{
    if (g_bFailing)
    {
        ++g_iFailures;
        throw std::bad_alloc();
    }
}
} // namespace

#ifdef ZEL_TEST_HOOKED_RECORDS
void RecordHooks::Begin()
{
    FailRecord();
}

void RecordHooks::End() noexcept {}
#else
// The linker redirects the product's calls of the log record's constructor to this one (zel_fail_records).
extern "C"
{
    void __real__ZN6Logger16LogMessageStreamC1EPKcS2_S2_ii(Logger::LogMessageStream*, const char*,
                                                           const char*, const char*, int, int);

    void __wrap__ZN6Logger16LogMessageStreamC1EPKcS2_S2_ii(Logger::LogMessageStream* _pRecord,
                                                           const char* _szModule, const char* _szFunction,
                                                           const char* _szFile, int _iLine, int _iLevel)
    {
        FailRecord();
        __real__ZN6Logger16LogMessageStreamC1EPKcS2_S2_ii(_pRecord, _szModule, _szFunction, _szFile, _iLine,
                                                          _iLevel);
    }
}
#endif
