#include "QuenInclude/CLS_Basic.h"
#include "tests/support/BasicView.h"
#include "tests/support/RecordMatchers.h"
#include "tests/support/Waiting.h"

#include <array>
#include <gmock/gmock.h>
#include <memory>
#include <stdexcept>
#include <thread>

namespace
{
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;

using VariantMap = std::map<std::string, CLS_CVariant>;

constexpr const char* ID_PATTERN = "[0-9a-f]{8}-[0-9a-f]{4}[0-9a-f]*-[0-9a-f]{8}[0-9a-f]*-[0-9a-f]{4}";

class CLS_Caller : public CLS_Basic
{
public:
    const char* GetClassCode() override { return "8CLS_Task"; }
};

/// The text of std::bad_function_call on this platform.
std::string GetEmptyFunctionText()
{
    return std::string("8CLS_Taskcall back Fail") + std::bad_function_call().what();
}

auto IsCallerRecord(const std::string& _strText)
{
    return IsRecord(3, "8CLS_Task", "QuenInclude/CLS_Basic", "RunCallBackFun", _strText);
}

class BasicCallBackTest : public ::testing::Test
{
protected:
    void SetUp() override { LogRecorder::Clear(); }
    void TearDown() override { LogRecorder::Clear(); }

    /// Registers a callback that appends _strName to m_vecCalls.
    std::string AddNoting(const std::string& _strName)
    {
        return m_clsCaller.SetCallBackResultFun([this, _strName](const auto&, const auto&, const auto&, void*)
                                                { m_vecCalls.push_back(_strName); },
                                                nullptr);
    }

    void Run(const std::string& _strKey) { m_clsCaller.RunCallBackFun("first", {}, "second", _strKey); }

    CLS_Caller m_clsCaller;
    std::vector<std::string> m_vecCalls;
};

TEST_F(BasicCallBackTest, KeysAreFreshIds)
{
    const std::string strFirst = AddNoting("a");
    const std::string strSecond = AddNoting("b");
    EXPECT_THAT(strFirst, MatchesRegex(ID_PATTERN));
    EXPECT_THAT(strSecond, MatchesRegex(ID_PATTERN));
    EXPECT_NE(strFirst, strSecond);
    EXPECT_EQ(2U, BasicView::GetCallBacks(m_clsCaller).size());
}

TEST_F(BasicCallBackTest, ACallBackGetsWhatItWasCalledAndRegisteredWith)
{
    int iUser = 0;
    int iCalls = 0;
    const VariantMap mapParam{{"a", 1}, {"b", "x"}};
    const std::string strKey = m_clsCaller.SetCallBackResultFun(
        [&](const std::string& _strFirst, const VariantMap& _mapParam, const std::string& _strSecond,
            void* _pUser)
        {
            ++iCalls;
            EXPECT_EQ("one", _strFirst);
            EXPECT_EQ(&mapParam, &_mapParam);
            EXPECT_EQ("two", _strSecond);
            EXPECT_EQ(&iUser, _pUser);
        },
        &iUser);
    m_clsCaller.RunCallBackFun("one", mapParam, "two", strKey);
    m_clsCaller.RunCallBackFun("one", mapParam, "two", "");
    EXPECT_EQ(2, iCalls);
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

TEST_F(BasicCallBackTest, AKeyCallsItsCallBackAlone)
{
    AddNoting("a");
    const std::string strKey = AddNoting("b");
    AddNoting("c");
    Run(strKey);
    EXPECT_THAT(m_vecCalls, ElementsAre("b"));
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

TEST_F(BasicCallBackTest, AnEmptyKeyCallsAllInKeyOrder)
{
    std::map<std::string, std::string> mapNames;
    for (int i = 0; i < 12; ++i)
    {
        const std::string strName = std::to_string(i);
        mapNames[AddNoting(strName)] = strName;
    }
    std::vector<std::string> vecExpected;
    for (const auto& [strKey, strName] : mapNames)
    {
        vecExpected.push_back(strName);
    }
    Run("");
    EXPECT_EQ(vecExpected, m_vecCalls);
}

TEST_F(BasicCallBackTest, WithoutCallBacksAnEmptyKeyDoesNothing)
{
    Run("");
    EXPECT_THAT(BasicView::GetCallBacks(m_clsCaller), IsEmpty());
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

// Pins docs/limits.md, "Odd texts".
TEST_F(BasicCallBackTest, ARemovedCallBackIsNotCalled)
{
    const std::string strKey = AddNoting("a");
    AddNoting("b");
    m_clsCaller.RmoveCallBackResultFun(strKey);
    Run("");
    EXPECT_THAT(m_vecCalls, ElementsAre("b"));
}

TEST_F(BasicCallBackTest, RemovingAnUnknownKeyIsIgnored)
{
    AddNoting("a");
    m_clsCaller.RmoveCallBackResultFun("unknown");
    m_clsCaller.RmoveCallBackResultFun("");
    Run("");
    EXPECT_THAT(m_vecCalls, ElementsAre("a"));
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

TEST_F(BasicCallBackTest, ACallBackThatThrowsIsRecordedAndTheNextIsCalled)
{
    // Two callbacks that throw and one that does not, in any order of keys.
    for (const std::string strKey : {"1", "3"})
    {
        BasicView::GetCallBacks(m_clsCaller)[strKey].first = [](const auto&, const auto&, const auto&, void*)
        { throw std::runtime_error("x"); };
    }
    for (const std::string strKey : {"2", "4"})
    {
        BasicView::GetCallBacks(m_clsCaller)[strKey].first =
            [this, strKey](const auto&, const auto&, const auto&, void*) { m_vecCalls.push_back(strKey); };
    }
    EXPECT_NO_THROW(Run(""));
    EXPECT_THAT(m_vecCalls, ElementsAre("2", "4"));
    EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsCallerRecord("8CLS_Taskcall back Failx"),
                                                 IsCallerRecord("8CLS_Taskcall back Failx")));
}

// Pins docs/limits.md, "Odd texts".
TEST_F(BasicCallBackTest, ACallBackThatThrowsIsRecordedWhenCalledByItsKey)
{
    const std::string strKey = m_clsCaller.SetCallBackResultFun(
        [](const auto&, const auto&, const auto&, void*) { throw std::logic_error("why"); }, nullptr);
    EXPECT_NO_THROW(Run(strKey));
    EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsCallerRecord("8CLS_Taskcall back Failwhy")));
}

TEST_F(BasicCallBackTest, AnExceptionOfAnotherKindIsRecordedWithoutItsText)
{
    const std::string strKey = m_clsCaller.SetCallBackResultFun(
        [](const auto&, const auto&, const auto&, void*) { throw 7; }, nullptr);
    EXPECT_NO_THROW(Run(strKey));
    EXPECT_NO_THROW(Run(""));
    EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsCallerRecord("8CLS_Taskcall back Fail"),
                                                 IsCallerRecord("8CLS_Taskcall back Fail")));
}

TEST_F(BasicCallBackTest, AnExceptionWhoseTextIsNullIsRecordedWithoutItsText)
{
    class CLS_NullTextError : public std::exception
    {
    public:
        const char* what() const noexcept override { return nullptr; }
    };
    const std::string strKey = m_clsCaller.SetCallBackResultFun(
        [](const auto&, const auto&, const auto&, void*) { throw CLS_NullTextError(); }, nullptr);
    EXPECT_NO_THROW(Run(strKey));
    EXPECT_NO_THROW(Run(""));
    EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsCallerRecord("8CLS_Taskcall back Fail"),
                                                 IsCallerRecord("8CLS_Taskcall back Fail")));
}

TEST_F(BasicCallBackTest, AClassCodeThatIsNullIsLeftOutOfTheRecord)
{
    class CLS_WithoutCodes : public CLS_Basic
    {
    public:
        const char* GetClassCode() override { return nullptr; }
    };
    CLS_WithoutCodes clsObject;
    BasicView::GetCallBacks(clsObject)["1"].first = [](const auto&, const auto&, const auto&, void*)
    { throw std::runtime_error("why"); };
    BasicView::GetCallBacks(clsObject)["2"].first = [](const auto&, const auto&, const auto&, void*)
    { throw 7; };
    EXPECT_NO_THROW(clsObject.RunCallBackFun("", {}, "", ""));
    EXPECT_THAT(
        LogRecorder::Take(),
        ElementsAre(IsRecord(3, "(null)", "QuenInclude/CLS_Basic", "RunCallBackFun", "call back Failwhy"),
                    IsRecord(3, "(null)", "QuenInclude/CLS_Basic", "RunCallBackFun", "call back Fail")));
}

TEST_F(BasicCallBackTest, AModuleCodeThatIsNullIsPassedThrough)
{
    class CLS_Moduleless : public CLS_Basic
    {
    public:
        const char* GetModuleCode() override { return nullptr; }
    };
    CLS_Moduleless clsObject;
    clsObject.SetCallBackResultFun([](const auto&, const auto&, const auto&, void*) { throw 7; }, nullptr);
    EXPECT_NO_THROW(clsObject.RunCallBackFun("", {}, "", ""));
    const std::string strFailure = std::string(typeid(clsObject).name()) + "call back Fail";
    EXPECT_THAT(LogRecorder::Take(),
                ElementsAre(IsRecord(3, "(null)", "QuenInclude/CLS_Basic", "RunCallBackFun", strFailure)));
}

TEST_F(BasicCallBackTest, AnEmptyFunctionIsRecordedAsABadFunctionCall)
{
    const std::string strKey = m_clsCaller.SetCallBackResultFun(nullptr, nullptr);
    EXPECT_NO_THROW(Run(strKey));
    EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsCallerRecord(GetEmptyFunctionText())));
    EXPECT_NO_THROW(Run(""));
    EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsCallerRecord(GetEmptyFunctionText())));
}

// Pins docs/limits.md, "An unknown callback key leaves an empty entry".
TEST_F(BasicCallBackTest, AnUnknownKeyMakesTwoRecordsAndLeavesAnEmptyEntry)
{
    AddNoting("a");
    EXPECT_NO_THROW(Run("unknown"));
    EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsCallerRecord("unknown callback is null"),
                                                 IsCallerRecord(GetEmptyFunctionText())));
    EXPECT_THAT(m_vecCalls, IsEmpty());
    ASSERT_EQ(1U, BasicView::GetCallBacks(m_clsCaller).count("unknown"));
    EXPECT_FALSE(BasicView::GetCallBacks(m_clsCaller)["unknown"].first);
    EXPECT_EQ(nullptr, BasicView::GetCallBacks(m_clsCaller)["unknown"].second);
}

TEST_F(BasicCallBackTest, TheEmptyEntryCountsFromThenOn)
{
    AddNoting("a");
    Run("unknown");
    LogRecorder::Clear();
    Run("unknown");
    EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsCallerRecord(GetEmptyFunctionText())));
    Run("");
    EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsCallerRecord(GetEmptyFunctionText())));
    EXPECT_THAT(m_vecCalls, ElementsAre("a"));
    m_clsCaller.RmoveCallBackResultFun("unknown");
    Run("");
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

TEST_F(BasicCallBackTest, RecordsCarryTheModuleCodeAndTheClassCode)
{
    class CLS_OfAModule : public CLS_Basic
    {
    public:
        const char* GetClassCode() override { return "Class"; }
        const char* GetModuleCode() override { return "Module"; }
    };
    CLS_OfAModule clsObject;
    clsObject.RunCallBackFun("", {}, "", "key");
    const std::string strFailure = std::string("Classcall back Fail") + std::bad_function_call().what();
    EXPECT_THAT(
        LogRecorder::Take(),
        ElementsAre(IsRecord(3, "Module", "QuenInclude/CLS_Basic", "RunCallBackFun", "key callback is null"),
                    IsRecord(3, "Module", "QuenInclude/CLS_Basic", "RunCallBackFun", strFailure)));
}

TEST_F(BasicCallBackTest, RecordsOfAPlainObjectCarryItsDecoratedName)
{
    CLS_Basic clsObject;
    clsObject.SetCallBackResultFun(nullptr, nullptr);
    clsObject.RunCallBackFun("", {}, "", "");
    const std::string strFailure = std::string("9CLS_Basiccall back Fail") + std::bad_function_call().what();
    EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsRecord(3, "9CLS_Basic", "QuenInclude/CLS_Basic",
                                                          "RunCallBackFun", strFailure)));
}

TEST_F(BasicCallBackTest, NoHalfWrittenRecordAppearsWhenItsTextCannotBeMade)
{
    class CLS_Nameless : public CLS_Basic
    {
    public:
        const char* GetClassCode() override { throw std::runtime_error("no name"); }
        const char* GetModuleCode() override { return "Module"; }
    };
    CLS_Nameless clsObject;
    const std::string strKey = clsObject.SetCallBackResultFun(nullptr, nullptr);
    EXPECT_THROW(clsObject.RunCallBackFun("", {}, "", strKey), std::runtime_error);
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
    // The lock was released.
    clsObject.RmoveCallBackResultFun(strKey);
    EXPECT_THAT(BasicView::GetCallBacks(clsObject), IsEmpty());
}

TEST_F(BasicCallBackTest, NoHalfWrittenRecordAppearsWhenItsModuleCannotBeMade)
{
    class CLS_Homeless : public CLS_Basic
    {
    public:
        const char* GetModuleCode() override { throw std::runtime_error("no module"); }
    };
    CLS_Homeless clsObject;
    EXPECT_THROW(clsObject.RunCallBackFun("", {}, "", "unknown"), std::runtime_error);
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

TEST_F(BasicCallBackTest, ACallBackMayRunCallBacks)
{
    const std::string strInner = AddNoting("inner");
    const std::string strOuter = m_clsCaller.SetCallBackResultFun(
        [this, &strInner](const auto&, const auto&, const auto&, void*)
        {
            m_vecCalls.push_back("outer");
            Run(strInner);
        },
        nullptr);
    Run(strOuter);
    EXPECT_THAT(m_vecCalls, ElementsAre("outer", "inner"));
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

TEST_F(BasicCallBackTest, ACallBackMayRunCallBacksWhileAnotherThreadWaitsToRegister)
{
    std::thread thRegister;
    const std::string strInner = AddNoting("inner");
    const std::string strOuter = m_clsCaller.SetCallBackResultFun(
        [&](const auto&, const auto&, const auto&, void*)
        {
            thRegister = std::thread([this] { AddNoting("new"); });
            // On platforms where a waiting writer blocks new readers, this sees it wait. Elsewhere it times
            // out.
            static_cast<void>(WaitUntil(
                [this]
                {
                    std::shared_mutex& smLock = BasicView::GetCallBackLock(m_clsCaller);
                    bool bFree = true;
                    std::thread(
                        [&]
                        {
                            bFree = smLock.try_lock_shared();
                            if (bFree)
                            {
                                smLock.unlock_shared();
                            }
                        })
                        .join();
                    return !bFree;
                },
                std::chrono::milliseconds(50)));
            Run(strInner);
        },
        nullptr);
    Run(strOuter);
    thRegister.join();
    EXPECT_THAT(m_vecCalls, ElementsAre("inner"));
    EXPECT_EQ(3U, BasicView::GetCallBacks(m_clsCaller).size());
}

TEST_F(BasicCallBackTest, ACallBackMayUseTheParameters)
{
    const std::string strKey = m_clsCaller.SetCallBackResultFun(
        [this](const auto&, const auto&, const auto&, void*) { m_clsCaller.SetParam("a", 1); }, nullptr);
    Run(strKey);
    EXPECT_EQ("1", m_clsCaller.Param("a").ToString());
}

TEST_F(BasicCallBackTest, TheCallBackLockIsHeldSharedDuringTheCall)
{
    bool bExclusive = true;
    bool bShared = false;
    const auto funCallBack = [&](const auto&, const auto&, const auto&, void*)
    {
        std::thread(
            [&]
            {
                std::shared_mutex& smLock = BasicView::GetCallBackLock(m_clsCaller);
                bExclusive = smLock.try_lock();
                bShared = smLock.try_lock_shared();
                if (bShared)
                {
                    smLock.unlock_shared();
                }
            })
            .join();
    };
    const std::string strKey = m_clsCaller.SetCallBackResultFun(funCallBack, nullptr);
    for (const std::string& strRun : {strKey, std::string()})
    {
        bExclusive = true;
        bShared = false;
        Run(strRun);
        EXPECT_FALSE(bExclusive);
        EXPECT_TRUE(bShared);
    }
    EXPECT_TRUE(BasicView::GetCallBackLock(m_clsCaller).try_lock());
    BasicView::GetCallBackLock(m_clsCaller).unlock();
}

TEST_F(BasicCallBackTest, TwoThreadsMayRunCallBacksAtTheSameTime)
{
    CLS_Counter clsInside;
    const std::string strKey = m_clsCaller.SetCallBackResultFun(
        [&clsInside](const auto&, const auto&, const auto&, void*)
        {
            clsInside.Add();
            EXPECT_TRUE(clsInside.Wait(2));
        },
        nullptr);
    std::thread thOther([&] { Run(strKey); });
    Run(strKey);
    thOther.join();
    EXPECT_EQ(2, clsInside.Get());
}

TEST_F(BasicCallBackTest, ThreadsRunTheCallBacksOfTheirOwnObjectsAtTheSameTime)
{
    constexpr int RUNS = 20000;
    std::array<int, 4> arrRuns{};
    std::vector<std::thread> vecThreads;
    for (int& iRuns : arrRuns)
    {
        vecThreads.emplace_back(
            [&iRuns]
            {
                CLS_Basic clsObject;
                clsObject.SetCallBackResultFun(
                    [&iRuns](const auto&, const auto&, const auto&, void*) { ++iRuns; }, nullptr);
                for (int i = 0; i < RUNS; ++i)
                {
                    clsObject.RunCallBackFun("", {}, "", "");
                }
            });
    }
    for (std::thread& thThread : vecThreads)
    {
        thThread.join();
    }
    EXPECT_THAT(arrRuns, Each(RUNS));
}

// Pins docs/limits.md, "Callbacks that change callbacks".
TEST_F(BasicCallBackTest, RegisteringAndRemovingWaitForARunningCallBack)
{
    CLS_Gate clsInside;
    CLS_Gate clsMayEnd;
    bool bEnded = false; // guarded by the callback lock itself
    const std::string strKey = m_clsCaller.SetCallBackResultFun(
        [&](const auto&, const auto&, const auto&, void*)
        {
            clsInside.Open();
            EXPECT_TRUE(clsMayEnd.Wait());
            bEnded = true;
        },
        nullptr);
    std::thread thRun([&] { Run(strKey); });
    ASSERT_TRUE(clsInside.Wait());
    std::thread thRemove(
        [&]
        {
            clsMayEnd.Open();
            m_clsCaller.RmoveCallBackResultFun(strKey);
            EXPECT_TRUE(bEnded);
            AddNoting("new");
        });
    thRemove.join();
    thRun.join();
    EXPECT_EQ(1U, BasicView::GetCallBacks(m_clsCaller).size());
}
} // namespace
