#include "tests/support/ChildProcess.h"

#include <csignal>
#include <gmock/gmock.h>
#include <stdexcept>

namespace
{
constexpr const char* SHELL = "/bin/sh";

TEST(ChildProcessTest, CollectsBothOutputsAndTheExitStatus)
{
    const ST_ChildResult stResult = RunChild(SHELL, {"-c", "echo out; echo err >&2; exit 7"});
    EXPECT_EQ("out\n", stResult.m_strOut);
    EXPECT_EQ("err\n", stResult.m_strErr);
    EXPECT_EQ(7, stResult.m_iExit);
    EXPECT_EQ(0, stResult.m_iSignal);
    EXPECT_FALSE(stResult.m_bTimedOut);
}

TEST(ChildProcessTest, PassesArgumentsAndEnvironment)
{
    const ST_ChildResult stResult =
        RunChild(SHELL, {"-c", "echo \"$1|$ZEL_EXTRA\"", "name", "a b"}, {{"ZEL_EXTRA", "x y"}});
    EXPECT_EQ("a b|x y\n", stResult.m_strOut);
}

TEST(ChildProcessTest, KeepsMoreThanAPipeHolds)
{
    const ST_ChildResult stResult =
        RunChild(SHELL, {"-c", "i=0; while [ $i -lt 20000 ]; do echo 1234567890; i=$((i+1)); done"});
    EXPECT_EQ(220000U, stResult.m_strOut.size());
}

TEST(ChildProcessTest, ReportsTheSignalThatEndedTheChild)
{
    const ST_ChildResult stResult = RunChild(SHELL, {"-c", "kill -TERM $$"});
    EXPECT_EQ(-1, stResult.m_iExit);
    EXPECT_EQ(SIGTERM, stResult.m_iSignal);
}

TEST(ChildProcessTest, SendsASignalWhileTheChildRuns)
{
    CLS_ChildProcess clsChild(
        SHELL, {"-c", "trap 'echo caught; exit 3' INT; echo ready; while :; do sleep 0.01; done"});
    ASSERT_TRUE(WaitUntil([&clsChild] { return clsChild.GetOut() == "ready\n"; }));
    clsChild.SendSignal(SIGINT);
    const ST_ChildResult stResult = clsChild.Wait();
    EXPECT_EQ("ready\ncaught\n", stResult.m_strOut);
    EXPECT_EQ("", stResult.m_strErr);
    EXPECT_EQ(3, stResult.m_iExit);
}

TEST(ChildProcessTest, KillsTheChildAndItsOwnChildrenAtTheTimeout)
{
    const ST_ChildResult stResult =
        RunChild(SHELL, {"-c", "sleep 1000 & sleep 1000"}, {}, std::chrono::milliseconds(50));
    EXPECT_TRUE(stResult.m_bTimedOut);
    EXPECT_EQ(SIGKILL, stResult.m_iSignal);
}

TEST(ChildProcessTest, ReportsAProgramThatCannotBeStarted)
{
    EXPECT_THROW(RunChild("/no/such/program"), std::runtime_error);
}
} // namespace
