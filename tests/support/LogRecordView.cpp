#include "tests/support/LogRecordView.h"

namespace LogRecordView
{
ClassLayout::Members ListMembers(const Logger::LogMessageStream& _clsRecord)
{
    return {ClassLayout::Describe("m_szFile", _clsRecord.m_szFile),
            ClassLayout::Describe("m_szModule", _clsRecord.m_szModule),
            ClassLayout::Describe("m_szFunction", _clsRecord.m_szFunction),
            ClassLayout::Describe("m_iLine", _clsRecord.m_iLine),
            ClassLayout::Describe("m_iLevel", _clsRecord.m_iLevel)};
}
} // namespace LogRecordView
