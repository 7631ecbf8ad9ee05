// Gives, copies, re-types and converts a few variants, and compares them with their models after each step.

#include "QuenInclude/Util.h"
#include "tests/support/VariantView.h"
#include "verify/fuzz/VariantModel.h"

#include <array>

namespace
{
constexpr std::size_t SLOTS = 3;
constexpr int DEPTH = 3;
constexpr int MOST_STEPS = 200;
/// From this number on, the steps that assign a list or map of all variants are left out, because these grow.
constexpr std::size_t MOST_VARIANTS = 100;

/// A few variants with their models.
class CLS_Slots
{
public:
    void MakeStep(CLS_FuzzInput& _clsInput)
    {
        const std::size_t iStep = _clsInput.TakeBelow(8);
        CLS_CVariant& clsTarget = m_arrVariants[_clsInput.TakeBelow(SLOTS)];
        ST_VariantModel& stTarget = m_arrModels[static_cast<std::size_t>(&clsTarget - m_arrVariants.data())];
        const std::size_t iSource = _clsInput.TakeBelow(SLOTS);
        switch (iStep)
        {
        case 0:
        case 1:
            VariantModel::Make(_clsInput, DEPTH, clsTarget, stTarget);
            break;
        case 2:
            SetAnyType(_clsInput, clsTarget, stTarget);
            break;
        case 3:
            AssignOwnElement(_clsInput, clsTarget, stTarget);
            break;
        case 4:
            AssignListOfAll(clsTarget, stTarget);
            break;
        case 5:
            AssignMapOfAll(clsTarget, stTarget);
            break;
        case 6:
            VariantModel::RequireSame(CLS_CVariant(clsTarget), stTarget);
            break;
        default:
            clsTarget = m_arrVariants[iSource];
            VariantModel::Assign(stTarget, m_arrModels[iSource]);
            break;
        }
    }

    void RequireSame() const
    {
        for (std::size_t i = 0; i < SLOTS; ++i)
        {
            VariantModel::RequireSame(m_arrVariants[i], m_arrModels[i]);
            RequireSamePrint(m_arrVariants[i].ToMap(), m_arrModels[i].m_mapEntries);
        }
    }

private:
    static void SetAnyType(CLS_FuzzInput& _clsInput, CLS_CVariant& _clsTarget, ST_VariantModel& _stTarget)
    {
        // The valid types, and one invalid value on either side.
        const auto iType = static_cast<n_CVariantType>(static_cast<int>(_clsInput.TakeBelow(10)) - 2);
        _clsTarget.SetType(iType);
        VariantModel::SetType(_stTarget, iType);
    }

    static void AssignOwnElement(CLS_FuzzInput& _clsInput, CLS_CVariant& _clsTarget,
                                 ST_VariantModel& _stTarget)
    {
        const std::size_t iElement = _clsInput.TakeBelow(256);
        if (!_stTarget.m_vecElements.empty())
        {
            const std::size_t iIndex = iElement % _stTarget.m_vecElements.size();
            _clsTarget = (*VariantView::GetList(_clsTarget))[iIndex];
            VariantModel::Assign(_stTarget, _stTarget.m_vecElements[iIndex]);
        }
        else if (!_stTarget.m_mapEntries.empty())
        {
            const std::string strKey = _stTarget.m_mapEntries.begin()->first;
            _clsTarget = VariantView::GetMap(_clsTarget)->at(strKey);
            VariantModel::Assign(_stTarget, _stTarget.m_mapEntries.at(strKey));
        }
    }

    bool IsSmall() const
    {
        std::size_t iCount = 0;
        for (const ST_VariantModel& stModel : m_arrModels)
        {
            iCount += VariantModel::Count(stModel);
        }
        return iCount < MOST_VARIANTS;
    }

    void AssignListOfAll(CLS_CVariant& _clsTarget, ST_VariantModel& _stTarget)
    {
        if (IsSmall())
        {
            ST_VariantModel stList;
            stList.m_iType = CVariantType_Vector;
            stList.m_bOwns = true;
            stList.m_vecElements.assign(m_arrModels.begin(), m_arrModels.end());
            ForgetLeftBits(stList.m_vecElements);
            _clsTarget = std::vector<CLS_CVariant>(m_arrVariants.begin(), m_arrVariants.end());
            VariantModel::Assign(_stTarget, stList);
        }
    }

    void AssignMapOfAll(CLS_CVariant& _clsTarget, ST_VariantModel& _stTarget)
    {
        if (IsSmall())
        {
            std::map<std::string, CLS_CVariant> mapEntries;
            ST_VariantModel stMap;
            stMap.m_iType = CVariantType_Map;
            stMap.m_bOwns = true;
            for (std::size_t i = 0; i < SLOTS; ++i)
            {
                const std::string strKey(i, 'k');
                mapEntries[strKey] = m_arrVariants[i];
                VariantModel::Assign(stMap.m_mapEntries[strKey], m_arrModels[i]);
            }
            _clsTarget = mapEntries;
            VariantModel::Assign(_stTarget, stMap);
        }
    }

    /// Copies each model. A copy of an empty variant does not take over the bits that are left in the
    /// original.
    static void ForgetLeftBits(std::vector<ST_VariantModel>& _vecModels)
    {
        for (ST_VariantModel& stModel : _vecModels)
        {
            ST_VariantModel stFresh;
            VariantModel::Assign(stFresh, stModel);
            stModel = stFresh;
        }
    }

    static void RequireSamePrint(const std::map<std::string, CLS_CVariant>& _mapEntries,
                                 const std::map<std::string, ST_VariantModel>& _mapModels)
    {
        std::string strPrint;
        for (const auto& [strKey, stModel] : _mapModels)
        {
            strPrint += "[" + strKey + "] : [" + VariantModel::ToText(stModel) + "]\n";
        }
        Require(Util::MapToString(_mapEntries) == strPrint, "the print of a map");
    }

    std::array<CLS_CVariant, SLOTS> m_arrVariants;
    std::array<ST_VariantModel, SLOTS> m_arrModels;
};
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* _pData, std::size_t _iSize)
{
    CLS_FuzzInput clsInput(_pData, _iSize);
    CLS_Slots clsSlots;
    for (int iStep = 0; iStep < MOST_STEPS && !clsInput.IsAtEnd(); ++iStep)
    {
        clsSlots.MakeStep(clsInput);
        clsSlots.RequireSame();
    }
    return 0;
}
