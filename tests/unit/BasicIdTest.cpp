#include "QuenInclude/CLS_Basic.h"
#include "tests/support/Waiting.h"

#include <gmock/gmock.h>
#include <thread>

namespace
{
using ::testing::AnyOf;
using ::testing::ElementsAre;
using ::testing::MatchesRegex;

using VariantMap = std::map<std::string, CLS_CVariant>;

constexpr const char* ID_PATTERN = "[0-9a-f]{8}-[0-9a-f]{4}[0-9a-f]*-[0-9a-f]{8}[0-9a-f]*-[0-9a-f]{4}";

/// Records the calls of the virtual operations on which the others are built.
class CLS_TracingSubject : public CLS_Basic
{
public:
    void SetId(const CLS_CVariant& _clsId) override
    {
        m_vecCalls.push_back("SetId " + _clsId.ToString());
        CLS_Basic::SetId(_clsId);
    }

    using CLS_Basic::SetParam;
    void SetParam(const std::string& _strName, const CLS_CVariant& _clsValue) override
    {
        m_vecCalls.push_back("SetParam " + _strName + " " + _clsValue.ToString());
        CLS_Basic::SetParam(_strName, _clsValue);
    }

    using CLS_Basic::Param;
    CLS_CVariant Param(const std::string& _strName) override
    {
        m_vecCalls.push_back("Param " + _strName);
        return CLS_Basic::Param(_strName);
    }

    std::vector<std::string> m_vecCalls;
};

TEST(BasicIdTest, IdIsMadeOnceAndKept)
{
    CLS_Basic clsObject;
    EXPECT_EQ(CVariantType_None, clsObject.Param("__id__").GetType());
    const std::string strId = clsObject.GetId();
    EXPECT_THAT(strId, MatchesRegex(ID_PATTERN));
    EXPECT_EQ(strId, clsObject.GetId());
    EXPECT_EQ(strId, clsObject.GetId());
    EXPECT_EQ(CVariantType_String, clsObject.Param("__id__").GetType());
    EXPECT_EQ(strId, clsObject.Param("__id__").ToString());
    EXPECT_NE(strId, CLS_Basic().GetId());
}

TEST(BasicIdTest, IdCanBeSet)
{
    CLS_Basic clsObject;
    clsObject.SetId("abc");
    EXPECT_EQ("abc", clsObject.GetId());
    EXPECT_EQ("[__id__] : [abc]\n", clsObject.ParamToString());
}

TEST(BasicIdTest, IdOfAnotherTypeIsReadAsItsText)
{
    CLS_Basic clsObject;
    clsObject.SetId(42);
    EXPECT_EQ("42", clsObject.GetId());
    EXPECT_EQ(CVariantType_LongLong, clsObject.Param("__id__").GetType());
    clsObject.SetId("");
    EXPECT_EQ("", clsObject.GetId());
    clsObject.SetId(VariantMap{{"a", 1}});
    EXPECT_EQ("", clsObject.GetId());
}

TEST(BasicIdTest, IdOfTypeNoneIsMadeAnew)
{
    CLS_Basic clsObject;
    clsObject.SetId(CLS_CVariant());
    const std::string strId = clsObject.GetId();
    EXPECT_THAT(strId, MatchesRegex(ID_PATTERN));
    EXPECT_EQ(strId, clsObject.GetId());
}

TEST(BasicIdTest, IdIsMadeAnewAfterItsParameterIsGone)
{
    CLS_Basic clsObject;
    const std::string strFirst = clsObject.GetId();
    clsObject.SetParam(VariantMap{{"a", 1}});
    const std::string strSecond = clsObject.GetId();
    EXPECT_THAT(strSecond, MatchesRegex(ID_PATTERN));
    EXPECT_NE(strFirst, strSecond);
    clsObject.RemoveParam("__id__");
    EXPECT_NE(strSecond, clsObject.GetId());
    EXPECT_EQ("1", clsObject.Param("a").ToString());
}

TEST(BasicIdTest, IdGoesThroughTheVirtualOperations)
{
    CLS_TracingSubject clsObject;
    const std::string strId = clsObject.GetId();
    EXPECT_THAT(clsObject.m_vecCalls,
                ElementsAre("Param __id__", "SetId " + strId, "SetParam __id__ " + strId));
    clsObject.m_vecCalls.clear();
    EXPECT_EQ(strId, clsObject.GetId());
    EXPECT_THAT(clsObject.m_vecCalls, ElementsAre("Param __id__"));
}

TEST(BasicIdTest, TwoThreadsMayMakeTheIdAtOnce)
{
    for (int i = 0; i < 100; ++i)
    {
        CLS_Basic clsObject;
        std::string strOther;
        CLS_Gate clsGate;
        std::thread thOther(
            [&]
            {
                EXPECT_TRUE(clsGate.Wait());
                strOther = clsObject.GetId();
            });
        clsGate.Open();
        const std::string strOwn = clsObject.GetId();
        thOther.join();
        EXPECT_THAT(clsObject.GetId(), AnyOf(strOwn, strOther));
    }
}
} // namespace
