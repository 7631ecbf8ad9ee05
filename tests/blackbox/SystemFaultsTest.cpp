// What happens to a host when the system or its logging library fails.

#include "tests/support/ChildProcess.h"
#include "tests/support/RandomKind.h"
#include "tests/support/TempFolder.h"

#include <algorithm>
#include <csignal>
#include <fstream>
#include <gmock/gmock.h>
#include <sstream>

namespace
{
using ::testing::HasSubstr;
using ::testing::StartsWith;

const std::string LIBRARY = LOG_LIBRARY_NAME;

/// The lines that the loader prints when it finds a logging library.
std::string GetLoaderLines()
{
    std::string strLines = "load dll - " + LIBRARY + "\n";
    for (const char* const szName : {"Init", "SetLoggerConfig", "SetLoggerConfigAll", "PrintLog", "UnInit"})
    {
        strLines += "load dll [" + LIBRARY + ": " + szName + "] sucess\n";
    }
    return strLines;
}

/// The lines without those of the loader. The loader prints with the first log record, which may come at any
/// time.
std::string DropLoaderLines(const std::string& _strOut)
{
    std::istringstream issOut(_strOut);
    std::string strRest;
    for (std::string strLine; std::getline(issOut, strLine);)
    {
        strRest += strLine.rfind("load dll ", 0) == 0 ? "" : strLine + "\n";
    }
    return strRest;
}

ST_ChildResult RunHost(const std::string& _strHost, const std::vector<std::string>& _vecArguments,
                       const std::string& _strSearchFolder, const std::string& _strFault = "")
{
    std::vector<std::string> vecArguments{POOL_LIBRARY};
    vecArguments.insert(vecArguments.end(), _vecArguments.begin(), _vecArguments.end());
    return RunChild(_strHost, vecArguments,
                    {{GetLibraryPathName(), _strSearchFolder}, {"ZEL_TEST_LOG", _strFault}});
}

void ExpectLogFaultSurvived(const ST_ChildResult& _stResult)
{
    EXPECT_FALSE(_stResult.m_bTimedOut);
    EXPECT_EQ(0, _stResult.m_iExit) << _stResult.m_strErr;
    EXPECT_EQ("null owner refused: yes\nall ran: yes\nloop runs: yes\nended: yes\n",
              DropLoaderLines(_stResult.m_strOut));
}

/// Matches the single line that gives the reason why there is no logging library.
auto IsFailureLine()
{
    return ::testing::AllOf(
        StartsWith("load dll [" + LIBRARY + "] fail !!! "),
        ::testing::ResultOf([](const std::string& _strText)
                            { return std::count(_strText.begin(), _strText.end(), '\n'); },
                            1));
}

TEST(LogFaultsTest, WithoutTheLibraryThePoolWorksAndOneLineSaysWhy)
{
    const CLS_TempFolder clsEmpty;
    const ST_ChildResult stResult = RunHost(LOG_FAULT_HOST, {}, clsEmpty.GetPath());
    ExpectLogFaultSurvived(stResult);
    EXPECT_THAT(stResult.m_strErr, IsFailureLine());
}

TEST(LogFaultsTest, WithAFileThatIsNoLibraryThePoolWorksAndOneLineSaysWhy)
{
    const CLS_TempFolder clsFolder;
    std::ofstream(clsFolder.GetPath(LIBRARY)) << std::string(5000, 'x');
    const ST_ChildResult stResult = RunHost(LOG_FAULT_HOST, {}, clsFolder.GetPath());
    ExpectLogFaultSurvived(stResult);
    EXPECT_THAT(stResult.m_strErr, IsFailureLine());
}

TEST(LogFaultsTest, WithoutPrintLogThePoolWorksInSilence)
{
    const ST_ChildResult stResult = RunHost(LOG_FAULT_HOST, {}, LOG_MUTE_FOLDER);
    ExpectLogFaultSurvived(stResult);
    EXPECT_EQ("", stResult.m_strErr);
}

TEST(LogFaultsTest, WithASlowLibraryThePoolWorks)
{
    const ST_ChildResult stResult = RunHost(LOG_FAULT_HOST, {}, LOG_FAULTY_FOLDER, "slow");
    ExpectLogFaultSurvived(stResult);
    EXPECT_EQ("", stResult.m_strErr);
}

TEST(LogFaultsTest, APrintLogThatThrowsEndsTheHost)
{
    const ST_ChildResult stResult = RunHost(LOG_FAULT_HOST, {}, LOG_FAULTY_FOLDER, "throw");
    EXPECT_FALSE(stResult.m_bTimedOut);
    EXPECT_EQ(SIGABRT, stResult.m_iSignal);
    EXPECT_THAT(stResult.m_strErr, HasSubstr("terminat"));
}

const std::string REFUSALS = "tmp task refused: yes\nid untouched: yes\n";
const std::string REFUSAL_RECORDS = "3 AddTmpTask AddTmpTask error [no files]\n"
                                    "3 AddLoopTask AddLoopTask error [no files]\n";
const std::string END_RECORDS = "2 UnInit ----- TaskPool UnInit begin -----\n"
                                "2 UnInit ----- TaskPool m_mapAllThreads start -----\n"
                                "2 UnInit ----- TaskPool UnInit end -----\n";

/// A host that can no longer open a file.
class NoFilesTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
#ifdef ZEL_TEST_TYPES_CHECKED
        GTEST_SKIP()
            << "this sanitizer opens files itself to check the type of an object, so it fails first; the "
               "build without it runs the test";
#else
        if (!OpensRandomDevice())
        {
            GTEST_SKIP()
                << "this C++ library draws random numbers without a file, so a lack of files is no fault";
        }
#endif
    }
};

TEST_F(NoFilesTest, SubmissionFailsWithALogRecordAndQueuedTasksRun)
{
    const ST_ChildResult stResult = RunHost(NO_FILES_HOST, {"busy"}, RECORDER_FOLDER);
    EXPECT_FALSE(stResult.m_bTimedOut);
    EXPECT_EQ(0, stResult.m_iExit);
    EXPECT_EQ(GetLoaderLines() + "3 AddTmpTask AddTmpTask error, nullptr == _pObj [nobody]\n" + REFUSALS +
                  "queued tasks run: yes\nloop goes on: yes\n" + REFUSAL_RECORDS +
                  "later tasks run: yes\nevery task ran once: yes\n" + END_RECORDS,
              stResult.m_strOut);
    EXPECT_EQ("", stResult.m_strErr);
}

TEST_F(NoFilesTest, ThePoolIsBuiltWithoutFilesAndWorksLater)
{
    const ST_ChildResult stResult = RunHost(NO_FILES_HOST, {"first"}, RECORDER_FOLDER);
    EXPECT_FALSE(stResult.m_bTimedOut);
    EXPECT_EQ(0, stResult.m_iExit);
    // The host has already opened the logging library, so the pool needs no file for it.
    EXPECT_EQ(GetLoaderLines() + REFUSALS + "later tasks run: yes\n" + REFUSAL_RECORDS + END_RECORDS,
              stResult.m_strOut);
    EXPECT_EQ("", stResult.m_strErr);
}
} // namespace
