// Sweeps of the variant. Tests of its values are elsewhere.

#include "QuenInclude/CLS_CVariant.h"
#include "verify/sweep/SweepFixture.h"

#include <map>
#include <vector>

namespace
{
using Variants = std::vector<CLS_CVariant>;
using VariantMap = std::map<std::string, CLS_CVariant>;

constexpr const char* TEXT = "a text that is too long for the text object itself";

Variants MakeList()
{
    return {TEXT, Variants{1, TEXT},          VariantMap{{TEXT, Variants{TEXT}}}, 0.5,
            true, static_cast<void*>(nullptr)};
}

VariantMap MakeMap()
{
    return {{"list", MakeList()}, {TEXT, TEXT}};
}

/// Every kind of variant that owns something.
std::vector<std::pair<std::string, CLS_CVariant>> MakeOwning()
{
    return {{"text", TEXT}, {"list", MakeList()}, {"map", MakeMap()}};
}

std::string Print(const CLS_CVariant& _clsVariant)
{
    std::string strText = std::to_string(_clsVariant.GetType()) + " " + _clsVariant.ToString();
    for (const auto& [strName, clsValue] : _clsVariant.ToMap())
    {
        strText += " " + strName + ": " + clsValue.ToString();
    }
    return strText;
}

using SweepVariantTest = CLS_SweepFixture;

TEST_F(SweepVariantTest, CopyThrowsAndLeavesNothing)
{
    for (const auto& [strKind, clsSource] : MakeOwning())
    {
        Sweep("CLS_CVariant copy of a " + strKind, 2,
              [&source = clsSource](CLS_SweepPoint& _clsPoint)
              {
                  _clsPoint.FailAndThrow([&] { const CLS_CVariant clsCopy(source); });
                  EXPECT_EQ(Print(source), Print(CLS_CVariant(source)));
              });
    }
}

TEST_F(SweepVariantTest, AssignmentThrowsAndLeavesTheTargetAsItWas)
{
    for (const auto& [strKind, clsSource] : MakeOwning())
    {
        for (const auto& [strTarget, clsBefore] : MakeOwning())
        {
            Sweep("CLS_CVariant assignment of a " + strKind + " to a " + strTarget, 2,
                  [&source = clsSource, &before = clsBefore](CLS_SweepPoint& _clsPoint)
                  {
                      CLS_CVariant clsTarget(before);
                      const bool bFailed = _clsPoint.FailAndThrow([&] { clsTarget = source; });
                      EXPECT_EQ(Print(bFailed ? before : source), Print(clsTarget));
                      clsTarget = source;
                      EXPECT_EQ(Print(source), Print(clsTarget));
                  });
        }
    }
}

TEST_F(SweepVariantTest, ConstructionFromAValueThrowsAndLeavesNothing)
{
    const std::string strText = TEXT;
    const Variants vecList = MakeList();
    const VariantMap mapMap = MakeMap();
    const std::map<std::string, std::function<CLS_CVariant()>> mapMakers{
        {"a plain text", [] { return CLS_CVariant(TEXT); }},
        {"a text", [&] { return CLS_CVariant(strText); }},
        {"a list", [&] { return CLS_CVariant(vecList); }},
        {"a map", [&] { return CLS_CVariant(mapMap); }}};
    for (const auto& [strKind, funMake] : mapMakers)
    {
        Sweep("CLS_CVariant from " + strKind, 2,
              [&make = funMake](CLS_SweepPoint& _clsPoint)
              {
                  _clsPoint.FailAndThrow([&] { const CLS_CVariant clsVariant(make()); });
                  EXPECT_NE("", Print(make()));
              });
    }
}

TEST_F(SweepVariantTest, ConversionThrowsAndLeavesTheVariantAsItWas)
{
    for (const auto& [strKind, clsSource] : MakeOwning())
    {
        Sweep("CLS_CVariant::ToString, ToBool and ToMap of a " + strKind, 1,
              [&source = clsSource](CLS_SweepPoint& _clsPoint)
              {
                  const std::string strBefore = Print(source);
                  _clsPoint.FailAndThrow(
                      [&]
                      {
                          source.ToString();
                          source.ToBool();
                          source.ToMap();
                      });
                  EXPECT_EQ(strBefore, Print(source));
              });
    }
}

TEST_F(SweepVariantTest, ChangeOfTheTypeNeedsNoMemory)
{
    Sweep("CLS_CVariant::SetType", 0,
          [](CLS_SweepPoint& _clsPoint)
          {
              CLS_CVariant clsVariant(MakeMap());
              EXPECT_FALSE(_clsPoint.Fail([&] { clsVariant.SetType(CVariantType_String); }));
              EXPECT_EQ(CVariantType_String, clsVariant.GetType());
          });
}
} // namespace
