#include "QuenInclude/CLS_Basic.h"
#include "QuenInclude/Util.h"
#include "tests/support/BasicView.h"
#include "tests/support/VariantView.h"
#include "tests/support/Waiting.h"

#include <array>
#include <cstring>
#include <gmock/gmock.h>
#include <memory>
#include <thread>
#include <type_traits>
#include <typeinfo>

/// A class outside every namespace.
class CLS_BasicSubject : public CLS_Basic
{
};

namespace BasicArea
{
class CLS_InnerSubject : public CLS_Basic
{
};
} // namespace BasicArea

namespace
{
using ::testing::ElementsAre;
using ::testing::IsEmpty;

using VariantMap = std::map<std::string, CLS_CVariant>;

class CLS_HiddenSubject : public CLS_Basic
{
};

/// The slot of a virtual operation, taken from the pointer to that operation.
template <typename T_Operation>
std::size_t GetSlot(T_Operation _funOperation)
{
    static_assert(sizeof(_funOperation) >= sizeof(std::uintptr_t));
    std::uintptr_t uiOffset = 0;
    std::memcpy(&uiOffset, &_funOperation, sizeof(uiOffset));
    return uiOffset / sizeof(void*);
}

TEST(BasicTest, HasNoVirtualDestructorAndMakesItsMapsEmpty)
{
    static_assert(!std::has_virtual_destructor_v<CLS_Basic>);
    static_assert(std::is_polymorphic_v<CLS_Basic>);
    static_assert(std::is_default_constructible_v<CLS_Basic>);
    CLS_Basic clsObject;
    EXPECT_THAT(clsObject.Param(), IsEmpty());
    EXPECT_EQ("", clsObject.ParamToString());
    EXPECT_THAT(BasicView::GetCallBacks(clsObject), IsEmpty());
}

TEST(BasicTest, FieldsAreInOrder)
{
    CLS_Basic clsObject;
    EXPECT_TRUE(ClassLayout::AreInOrder(BasicView::ListMembers(clsObject)));
}

TEST(BasicTest, VirtualOperationsAreInTheirSlots)
{
    using Basic = CLS_Basic;
    using SetOneFun = void (Basic::*)(const std::string&, const CLS_CVariant&);
    using SetAllFun = void (Basic::*)(const VariantMap&);
    using GetOneFun = CLS_CVariant (Basic::*)(const std::string&);
    using GetAllFun = VariantMap (Basic::*)();
    const std::array<std::size_t, 13> arrSlots{GetSlot(&Basic::GetClassCode),
                                               GetSlot(&Basic::GetModuleCode),
                                               GetSlot(&Basic::SetId),
                                               GetSlot(&Basic::GetId),
                                               GetSlot(&Basic::SetCallBackResultFun),
                                               GetSlot(&Basic::RmoveCallBackResultFun),
                                               GetSlot(static_cast<SetOneFun>(&Basic::SetParam)),
                                               GetSlot(static_cast<SetAllFun>(&Basic::SetParam)),
                                               GetSlot(&Basic::RemoveParam),
                                               GetSlot(static_cast<GetOneFun>(&Basic::Param)),
                                               GetSlot(static_cast<GetAllFun>(&Basic::Param)),
                                               GetSlot(&Basic::ParamToString),
                                               GetSlot(&Basic::RunCallBackFun)};
    EXPECT_THAT(arrSlots, ElementsAre(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12));
}

TEST(BasicTest, ClassCodeIsThePlatformsNameOfTheMostDerivedClass)
{
    CLS_BasicSubject clsDerived;
    CLS_Basic clsBase;
    CLS_Basic& clsSeen = clsDerived;
    EXPECT_STREQ("16CLS_BasicSubject", clsSeen.GetClassCode());
    EXPECT_STREQ("9CLS_Basic", clsBase.GetClassCode());
    EXPECT_STREQ("16CLS_BasicSubject", clsSeen.GetModuleCode());
}

TEST(BasicTest, ClassCodeOfAClassInANamespaceIsItsWholeDecoratedName)
{
    BasicArea::CLS_InnerSubject clsInner;
    EXPECT_STREQ("N9BasicArea16CLS_InnerSubjectE", clsInner.GetClassCode());
    CLS_HiddenSubject clsHidden;
    EXPECT_STREQ(typeid(CLS_HiddenSubject).name(), clsHidden.GetClassCode());
}

TEST(BasicTest, ClassCodeOutlivesTheObjectAndIsTheSameForAll)
{
    const char* szCode = nullptr;
    const char* szModule = nullptr;
    {
        CLS_BasicSubject clsFirst;
        szCode = clsFirst.GetClassCode();
        szModule = clsFirst.GetModuleCode();
    }
    BasicArea::CLS_InnerSubject clsOther;
    EXPECT_STRNE(szCode, clsOther.GetClassCode());
    EXPECT_EQ(szCode, CLS_BasicSubject().GetClassCode());
    EXPECT_STREQ("16CLS_BasicSubject", szCode);
    EXPECT_STREQ("16CLS_BasicSubject", szModule);
}

TEST(BasicTest, ThreadsMayAskForClassCodesAtOnce)
{
    class CLS_AskedFirst : public CLS_Basic
    {
    };
    CLS_Gate clsGate;
    std::array<const char*, 4> arrCodes{};
    std::vector<std::thread> vecThreads;
    for (const char*& szCode : arrCodes)
    {
        vecThreads.emplace_back(
            [&clsGate, &szCode]
            {
                EXPECT_TRUE(clsGate.Wait());
                CLS_AskedFirst clsObject;
                szCode = clsObject.GetClassCode();
            });
    }
    clsGate.Open();
    for (std::thread& thAsk : vecThreads)
    {
        thAsk.join();
    }
    EXPECT_THAT(arrCodes, ::testing::Each(arrCodes[0]));
    EXPECT_STREQ(typeid(CLS_AskedFirst).name(), arrCodes[0]);
}

TEST(BasicTest, AnOverrideOfTheClassCodeChangesTheModuleCodeToo)
{
    class CLS_Renamed : public CLS_Basic
    {
    public:
        const char* GetClassCode() override { return "Renamed"; }
    };
    CLS_Renamed clsObject;
    EXPECT_STREQ("Renamed", clsObject.GetModuleCode());
}

TEST(BasicTest, ParametersAreInsertedAndOverwritten)
{
    CLS_Basic clsObject;
    clsObject.SetParam("b", "x");
    clsObject.SetParam("a", 1);
    clsObject.SetParam("b", true);
    EXPECT_EQ("[a] : [1]\n[b] : [1]\n", clsObject.ParamToString());
    EXPECT_EQ(CVariantType_Bool, clsObject.Param("b").GetType());
    EXPECT_EQ(2U, clsObject.Param().size());
}

TEST(BasicTest, ParametersAreCopies)
{
    CLS_Basic clsObject;
    CLS_CVariant clsValue(VariantMap{{"x", 1}});
    clsObject.SetParam("a", clsValue);
    VariantView::GetMap(clsValue)->clear();
    CLS_CVariant clsRead = clsObject.Param("a");
    VariantView::GetMap(clsRead)->clear();
    VariantMap mapRead = clsObject.Param();
    VariantView::GetMap(mapRead["a"])->clear();
    mapRead.erase("a");
    EXPECT_EQ(1U, clsObject.Param("a").ToMap().size());
}

TEST(BasicTest, AnUnknownParameterIsNoneAndIsNotMade)
{
    CLS_Basic clsObject;
    EXPECT_EQ(CVariantType_None, clsObject.Param("unknown").GetType());
    EXPECT_THAT(clsObject.Param(), IsEmpty());
}

TEST(BasicTest, SettingAllParametersDropsTheOthers)
{
    CLS_Basic clsObject;
    clsObject.SetParam("old", 1);
    clsObject.SetId("id");
    VariantMap mapNew{{"new", 2}};
    clsObject.SetParam(mapNew);
    mapNew["new"] = 3;
    EXPECT_EQ("[new] : [2]\n", clsObject.ParamToString());
}

TEST(BasicTest, SettingTheObjectsOwnParametersChangesNothing)
{
    CLS_Basic clsObject;
    clsObject.SetParam("a", 1);
    clsObject.SetParam("b", "x");
    clsObject.SetParam(BasicView::GetParams(clsObject));
    EXPECT_EQ("[a] : [1]\n[b] : [x]\n", clsObject.ParamToString());
}

TEST(BasicTest, ParametersCanBeRemovedAndUnknownOnesAreIgnored)
{
    CLS_Basic clsObject;
    clsObject.SetParam("a", 1);
    clsObject.SetParam("b", 2);
    clsObject.RemoveParam("a");
    clsObject.RemoveParam("unknown");
    EXPECT_EQ("[b] : [2]\n", clsObject.ParamToString());
}

TEST(BasicTest, ReadersShareTheParameterLock)
{
    CLS_Basic clsObject;
    clsObject.SetParam("a", 1);
    const std::shared_lock<std::shared_mutex> lock(BasicView::GetParamLock(clsObject));
    std::thread(
        [&clsObject]
        {
            EXPECT_EQ("1", clsObject.Param("a").ToString());
            EXPECT_EQ(1U, clsObject.Param().size());
            EXPECT_EQ("[a] : [1]\n", clsObject.ParamToString());
        })
        .join();
}

TEST(BasicTest, ReadersHoldUpSetParamAndRemoveParam)
{
    const std::vector<std::function<void(CLS_Basic&)>> vecChanges{
        [](CLS_Basic& _clsObject) { _clsObject.SetParam("a", 2); },
        [](CLS_Basic& _clsObject) {
            _clsObject.SetParam(VariantMap{{"b", 2}});
        },
        [](CLS_Basic& _clsObject) { _clsObject.RemoveParam("a"); }};
    for (const auto& funChange : vecChanges)
    {
        CLS_Basic clsObject;
        clsObject.SetParam("a", 1);
        CLS_Gate clsChanged;
        std::thread thChange;
        {
            const std::shared_lock<std::shared_mutex> lock(BasicView::GetParamLock(clsObject));
            thChange = std::thread(
                [&]
                {
                    funChange(clsObject);
                    clsChanged.Open();
                });
            EXPECT_FALSE(clsChanged.Wait(std::chrono::milliseconds(50)));
            // Reads under the lock that is already held: a second lock could wait behind the change.
            EXPECT_EQ("[a] : [1]\n", Util::MapToString(BasicView::GetParams(clsObject)));
        }
        thChange.join();
        EXPECT_NE("[a] : [1]\n", clsObject.ParamToString());
    }
}

TEST(BasicTest, ParametersDoNotNeedTheCallBackLock)
{
    CLS_Basic clsObject;
    const std::unique_lock<std::shared_mutex> lock(BasicView::GetCallBackLock(clsObject));
    clsObject.SetParam("a", 1);
    clsObject.SetParam(VariantMap{{"b", 2}});
    clsObject.RemoveParam("b");
    clsObject.GetId();
    EXPECT_EQ(1U, clsObject.Param().size());
    EXPECT_EQ("", clsObject.Param("b").ToString());
}

TEST(BasicTest, CallBacksDoNotNeedTheParameterLock)
{
    CLS_Basic clsObject;
    const std::unique_lock<std::shared_mutex> lock(BasicView::GetParamLock(clsObject));
    bool bCalled = false;
    const std::string strKey = clsObject.SetCallBackResultFun(
        [&bCalled](const auto&, const auto&, const auto&, void*) { bCalled = true; }, nullptr);
    clsObject.RunCallBackFun("", {}, "", strKey);
    clsObject.RmoveCallBackResultFun(strKey);
    EXPECT_TRUE(bCalled);
}

TEST(BasicTest, ThreadsMayShareAnObject)
{
    CLS_Basic clsObject;
    std::vector<std::thread> vecThreads;
    for (int i = 0; i < 4; ++i)
    {
        vecThreads.emplace_back(
            [&clsObject, i]
            {
                for (int j = 0; j < 200; ++j)
                {
                    clsObject.SetParam(std::to_string(i), j);
                    EXPECT_LE(clsObject.Param("0").ToString().size(), 3U);
                    clsObject.ParamToString();
                    clsObject.SetParam(clsObject.Param());
                    clsObject.RemoveParam(std::to_string(i));
                    const std::string strKey = clsObject.SetCallBackResultFun(
                        [](const auto&, const auto&, const auto&, void*) {}, nullptr);
                    clsObject.RunCallBackFun("", {}, "", "");
                    clsObject.RunCallBackFun("", {}, "", strKey);
                    clsObject.RmoveCallBackResultFun(strKey);
                }
            });
    }
    for (std::thread& thUse : vecThreads)
    {
        thUse.join();
    }
    EXPECT_THAT(BasicView::GetCallBacks(clsObject), IsEmpty());
    EXPECT_LE(clsObject.Param().size(), 4U);
}

TEST(BasicTest, DestructionTakesTheCallBacksBeforeTheParameters)
{
    std::string strRead;
    {
        CLS_Basic clsObject;
        clsObject.SetParam("a", "still there");
        CLS_Basic* const pObject = &clsObject;
        const std::shared_ptr<void> ptrCaptured(
            nullptr,
            [pObject, &strRead](void*)
            {
                const std::shared_lock<std::shared_mutex> lock(BasicView::GetParamLock(*pObject));
                const auto itParam = BasicView::GetParams(*pObject).find("a");
                strRead = itParam == BasicView::GetParams(*pObject).end() ? "" : itParam->second.ToString();
            });
        clsObject.SetCallBackResultFun([ptrCaptured](const auto&, const auto&, const auto&, void*) {},
                                       nullptr);
    }
    EXPECT_EQ("still there", strRead);
}
} // namespace
