#include "tests/support/ChildProcess.h"
#include "tests/support/TempFolder.h"

#include <fstream>
#include <gmock/gmock.h>

namespace
{
const std::string LIBRARY = LOG_LIBRARY_NAME;

/// The lines of a binding that opens its library. An empty _strPath means that the library was already open.
std::string GetBindingLines(const std::string& _strPath)
{
    std::string strLines = _strPath.empty() ? "" : "load dll - " + _strPath + "\n";
    for (const char* const szName : {"Init", "SetLoggerConfig", "SetLoggerConfigAll", "PrintLog", "UnInit"})
    {
        strLines += "load dll [" + _strPath + ": " + szName + "] sucess\n";
    }
    return strLines;
}

std::string GetRecordLine(const std::string& _strText)
{
    return "2|FoundationHost|tests/hosts/FoundationHost|42|MakeRecord|" + _strText + "\n";
}

/// Runs the host with a folder that the dynamic loader searches first.
ST_ChildResult RunHost(const std::string& _strSearchFolder, const std::vector<std::string>& _vecArguments)
{
    return RunChild(FOUNDATION_HOST, _vecArguments, {{GetLibraryPathName(), _strSearchFolder}});
}

/// The dynamic loader's reason for not opening a library in such a process.
std::string GetReason(const std::string& _strSearchFolder, const std::string& _strPath)
{
    const ST_ChildResult stResult = RunHost(_strSearchFolder, {"reason", _strPath});
    EXPECT_NE("", stResult.m_strOut);
    return stResult.m_strOut;
}

std::string GetFailureLine(const std::string& _strPath, const std::string& _strReason)
{
    return "load dll [" + _strPath + "] fail !!! " + _strReason + "\n";
}

void ExpectResult(const ST_ChildResult& _stResult, const std::string& _strOut, const std::string& _strErr)
{
    EXPECT_EQ(_strOut, _stResult.m_strOut);
    EXPECT_EQ(_strErr, _stResult.m_strErr);
    EXPECT_EQ(0, _stResult.m_iExit);
    EXPECT_EQ(0, _stResult.m_iSignal);
}

TEST(LogBindingTest, FirstLookUpBindsTheFiveNamesAndLaterOnesUseTheTable)
{
    const ST_ChildResult stResult = RunHost(
        LOG_PRINTING_FOLDER, {"fun", "PrintLog", "", "fun", "PrintLog", "", "fun", "Init", "", "fun",
                              "SetLoggerConfig", "", "fun", "SetLoggerConfigAll", "", "fun", "UnInit", ""});
    ExpectResult(stResult,
                 GetBindingLines(LIBRARY) +
                     "fun PrintLog: found\nfun PrintLog: found\nfun Init: found\nfun SetLoggerConfig: found\n"
                     "fun SetLoggerConfigAll: found\nfun UnInit: found\n",
                 "");
}

TEST(LogBindingTest, ANameOutsideTheFiveBindsAgainOnEveryCall)
{
    const ST_ChildResult stResult =
        RunHost(LOG_PRINTING_FOLDER, {"fun", "Foo", "", "fun", "Foo", "", "fun", "PrintLog", ""});
    ExpectResult(stResult,
                 GetBindingLines(LIBRARY) + "fun Foo: null\n" + GetBindingLines("") +
                     "fun Foo: null\nfun PrintLog: found\n",
                 "");
}

TEST(LogBindingTest, AFolderIsPutBeforeTheLibrarysName)
{
    const std::string strPath = "/opt/x/" + LIBRARY;
    const CLS_TempFolder clsEmpty;
    const ST_ChildResult stResult = RunHost(clsEmpty.GetPath(), {"fun", "PrintLog", "/opt/x"});
    ExpectResult(stResult, "load dll - " + strPath + "\nfun PrintLog: null\n",
                 GetFailureLine(strPath, GetReason(clsEmpty.GetPath(), strPath)));
}

TEST(LogBindingTest, AFolderWithTheLibraryIsBound)
{
    const std::string strFolder = LOG_PRINTING_FOLDER;
    const CLS_TempFolder clsEmpty;
    const ST_ChildResult stResult =
        RunHost(clsEmpty.GetPath(), {"fun", "PrintLog", strFolder, "record", "text"});
    ExpectResult(stResult,
                 GetBindingLines(strFolder + "/" + LIBRARY) + "fun PrintLog: found\n" + GetRecordLine("text"),
                 "");
}

TEST(LogBindingTest, ABoundNameIsAnsweredWhateverTheFolder)
{
    const ST_ChildResult stResult =
        RunHost(LOG_PRINTING_FOLDER, {"fun", "PrintLog", "", "fun", "PrintLog", "/opt/x"});
    ExpectResult(stResult, GetBindingLines(LIBRARY) + "fun PrintLog: found\nfun PrintLog: found\n", "");
}

TEST(LogBindingTest, ANewBindingReplacesTheWholeTable)
{
    const CLS_TempFolder clsEmpty;
    const std::string strPrinting = LOG_PRINTING_FOLDER;
    const std::string strMute = LOG_MUTE_FOLDER;
    const ST_ChildResult stResult =
        RunHost(clsEmpty.GetPath(), {"fun", "PrintLog", strPrinting, "record", "before", "fun", "Foo",
                                     strMute, "fun", "PrintLog", strPrinting, "record", "lost"});
    ExpectResult(stResult,
                 GetBindingLines(strPrinting + "/" + LIBRARY) + "fun PrintLog: found\n" +
                     GetRecordLine("before") + GetBindingLines(strMute + "/" + LIBRARY) +
                     "fun Foo: null\nfun PrintLog: null\n",
                 "");
}

TEST(LogBindingTest, AFailedBindingEmptiesTheTable)
{
    const CLS_TempFolder clsEmpty;
    const std::string strPrinting = LOG_PRINTING_FOLDER;
    const std::string strMissing = "/opt/x/" + LIBRARY;
    const ST_ChildResult stResult = RunHost(clsEmpty.GetPath(), {"fun", "PrintLog", strPrinting, "fun", "Foo",
                                                                 "/opt/x", "fun", "PrintLog", strPrinting});
    ExpectResult(stResult,
                 GetBindingLines(strPrinting + "/" + LIBRARY) + "fun PrintLog: found\nload dll - " +
                     strMissing + "\nfun Foo: null\n" + GetBindingLines("") + "fun PrintLog: found\n",
                 GetFailureLine(strMissing, GetReason(clsEmpty.GetPath(), strMissing)));
}

TEST(LogBindingTest, RecordsBindTheLibraryOnceByTheDefaultSearch)
{
    const ST_ChildResult stResult = RunHost(LOG_PRINTING_FOLDER, {"records", "3"});
    ExpectResult(stResult,
                 GetBindingLines(LIBRARY) + GetRecordLine("0") + GetRecordLine("1") + GetRecordLine("2"), "");
}

TEST(LogBindingTest, FirstRecordsOfManyThreadsAtOnceAllArrive)
{
    const ST_ChildResult stResult = RunHost(LOG_PRINTING_FOLDER, {"at-once", "8"});
    std::string strExpected = GetBindingLines(LIBRARY);
    for (int i = 0; i < 8; ++i)
    {
        strExpected += GetRecordLine("at once");
    }
    ExpectResult(stResult, strExpected, "");
}

TEST(LogBindingTest, WithoutTheLibraryRecordsAreDroppedAndOneLineSaysWhy)
{
    const CLS_TempFolder clsEmpty;
    const ST_ChildResult stResult = RunHost(
        clsEmpty.GetPath(), {"records", "1000", "at-once", "4", "fun", "PrintLog", "", "fun", "Init", ""});
    ExpectResult(stResult, "load dll - " + LIBRARY + "\nfun PrintLog: null\nfun Init: null\n",
                 GetFailureLine(LIBRARY, GetReason(clsEmpty.GetPath(), LIBRARY)));
}

TEST(LogBindingTest, AFileThatIsNoLibraryDropsRecordsAndOneLineSaysWhy)
{
    const CLS_TempFolder clsFolder;
    std::ofstream(clsFolder.GetPath(LIBRARY)) << std::string(5000, 'x');
    const ST_ChildResult stResult = RunHost(clsFolder.GetPath(), {"records", "100"});
    ExpectResult(stResult, "load dll - " + LIBRARY + "\n",
                 GetFailureLine(LIBRARY, GetReason(clsFolder.GetPath(), LIBRARY)));
}

TEST(LogBindingTest, ALibraryWithoutPrintLogDropsRecordsSilently)
{
    const ST_ChildResult stResult =
        RunHost(LOG_MUTE_FOLDER, {"records", "100", "fun", "PrintLog", "", "fun", "Init", ""});
    ExpectResult(stResult, GetBindingLines(LIBRARY) + "fun PrintLog: null\nfun Init: found\n", "");
}

TEST(LogBindingTest, RecordsOfAnInitialiserAndOfAThreadThatItWaitsForAreNotLost)
{
    const ST_ChildResult stResult = RunHost(LOG_INITIALISER_FOLDER, {"record", "first", "record", "second"});
    ExpectResult(stResult,
                 GetBindingLines(LIBRARY) + GetRecordLine("first") +
                     GetRecordLine("at load: opening thread") + GetRecordLine("at load: other thread") +
                     GetRecordLine("second"),
                 "");
}

TEST(LogBindingTest, RecordsOfOtherThreadsDuringTheOpeningAreNotLost)
{
    const ST_ChildResult stResult =
        RunHost(LOG_INITIALISER_FOLDER, {"threads-at-load", "4", "record", "first", "record", "second"});
    std::string strExpected = GetBindingLines(LIBRARY) + GetRecordLine("first");
    for (const char* const szThread : {"opening thread", "other thread"})
    {
        for (const char* const szNumber : {"0", "1", "2", "3"})
        {
            strExpected += GetRecordLine(szNumber);
        }
        strExpected += GetRecordLine(std::string("at load: ") + szThread);
    }
    ExpectResult(stResult, strExpected + GetRecordLine("second"), "");
}
} // namespace
