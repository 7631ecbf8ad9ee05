#include "QuenInclude/Logger.h"
#include "tests/support/GroupingLocale.h"
#include "tests/support/LogRecordView.h"
#include "tests/support/RecordMatchers.h"

#include <csignal>
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <stdexcept>
#include <thread>
#include <type_traits>

namespace
{
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* FILE_NAME = "tests/unit/LogRecordTest";

auto IsOwnRecord(const std::string& _strText)
{
    return IsRecord(2, "Module", FILE_NAME, "Function", _strText);
}

void MakeRecord(const std::string& _strText)
{
    Logger::LogMessageStream("Module", "Function", FILE_NAME, 1, Logger::LOG_LEVEL_PROGRESS) << _strText;
}

/// Makes a log record on another thread and waits for it.
void MakeRecordOnAnotherThread(const std::string& _strText)
{
    std::thread([&_strText] { MakeRecord(_strText); }).join();
}

class LogRecordTest : public ::testing::Test
{
protected:
    void SetUp() override { Reset(); }
    void TearDown() override { Reset(); }

    /// Binds the library, so that no test makes the first log record of the process.
    static void Reset()
    {
        LogRecorder::SetHook({});
        ::testing::internal::CaptureStdout();
        Logger::GetModuleFun("PrintLog", "");
        ::testing::internal::GetCapturedStdout();
        LogRecorder::Clear();
    }
};

using LogRecordDeathTest = LogRecordTest;

TEST_F(LogRecordTest, LevelsHaveTheirNumbers)
{
    EXPECT_EQ(0, Logger::LOG_LEVEL_FINEST);
    EXPECT_EQ(1, Logger::LOG_LEVEL_DETAIL);
    EXPECT_EQ(2, Logger::LOG_LEVEL_PROGRESS);
    EXPECT_EQ(3, Logger::LOG_LEVEL_ERROR);
}

TEST_F(LogRecordTest, IsAnOutputStringStreamWithItsFieldsInOrder)
{
    static_assert(std::is_convertible_v<Logger::LogMessageStream*, std::ostringstream*>);
    const Logger::LogMessageStream clsRecord("Module", "Function", FILE_NAME, 7, 3);
    const ClassLayout::Members vecMembers = LogRecordView::ListMembers(clsRecord);
    EXPECT_TRUE(ClassLayout::AreInOrder(vecMembers));
    ASSERT_EQ(5U, vecMembers.size());
    EXPECT_EQ(4U, vecMembers[3].m_uiSize); // the line
    EXPECT_EQ(4U, vecMembers[4].m_uiSize); // the level
}

TEST_F(LogRecordTest, PrintLogIsTheLibrarysOwn)
{
    EXPECT_NE(nullptr, Logger::GetModuleFun("PrintLog", ""));
    EXPECT_EQ(dlsym(RTLD_DEFAULT, "PrintLog"), Logger::GetModuleFun("PrintLog", ""));
}

TEST_F(LogRecordTest, EveryFieldArrivesInItsPlace)
{
    Logger::LogMessageStream("TheModule", "TheFunction", "The/File", 593, 3) << "create task thread error";
    const std::vector<LogRecorder::ST_Record> vecRecords = LogRecorder::Take();
    ASSERT_THAT(vecRecords,
                ElementsAre(IsRecord(3, "TheModule", "The/File", "TheFunction", "create task thread error")));
    EXPECT_EQ(593, vecRecords[0].m_iLine);
}

TEST_F(LogRecordTest, AnyValueCanBeStreamedIntoTheMessage)
{
    MakeRecord("");
    LogRecorder::Clear();
    Logger::LogMessageStream("Module", "Function", FILE_NAME, 1, 2)
        << "task " << 7 << ' ' << 0.5 << ' ' << true << ' ' << std::hex << 255 << std::string(" end");
    EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsOwnRecord("task 7 0.5 1 ff end")));
}

TEST_F(LogRecordTest, AnEmptyMessageIsEmitted)
{
    {
        const Logger::LogMessageStream clsRecord("Module", "Function", FILE_NAME, 1, 2);
    }
    EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsOwnRecord("")));
}

TEST_F(LogRecordTest, ALongMessageWithNullCharactersArrivesWhole)
{
    const std::string strText = std::string(100000, 'x') + std::string("\0\n", 2) + "end";
    MakeRecord(strText);
    EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsOwnRecord(strText)));
}

TEST_F(LogRecordTest, EmitsOnceAndNotBeforeItsEnd)
{
    {
        Logger::LogMessageStream clsRecord("Module", "Function", FILE_NAME, 1, 2);
        clsRecord << "first" << std::endl;
        clsRecord << "second" << std::flush;
        EXPECT_THAT(LogRecorder::Peek(), IsEmpty());
    }
    EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsOwnRecord("first\nsecond")));
}

TEST_F(LogRecordTest, TheBuffersContentsAtTheEndAreTheMessage)
{
    {
        Logger::LogMessageStream clsRecord("Module", "Function", FILE_NAME, 1, 2);
        clsRecord << "forgotten";
        clsRecord.str("replaced");
    }
    EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsOwnRecord("replaced")));
}

TEST_F(LogRecordTest, RecordsArriveInOrder)
{
    MakeRecord("one");
    MakeRecord("two");
    MakeRecord("three");
    EXPECT_THAT(LogRecorder::Take(),
                ElementsAre(IsOwnRecord("one"), IsOwnRecord("two"), IsOwnRecord("three")));
}

TEST_F(LogRecordTest, LevelAndLineAreNotChecked)
{
    constexpr int LOWEST = std::numeric_limits<int>::min();
    constexpr int HIGHEST = std::numeric_limits<int>::max();
    Logger::LogMessageStream("Module", "Function", FILE_NAME, LOWEST, HIGHEST) << "a";
    Logger::LogMessageStream("Module", "Function", FILE_NAME, HIGHEST, LOWEST) << "b";
    const std::vector<LogRecorder::ST_Record> vecRecords = LogRecorder::Take();
    ASSERT_EQ(2U, vecRecords.size());
    EXPECT_EQ(LOWEST, vecRecords[0].m_iLine);
    EXPECT_EQ(HIGHEST, vecRecords[0].m_iLevel);
    EXPECT_EQ(HIGHEST, vecRecords[1].m_iLine);
    EXPECT_EQ(LOWEST, vecRecords[1].m_iLevel);
}

TEST_F(LogRecordTest, NullTextsArePassedThrough)
{
    Logger::LogMessageStream(nullptr, nullptr, nullptr, 1, 2) << "text";
    EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsRecord(2, "(null)", "(null)", "(null)", "text")));
}

TEST_F(LogRecordTest, TextsAreNotCopied)
{
    char arrModule[] = "before";
    {
        const Logger::LogMessageStream clsRecord(arrModule, arrModule, arrModule, 1, 2);
        arrModule[0] = 'B';
    }
    EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsRecord(2, "Before", "Before", "Before", "")));
}

TEST_F(LogRecordTest, TheHostsLocaleChangesNothing)
{
    const CLS_GroupingLocale clsLocale;
    std::ostringstream ossGrouped;
    ossGrouped << 1234567;
    ASSERT_EQ("1.234.567", ossGrouped.str());
    Logger::LogMessageStream("Module", "Function", FILE_NAME, 1234567, 2) << 1234567 << " " << 1234.5;
    const std::vector<LogRecorder::ST_Record> vecRecords = LogRecorder::Take();
    ASSERT_THAT(vecRecords, ElementsAre(IsOwnRecord("1234567 1234.5")));
    EXPECT_EQ(1234567, vecRecords[0].m_iLine);
}

TEST_F(LogRecordTest, PrintLogMayMakeARecordOnItsOwnThread)
{
    LogRecorder::SetHook(
        [](const LogRecorder::ST_Record& _stRecord)
        {
            if (_stRecord.m_strMessage == "outer")
            {
                MakeRecord("inner");
            }
        });
    MakeRecord("outer");
    EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsOwnRecord("outer"), IsOwnRecord("inner")));
}

TEST_F(LogRecordTest, PrintLogMayWaitForARecordOfAnotherThread)
{
    LogRecorder::SetHook(
        [](const LogRecorder::ST_Record& _stRecord)
        {
            if (_stRecord.m_strMessage == "outer")
            {
                MakeRecordOnAnotherThread("inner");
            }
        });
    MakeRecord("outer");
    EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsOwnRecord("outer"), IsOwnRecord("inner")));
}

TEST_F(LogRecordTest, PrintLogMayWaitForANewBindingOfAnotherThread)
{
    void* pFound = nullptr;
    LogRecorder::SetHook(
        [&pFound](const LogRecorder::ST_Record&)
        {
            std::thread(
                [&pFound]
                {
                    Logger::GetModuleFun("NoSuchName", "");
                    pFound = Logger::GetModuleFun("PrintLog", "");
                })
                .join();
        });
    ::testing::internal::CaptureStdout();
    MakeRecord("outer");
    const std::string strLines = ::testing::internal::GetCapturedStdout();
    EXPECT_NE(nullptr, pFound);
    EXPECT_EQ("load dll [: Init] sucess\nload dll [: SetLoggerConfig] sucess\n"
              "load dll [: SetLoggerConfigAll] sucess\nload dll [: PrintLog] sucess\n"
              "load dll [: UnInit] sucess\n",
              strLines);
}

TEST_F(LogRecordTest, AnyThreadMayMakeRecordsAtAnyTime)
{
    constexpr int THREADS = 4;
    constexpr int ROUNDS = 200;
    std::vector<std::thread> vecThreads;
    for (int i = 0; i < THREADS; ++i)
    {
        vecThreads.emplace_back(
            []
            {
                for (int j = 0; j < ROUNDS; ++j)
                {
                    MakeRecord("text");
                }
            });
    }
    for (std::thread& thRecord : vecThreads)
    {
        thRecord.join();
    }
    const std::vector<LogRecorder::ST_Record> vecRecords = LogRecorder::Take();
    EXPECT_EQ(static_cast<std::size_t>(THREADS * ROUNDS), vecRecords.size());
    EXPECT_THAT(vecRecords, ::testing::Each(IsOwnRecord("text")));
}

// Pins docs/limits.md, "Exceptions that end the process".
TEST_F(LogRecordDeathTest, APrintLogThatThrowsEndsTheProcess)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    LogRecorder::SetHook([](const LogRecorder::ST_Record&) { throw std::runtime_error("out of PrintLog"); });
    const auto funTryRecord = []
    {
        try
        {
            MakeRecord("text");
        }
        catch (...)
        {
            std::_Exit(3);
        }
    };
    EXPECT_EXIT(funTryRecord(), ::testing::KilledBySignal(SIGABRT), "terminat.*");
}
} // namespace
