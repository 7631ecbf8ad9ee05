#include "tests/support/BasicView.h"

namespace BasicView
{
CLS_SharedMutex& GetParamLock(CLS_Basic& _clsBasic)
{
    return _clsBasic.m_smParamLock;
}

Params& GetParams(CLS_Basic& _clsBasic)
{
    return _clsBasic.m_mapParam;
}

CLS_SharedMutex& GetCallBackLock(CLS_Basic& _clsBasic)
{
    return _clsBasic.m_smCallBackLock;
}

CallBacks& GetCallBacks(CLS_Basic& _clsBasic)
{
    return _clsBasic.m_mapCallBackFun;
}

ClassLayout::Members ListMembers(const CLS_Basic& _clsBasic)
{
    return {ClassLayout::Describe("m_smParamLock", _clsBasic.m_smParamLock),
            ClassLayout::Describe("m_mapParam", _clsBasic.m_mapParam),
            ClassLayout::Describe("m_smCallBackLock", _clsBasic.m_smCallBackLock),
            ClassLayout::Describe("m_mapCallBackFun", _clsBasic.m_mapCallBackFun)};
}
} // namespace BasicView
