#include "tests/blackbox/HashTreeFixture.h"

#include <csignal>
#include <filesystem>
#include <gmock/gmock.h>

// The shell opens the outputs and ignores signals.
namespace
{
using ::testing::EndsWith;
using ::testing::HasSubstr;

constexpr char FULL[] = "/dev/full";

class HashTreeShellTest : public CLS_HashTreeFixture
{
protected:
    /// Runs the program in a shell, with this text at the end of the command.
    ST_ChildResult HashInShell(const std::string& _strRedirection) const
    {
        return RunChild("/bin/sh", {"-c", "exec \"$0\" \"$@\" " + _strRedirection, HASH_TREE, m_strTree,
                                    "--output", m_strSums});
    }

    void ExpectSums() const
    {
        EXPECT_EQ("ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad  " + m_strTree +
                      "/file\n",
                  ReadSums());
    }
};

TEST_F(HashTreeShellTest, FullOutputIsAFailure)
{
    if (!std::filesystem::exists(FULL))
    {
        GTEST_SKIP() << "only Linux has " << FULL << ", a device on which each write fails";
    }
    AddFile("file", "abc");
    const ST_ChildResult stResult = HashInShell(std::string(">") + FULL);
    EXPECT_EQ(1, stResult.m_iExit);
    EXPECT_THAT(stResult.m_strErr,
                EndsWith("hash_tree: cannot write to standard output: No space left on device\n"));
    ExpectSums();
}

TEST_F(HashTreeShellTest, ClosedOutputIsAFailureAndLeavesOtherFilesIntact)
{
    AddFile("file", "abc");
    const ST_ChildResult stResult = HashInShell(">&-");
    EXPECT_EQ(1, stResult.m_iExit);
    EXPECT_THAT(stResult.m_strErr,
                EndsWith("hash_tree: cannot write to standard output: Bad file descriptor\n"));
    ExpectSums();
}

TEST_F(HashTreeShellTest, WithEveryStreamClosedTheSumsAreWritten)
{
    AddFile("file", "abc");
    EXPECT_EQ(1, HashInShell("<&- >&- 2>&-").m_iExit);
    ExpectSums();
}

TEST_F(HashTreeShellTest, PipeWithoutAReaderIsAFailure)
{
    AddFile("file", "abc");
    // The reader of the named pipe is closed before the program starts.
    const std::string strPipe = m_clsFolder.GetPath("pipe");
    const ST_ChildResult stResult =
        RunChild("/bin/sh", {"-c",
                             "mkfifo \"$3\"; exec 3<>\"$3\" 4>\"$3\" 3<&-; exec \"$0\" \"$1\" --output "
                             "\"$2\" >&4 4>&-",
                             HASH_TREE, m_strTree, m_strSums, strPipe});
    EXPECT_EQ(1, stResult.m_iExit);
    EXPECT_THAT(stResult.m_strErr, EndsWith("hash_tree: cannot write to standard output: Broken pipe\n"));
    ExpectSums();
}

TEST_F(HashTreeShellTest, HelpThatCannotBeWrittenIsAFailure)
{
    const ST_ChildResult stResult = RunChild("/bin/sh", {"-c", "exec \"$0\" --help >&-", HASH_TREE});
    EXPECT_EQ(1, stResult.m_iExit);
    EXPECT_THAT(stResult.m_strErr, HasSubstr("hash_tree: cannot write to standard output: "));
}

TEST_F(HashTreeShellTest, SignalsThatItWasStartedToIgnoreStayIgnored)
{
    AddHugeFile("huge");
    const std::string strStart = "trap '' HUP INT; exec \"$@\"";
    CLS_ChildProcess clsChild("/bin/sh", {"-c", strStart, "sh", HASH_TREE, m_strTree, "--output", m_strSums,
                                          "--progress-interval", "10"});
    ASSERT_TRUE(WaitUntil([&] { return clsChild.GetErr().find("0/1 files") != std::string::npos; }));
    // The program is stopped until all three signals are sent.
    for (const int iSignal : {SIGSTOP, SIGHUP, SIGINT, SIGTERM, SIGCONT})
    {
        clsChild.SendSignal(iSignal);
    }
    const ST_ChildResult stResult = clsChild.Wait();
    EXPECT_EQ(128 + SIGTERM, stResult.m_iExit) << ::testing::PrintToString(stResult);
}
} // namespace
