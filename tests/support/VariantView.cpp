#include "tests/support/VariantView.h"

namespace VariantView
{
CLS_Mutex& GetTypeLock(CLS_CVariant& _clsVariant)
{
    return _clsVariant.m_mtxType;
}

void*& GetPointer(CLS_CVariant& _clsVariant)
{
    return _clsVariant.m_uValue.m_pValue;
}

std::string*& GetText(CLS_CVariant& _clsVariant)
{
    return _clsVariant.m_uValue.m_pString;
}

std::vector<CLS_CVariant>*& GetList(CLS_CVariant& _clsVariant)
{
    return _clsVariant.m_uValue.m_pVector;
}

Entries*& GetMap(CLS_CVariant& _clsVariant)
{
    return _clsVariant.m_uValue.m_pMap;
}

ClassLayout::Members ListMembers(const CLS_CVariant& _clsVariant)
{
    return {ClassLayout::Describe("m_mtxType", _clsVariant.m_mtxType),
            ClassLayout::Describe("m_iType", _clsVariant.m_iType),
            ClassLayout::Describe("m_uValue", _clsVariant.m_uValue)};
}

long long GetInteger(const CLS_CVariant& _clsVariant)
{
    return _clsVariant.m_uValue.m_iValue;
}

const void* GetPointer(const CLS_CVariant& _clsVariant)
{
    return _clsVariant.m_uValue.m_pValue;
}

const std::vector<CLS_CVariant>* GetList(const CLS_CVariant& _clsVariant)
{
    return _clsVariant.m_uValue.m_pVector;
}
} // namespace VariantView
