// A callback whose key is already in use. Generated keys always differ. So this file compiles the base object
// again, under another name and with the same id every time.

#include "QuenInclude/CLS_CVariant.h"
#include "QuenInclude/Logger.h"
#include "QuenInclude/Util.h"

#include <gmock/gmock.h>
#include <string>
#include <vector>

namespace Util
{
inline std::string GetSameUuid()
{
    return "key";
}
} // namespace Util

#define CLS_Basic CLS_BasicOfOneKey
#define GetUuid GetSameUuid
#include "QuenInclude/CLS_Basic.cpp"
#undef GetUuid
#undef CLS_Basic

namespace
{
using ::testing::ElementsAre;

TEST(BasicKeyTest, ACallBackUnderTheSameKeyReplacesTheOneBefore)
{
    CLS_BasicOfOneKey clsObject;
    std::vector<std::string> vecCalls;
    int iFirst = 0;
    int iSecond = 0;
    clsObject.SetCallBackResultFun(
        [&](const auto&, const auto&, const auto&, void*) { vecCalls.emplace_back("first"); }, &iFirst);
    void* pUser = nullptr;
    const std::string strKey = clsObject.SetCallBackResultFun(
        [&](const auto&, const auto&, const auto&, void* _pUser)
        {
            vecCalls.emplace_back("second");
            pUser = _pUser;
        },
        &iSecond);
    EXPECT_EQ("key", strKey);
    clsObject.RunCallBackFun("", {}, "", ""); // calls all callbacks
    EXPECT_THAT(vecCalls, ElementsAre("second"));
    EXPECT_EQ(&iSecond, pUser);
}
} // namespace
