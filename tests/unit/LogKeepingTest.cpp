#include "tests/support/FailingMemory.h"
#include "tests/support/LoadTurnView.h"
#include "tests/support/LogBindingView.h"
#include "tests/support/LogOpening.h"
#include "tests/support/RecordMatchers.h"
#include "tests/support/Waiting.h"

#include <array>
#include <gmock/gmock.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

namespace
{
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

using LogKeepingTest = CLS_LogOpeningFixture;

auto IsLoss(const std::string& _strCount)
{
    return IsRecord(3, "Logger", "QuenInclude/CLS_LogBinding", "HandOver",
                    "log records lost while the logging library was opened: " + _strCount);
}

TEST_F(LogKeepingTest, RecordsOfOtherThreadsDuringTheOpeningArriveInOrder)
{
    m_vecOpenings = {OpenAfter(
        [this]
        {
            for (const char* const szText : {"a", "b", "c"})
            {
                SayOnAnotherThread(szText);
            }
        })};
    Say("first");
    EXPECT_THAT(TakeTexts(), ElementsAre("first", "a", "b", "c"));
    Say("second");
    EXPECT_THAT(TakeTexts(), ElementsAre("second"));
    EXPECT_EQ(1U, m_uiOpenings);
}

TEST_F(LogKeepingTest, RecordsOfTheInitialiserArriveAfterTheOneThatOpensTheLibrary)
{
    m_vecOpenings = {OpenAfter([this] { Say("at load"); })};
    Say("first");
    EXPECT_THAT(TakeTexts(), ElementsAre("first", "at load"));
}

TEST_F(LogKeepingTest, AskingForAFunctionDuringTheOpeningIsTurnedAway)
{
    m_vecOpenings = {OpenAfter([this] { EXPECT_EQ(nullptr, m_clsBinding.GetFunction("PrintLog", "")); })};
    Say("first");
    EXPECT_THAT(TakeTexts(), ElementsAre("first"));
    EXPECT_EQ(1U, m_uiOpenings);
}

TEST_F(LogKeepingTest, ARecordMadeJustAfterTheOpeningDoesNotOpenTheLibraryAgain)
{
    m_vecOpenings = {&LogKeepingTest::GetLibrary};
    Say("first");
    EXPECT_FALSE(LogBindingView::BindIfFree(m_clsBinding));
    EXPECT_EQ(1U, m_uiOpenings);
}

// Pins docs/limits.md, "1000 log records are kept".
TEST_F(LogKeepingTest, NoRecordWaitsForTheOpening)
{
    CLS_HeldOpening clsOpening(*this);
    Say("second");
    Say("third");
    EXPECT_THAT(LogRecorder::Peek(), IsEmpty());
    // A thread sets this flag when its wait for the turn times out.
    EXPECT_FALSE(LoadTurnView::GetOverdueFlag(LogBindingView::GetTurn(m_clsBinding)));
    clsOpening.End();
    EXPECT_THAT(TakeTexts(), ElementsAre("first", "second", "third"));
}

TEST_F(LogKeepingTest, AProcessThatIsForkedDuringTheOpeningDoesNotWaitForIt)
{
    CLS_HeldOpening clsOpening(*this);
    const pid_t iChild = fork();
    if (iChild == 0)
    {
        Say("of the child");
        _exit(LoadTurnView::GetOverdueFlag(LogBindingView::GetTurn(m_clsBinding)) ? 1 : 0);
    }
    clsOpening.End();
    int iStatus = -1;
    EXPECT_EQ(iChild, waitpid(iChild, &iStatus, 0));
    EXPECT_EQ(0, iStatus);
    EXPECT_THAT(TakeTexts(), ElementsAre("first"));
}

TEST_F(LogKeepingTest, ALookUpThatOpensTheLibraryHandsOverWhatWasKept)
{
    m_vecOpenings = {OpenAfter([this] { SayOnAnotherThread("a"); })};
    EXPECT_EQ(reinterpret_cast<void*>(&PrintLog), m_clsBinding.GetFunction("PrintLog", ""));
    EXPECT_THAT(TakeTexts(), ElementsAre("a"));
}

TEST_F(LogKeepingTest, AKeptRecordHasItsFieldsAndCopiesOfItsTexts)
{
    m_vecOpenings = {OpenAfter(
        [this]
        {
            std::array<char, 4> arrText{"Own"};
            m_clsBinding.Emit({3, arrText.data(), arrText.data(), 9, arrText.data(), "text"});
            arrText = {"Bad"};
            m_clsBinding.Emit({0, nullptr, nullptr, -1, nullptr, ""});
        })};
    Say("first");
    const std::vector<LogRecorder::ST_Record> vecRecords = LogRecorder::Take();
    ASSERT_THAT(vecRecords, SizeIs(3));
    EXPECT_THAT(vecRecords[0], IsRecord(2, "Module", "File", "Function", "first"));
    EXPECT_THAT(vecRecords[1], IsRecord(3, "Own", "Own", "Own", "text"));
    EXPECT_EQ(9, vecRecords[1].m_iLine);
    EXPECT_EQ(0, vecRecords[2].m_iLevel);
    EXPECT_EQ("(null)", vecRecords[2].m_strModule);
    EXPECT_EQ("(null)", vecRecords[2].m_strFile);
    EXPECT_EQ("(null)", vecRecords[2].m_strFunction);
    EXPECT_EQ(-1, vecRecords[2].m_iLine);
    EXPECT_EQ("", vecRecords[2].m_strMessage);
}

const char* g_szLastModule = nullptr;

void KeepModule(int, const char* _szModule, const char*, int, const char*, const std::string&)
{
    g_szLastModule = _szModule;
}

TEST_F(LogKeepingTest, TheLoggingLibraryMayGoOnUsingTheModuleOfAKeptRecord)
{
    m_vecOpenings = {[this]() -> Functions
                     {
                         const std::string strModule = "a module whose name is not static";
                         m_clsBinding.Emit({2, strModule.c_str(), "File", 1, "Function", "text"});
                         return {{"PrintLog", reinterpret_cast<void*>(&KeepModule)}};
                     }};
    m_clsBinding.GetFunction("PrintLog", "");
    EXPECT_STREQ("a module whose name is not static", g_szLastModule);
}

// Pins docs/limits.md, "1000 log records are kept".
TEST_F(LogKeepingTest, RecordsBeyondTheLimitAreCountedInARecordOfTheirOwn)
{
    constexpr std::size_t LOST = 7;
    m_vecOpenings = {OpenAfter(
        [this]
        {
            for (std::size_t i = 1; i < CLS_LogBinding::MOST_KEPT + LOST; ++i)
            {
                Say(std::to_string(i));
            }
        })};
    Say("0");
    const std::vector<LogRecorder::ST_Record> vecRecords = LogRecorder::Take();
    ASSERT_THAT(vecRecords, SizeIs(CLS_LogBinding::MOST_KEPT + 1));
    for (std::size_t i = 0; i < CLS_LogBinding::MOST_KEPT; ++i)
    {
        EXPECT_EQ(std::to_string(i), vecRecords[i].m_strMessage);
    }
    EXPECT_THAT(vecRecords.back(), IsLoss("7"));
    Say("later");
    EXPECT_THAT(TakeTexts(), ElementsAre("later"));
}

TEST_F(LogKeepingTest, ARecordForWhichThereIsNoMemoryIsCountedAsLost)
{
    m_vecOpenings = {OpenAfter(
        [this]
        {
            const std::string strText = "lost";
            FailingMemory::FailAt(1);
            Say(strText);
            EXPECT_TRUE(FailingMemory::Stop());
            Say("kept");
        })};
    Say("first");
    const std::vector<LogRecorder::ST_Record> vecRecords = LogRecorder::Take();
    ASSERT_THAT(vecRecords, SizeIs(3));
    EXPECT_EQ("first", vecRecords[0].m_strMessage);
    EXPECT_EQ("kept", vecRecords[1].m_strMessage);
    EXPECT_THAT(vecRecords[2], IsLoss("1"));
}

TEST_F(LogKeepingTest, ALossIsRecordedEvenWhenNothingWasKept)
{
    m_vecOpenings = {OpenAfter(
        [this]
        {
            FailingMemory::FailAt(1);
            Say("lost");
            EXPECT_TRUE(FailingMemory::Stop());
        })};
    m_clsBinding.GetFunction("PrintLog", "");
    EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsLoss("1")));
}

TEST_F(LogKeepingTest, EveryOpeningCountsItsOwnLosses)
{
    const auto funLoseOne = OpenAfter(
        [this]
        {
            FailingMemory::FailAt(1);
            Say("lost");
            EXPECT_TRUE(FailingMemory::Stop());
        });
    const auto funFail = [] { return Functions(); };
    m_vecOpenings = {funLoseOne, funFail, funLoseOne, funFail};
    for (int i = 0; i < 2; ++i)
    {
        Say("first");
        const std::vector<LogRecorder::ST_Record> vecRecords = LogRecorder::Take();
        ASSERT_THAT(vecRecords, SizeIs(2));
        EXPECT_THAT(vecRecords[1], IsLoss("1"));
        // This opening fails, so the library still counts as not open.
        EXPECT_EQ(nullptr, m_clsBinding.GetFunction("Foo", ""));
    }
}

void PrintNothing(int, const char*, const char*, int, const char*, const std::string&) {}

TEST_F(LogKeepingTest, TheHandOverNeedsNoMemory)
{
    m_vecOpenings = {[this]() -> Functions
                     {
                         for (std::size_t i = 0; i < CLS_LogBinding::MOST_KEPT + 1; ++i)
                         {
                             Say("a text that is too long to stand within the string object itself");
                         }
                         Functions mapFuns{{"PrintLog", reinterpret_cast<void*>(&PrintNothing)}};
                         FailingMemory::FailAt(1);
                         return mapFuns;
                     }};
    const std::string strText = "first";
    Say(strText);
    EXPECT_FALSE(FailingMemory::Stop());
    EXPECT_EQ(CLS_LogBinding::MOST_KEPT, LogBindingView::CountHandedOver(m_clsBinding));
}

TEST_F(LogKeepingTest, AnOpeningThatFailsDropsThemSilentlyAndIsTriedAgain)
{
    const auto funRecord = [this]
    {
        for (std::size_t i = 0; i < CLS_LogBinding::MOST_KEPT + 1; ++i)
        {
            Say("dropped");
        }
    };
    m_vecOpenings = {[&]
                     {
                         funRecord();
                         return Functions();
                     },
                     OpenAfter([this] { Say("kept"); })};
    Say("dropped");
    EXPECT_EQ(0U, LogBindingView::CountKept(m_clsBinding));
    Say("second");
    EXPECT_THAT(TakeTexts(), ElementsAre("second", "kept"));
}

TEST_F(LogKeepingTest, ALibraryWithoutPrintLogDropsThemSilently)
{
    m_vecOpenings = {[this]
                     {
                         Say("dropped");
                         return Functions{{"PrintLog", nullptr}};
                     }};
    Say("first");
    Say("second");
    EXPECT_EQ(0U, LogBindingView::CountKept(m_clsBinding));
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
    EXPECT_EQ(1U, m_uiOpenings);
}

TEST_F(LogKeepingTest, AnOpeningThatThrowsLeavesThemToTheNextOne)
{
    m_vecOpenings = {[this]() -> Functions
                     {
                         SayOnAnotherThread("a");
                         throw std::runtime_error("no memory");
                     },
                     OpenAfter([this] { SayOnAnotherThread("b"); })};
    EXPECT_THROW(m_clsBinding.GetFunction("PrintLog", ""), std::runtime_error);
    EXPECT_THAT(LogRecorder::Peek(), IsEmpty());
    Say("next");
    EXPECT_THAT(TakeTexts(), ElementsAre("a", "next", "b"));
}
} // namespace
