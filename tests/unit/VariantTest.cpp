#include "QuenInclude/CLS_CVariant.h"
#include "tests/support/GroupingLocale.h"
#include "tests/support/VariantView.h"

#include <cstddef>
#include <cstdint>
#include <gtest/gtest.h>
#include <limits>
#include <sstream>
#include <type_traits>
#include <utility>

namespace
{
using Variants = std::vector<CLS_CVariant>;
using VariantMap = std::map<std::string, CLS_CVariant>;

n_CVariantType ToType(int _iType)
{
    return static_cast<n_CVariantType>(_iType);
}

/// The text of an empty variant whose type was set to _iType.
CLS_CVariant MakeOfType(int _iType)
{
    CLS_CVariant clsVariant;
    clsVariant.SetType(ToType(_iType));
    return clsVariant;
}

TEST(VariantTest, TypesHaveTheirNumbersAndAre32BitSigned)
{
    static_assert(std::is_same_v<std::underlying_type_t<n_CVariantType>, std::int32_t>);
    EXPECT_EQ(-1, CVariantType_None);
    EXPECT_EQ(0, CVariantType_Bool);
    EXPECT_EQ(1, CVariantType_LongLong);
    EXPECT_EQ(2, CVariantType_Double);
    EXPECT_EQ(3, CVariantType_String);
    EXPECT_EQ(4, CVariantType_Vector);
    EXPECT_EQ(5, CVariantType_Map);
    EXPECT_EQ(6, CVariantType_Pointer);
}

TEST(VariantTest, IsAMutexATypeAndAnEightByteValueInThisOrder)
{
    CLS_CVariant clsVariant;
    const ClassLayout::Members vecMembers = VariantView::ListMembers(clsVariant);
    ASSERT_EQ(3U, vecMembers.size());
    EXPECT_TRUE(ClassLayout::AreInOrder(vecMembers));
    EXPECT_EQ(8U, vecMembers[2].m_uiSize); // the value
    EXPECT_LE(sizeof(CLS_CVariant), sizeof(std::mutex) + 16);
}

TEST(VariantTest, DefaultIsNoneAndZero)
{
    CLS_CVariant clsVariant;
    EXPECT_EQ(CVariantType_None, clsVariant.GetType());
    EXPECT_EQ("", clsVariant.ToString());
    EXPECT_FALSE(clsVariant.ToBool());
    EXPECT_TRUE(clsVariant.ToMap().empty());
    clsVariant.SetType(CVariantType_LongLong);
    EXPECT_EQ("0", clsVariant.ToString());
}

TEST(VariantTest, TakeTextMovesAnOwnedTextOutAndLeavesTheEmptyText)
{
    CLS_CVariant clsText("text");
    EXPECT_EQ("text", clsText.TakeText());
    EXPECT_EQ(CVariantType_String, clsText.GetType());
    EXPECT_EQ("", clsText.ToString());
    CLS_CVariant clsNull;
    clsNull.SetType(CVariantType_String);
    EXPECT_EQ("", clsNull.TakeText());
    CLS_CVariant clsNumber(7);
    EXPECT_EQ("7", clsNumber.TakeText());
    EXPECT_EQ("7", clsNumber.ToString());
}

TEST(VariantTest, TakesAFlag)
{
    const CLS_CVariant clsTrue(true);
    const CLS_CVariant clsFalse(false);
    EXPECT_EQ(CVariantType_Bool, clsTrue.GetType());
    EXPECT_EQ("1", clsTrue.ToString());
    EXPECT_TRUE(clsTrue.ToBool());
    EXPECT_EQ(CVariantType_Bool, clsFalse.GetType());
    EXPECT_EQ("0", clsFalse.ToString());
    EXPECT_FALSE(clsFalse.ToBool());
}

TEST(VariantTest, TakesAnInt)
{
    const CLS_CVariant clsVariant(-42);
    EXPECT_EQ(CVariantType_LongLong, clsVariant.GetType());
    EXPECT_EQ("-42", clsVariant.ToString());
    EXPECT_EQ("-2147483648", CLS_CVariant(std::numeric_limits<int>::min()).ToString());
}

TEST(VariantTest, TakesALong)
{
    const CLS_CVariant clsVariant(std::numeric_limits<long>::min());
    EXPECT_EQ(CVariantType_LongLong, clsVariant.GetType());
    EXPECT_EQ(std::to_string(std::numeric_limits<long>::min()), clsVariant.ToString());
    EXPECT_EQ("-42", CLS_CVariant(std::int64_t{-42}).ToString());
}

TEST(VariantTest, TakesALongLong)
{
    const CLS_CVariant clsVariant(std::numeric_limits<long long>::min());
    EXPECT_EQ(CVariantType_LongLong, clsVariant.GetType());
    EXPECT_EQ("-9223372036854775808", clsVariant.ToString());
    EXPECT_EQ("9223372036854775807", CLS_CVariant(std::numeric_limits<long long>::max()).ToString());
}

TEST(VariantTest, TakesADouble)
{
    const CLS_CVariant clsVariant(0.1);
    EXPECT_EQ(CVariantType_Double, clsVariant.GetType());
    EXPECT_EQ("0.1", clsVariant.ToString());
}

TEST(VariantTest, TakesACText)
{
    const char* const szText = "text";
    const CLS_CVariant clsVariant(szText);
    EXPECT_EQ(CVariantType_String, clsVariant.GetType());
    EXPECT_EQ("text", clsVariant.ToString());
}

TEST(VariantTest, TakesANullCTextAsTheEmptyText)
{
    const char* const szText = nullptr;
    const CLS_CVariant clsVariant(szText);
    EXPECT_EQ(CVariantType_String, clsVariant.GetType());
    EXPECT_EQ("", clsVariant.ToString());
}

TEST(VariantTest, TakesAStringWhole)
{
    const std::string strText("a\0b", 3);
    const CLS_CVariant clsVariant(strText);
    EXPECT_EQ(CVariantType_String, clsVariant.GetType());
    EXPECT_EQ(strText, clsVariant.ToString());
}

TEST(VariantTest, TakesOverAMovedString)
{
    std::string strText(1000, 'x');
    const std::string strExpected = strText;
    const void* const pLetters = strText.data();
    CLS_CVariant clsVariant(std::move(strText));
    EXPECT_EQ(CVariantType_String, clsVariant.GetType());
    EXPECT_EQ(strExpected, clsVariant.ToString());
    EXPECT_EQ(pLetters, VariantView::GetText(clsVariant)->data());
}

TEST(VariantTest, TakesAList)
{
    const Variants vecSource{CLS_CVariant(1), CLS_CVariant("x")};
    const CLS_CVariant clsVariant(vecSource);
    EXPECT_EQ(CVariantType_Vector, clsVariant.GetType());
    EXPECT_EQ("1|x", clsVariant.ToString());
}

TEST(VariantTest, TakesAMap)
{
    VariantMap mapSource{{"a", CLS_CVariant(1)}};
    const CLS_CVariant clsVariant(mapSource);
    mapSource["a"] = CLS_CVariant(2);
    EXPECT_EQ(CVariantType_Map, clsVariant.GetType());
    EXPECT_EQ(1U, clsVariant.ToMap().size());
    EXPECT_EQ("1", clsVariant.ToMap()["a"].ToString());
}

TEST(VariantTest, TakesAPointerWithoutOwningIt)
{
    int iTarget = 0;
    void* const pTarget = &iTarget;
    std::ostringstream ossExpected;
    ossExpected << static_cast<const void*>(&iTarget);
    {
        const CLS_CVariant clsVariant(pTarget);
        EXPECT_EQ(CVariantType_Pointer, clsVariant.GetType());
        EXPECT_EQ(ossExpected.str(), clsVariant.ToString());
        EXPECT_EQ("0x", clsVariant.ToString().substr(0, 2));
    }
    EXPECT_EQ(0, iTarget);
}

TEST(VariantTest, LiteralsBecomeTextsAlsoByAssignmentAndInContainers)
{
    EXPECT_EQ(CVariantType_String, CLS_CVariant("literal").GetType());
    CLS_CVariant clsVariant;
    clsVariant = "assigned";
    EXPECT_EQ(CVariantType_String, clsVariant.GetType());
    EXPECT_EQ("assigned", clsVariant.ToString());
    const VariantMap mapEntries{{"a", "in a map"}};
    EXPECT_EQ(CVariantType_String, mapEntries.at("a").GetType());
    char arrText[] = "array";
    EXPECT_EQ(CVariantType_String, CLS_CVariant(arrText).GetType());
}

TEST(VariantTest, ConvertsFromEachHeldType)
{
    static_assert(std::is_convertible_v<bool, CLS_CVariant>);
    static_assert(std::is_convertible_v<int, CLS_CVariant>);
    static_assert(std::is_convertible_v<long long, CLS_CVariant>);
    static_assert(std::is_convertible_v<double, CLS_CVariant>);
    static_assert(std::is_convertible_v<const char*, CLS_CVariant>);
    static_assert(std::is_convertible_v<std::string, CLS_CVariant>);
    static_assert(std::is_convertible_v<Variants, CLS_CVariant>);
    static_assert(std::is_convertible_v<VariantMap, CLS_CVariant>);
    static_assert(std::is_convertible_v<void*, CLS_CVariant>);
    EXPECT_EQ(CVariantType_Pointer, CLS_CVariant(static_cast<int*>(nullptr)).GetType());
}

TEST(VariantTest, APointerToConstantDoesNotBecomeAFlag)
{
    EXPECT_FALSE((std::is_constructible_v<CLS_CVariant, const void*>));
    EXPECT_FALSE((std::is_constructible_v<CLS_CVariant, const int*>));
    EXPECT_FALSE((std::is_constructible_v<CLS_CVariant, const wchar_t*>));
    EXPECT_FALSE((std::is_constructible_v<CLS_CVariant, volatile int*>));
    EXPECT_FALSE((std::is_constructible_v<CLS_CVariant, void (*)()>));
    EXPECT_FALSE((std::is_assignable_v<CLS_CVariant&, const int*>));
}

TEST(VariantTest, NonePrintsAsTheEmptyText)
{
    EXPECT_EQ("", MakeOfType(-1).ToString());
}

TEST(VariantTest, UnknownTypesPrintAsTheEmptyText)
{
    for (const int iType : {-2, 7, 100})
    {
        EXPECT_EQ(ToType(iType), MakeOfType(iType).GetType());
        EXPECT_EQ("", MakeOfType(iType).ToString()) << iType;
        EXPECT_FALSE(MakeOfType(iType).ToBool()) << iType;
        EXPECT_TRUE(MakeOfType(iType).ToMap().empty()) << iType;
    }
}

TEST(VariantTest, DoublesPrintWithSixDigits)
{
    EXPECT_EQ("1e+06", CLS_CVariant(1e6).ToString());
    EXPECT_EQ("0.333333", CLS_CVariant(1.0 / 3).ToString());
    EXPECT_EQ("5", CLS_CVariant(5.0).ToString());
    EXPECT_EQ("-0.5", CLS_CVariant(-0.5).ToString());
}

TEST(VariantTest, ListsJoinWithBars)
{
    EXPECT_EQ("1|2|3", CLS_CVariant(Variants{1, 2, 3}).ToString());
    EXPECT_EQ("", CLS_CVariant(Variants{}).ToString());
    EXPECT_EQ("a|1|0.5|2|3", CLS_CVariant(Variants{"a", true, 0.5, Variants{2, 3}}).ToString());
}

TEST(VariantTest, ListsOmitTheBarWhileTheTextIsEmpty)
{
    EXPECT_EQ("x", CLS_CVariant(Variants{"", "x"}).ToString());
    EXPECT_EQ("a|b", CLS_CVariant(Variants{"", "a", "b"}).ToString());
    EXPECT_EQ("a||b", CLS_CVariant(Variants{"a", "", "b"}).ToString());
    EXPECT_EQ("a|", CLS_CVariant(Variants{"a", CLS_CVariant()}).ToString());
    EXPECT_EQ("b", CLS_CVariant(Variants{VariantMap{{"a", 1}}, CLS_CVariant(), "b"}).ToString());
}

TEST(VariantTest, MapsDoNotPrintTheirContents)
{
    EXPECT_EQ("", CLS_CVariant(VariantMap{}).ToString());
    EXPECT_EQ("", CLS_CVariant(VariantMap{{"a", 1}, {"b", "x"}}).ToString());
}

TEST(VariantTest, ANullPointerPrintsAsZero)
{
    EXPECT_EQ("0x0", CLS_CVariant(static_cast<void*>(nullptr)).ToString());
}

TEST(VariantTest, PointersPrintInLowerCaseHexadecimal)
{
    const CLS_CVariant clsVariant(reinterpret_cast<void*>(std::uintptr_t{0xABCDEF}));
    EXPECT_EQ("0xabcdef", clsVariant.ToString());
}

TEST(VariantTest, UnsetValuesPrintAsTheEmptyText)
{
    EXPECT_EQ("", MakeOfType(CVariantType_String).ToString());
    EXPECT_EQ("", MakeOfType(CVariantType_Vector).ToString());
    EXPECT_EQ("", MakeOfType(CVariantType_Map).ToString());
    EXPECT_TRUE(MakeOfType(CVariantType_Map).ToMap().empty());
    EXPECT_FALSE(MakeOfType(CVariantType_String).ToBool());
}

TEST(VariantTest, OnlyTheExactTextTrueIsTrue)
{
    EXPECT_TRUE(CLS_CVariant("true").ToBool());
    for (const char* const szText : {"True", "TRUE", "1", "", " true", "true ", "tru"})
    {
        EXPECT_FALSE(CLS_CVariant(szText).ToBool()) << szText;
    }
    EXPECT_FALSE(CLS_CVariant(1).ToBool());
    EXPECT_FALSE(CLS_CVariant(1.0).ToBool());
    EXPECT_FALSE(CLS_CVariant(VariantMap{{"true", true}}).ToBool());
    EXPECT_FALSE(CLS_CVariant(reinterpret_cast<void*>(std::uintptr_t{1})).ToBool());
}

TEST(VariantTest, AListThatPrintsAsTrueIsTrue)
{
    EXPECT_TRUE(CLS_CVariant(Variants{"", "true"}).ToBool());
    EXPECT_FALSE(CLS_CVariant(Variants{true}).ToBool());
}

TEST(VariantTest, ToMapGivesACopy)
{
    const CLS_CVariant clsVariant(VariantMap{{"a", 1}, {"b", Variants{1, 2}}});
    VariantMap mapCopy = clsVariant.ToMap();
    ASSERT_EQ(2U, mapCopy.size());
    EXPECT_EQ("1", mapCopy["a"].ToString());
    EXPECT_EQ("1|2", mapCopy["b"].ToString());
    mapCopy["a"] = 5;
    mapCopy.erase("b");
    EXPECT_EQ(2U, clsVariant.ToMap().size());
    EXPECT_EQ("1", clsVariant.ToMap()["a"].ToString());
}

TEST(VariantTest, ToMapOfAnyOtherTypeIsEmpty)
{
    EXPECT_TRUE(CLS_CVariant(true).ToMap().empty());
    EXPECT_TRUE(CLS_CVariant(1).ToMap().empty());
    EXPECT_TRUE(CLS_CVariant(1.5).ToMap().empty());
    EXPECT_TRUE(CLS_CVariant("x").ToMap().empty());
    EXPECT_TRUE(CLS_CVariant(Variants{1}).ToMap().empty());
    int iTarget = 0;
    EXPECT_TRUE(CLS_CVariant(static_cast<void*>(&iTarget)).ToMap().empty());
}

TEST(VariantTest, TheHostsLocaleChangesNothing)
{
    int iTarget = 0;
    const CLS_CVariant clsPointer(static_cast<void*>(&iTarget));
    const std::string strPointer = clsPointer.ToString();
    const CLS_GroupingLocale clsLocale;
    std::ostringstream ossGrouped;
    ossGrouped << 1234567;
    ASSERT_EQ("1.234.567", ossGrouped.str());
    EXPECT_EQ("1234567", CLS_CVariant(1234567).ToString());
    EXPECT_EQ("-1234567890123", CLS_CVariant(-1234567890123LL).ToString());
    EXPECT_EQ("1234.5", CLS_CVariant(1234.5).ToString());
    EXPECT_EQ("1", CLS_CVariant(true).ToString());
    EXPECT_EQ("1000|0.5", CLS_CVariant(Variants{1000, 0.5}).ToString());
    EXPECT_EQ(strPointer, clsPointer.ToString());
}

TEST(VariantTest, AppendsTheTextThatItPrints)
{
    int iTarget = 0;
    const Variants vecAll{CLS_CVariant(),
                          true,
                          -42,
                          0.1,
                          "",
                          std::string("a\0b", 3),
                          Variants{1, "x", Variants{2}},
                          VariantMap{{"a", 1}},
                          static_cast<void*>(&iTarget),
                          static_cast<void*>(nullptr),
                          MakeOfType(CVariantType_String),
                          MakeOfType(CVariantType_Vector),
                          MakeOfType(CVariantType_Map),
                          MakeOfType(7)};
    for (const CLS_CVariant& clsVariant : vecAll)
    {
        for (const char* const szBefore : {"", "before "})
        {
            std::string strText = szBefore;
            clsVariant.AppendTo(strText);
            EXPECT_EQ(szBefore + clsVariant.ToString(), strText);
        }
    }
    std::string strText = "before ";
    CLS_CVariant("text").AppendTo(strText);
    CLS_CVariant(5).AppendTo(strText);
    MakeOfType(CVariantType_String).AppendTo(strText);
    EXPECT_EQ("before text5", strText);
}
} // namespace
