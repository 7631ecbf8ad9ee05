#include "verify/fuzz/VariantModel.h"

#include "tests/support/VariantView.h"

#include <array>
#include <cstdio>
#include <utility>

namespace
{
constexpr std::size_t MOST_ELEMENTS = 4;
constexpr std::size_t MOST_CHARACTERS = 12;

template <typename T_Value>
ST_VariantModel MakeInPlace(n_CVariantType _iType, T_Value _tValue)
{
    ST_VariantModel stModel;
    stModel.m_iType = _iType;
    std::memcpy(&stModel.m_uiBits, &_tValue, sizeof _tValue);
    return stModel;
}

template <typename T_Value>
T_Value GetInPlace(const ST_VariantModel& _stModel)
{
    T_Value tValue{};
    std::memcpy(&tValue, &_stModel.m_uiBits, sizeof tValue);
    return tValue;
}

template <typename T_Value>
std::string Print(const char* _szFormat, T_Value _tValue)
{
    std::array<char, 64> szText{};
    std::snprintf(szText.data(), szText.size(), _szFormat, _tValue);
    return szText.data();
}

std::string ListToText(const std::vector<ST_VariantModel>& _vecElements)
{
    std::string strText;
    for (const ST_VariantModel& stElement : _vecElements)
    {
        if (!strText.empty())
        {
            strText += "|";
        }
        strText += VariantModel::ToText(stElement);
    }
    return strText;
}

void MakeList(CLS_FuzzInput& _clsInput, int _iDepth, CLS_CVariant& _clsVariant, ST_VariantModel& _stModel)
{
    std::vector<CLS_CVariant> vecElements(_clsInput.TakeBelow(MOST_ELEMENTS));
    ST_VariantModel stModel;
    stModel.m_iType = CVariantType_Vector;
    stModel.m_bOwns = true;
    stModel.m_vecElements.resize(vecElements.size());
    for (std::size_t i = 0; i < vecElements.size(); ++i)
    {
        VariantModel::Make(_clsInput, _iDepth - 1, vecElements[i], stModel.m_vecElements[i]);
    }
    _clsVariant = vecElements;
    VariantModel::Assign(_stModel, std::move(stModel));
}

void MakeMap(CLS_FuzzInput& _clsInput, int _iDepth, CLS_CVariant& _clsVariant, ST_VariantModel& _stModel)
{
    std::map<std::string, CLS_CVariant> mapEntries;
    ST_VariantModel stModel;
    stModel.m_iType = CVariantType_Map;
    stModel.m_bOwns = true;
    for (std::size_t i = _clsInput.TakeBelow(MOST_ELEMENTS); i > 0; --i)
    {
        const std::string strKey = _clsInput.TakeText(MOST_CHARACTERS);
        VariantModel::Make(_clsInput, _iDepth - 1, mapEntries[strKey], stModel.m_mapEntries[strKey]);
    }
    _clsVariant = mapEntries;
    VariantModel::Assign(_stModel, std::move(stModel));
}

void MakeText(CLS_FuzzInput& _clsInput, CLS_CVariant& _clsVariant, ST_VariantModel& _stModel)
{
    ST_VariantModel stModel;
    stModel.m_iType = CVariantType_String;
    stModel.m_bOwns = true;
    stModel.m_strText = _clsInput.TakeText(MOST_CHARACTERS);
    _clsVariant = stModel.m_strText;
    VariantModel::Assign(_stModel, std::move(stModel));
}

void RequireSameElements(const CLS_CVariant& _clsVariant, const ST_VariantModel& _stModel)
{
    const std::vector<CLS_CVariant>& vecElements = *VariantView::GetList(_clsVariant);
    Require(vecElements.size() == _stModel.m_vecElements.size(), "the length of a list");
    for (std::size_t i = 0; i < vecElements.size(); ++i)
    {
        VariantModel::RequireSame(vecElements[i], _stModel.m_vecElements[i]);
    }
}

void RequireSameEntries(const CLS_CVariant& _clsVariant, const ST_VariantModel& _stModel)
{
    const std::map<std::string, CLS_CVariant> mapEntries = _clsVariant.ToMap();
    Require(mapEntries.size() == _stModel.m_mapEntries.size(), "the size of a map");
    for (const auto& [strKey, clsValue] : mapEntries)
    {
        const auto itEntry = _stModel.m_mapEntries.find(strKey);
        Require(itEntry != _stModel.m_mapEntries.end(), "a key of a map");
        VariantModel::RequireSame(clsValue, itEntry->second);
    }
}
} // namespace

bool VariantModel::IsOwned(n_CVariantType _iType)
{
    return _iType == CVariantType_String || _iType == CVariantType_Vector || _iType == CVariantType_Map;
}

std::size_t VariantModel::Count(const ST_VariantModel& _stModel)
{
    std::size_t iCount = 1;
    for (const ST_VariantModel& stElement : _stModel.m_vecElements)
    {
        iCount += Count(stElement);
    }
    for (const auto& [strKey, stValue] : _stModel.m_mapEntries)
    {
        iCount += Count(stValue);
    }
    return iCount;
}

std::string VariantModel::ToText(const ST_VariantModel& _stModel)
{
    switch (_stModel.m_iType)
    {
    case CVariantType_Bool:
        return ToFlag(_stModel) ? "1" : "0";
    case CVariantType_LongLong:
        return Print("%lld", GetInPlace<long long>(_stModel));
    case CVariantType_Double:
        return Print("%g", GetInPlace<double>(_stModel));
    case CVariantType_String:
        return _stModel.m_strText;
    case CVariantType_Vector:
        return ListToText(_stModel.m_vecElements);
    case CVariantType_Pointer:
        return Print("0x%llx", GetInPlace<unsigned long long>(_stModel));
    default:
        return "";
    }
}

bool VariantModel::ToFlag(const ST_VariantModel& _stModel)
{
    return _stModel.m_iType == CVariantType_Bool ? (_stModel.m_uiBits & 0xff) != 0
                                                 : ToText(_stModel) == "true";
}

void VariantModel::SetType(ST_VariantModel& _stModel, n_CVariantType _iType)
{
    const bool bKeepsBits = !IsOwned(_stModel.m_iType) && !IsOwned(_iType);
    ST_VariantModel stNew;
    stNew.m_iType = _iType;
    stNew.m_uiBits = bKeepsBits ? _stModel.m_uiBits : 0;
    _stModel = stNew;
}

void VariantModel::Assign(ST_VariantModel& _stModel, ST_VariantModel _stOther)
{
    SetType(_stModel, _stOther.m_iType);
    if (_stOther.m_iType >= CVariantType_Bool && _stOther.m_iType <= CVariantType_Pointer)
    {
        _stModel = std::move(_stOther);
    }
}

void VariantModel::Make(CLS_FuzzInput& _clsInput, int _iDepth, CLS_CVariant& _clsVariant,
                        ST_VariantModel& _stModel)
{
    switch (_clsInput.TakeBelow(_iDepth > 0 ? 7 : 5))
    {
    case 0:
    {
        const bool bValue = _clsInput.TakeBelow(2) == 1;
        _clsVariant = bValue;
        Assign(_stModel, MakeInPlace(CVariantType_Bool, bValue));
        return;
    }
    case 1:
    {
        const auto iValue = _clsInput.TakeNumber<long long>();
        _clsVariant = iValue;
        Assign(_stModel, MakeInPlace(CVariantType_LongLong, iValue));
        return;
    }
    case 2:
    {
        const auto dValue = _clsInput.TakeNumber<double>();
        _clsVariant = dValue;
        Assign(_stModel, MakeInPlace(CVariantType_Double, dValue));
        return;
    }
    case 3:
    {
        void* const pValue = _clsInput.TakeNumber<void*>();
        _clsVariant = pValue;
        Assign(_stModel, MakeInPlace(CVariantType_Pointer, pValue));
        return;
    }
    case 4:
        MakeText(_clsInput, _clsVariant, _stModel);
        return;
    case 5:
        MakeList(_clsInput, _iDepth, _clsVariant, _stModel);
        return;
    default:
        MakeMap(_clsInput, _iDepth, _clsVariant, _stModel);
        return;
    }
}

void VariantModel::RequireSame(const CLS_CVariant& _clsVariant, const ST_VariantModel& _stModel)
{
    Require(_clsVariant.GetType() == _stModel.m_iType, "the type");
    Require(_clsVariant.ToString() == ToText(_stModel), "the text");
    Require(_clsVariant.ToBool() == ToFlag(_stModel), "the flag");
    if (IsOwned(_stModel.m_iType))
    {
        Require((VariantView::GetPointer(_clsVariant) != nullptr) == _stModel.m_bOwns,
                "whether something is owned");
    }
    if (_stModel.m_iType == CVariantType_Vector && _stModel.m_bOwns)
    {
        RequireSameElements(_clsVariant, _stModel);
    }
    RequireSameEntries(_clsVariant, _stModel);
}
