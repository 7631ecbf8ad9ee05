#pragma once

#include "QuenInclude/CLS_Basic.h"
#include "tests/support/ClassLayout.h"

#include <map>
#include <string>
#include <utility>

/// The private side of CLS_Basic, for tests that look inside. Only BasicView.cpp writes the private names.
namespace BasicView
{
using Params = std::map<std::string, CLS_CVariant>;
using CallBacks = std::map<std::string, std::pair<CallBackResultFun, void*>>;

CLS_SharedMutex& GetParamLock(CLS_Basic& _clsBasic);
Params& GetParams(CLS_Basic& _clsBasic);
CLS_SharedMutex& GetCallBackLock(CLS_Basic& _clsBasic);
CallBacks& GetCallBacks(CLS_Basic& _clsBasic);

/// The members in the order of their declarations.
ClassLayout::Members ListMembers(const CLS_Basic& _clsBasic);
} // namespace BasicView
