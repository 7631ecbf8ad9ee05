#include "tests/support/ChildProcess.h"
#include "tests/support/TempFolder.h"
#include "tests/support/Waiting.h"

#include <csignal>
#include <gmock/gmock.h>
#include <sstream>
#include <string>
#include <vector>

// The gdb command "zel": a host waits, and gdb shows the state of its pool.
namespace
{
using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::Not;

/// The id of a task as the command shows it, after the task's name.
const std::string ID = " \\([-0-9a-f]+\\)";
const std::string THREAD = " \\(thread [0-9]+\\)\n";

class GdbCommandTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        // A debugger may lack the permission to inspect a process, for example in a container.
        CLS_ChildProcess clsHost(DEBUGGED_HOST, {POOL_LIBRARY, "none"});
        const ST_ChildResult stResult = RunGdb({"-p", WaitForProcess(clsHost), "-ex", "info threads"});
        if (stResult.m_strOut.find("Thread") == std::string::npos)
        {
            GTEST_SKIP() << "the system does not let gdb attach to a process: " << stResult.m_strErr;
        }
    }

    static ST_ChildResult RunGdb(const std::vector<std::string>& _vecArguments)
    {
        std::vector<std::string> vecArguments{"-nx", "-batch", "-ex", "set debuginfod enabled off"};
        vecArguments.insert(vecArguments.end(), _vecArguments.begin(), _vecArguments.end());
        return RunChild(GDB, vecArguments);
    }

    /// Returns what the command prints: the lines from "workers:" on, or its message.
    static std::string Ask(std::vector<std::string> _vecArguments, const std::string& _strCommand = "zel")
    {
        _vecArguments.insert(_vecArguments.end(),
                             {"-ex", std::string("source ") + GDB_SCRIPT, "-ex", _strCommand});
        const ST_ChildResult stResult = RunGdb(_vecArguments);
        const std::size_t uiMessage = stResult.m_strErr.find("zel: ");
        if (uiMessage != std::string::npos)
        {
            return stResult.m_strErr.substr(uiMessage);
        }
        const std::size_t uiBegin = stResult.m_strOut.find("workers:");
        const std::size_t uiEnd = stResult.m_strOut.find("[Inferior", uiBegin);
        return uiBegin == std::string::npos ? ::testing::PrintToString(stResult)
                                            : stResult.m_strOut.substr(uiBegin, uiEnd - uiBegin);
    }

    /// Waits until the host is ready, and returns its process id.
    static std::string WaitForProcess(CLS_ChildProcess& _clsHost)
    {
        EXPECT_TRUE(WaitUntil(
            [&] {
                return _clsHost.GetOut().find("ready") != std::string::npos &&
                       _clsHost.GetOut().back() == '\n';
            }));
        std::istringstream issOut(_clsHost.GetOut());
        std::string strProcess;
        issOut >> strProcess >> strProcess;
        return strProcess;
    }

    /// Polls until the answer contains this text, and returns the last answer.
    static std::string AskUntil(const std::string& _strProcess, const std::string& _strWanted)
    {
        std::string strAnswer;
        EXPECT_TRUE(WaitUntil(
            [&]
            {
                strAnswer = Ask({"-p", _strProcess});
                return strAnswer.find(_strWanted) != std::string::npos;
            }))
            << strAnswer;
        return strAnswer;
    }

    CLS_TempFolder m_clsFolder;
};

TEST_F(GdbCommandTest, ShowsALiveProcessAndItsCoreFile)
{
    CLS_ChildProcess clsHost(DEBUGGED_HOST, {POOL_LIBRARY, "few"});
    const std::string strProcess = WaitForProcess(clsHost);
    AskUntil(strProcess, "owners: 1 with 2 tasks");
    const std::string strLive = AskUntil(strProcess, "idle for ");
    EXPECT_THAT(strLive, ContainsRegex("^workers: [34] of 301 at most\n  0: "));
    EXPECT_THAT(strLive, ContainsRegex("  [0-3]: runs \"blocks.for long\"" + ID +
                                       ", for at most [0-9]+\\.[0-9][0-9][0-9] s" + THREAD));
    EXPECT_THAT(strLive, ContainsRegex("  [0-3]: idle for [0-9]+\\.[0-9][0-9][0-9] s" + THREAD));
    const std::string strRest =
        "queue: 0 tasks\nloop tasks: 1\n  \"every hour\"" + ID +
        ": every 3600000 ms, waits for its time\nowners: 1 with 2 tasks\n  0x[0-9a-f]+: 2 "
        "tasks\nregistry: 4 tasks\n";
    EXPECT_THAT(strLive, ContainsRegex(strRest));

    const std::string strCore = m_clsFolder.GetPath("core");
    RunGdb({"-p", strProcess, "-ex", "generate-core-file " + strCore});
    clsHost.SendSignal(SIGKILL);
    clsHost.Wait();
    const std::string strDead = Ask({DEBUGGED_HOST, strCore});
    EXPECT_THAT(strDead, ContainsRegex("^workers: [34] of 301 at most\n  0: "));
    EXPECT_THAT(strDead, ContainsRegex("  [0-3]: runs \"blocks.for long\"" + ID + THREAD));
    EXPECT_THAT(strDead, ContainsRegex("  [0-3]: idle for at least [0-9]+\\.[0-9][0-9][0-9] s" + THREAD));
    EXPECT_THAT(strDead, ContainsRegex(strRest));
}

TEST_F(GdbCommandTest, ShowsAQueueBehindBusyWorkers)
{
    CLS_ChildProcess clsHost(DEBUGGED_HOST, {POOL_LIBRARY, "full"});
    const std::string strProcess = WaitForProcess(clsHost);
    AskUntil(strProcess, "queue: 0 tasks"); // the dispatcher holds the waiting task
    clsHost.SendSignal(SIGUSR1);
    ASSERT_TRUE(WaitUntil([&] { return clsHost.GetOut().find("more\n") != std::string::npos; }));

    const std::string strAnswer = Ask({"-p", strProcess}, "zel 2");
    EXPECT_THAT(strAnswer, HasSubstr("workers: 301 of 301 at most\n  0: runs \"blocks\" ("));
    EXPECT_THAT(strAnswer, HasSubstr("\n  300: runs \"blocks\" ("));
    EXPECT_THAT(
        strAnswer,
        ContainsRegex("queue: 30 tasks\n  \"waits\"" + ID + "\n  \"waits\"" + ID +
                      "\n  and 28 more\nloop "
                      "tasks: 0\nowners: 2 with 332 tasks\n  0x[0-9a-f]+: 302 tasks\n  0x[0-9a-f]+: 30 "
                      "tasks\nregistry: 332 tasks\n"));
}

TEST_F(GdbCommandTest, ShowsThePoolOfAHostInAnotherLanguage)
{
    CLS_ChildProcess clsHost(DEBUGGED_HOST, {POOL_LIBRARY, "few"});
    const std::string strAnswer =
        Ask({"-p", WaitForProcess(clsHost), "-ex", "set language rust"},
            "python gdb.execute('zel'); print('language: ' + gdb.parameter('language'))");
    EXPECT_THAT(strAnswer, HasSubstr(": runs \"blocks?for long\" ("));
    EXPECT_THAT(strAnswer, HasSubstr("\nqueue: 0 tasks\n"));
    EXPECT_THAT(strAnswer, HasSubstr("\nlanguage: rust\n"));
}

TEST_F(GdbCommandTest, NamesWhatCannotBeReadDuringAChangeAndShowsTheRest)
{
    CLS_ChildProcess clsHost(DEBUGGED_HOST, {POOL_LIBRARY, "few"});
    const std::string strChange = "python queue = Pool(1).member('m_vecWaitingTasks'); "
                                  "gdb.selected_inferior().write_memory(queue, bytes([32] + [0] * 7)); "
                                  "gdb.execute('zel')";
    const std::string strAnswer = Ask({"-p", WaitForProcess(clsHost)}, strChange);
    EXPECT_THAT(strAnswer, HasSubstr("\n  cannot be read: a list is being changed\nloop tasks: 1\n"));
}

TEST_F(GdbCommandTest, SaysThatThereIsNoPool)
{
    CLS_ChildProcess clsHost(DEBUGGED_HOST, {POOL_LIBRARY, "none"});
    EXPECT_EQ("zel: there is no pool\n", Ask({"-p", WaitForProcess(clsHost)}));
}

TEST_F(GdbCommandTest, SaysThatDebugSymbolsAreMissing)
{
    const std::string strLibrary = m_clsFolder.GetPath("libZelTaskPool.so");
    ASSERT_EQ(0, RunChild(STRIP, {"--strip-debug", "-o", strLibrary, POOL_LIBRARY}).m_iExit);
    CLS_ChildProcess clsHost(DEBUGGED_HOST, {strLibrary, "few"});
    EXPECT_THAT(Ask({"-p", WaitForProcess(clsHost)}),
                MatchesRegex("zel: there are no debug symbols of libZelTaskPool\\. Install .*-dbgsym .*\n"));
}

TEST_F(GdbCommandTest, SaysWhyNothingCanBeShown)
{
    EXPECT_EQ("zel: there is no process and no core file\n", Ask({}));
    EXPECT_EQ("zel: MOST must be a number, not \"many\"\n", Ask({}, "zel many"));
    CLS_ChildProcess clsOther("/bin/sh", {"-c", "echo ready $$; exec sleep 600"});
    EXPECT_EQ("zel: libZelTaskPool is not loaded in this program\n", Ask({"-p", WaitForProcess(clsOther)}));
}

TEST_F(GdbCommandTest, ExplainsItself)
{
    const ST_ChildResult stResult = RunGdb({"-ex", std::string("source ") + GDB_SCRIPT, "-ex", "help zel"});
    EXPECT_THAT(stResult.m_strOut, HasSubstr("Usage: zel [MOST]"));
    EXPECT_THAT(stResult.m_strErr, Not(HasSubstr("rror")));
}
} // namespace
