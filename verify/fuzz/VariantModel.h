#pragma once

#include "QuenInclude/CLS_CVariant.h"
#include "verify/fuzz/FuzzInput.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

/// What a variant should hold, in simpler terms: one member for each kind of value, without pointers.
struct ST_VariantModel
{
    n_CVariantType m_iType = CVariantType_None;
    std::uint64_t m_uiBits = 0; ///< the in-place value, whatever type it was given as
    bool m_bOwns = false;       ///< there is a text, list or map
    std::string m_strText;
    std::vector<ST_VariantModel> m_vecElements;
    std::map<std::string, ST_VariantModel> m_mapEntries;
};

namespace VariantModel
{
bool IsOwned(n_CVariantType _iType);

/// The number of variants in the model, itself included.
std::size_t Count(const ST_VariantModel& _stModel);

std::string ToText(const ST_VariantModel& _stModel);
bool ToFlag(const ST_VariantModel& _stModel);

void SetType(ST_VariantModel& _stModel, n_CVariantType _iType);

/// _stOther is taken by value: it may be an element of _stModel.
void Assign(ST_VariantModel& _stModel, ST_VariantModel _stOther);

/// Gives both the same value, which it makes from the input's bytes.
void Make(CLS_FuzzInput& _clsInput, int _iDepth, CLS_CVariant& _clsVariant, ST_VariantModel& _stModel);

/// Ends the process unless the variant holds and converts to what the model says.
void RequireSame(const CLS_CVariant& _clsVariant, const ST_VariantModel& _stModel);
} // namespace VariantModel
