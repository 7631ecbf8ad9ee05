#pragma once

#include "QuenInclude/CLS_CVariant.h"
#include "tests/support/ClassLayout.h"

#include <map>
#include <string>
#include <vector>

/// The private side of CLS_CVariant, for tests that look inside. Only VariantView.cpp writes the private
/// names.
namespace VariantView
{
using Entries = std::map<std::string, CLS_CVariant>;

CLS_Mutex& GetTypeLock(CLS_CVariant& _clsVariant);
/// The bits of the value as a pointer: that of an owned value, too.
void*& GetPointer(CLS_CVariant& _clsVariant);
std::string*& GetText(CLS_CVariant& _clsVariant);
std::vector<CLS_CVariant>*& GetList(CLS_CVariant& _clsVariant);
Entries*& GetMap(CLS_CVariant& _clsVariant);

/// The members in the order of their declarations.
ClassLayout::Members ListMembers(const CLS_CVariant& _clsVariant);

/// The bits of the value as an integer.
long long GetInteger(const CLS_CVariant& _clsVariant);
const void* GetPointer(const CLS_CVariant& _clsVariant);
const std::vector<CLS_CVariant>* GetList(const CLS_CVariant& _clsVariant);
} // namespace VariantView
