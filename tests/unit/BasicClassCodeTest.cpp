// The rule for class codes on platforms whose type names contain blanks and colons. This file compiles the
// base object again, under another name and with made-up type names.

#include "QuenInclude/CLS_CVariant.h"
#include "QuenInclude/Logger.h"
#include "QuenInclude/Util.h"

#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <typeinfo>
#include <utility>
#include <vector>

namespace
{
std::string& GetTypeName()
{
    static std::string s_strName;
    return s_strName;
}

struct ST_MadeUpType
{
    const char* name() const { return GetTypeName().c_str(); }
};
} // namespace

#if defined(__clang__)
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wkeyword-macro"
#endif
#define CLS_Basic CLS_BasicOfMadeUpType
#define typeid(object) ST_MadeUpType()
#include "QuenInclude/CLS_Basic.cpp"
#undef typeid
#undef CLS_Basic
#if defined(__clang__)
#pragma clang diagnostic pop
#endif

namespace
{
std::string GetCode(const std::string& _strTypeName)
{
    GetTypeName() = _strTypeName;
    return CLS_BasicOfMadeUpType().GetClassCode();
}

TEST(BasicClassCodeTest, IsTheLastPieceAfterBlanksAndColons)
{
    EXPECT_EQ("CLS_Task", GetCode("class ns::CLS_Task"));
    EXPECT_EQ("CLS_Task", GetCode("class CLS_Task"));
    EXPECT_EQ("CLS_Task", GetCode("struct outer::inner::CLS_Task"));
    EXPECT_EQ("CLS_Task", GetCode("ns::CLS_Task"));
    EXPECT_EQ("CLS_Task", GetCode("ns:CLS_Task"));
}

TEST(BasicClassCodeTest, IsTheWholeNameWithoutThem)
{
    EXPECT_EQ("8CLS_Task", GetCode("8CLS_Task"));
}

TEST(BasicClassCodeTest, IsEmptyForANameThatHasNothingElse)
{
    for (const char* const szName : {"", " ", "::", "class ::"})
    {
        EXPECT_EQ("", GetCode(szName)) << szName;
    }
}

TEST(BasicClassCodeTest, BlanksAreSplitFirst)
{
    EXPECT_EQ("int>", GetCode("class ns::CLS_Pair<ns::A, int>"));
}

TEST(BasicClassCodeTest, StaysValidWhileOtherCodesAreMade)
{
    GetTypeName() = "class kept::CLS_Kept";
    const char* const szCode = CLS_BasicOfMadeUpType().GetClassCode();
    for (int i = 0; i < 1000; ++i)
    {
        EXPECT_EQ("CLS_" + std::to_string(i), GetCode("class ns::CLS_" + std::to_string(i)));
    }
    EXPECT_STREQ("CLS_Kept", szCode);
    GetTypeName() = "class kept::CLS_Kept";
    EXPECT_EQ(szCode, CLS_BasicOfMadeUpType().GetClassCode());
}
} // namespace
