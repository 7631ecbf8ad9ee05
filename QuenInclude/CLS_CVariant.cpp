#include "QuenInclude/CLS_CVariant.h"

#include <locale>
#include <sstream>
#include <utility>

namespace
{
bool IsOwned(n_CVariantType _iType)
{
    return _iType == CVariantType_String || _iType == CVariantType_Vector || _iType == CVariantType_Map;
}

/// Whether a variant of this type has a value. None and types outside the table have no value.
bool HasValue(n_CVariantType _iType)
{
    return _iType >= CVariantType_Bool && _iType <= CVariantType_Pointer;
}

/// The stream form of one value, the same on every machine whatever the host's locale.
template <typename T_Value>
std::string StreamToString(T_Value _tValue)
{
    std::ostringstream ossText;
    ossText.imbue(std::locale::classic());
    ossText << _tValue;
    return ossText.str();
}

std::string PointerToString(const void* _pValue)
{
    // Standard libraries disagree on how a null pointer prints.
    return _pValue == nullptr ? "0x0" : StreamToString(_pValue);
}

std::string VectorToString(const std::vector<CLS_CVariant>& _vecValue)
{
    std::string strText;
    for (const CLS_CVariant& clsElement : _vecValue)
    {
        strText += (strText.empty() ? "" : "|") + clsElement.ToString();
    }
    return strText;
}
} // namespace

CLS_CVariant::CLS_CVariant() = default;

CLS_CVariant::CLS_CVariant(int _iValue) : CLS_CVariant(static_cast<long long>(_iValue)) {}

CLS_CVariant::CLS_CVariant(long _iValue) : CLS_CVariant(static_cast<long long>(_iValue)) {}

CLS_CVariant::CLS_CVariant(long long _iValue) : m_iType(CVariantType_LongLong)
{
    m_uValue.m_iValue = _iValue;
}

CLS_CVariant::CLS_CVariant(double _dValue) : m_iType(CVariantType_Double)
{
    m_uValue.m_dValue = _dValue;
}

CLS_CVariant::CLS_CVariant(const char* _szValue) : CLS_CVariant(std::string(_szValue ? _szValue : "")) {}

CLS_CVariant::CLS_CVariant(const std::string& _strValue) : m_iType(CVariantType_String)
{
    m_uValue.m_pString = new std::string(_strValue);
}

CLS_CVariant::CLS_CVariant(std::string&& _strValue) : m_iType(CVariantType_String)
{
    m_uValue.m_pString = new std::string(std::move(_strValue));
}

CLS_CVariant::CLS_CVariant(const std::vector<CLS_CVariant>& _vecValue) : m_iType(CVariantType_Vector)
{
    m_uValue.m_pVector = new std::vector<CLS_CVariant>(_vecValue);
}

CLS_CVariant::CLS_CVariant(const std::map<std::string, CLS_CVariant>& _mapValue) : m_iType(CVariantType_Map)
{
    m_uValue.m_pMap = new std::map<std::string, CLS_CVariant>(_mapValue);
}

CLS_CVariant::CLS_CVariant(void* _pValue) : m_iType(CVariantType_Pointer)
{
    m_uValue.m_pValue = _pValue;
}

CLS_CVariant::CLS_CVariant(const CLS_CVariant& _clsOther)
{
    *this = _clsOther;
}

CLS_CVariant::CLS_CVariant(CLS_CVariant&& _clsOther) noexcept
    : m_iType(std::exchange(_clsOther.m_iType, CVariantType_None))
{
    if (HasValue(m_iType))
    {
        m_uValue = std::exchange(_clsOther.m_uValue, u_Value());
    }
}

CLS_CVariant::~CLS_CVariant()
{
    SetType(CVariantType_None);
}

CLS_CVariant& CLS_CVariant::operator=(const CLS_CVariant& _clsOther)
{
    if (this == &_clsOther)
    {
        return *this;
    }
    const n_CVariantType iType = _clsOther.m_iType;
    const u_Value uValue = _clsOther.CopyValue();
    // From here on _clsOther may be gone, because it may live in what is freed.
    SetType(iType);
    if (HasValue(iType))
    {
        m_uValue = uValue;
    }
    return *this;
}

CLS_CVariant& CLS_CVariant::operator=(CLS_CVariant&& _clsOther) noexcept
{
    CLS_CVariant clsTaken(std::move(_clsOther));
    // From here on _clsOther may be gone, because it may live in what is freed.
    SetType(clsTaken.m_iType);
    if (HasValue(m_iType))
    {
        m_uValue = clsTaken.m_uValue;
    }
    clsTaken.m_iType = CVariantType_None;
    return *this;
}

void CLS_CVariant::SetType(n_CVariantType _iType)
{
    const CLS_LockGuard lock(m_mtxType);
    FreeValue();
    if (IsOwned(m_iType) || IsOwned(_iType))
    {
        m_uValue.m_pValue = nullptr;
    }
    m_iType = _iType;
}

void CLS_CVariant::FreeValue()
{
    switch (m_iType)
    {
    case CVariantType_String:
        delete m_uValue.m_pString;
        break;
    case CVariantType_Vector:
        delete m_uValue.m_pVector;
        break;
    case CVariantType_Map:
        delete m_uValue.m_pMap;
        break;
    default:
        break;
    }
}

CLS_CVariant::u_Value CLS_CVariant::CopyValue() const
{
    u_Value uCopy = m_uValue;
    if (IsOwned(m_iType) && m_uValue.m_pValue == nullptr)
    {
        return uCopy;
    }
    switch (m_iType)
    {
    case CVariantType_String:
        uCopy.m_pString = new std::string(*m_uValue.m_pString);
        break;
    case CVariantType_Vector:
        uCopy.m_pVector = new std::vector<CLS_CVariant>(*m_uValue.m_pVector);
        break;
    case CVariantType_Map:
        uCopy.m_pMap = new std::map<std::string, CLS_CVariant>(*m_uValue.m_pMap);
        break;
    default:
        break;
    }
    return uCopy;
}

std::string CLS_CVariant::ToString() const
{
    switch (m_iType)
    {
    case CVariantType_Bool:
        return ToBool() ? "1" : "0";
    case CVariantType_LongLong:
        return StreamToString(m_uValue.m_iValue);
    case CVariantType_Double:
        return StreamToString(m_uValue.m_dValue);
    case CVariantType_String:
        return m_uValue.m_pString ? *m_uValue.m_pString : std::string();
    case CVariantType_Vector:
        return m_uValue.m_pVector ? VectorToString(*m_uValue.m_pVector) : std::string();
    case CVariantType_Pointer:
        return PointerToString(m_uValue.m_pValue);
    default:
        return std::string();
    }
}

std::string CLS_CVariant::TakeText()
{
    if (m_iType == CVariantType_String && m_uValue.m_pString != nullptr)
    {
        return std::exchange(*m_uValue.m_pString, {});
    }
    return ToString();
}

void CLS_CVariant::AppendTo(std::string& _strText) const
{
    if (m_iType == CVariantType_String && m_uValue.m_pString != nullptr)
    {
        _strText += *m_uValue.m_pString;
    }
    else
    {
        _strText += ToString();
    }
}

bool CLS_CVariant::ToBool() const
{
    return m_iType == CVariantType_Bool ? m_uValue.m_bValue != 0 : ToString() == "true";
}

std::map<std::string, CLS_CVariant> CLS_CVariant::ToMap() const
{
    if (m_iType != CVariantType_Map || m_uValue.m_pMap == nullptr)
    {
        return {};
    }
    return *m_uValue.m_pMap;
}
