#include "QuenInclude/CLS_Basic.h"
#include "tests/support/BasicView.h"
#include "tests/support/VariantView.h"
#include "tests/support/WatchedLocks.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>

namespace
{
using ::testing::ElementsAre;

TEST(FoundationLocksTest, CallBacksWithinCallBacksTakeTheLockOnce)
{
    CLS_Basic clsObject;
    int iDepth = 0;
    clsObject.SetCallBackResultFun(
        [&](const auto&, const auto&, const auto&, void*)
        {
            if (++iDepth < 4)
            {
                clsObject.RunCallBackFun("", {}, "", "");
            }
        },
        nullptr);
    CLS_WatchedLocks clsWatch;
    clsWatch.Watch(BasicView::GetCallBackLock(clsObject));
    clsObject.RunCallBackFun("", {}, "", "");
    EXPECT_EQ(4, iDepth);
    EXPECT_THAT(clsWatch.GetTaken(), ElementsAre(1));
    clsObject.RunCallBackFun("", {}, "", "");
    EXPECT_THAT(clsWatch.GetTaken(), ElementsAre(2));
}

TEST(FoundationLocksTest, SetTypeAssignmentAndDestructionTakeTheVariantsOwnLock)
{
    auto pValue = std::make_unique<CLS_CVariant>("text");
    CLS_WatchedLocks clsWatch;
    clsWatch.Watch(VariantView::GetTypeLock(*pValue));
    pValue->SetType(CVariantType_Map);
    EXPECT_THAT(clsWatch.GetTaken(), ElementsAre(1));
    *pValue = CLS_CVariant(1);
    EXPECT_THAT(clsWatch.GetTaken(), ElementsAre(2));
    EXPECT_EQ("1", pValue->ToString());
    EXPECT_THAT(clsWatch.GetTaken(), ElementsAre(2));
    pValue.reset();
    EXPECT_THAT(clsWatch.GetTaken(), ElementsAre(3));
}
} // namespace
