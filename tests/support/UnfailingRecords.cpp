// Exempts log records from the failures of FailingMemory, from their construction to their end. A log record
// whose emission fails ends the process, as any exception from a destructor does.
//
// The product's calls of the constructor and destructor come here (zel_exempt_records). So the exemption
// includes the texts that are streamed into the log record, and "PrintLog".

#include "QuenInclude/Logger.h"
#include "tests/support/FailingMemory.h"

#ifdef ZEL_TEST_HOOKED_RECORDS
void RecordHooks::Begin()
{
    FailingMemory::EnterExempt();
}

void RecordHooks::End() noexcept
{
    FailingMemory::LeaveExempt();
}
#else
extern "C"
{
    void __real__ZN6Logger16LogMessageStreamC1EPKcS2_S2_ii(Logger::LogMessageStream*, const char*,
                                                           const char*, const char*, int, int);
    void __real__ZN6Logger16LogMessageStreamD1Ev(Logger::LogMessageStream*);

    void __wrap__ZN6Logger16LogMessageStreamC1EPKcS2_S2_ii(Logger::LogMessageStream* _pRecord,
                                                           const char* _szModule, const char* _szFunction,
                                                           const char* _szFile, int _iLine, int _iLevel)
    {
        FailingMemory::EnterExempt();
        __real__ZN6Logger16LogMessageStreamC1EPKcS2_S2_ii(_pRecord, _szModule, _szFunction, _szFile, _iLine,
                                                          _iLevel);
    }

    void __wrap__ZN6Logger16LogMessageStreamD1Ev(Logger::LogMessageStream* _pRecord)
    {
        __real__ZN6Logger16LogMessageStreamD1Ev(_pRecord);
        FailingMemory::LeaveExempt();
    }
}
#endif
