#include "tests/support/ChildProcess.h"

#include <algorithm>
#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iostream>

namespace
{
using ::testing::StartsWith;

const std::string POOL = "ZelTaskPool";
const std::string FILE_POOL = "QuenPlugins/ZelTaskPool/CLS_QuenTaskPool";
const std::string FILE_TASK = "QuenPlugins/ZelTaskPool/CLS_Task";

/// The lines that the library prints when it makes its first log record and finds a logging library.
std::string GetLoaderLines()
{
    const std::string strName = LOG_LIBRARY_NAME;
    std::string strLines = "load dll - " + strName + "\n";
    for (const char* const szFunction :
         {"Init", "SetLoggerConfig", "SetLoggerConfigAll", "PrintLog", "UnInit"})
    {
        strLines += "load dll [" + strName + ": " + szFunction + "] sucess\n";
    }
    return strLines;
}

/// The environment in which a host finds the recording logging library.
std::map<std::string, std::string> GetRecording()
{
    return {{GetLibraryPathName(), RECORDER_FOLDER}};
}

/// The log records of one shutdown, as zel_use_host prints them.
std::string GetEndRecords()
{
    const std::string strHead = "2 " + POOL + " " + FILE_POOL + " UnInit ----- TaskPool ";
    return strHead + "UnInit begin -----\n" + strHead + "m_mapAllThreads start -----\n" + strHead +
           "UnInit end -----\n";
}

void ExpectEnd(const ST_ChildResult& _stResult, int _iStatus, const std::string& _strOut)
{
    EXPECT_FALSE(_stResult.m_bTimedOut);
    EXPECT_EQ(0, _stResult.m_iSignal);
    EXPECT_EQ(_iStatus, _stResult.m_iExit);
    EXPECT_EQ(_strOut, _stResult.m_strOut);
    EXPECT_EQ("", _stResult.m_strErr);
}

/// The text without its first _strHead.size() characters.
std::string CutHead(const std::string& _strText, const std::string& _strHead)
{
    return _strText.substr(std::min(_strHead.size(), _strText.size()));
}

TEST(BlackBoxTest, AHostUsesThePoolByNamesAlone)
{
    const std::string strRunning = "3 " + POOL + " " + FILE_TASK + " Running run function error ";
    const std::string strParam = "[__id__] : [ID]/[callinfo] : [throwing]/\n";
    ExpectEnd(RunChild(USE_HOST, {POOL_LIBRARY}, GetRecording()), 0,
              GetLoaderLines() +
                  "null owner taken: no\n"
                  "tmp tasks taken: yes\n"
                  "tmp tasks ran: yes\n"
                  "loop ids differ: yes\n"
                  "loop tasks ran: yes\n"
                  "loop tasks ended: yes\n"
                  "own exception caught in a task: yes\n"
                  "task went on: yes\n"
                  "3 " +
                  POOL + " " + FILE_POOL +
                  " AddTmpTask AddTmpTask error, nullptr == _pObj [nobody]\n"
                  "throwing task ran: yes\n"
                  "record came: yes\n" +
                  strRunning + ":out of a task param :" + strParam +
                  "throwing task ran: yes\n"
                  "record came: yes\n" +
                  strRunning + strParam + GetEndRecords() + GetEndRecords());
}

TEST(BlackBoxTest, AHostUsesThePoolThroughItsClasses)
{
    const std::string strOnce = "loop goes on although it throws: yes\n"
                                "loop in the registry: yes\n"
                                "loop gone from the registry: yes\n"
                                "301 tasks at once: yes\n"
                                "301 workers: yes\n"
                                "the rest after them: yes\n"
                                "pool ended: yes\n";
    ExpectEnd(RunChild(CLASSES_HOST, {}, GetRecording()), 0,
              GetLoaderLines() + strOnce + "again\n" + strOnce);
}

TEST(BlackBoxTest, TheSevenFunctionsAreFoundByTheirNames)
{
    ExpectEnd(RunChild(SYMBOLS_HOST, {POOL_LIBRARY, "AddTmpTask", "RemoveTmpTask", "AddLoopTask",
                                      "RemoveTask", "KillTask", "KillTaskAll", "UnInit"}),
              0,
              "AddTmpTask: found\nRemoveTmpTask: found\nAddLoopTask: found\nRemoveTask: found\n"
              "KillTask: found\nKillTaskAll: found\nUnInit: found\n");
}

TEST(BlackBoxTest, NoOtherOperationHasAPlainName)
{
    ExpectEnd(RunChild(SYMBOLS_HOST,
                       {POOL_LIBRARY, "StopTask", "AddWaitingTasks", "GetInstance", "CreateTaskThread",
                        "GetTaskThread", "GetTaskThreadNum", "FunRunTask", "FunTaskingThread",
                        "FunLoopThread", "FunTaskThreadWaitingOvertime", "PinLibrary", "m_pInstance"}),
              0,
              "StopTask: null\nAddWaitingTasks: null\nGetInstance: null\nCreateTaskThread: null\n"
              "GetTaskThread: null\nGetTaskThreadNum: null\nFunRunTask: null\nFunTaskingThread: null\n"
              "FunLoopThread: null\nFunTaskThreadWaitingOvertime: null\nPinLibrary: null\n"
              "m_pInstance: null\n");
}

TEST(BlackBoxTest, OpeningTheLibraryStartsNothing)
{
    // Neither a log record nor a line of the loader: the first call starts the pool.
    ExpectEnd(RunChild(SYMBOLS_HOST, {POOL_LIBRARY}, GetRecording()), 0, "");
}

TEST(BlackBoxTest, TheFirstCallMayComeFromAStaticInitialiserAndTheLastFromAStaticDestructor)
{
    std::map<std::string, std::string> mapEnvironment = GetRecording();
    mapEnvironment["ZEL_TEST_LIBRARY"] = POOL_LIBRARY;
    ExpectEnd(RunChild(STATIC_HOST, {}, mapEnvironment), 7,
              "runs in main: 1\ngoes on after main: 1\n" + GetLoaderLines() + "ended\n");
}

// Pins docs/limits.md, "fork".
TEST(BlackBoxTest, ChildrenAreStartedWhileThePoolIsBusy)
{
    ExpectEnd(RunChild(FORK_HOST, {POOL_LIBRARY}, GetRecording()), 0,
              "children right: 20\nchildren of tasks right: 20\nall ran: 1\nloop goes on: 1\n" +
                  GetLoaderLines());
}

/// A host unloads the library.
class BlackBoxUnloadTest : public ::testing::Test
{
protected:
    /// Turns off the leak check. The task registry is never freed, because late threads may use it. A leak
    /// check would report it after the library is unloaded, because no pointer to it is left.
    static std::map<std::string, std::string> GetEnvironment()
    {
        std::map<std::string, std::string> mapEnvironment = GetRecording();
        const char* const szOptions = std::getenv("ASAN_OPTIONS");
        mapEnvironment["ASAN_OPTIONS"] =
            (szOptions == nullptr ? std::string() : szOptions + std::string(":")) + "detect_leaks=0";
        return mapEnvironment;
    }

    /// The lines of the loader, once for each time that the library is loaded.
    static std::string RepeatLoaderLines(int _iTimes)
    {
        std::string strLines;
        for (int i = 0; i < _iTimes; ++i)
        {
            strLines += GetLoaderLines();
        }
        return strLines;
    }
};

// Pins docs/limits.md, "Unloading the library".
TEST_F(BlackBoxUnloadTest, AHundredCyclesLeaveNothingBehind)
{
    const ST_ChildResult stResult = RunChild(UNLOAD_HOST, {POOL_LIBRARY, "cycles", "100", MOST_NEW_MAPPINGS},
                                             GetEnvironment(), std::chrono::minutes(4));
    const std::string strLoader = RepeatLoaderLines(3 + 100);
    const std::string strCounts = CutHead(stResult.m_strOut, strLoader);
    std::cout << strCounts;
    EXPECT_THAT(strCounts, StartsWith("100 cycles: "));
    ExpectEnd(stResult, 0, strLoader + strCounts);
}

TEST_F(BlackBoxUnloadTest, TheProcessEndsWithItsOwnStatusWhenARunOutlastsPoolAndLibrary)
{
    ExpectEnd(RunChild(UNLOAD_HOST, {POOL_LIBRARY, "hung"}, GetEnvironment()), 7,
              GetLoaderLines() + "mapped during the run: 1\nthread there: 1\n");
}

// Pins docs/limits.md, "A run may outlast the pool".
TEST_F(BlackBoxUnloadTest, TheLibraryStaysMappedForARunThatOutlastsThePool)
{
    ExpectEnd(RunChild(UNLOAD_HOST, {POOL_LIBRARY, "late"}, GetEnvironment()), 0,
              GetLoaderLines() + "mapped during the run: 1\nthread there: 1\nthread gone: 1\nused again\n");
}

TEST(BlackBoxExitTimesTest, ProcessesWithManyRecordsEndOneAfterTheOther)
{
    const char* const szTimes = std::getenv("ZEL_TEST_EXITS");
    const std::string strTimes = szTimes == nullptr ? "10" : szTimes;
    const ST_ChildResult stResult =
        RunChild(EXIT_TIMES_HOST, {POOL_LIBRARY, std::to_string(MANY_TASKS), strTimes}, GetRecording(),
                 std::chrono::minutes(4));
    const std::string strFigures = CutHead(stResult.m_strOut, GetLoaderLines());
    std::cout << strFigures;
    EXPECT_THAT(strFigures, StartsWith(strTimes + " processes with " + std::to_string(MANY_TASKS) +
                                       " finished tasks ended with status 7 within "));
    ExpectEnd(stResult, 0, GetLoaderLines() + strFigures);
}

struct ST_Exit
{
    const char* m_szWay;
    int m_iFinished;
};

void PrintTo(const ST_Exit& _stExit, std::ostream* _pOut)
{
    *_pOut << _stExit.m_szWay << " after " << _stExit.m_iFinished;
}

/// A host exits without a shutdown of the pool.
class BlackBoxExitTest : public ::testing::TestWithParam<ST_Exit>
{
};

// Pins docs/limits.md, "Exit without a shutdown".
TEST_P(BlackBoxExitTest, TheProcessEndsAtOnceWithItsOwnStatus)
{
    CLS_ChildProcess clsHost(EXIT_HOST,
                             {POOL_LIBRARY, std::to_string(GetParam().m_iFinished), GetParam().m_szWay},
                             GetRecording());
    const std::string strOut = GetLoaderLines() + "ending\n";
    ASSERT_TRUE(WaitUntil([&] { return clsHost.GetOut().find(strOut) == 0; }, std::chrono::minutes(5)));
    const auto tpEnding = std::chrono::steady_clock::now();
    const ST_ChildResult stResult = clsHost.Wait();
    const auto nsTaken = std::chrono::steady_clock::now() - tpEnding;
    // The running tasks need about another minute.
    EXPECT_LT(nsTaken, std::chrono::seconds(20));
    std::cout << "ended within " << std::chrono::duration_cast<std::chrono::milliseconds>(nsTaken).count()
              << " ms\n";
    ExpectEnd(stResult, 7, strOut + "used at the very end: 1\n");
}

INSTANTIATE_TEST_SUITE_P(Ways, BlackBoxExitTest,
                         ::testing::Values(ST_Exit{"return", MANY_TASKS}, ST_Exit{"return", 0},
                                           ST_Exit{"exit", 1000}, ST_Exit{"task", 1000}),
                         [](const ::testing::TestParamInfo<ST_Exit>& _stInfo) {
                             return std::string(_stInfo.param.m_szWay) + "After" +
                                    std::to_string(_stInfo.param.m_iFinished);
                         });
} // namespace
