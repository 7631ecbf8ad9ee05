#include "QuenInclude/CLS_CVariant.h"
#include "tests/support/VariantView.h"

#include <gtest/gtest.h>
#include <thread>
#include <type_traits>
#include <utility>

// Some tests assign a variant to itself on purpose.
#if defined(__clang__)
#pragma clang diagnostic ignored "-Wself-assign-overloaded"
#endif

namespace
{
using Variants = std::vector<CLS_CVariant>;
using VariantMap = std::map<std::string, CLS_CVariant>;

constexpr auto TYPE_BEYOND = static_cast<n_CVariantType>(7);
constexpr auto TYPE_BELOW = static_cast<n_CVariantType>(-2);

Variants MakeOneOfEachType()
{
    static int s_iTarget = 0;
    return {CLS_CVariant(),
            true,
            5,
            0.5,
            "text",
            Variants{1, "two"},
            VariantMap{{"a", 1}},
            static_cast<void*>(&s_iTarget)};
}

bool IsOwning(n_CVariantType _iType)
{
    return _iType == CVariantType_String || _iType == CVariantType_Vector || _iType == CVariantType_Map;
}

TEST(VariantTypeTest, SetTypeToAnInPlaceTypeKeepsTheBits)
{
    CLS_CVariant clsVariant(5);
    clsVariant.SetType(CVariantType_Double);
    EXPECT_EQ(CVariantType_Double, clsVariant.GetType());
    EXPECT_EQ(5, VariantView::GetInteger(clsVariant));
    clsVariant.SetType(CVariantType_Pointer);
    EXPECT_EQ("0x5", clsVariant.ToString());
    clsVariant.SetType(CVariantType_None);
    clsVariant.SetType(TYPE_BEYOND);
    clsVariant.SetType(TYPE_BELOW);
    clsVariant.SetType(CVariantType_LongLong);
    EXPECT_EQ("5", clsVariant.ToString());
}

TEST(VariantTypeTest, SetTypeToAnOwningTypeFromAnInPlaceValueLeavesNull)
{
    for (const n_CVariantType iType : {CVariantType_String, CVariantType_Vector, CVariantType_Map})
    {
        CLS_CVariant clsVariant(0x1234567890LL);
        clsVariant.SetType(iType);
        EXPECT_EQ(iType, clsVariant.GetType());
        EXPECT_EQ(nullptr, VariantView::GetPointer(clsVariant));
        EXPECT_EQ("", clsVariant.ToString());
    }
}

TEST(VariantTypeTest, SetTypeFromAnOwningTypeLeavesNull)
{
    for (const CLS_CVariant& clsSource : MakeOneOfEachType())
    {
        if (!IsOwning(clsSource.GetType()))
        {
            continue;
        }
        for (int iType = -2; iType <= 7; ++iType)
        {
            CLS_CVariant clsVariant(clsSource);
            ASSERT_NE(nullptr, VariantView::GetPointer(clsVariant));
            clsVariant.SetType(static_cast<n_CVariantType>(iType));
            EXPECT_EQ(iType, clsVariant.GetType());
            EXPECT_EQ(nullptr, VariantView::GetPointer(clsVariant)) << clsSource.GetType() << " to " << iType;
        }
    }
}

TEST(VariantTypeTest, AValueIsGivenAfterSetType)
{
    CLS_CVariant clsVariant;
    clsVariant.SetType(CVariantType_String);
    VariantView::GetText(clsVariant) = new std::string("given");
    EXPECT_EQ("given", clsVariant.ToString());
    clsVariant.SetType(CVariantType_Vector);
    VariantView::GetList(clsVariant) = new Variants{1, 2};
    EXPECT_EQ("1|2", clsVariant.ToString());
    clsVariant.SetType(CVariantType_Map);
    VariantView::GetMap(clsVariant) = new VariantMap{{"a", 1}};
    EXPECT_EQ(1U, clsVariant.ToMap().size());
}

TEST(VariantTypeTest, SetTypeAloneUsesTheMutex)
{
    CLS_CVariant clsSource(VariantMap{{"a", 1}});
    CLS_CVariant clsTarget;
    const std::lock_guard<std::mutex> lock(VariantView::GetTypeLock(clsSource));
    EXPECT_EQ(CVariantType_Map, clsSource.GetType());
    EXPECT_EQ("", clsSource.ToString());
    EXPECT_FALSE(clsSource.ToBool());
    EXPECT_EQ(1U, clsSource.ToMap().size());
    clsTarget = clsSource;
    EXPECT_EQ(1U, clsTarget.ToMap().size());
    EXPECT_EQ(1U, CLS_CVariant(clsSource).ToMap().size());
}

TEST(VariantTypeTest, SetTypeCallsAreSerialised)
{
    CLS_CVariant clsVariant("text");
    const auto funSetTypes = [&clsVariant]
    {
        for (int i = 0; i < 2000; ++i)
        {
            clsVariant.SetType(i % 2 == 0 ? CVariantType_String : CVariantType_LongLong);
        }
    };
    std::thread thOther(funSetTypes);
    funSetTypes();
    thOther.join();
    EXPECT_EQ(CVariantType_LongLong, clsVariant.GetType());
    EXPECT_EQ("0", clsVariant.ToString());
}

TEST(VariantTypeTest, AssignmentCopiesEveryTypeOverEveryType)
{
    for (const CLS_CVariant& clsSource : MakeOneOfEachType())
    {
        for (CLS_CVariant clsTarget : MakeOneOfEachType())
        {
            CLS_CVariant& clsResult = (clsTarget = clsSource);
            EXPECT_EQ(&clsTarget, &clsResult);
            EXPECT_EQ(clsSource.GetType(), clsTarget.GetType());
            EXPECT_EQ(clsSource.ToString(), clsTarget.ToString());
            EXPECT_EQ(clsSource.ToMap().size(), clsTarget.ToMap().size());
        }
    }
}

TEST(VariantTypeTest, AnAssignedFlagDoesNotDependOnThePreviousValue)
{
    for (const bool bFlag : {false, true})
    {
        const CLS_CVariant clsSource(bFlag);
        for (const CLS_CVariant& clsBefore : MakeOneOfEachType())
        {
            CLS_CVariant clsCopied(clsBefore);
            clsCopied = clsSource;
            CLS_CVariant clsMoved(clsBefore);
            clsMoved = bFlag;
            for (const CLS_CVariant* const pTarget : {&clsCopied, &clsMoved})
            {
                EXPECT_EQ(CVariantType_Bool, pTarget->GetType());
                EXPECT_EQ(bFlag, pTarget->ToBool()) << "over type " << clsBefore.GetType();
                EXPECT_EQ(bFlag ? "1" : "0", pTarget->ToString());
            }
        }
    }
}

TEST(VariantTypeTest, CopiesOfOwnedValuesAreTheirOwn)
{
    for (const CLS_CVariant& clsSource : MakeOneOfEachType())
    {
        const CLS_CVariant clsCopy(clsSource);
        EXPECT_EQ(clsSource.GetType(), clsCopy.GetType());
        EXPECT_EQ(clsSource.ToString(), clsCopy.ToString());
        EXPECT_EQ(IsOwning(clsSource.GetType()),
                  VariantView::GetPointer(clsSource) != VariantView::GetPointer(clsCopy));
    }
}

TEST(VariantTypeTest, CopiesOfNullOwnedValuesAreNull)
{
    for (const n_CVariantType iType : {CVariantType_String, CVariantType_Vector, CVariantType_Map})
    {
        CLS_CVariant clsSource;
        clsSource.SetType(iType);
        CLS_CVariant clsTarget("text");
        clsTarget = clsSource;
        EXPECT_EQ(iType, clsTarget.GetType());
        EXPECT_EQ(nullptr, VariantView::GetPointer(clsTarget));
    }
}

TEST(VariantTypeTest, CopiesAreDeep)
{
    CLS_CVariant clsSource(
        VariantMap{{"list", Variants{1, Variants{2, 3}}}, {"map", VariantMap{{"x", "y"}}}});
    const CLS_CVariant clsCopy(clsSource);
    (*VariantView::GetMap(clsSource))["list"] = "changed";
    VariantView::GetMap(clsSource)->erase("map");
    EXPECT_EQ("1|2|3", clsCopy.ToMap()["list"].ToString());
    EXPECT_EQ("y", clsCopy.ToMap()["map"].ToMap()["x"].ToString());
}

TEST(VariantTypeTest, ChangingTheCopyLeavesTheSource)
{
    const CLS_CVariant clsSource(VariantMap{{"a", 1}, {"b", "x"}});
    CLS_CVariant clsCopy;
    clsCopy = clsSource;
    (*VariantView::GetMap(clsCopy))["a"] = 2;
    VariantView::GetMap(clsCopy)->erase("b");
    ASSERT_EQ(2U, clsSource.ToMap().size());
    EXPECT_EQ("1", clsSource.ToMap()["a"].ToString());
    EXPECT_EQ("x", clsSource.ToMap()["b"].ToString());
}

TEST(VariantTypeTest, AssignmentFromNoneOrAnUnknownTypeCopiesTheTypeAlone)
{
    for (const n_CVariantType iType : {CVariantType_None, TYPE_BEYOND, TYPE_BELOW})
    {
        CLS_CVariant clsSource(77);
        clsSource.SetType(iType);
        CLS_CVariant clsTarget(5);
        clsTarget = clsSource;
        EXPECT_EQ(iType, clsTarget.GetType());
        EXPECT_EQ("", clsTarget.ToString());
        clsTarget.SetType(CVariantType_LongLong);
        EXPECT_EQ("5", clsTarget.ToString());
    }
}

TEST(VariantTypeTest, ACopyOfAnUnknownTypeHasThatTypeAndNoValue)
{
    CLS_CVariant clsSource(77);
    clsSource.SetType(TYPE_BEYOND);
    CLS_CVariant clsCopy(clsSource);
    EXPECT_EQ(TYPE_BEYOND, clsCopy.GetType());
    clsCopy.SetType(CVariantType_LongLong);
    EXPECT_EQ("0", clsCopy.ToString());
}

TEST(VariantTypeTest, AFlagOfBitsThatAnotherTypeLeftCanBeReadAndCopied)
{
    CLS_CVariant clsSource(0x0202020202020202LL);
    clsSource.SetType(CVariantType_Bool);
    const CLS_CVariant clsCopy(clsSource);
    EXPECT_EQ("1", clsSource.ToString());
    EXPECT_TRUE(clsCopy.ToBool());
}

TEST(VariantTypeTest, SelfAssignmentChangesNothing)
{
    for (CLS_CVariant clsVariant : MakeOneOfEachType())
    {
        const n_CVariantType iType = clsVariant.GetType();
        const std::string strText = clsVariant.ToString();
        const void* const pValue = VariantView::GetPointer(clsVariant);
        const std::size_t uiSize = clsVariant.ToMap().size();
        clsVariant = clsVariant;
        EXPECT_EQ(iType, clsVariant.GetType());
        EXPECT_EQ(strText, clsVariant.ToString());
        EXPECT_EQ(pValue, VariantView::GetPointer(clsVariant));
        EXPECT_EQ(uiSize, clsVariant.ToMap().size());
    }
}

TEST(VariantTypeTest, CanBeAssignedFromAnElementOfItsOwnList)
{
    CLS_CVariant clsVariant(Variants{"first", Variants{"a long text that is kept on the heap", 2}});
    clsVariant = (*VariantView::GetList(clsVariant))[1];
    EXPECT_EQ(CVariantType_Vector, clsVariant.GetType());
    EXPECT_EQ("a long text that is kept on the heap|2", clsVariant.ToString());
    clsVariant = (*VariantView::GetList(clsVariant))[0];
    EXPECT_EQ(CVariantType_String, clsVariant.GetType());
    EXPECT_EQ("a long text that is kept on the heap", clsVariant.ToString());
}

TEST(VariantTypeTest, CanBeAssignedFromAnEntryOfItsOwnMap)
{
    CLS_CVariant clsVariant(VariantMap{{"a", VariantMap{{"b", 7}}}, {"c", "x"}});
    clsVariant = (*VariantView::GetMap(clsVariant))["a"];
    ASSERT_EQ(CVariantType_Map, clsVariant.GetType());
    EXPECT_EQ(1U, clsVariant.ToMap().size());
    clsVariant = (*VariantView::GetMap(clsVariant))["b"];
    EXPECT_EQ(CVariantType_LongLong, clsVariant.GetType());
    EXPECT_EQ("7", clsVariant.ToString());
}

TEST(VariantTypeTest, APointerIsSharedByCopies)
{
    int iTarget = 7;
    const CLS_CVariant clsSource(static_cast<void*>(&iTarget));
    CLS_CVariant clsCopy("text");
    clsCopy = clsSource;
    clsCopy.SetType(CVariantType_None);
    EXPECT_EQ(&iTarget, VariantView::GetPointer(clsSource));
    EXPECT_EQ(7, iTarget);
}

TEST(VariantTypeTest, MovesNeverFail)
{
    // A list that grows moves its elements only if the move cannot throw.
    EXPECT_TRUE(std::is_nothrow_move_constructible_v<CLS_CVariant>);
    EXPECT_TRUE(std::is_nothrow_move_assignable_v<CLS_CVariant>);
}

TEST(VariantTypeTest, MoveConstructionTakesEveryTypeAndLeavesNothing)
{
    for (CLS_CVariant clsSource : MakeOneOfEachType())
    {
        const n_CVariantType iType = clsSource.GetType();
        const std::string strText = clsSource.ToString();
        const void* const pValue = VariantView::GetPointer(clsSource);
        const std::size_t uiSize = clsSource.ToMap().size();
        const CLS_CVariant clsTarget(std::move(clsSource));
        EXPECT_EQ(iType, clsTarget.GetType());
        EXPECT_EQ(strText, clsTarget.ToString());
        EXPECT_EQ(pValue, VariantView::GetPointer(clsTarget));
        EXPECT_EQ(uiSize, clsTarget.ToMap().size());
        EXPECT_EQ(CVariantType_None, clsSource.GetType()); // NOLINT(bugprone-use-after-move)
    }
}

TEST(VariantTypeTest, MoveAssignmentTakesEveryTypeOverEveryTypeAndLeavesNothing)
{
    for (const CLS_CVariant& clsOriginal : MakeOneOfEachType())
    {
        for (CLS_CVariant clsTarget : MakeOneOfEachType())
        {
            CLS_CVariant clsSource(clsOriginal);
            const void* const pValue = VariantView::GetPointer(clsSource);
            CLS_CVariant& clsResult = (clsTarget = std::move(clsSource));
            EXPECT_EQ(&clsTarget, &clsResult);
            EXPECT_EQ(clsOriginal.GetType(), clsTarget.GetType());
            EXPECT_EQ(clsOriginal.ToString(), clsTarget.ToString());
            EXPECT_EQ(clsOriginal.ToMap().size(), clsTarget.ToMap().size());
            if (clsOriginal.GetType() != CVariantType_None)
            {
                EXPECT_EQ(pValue, VariantView::GetPointer(clsTarget));
            }
            EXPECT_EQ(CVariantType_None, clsSource.GetType()); // NOLINT(bugprone-use-after-move)
        }
    }
}

TEST(VariantTypeTest, MoveFromNoneOrAnUnknownTypeTakesTheTypeAlone)
{
    for (const n_CVariantType iType : {CVariantType_None, TYPE_BEYOND, TYPE_BELOW})
    {
        CLS_CVariant clsSource(77);
        clsSource.SetType(iType);
        CLS_CVariant clsTarget(5);
        clsTarget = std::move(clsSource);
        EXPECT_EQ(iType, clsTarget.GetType());
        EXPECT_EQ("", clsTarget.ToString());
        clsTarget.SetType(CVariantType_LongLong);
        EXPECT_EQ("5", clsTarget.ToString());

        CLS_CVariant clsOther(77);
        clsOther.SetType(iType);
        CLS_CVariant clsMade(std::move(clsOther));
        EXPECT_EQ(iType, clsMade.GetType());
        clsMade.SetType(CVariantType_LongLong);
        EXPECT_EQ("0", clsMade.ToString());
    }
}

TEST(VariantTypeTest, MovesOfNullOwnedValuesAreNull)
{
    for (const n_CVariantType iType : {CVariantType_String, CVariantType_Vector, CVariantType_Map})
    {
        CLS_CVariant clsSource;
        clsSource.SetType(iType);
        CLS_CVariant clsTarget("text");
        clsTarget = std::move(clsSource);
        EXPECT_EQ(iType, clsTarget.GetType());
        EXPECT_EQ(nullptr, VariantView::GetPointer(clsTarget));
    }
}

TEST(VariantTypeTest, SelfMoveChangesNothing)
{
    for (CLS_CVariant clsVariant : MakeOneOfEachType())
    {
        const n_CVariantType iType = clsVariant.GetType();
        const std::string strText = clsVariant.ToString();
        const void* const pValue = VariantView::GetPointer(clsVariant);
        CLS_CVariant& clsSame = clsVariant;
        clsVariant = std::move(clsSame);
        EXPECT_EQ(iType, clsVariant.GetType());
        EXPECT_EQ(strText, clsVariant.ToString());
        EXPECT_EQ(pValue, VariantView::GetPointer(clsVariant));
    }
}

TEST(VariantTypeTest, CanTakeAnElementOfItsOwnList)
{
    CLS_CVariant clsVariant(Variants{"first", Variants{"a long text that is kept on the heap", 2}});
    clsVariant = std::move((*VariantView::GetList(clsVariant))[1]);
    EXPECT_EQ(CVariantType_Vector, clsVariant.GetType());
    EXPECT_EQ("a long text that is kept on the heap|2", clsVariant.ToString());
    clsVariant = std::move((*VariantView::GetList(clsVariant))[0]);
    EXPECT_EQ(CVariantType_String, clsVariant.GetType());
    EXPECT_EQ("a long text that is kept on the heap", clsVariant.ToString());
}

TEST(VariantTypeTest, CanTakeAnEntryOfItsOwnMap)
{
    CLS_CVariant clsVariant(VariantMap{{"a", VariantMap{{"b", 7}}}, {"c", "x"}});
    clsVariant = std::move((*VariantView::GetMap(clsVariant))["a"]);
    ASSERT_EQ(CVariantType_Map, clsVariant.GetType());
    EXPECT_EQ(1U, clsVariant.ToMap().size());
    clsVariant = std::move((*VariantView::GetMap(clsVariant))["b"]);
    EXPECT_EQ(CVariantType_LongLong, clsVariant.GetType());
    EXPECT_EQ("7", clsVariant.ToString());
}

TEST(VariantTypeTest, AMovedFromVariantCanBeUsedAgain)
{
    CLS_CVariant clsSource("text");
    const CLS_CVariant clsTarget(std::move(clsSource));
    EXPECT_EQ("", clsSource.ToString()); // NOLINT(bugprone-use-after-move)
    clsSource = CLS_CVariant("next");
    EXPECT_EQ("next", clsSource.ToString());
    EXPECT_EQ("text", clsTarget.ToString());
}
} // namespace
