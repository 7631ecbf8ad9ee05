#include "tests/blackbox/HashTreeFixture.h"
#include "tests/support/ChildProcess.h"

#include <csignal>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <vector>

namespace
{
namespace fs = std::filesystem;
using ::testing::AnyOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::UnorderedElementsAre;

class HashTreeTest : public CLS_HashTreeFixture
{
protected:
    /// The names in the folder that contains the sums.
    std::vector<std::string> ListFolder() const
    {
        std::vector<std::string> vecNames;
        for (const fs::directory_entry& entry : fs::directory_iterator(m_clsFolder.GetPath()))
        {
            vecNames.push_back(entry.path().filename());
        }
        return vecNames;
    }
};

TEST_F(HashTreeTest, WritesTheSumsSortedByPath)
{
    AddFile("b", "abc");
    AddFile("a/empty", "");
    const ST_ChildResult stResult = Hash();
    EXPECT_EQ(0, stResult.m_iExit) << ::testing::PrintToString(stResult);
    EXPECT_EQ("e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855  " + m_strTree +
                  "/a/empty\n"
                  "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad  " +
                  m_strTree + "/b\n",
              ReadSums());
    EXPECT_THAT(stResult.m_strOut, HasSubstr("2 files hashed, 3 bytes in "));
    EXPECT_THAT(stResult.m_strOut, HasSubstr("0 unreadable, 0 left, 0 walk errors\nsums in " + m_strSums));
}

TEST_F(HashTreeTest, Sha256sumAcceptsTheSumsWhateverTheNames)
{
    const std::vector<std::string> vecNames{"plain",      "with blank", "back\\slash", "new\nline",
                                            "car\rriage", "-dash",      "deep/er/file"};
    for (const std::string& strName : vecNames)
    {
        AddFile(strName, "text of " + strName);
    }
    EXPECT_EQ(0, Hash().m_iExit);
    const ST_ChildResult stCheck = RunChild("/bin/sh", {"-c", SHA256SUM_CHECK " --strict \"$0\"", m_strSums});
    EXPECT_EQ(0, stCheck.m_iExit) << ::testing::PrintToString(stCheck);
    std::size_t iAccepted = 0;
    std::istringstream issLines(stCheck.m_strOut);
    for (std::string strLine; std::getline(issLines, strLine);)
    {
        iAccepted += strLine.size() > 4 && strLine.substr(strLine.size() - 4) == ": OK" ? 1 : 0;
    }
    EXPECT_EQ(vecNames.size(), iAccepted) << stCheck.m_strOut;
}

TEST_F(HashTreeTest, LeavesOutLinksAndItsOwnOutput)
{
    AddFile("file", "abc");
    fs::create_symlink("file", m_strTree + "/link");
    fs::create_directory_symlink(".", m_strTree + "/loop");
    m_strSums = m_strTree + "/SUMS";
    EXPECT_EQ(0, Hash().m_iExit);
    EXPECT_EQ(0, Hash().m_iExit);
    EXPECT_EQ("ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad  " + m_strTree + "/file\n",
              ReadSums());
}

TEST_F(HashTreeTest, HashesManyFilesInManyDirectories)
{
    for (int i = 0; i < 2000; ++i)
    {
        AddFile("d" + std::to_string(i % 50) + "/f" + std::to_string(i), std::to_string(i));
    }
    const ST_ChildResult stResult = Hash();
    EXPECT_EQ(0, stResult.m_iExit);
    EXPECT_THAT(stResult.m_strOut, HasSubstr("2000 files hashed"));
    const ST_ChildResult stCheck = RunChild("/bin/sh", {"-c", SHA256SUM_CHECK " --strict \"$0\"", m_strSums});
    EXPECT_EQ(0, stCheck.m_iExit) << stCheck.m_strErr;
}

TEST_F(HashTreeTest, DrawsPlainLinesWithoutATerminal)
{
    AddFile("file", "abc");
    const ST_ChildResult stResult = Hash();
    EXPECT_THAT(stResult.m_strErr, HasSubstr("1/1 files, 3 B, "));
    EXPECT_THAT(stResult.m_strErr, HasSubstr("0:00 left\n"));
    EXPECT_THAT(stResult.m_strErr, Not(HasSubstr("\r")));
}

TEST_F(HashTreeTest, ReportsAndCountsWhatItCannotRead)
{
    AddFile("locked", "abc");
    AddFile("open", "abc");
    AddFile("folder/file", "abc");
    fs::permissions(m_strTree + "/locked", fs::perms::none);
    fs::permissions(m_strTree + "/folder", fs::perms::none);
    // Another user needs access to the programs and a folder to write to.
    fs::permissions(m_clsFolder.GetPath(), fs::perms::all);
    for (const char* const szFile : {HASH_TREE, POOL_LIBRARY})
    {
        fs::copy(szFile, m_clsFolder.GetPath(fs::path(szFile).filename().string()));
    }
    const ST_ChildResult stResult =
        RunChild(UNPRIVILEGED_HOST, {m_clsFolder.GetPath("hash_tree"), m_strTree, "--output", m_strSums});
    EXPECT_EQ(1, stResult.m_iExit) << ::testing::PrintToString(stResult);
    EXPECT_THAT(stResult.m_strErr,
                HasSubstr("hash_tree: cannot read " + m_strTree + "/locked: Permission denied\n"));
    EXPECT_THAT(stResult.m_strOut, HasSubstr("1 unreadable, 0 left, 1 walk errors"));
    EXPECT_THAT(stResult.m_strErr,
                HasSubstr("hash_tree: cannot walk " + m_strTree + "/folder: Permission denied\n"));
    EXPECT_EQ("ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad  " + m_strTree + "/open\n",
              ReadSums());
}

TEST_F(HashTreeTest, CancelsWithinMomentsAndSaysWhatIsLeft)
{
    AddFile("a/quick", "abc");
    for (int i = 0; i < 20; ++i)
    {
        AddHugeFile("d" + std::to_string(i) + "/huge");
    }
    CLS_ChildProcess clsChild(HASH_TREE, {m_strTree, "--output", m_strSums, "--progress-interval", "10"});
    ASSERT_TRUE(WaitUntil([&] { return clsChild.GetErr().find("1/21 files") != std::string::npos; }));
    const auto tpSignal = std::chrono::steady_clock::now();
    clsChild.SendSignal(SIGINT);
    const ST_ChildResult stResult = clsChild.Wait();
    // This takes a second on a quiet machine; hashing every file would take minutes.
    EXPECT_LT(std::chrono::steady_clock::now() - tpSignal, std::chrono::seconds(15));
    EXPECT_EQ(128 + SIGINT, stResult.m_iExit) << ::testing::PrintToString(stResult);
    EXPECT_THAT(stResult.m_strErr, HasSubstr("hash_tree: cancelled with 20 files left\n"));
    EXPECT_THAT(stResult.m_strOut, HasSubstr("1 files hashed, "));
    EXPECT_EQ("ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad  " + m_strTree + "/a/quick\n",
              ReadSums());
}

TEST_F(HashTreeTest, AClosedTerminalCancelsAndLeavesNoTemporaryFile)
{
    AddFile("a/quick", "abc");
    AddHugeFile("huge");
    CLS_ChildProcess clsChild(HASH_TREE, {m_strTree, "--output", m_strSums, "--progress-interval", "10"});
    ASSERT_TRUE(WaitUntil([&] { return clsChild.GetErr().find("1/2 files") != std::string::npos; }));
    clsChild.SendSignal(SIGHUP);
    const ST_ChildResult stResult = clsChild.Wait();
    EXPECT_EQ(128 + SIGHUP, stResult.m_iExit) << ::testing::PrintToString(stResult);
    EXPECT_EQ("ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad  " + m_strTree + "/a/quick\n",
              ReadSums());
    EXPECT_THAT(ListFolder(), UnorderedElementsAre("tree", fs::path(m_strSums).filename().string()));
}

TEST_F(HashTreeTest, ASecondSignalLeavesNoTemporaryFile)
{
    AddHugeFile("huge");
    CLS_ChildProcess clsChild(HASH_TREE, {m_strTree, "--output", m_strSums, "--progress-interval", "10"});
    ASSERT_TRUE(WaitUntil([&] { return clsChild.GetErr().find("0/1 files") != std::string::npos; }));
    // Both signals are pending while the program is stopped, so the first cannot end it before the second.
    for (const int iSignal : {SIGSTOP, SIGINT, SIGTERM, SIGCONT})
    {
        clsChild.SendSignal(iSignal);
    }
    const ST_ChildResult stResult = clsChild.Wait();
    EXPECT_THAT(stResult.m_iSignal, AnyOf(SIGINT, SIGTERM)) << ::testing::PrintToString(stResult);
    EXPECT_THAT(ListFolder(), ElementsAre("tree"));
}

TEST_F(HashTreeTest, NamesALibraryThatCannotBeOpened)
{
    const ST_ChildResult stResult = RunChild(HASH_TREE, {m_strTree, "--library", "/nowhere/libPool.so"});
    EXPECT_EQ(2, stResult.m_iExit);
    EXPECT_THAT(stResult.m_strErr, HasSubstr("cannot open the pool library /nowhere/libPool.so"));
}

TEST_F(HashTreeTest, NamesAFunctionThatTheLibraryLacks)
{
    const ST_ChildResult stResult = RunChild(HASH_TREE, {m_strTree, "--library", LOG_LIBRARY});
    EXPECT_EQ(2, stResult.m_iExit);
    EXPECT_THAT(stResult.m_strErr, HasSubstr(LOG_LIBRARY " lacks the function AddTmpTask"));
}

TEST_F(HashTreeTest, RefusesAMissingDirectory)
{
    const ST_ChildResult stResult = RunChild(HASH_TREE, {m_strTree + "/none"});
    EXPECT_EQ(2, stResult.m_iExit);
    EXPECT_EQ("hash_tree: directory: Directory does not exist: " + m_strTree +
                  "/none\nRun with --help for more information.\n",
              stResult.m_strErr);
}

TEST_F(HashTreeTest, ExplainsEveryOption)
{
    const ST_ChildResult stResult = RunChild(HASH_TREE, {"--help"});
    EXPECT_EQ(0, stResult.m_iExit);
    for (const char* const szPart : {"directory", "--output", "--library", "--trace", "--progress-interval",
                                     "Exit codes", "ZEL_LOG_FILE", "ZEL_LOG_LEVEL"})
    {
        EXPECT_THAT(stResult.m_strOut, HasSubstr(szPart));
    }
}

TEST_F(HashTreeTest, ShowsNoLogRecordsByDefault)
{
    AddFile("file", "abc");
    const ST_ChildResult stResult = Hash();
    EXPECT_THAT(stResult.m_strOut, HasSubstr("load dll [libZelLog.dylib: PrintLog] sucess"));
    EXPECT_THAT(stResult.m_strErr, Not(HasSubstr("[ZelTaskPool]")));
}

TEST_F(HashTreeTest, ShowsThePoolsLogRecordsOnRequest)
{
    AddFile("file", "abc");
    const ST_ChildResult stResult = Hash({{"ZEL_LOG_LEVEL", "2"}});
    EXPECT_THAT(stResult.m_strErr, HasSubstr("----- TaskPool UnInit begin -----"));
    EXPECT_THAT(stResult.m_strErr, HasSubstr("----- TaskPool UnInit end -----"));
}

TEST_F(HashTreeTest, WritesTheLogRecordsToAFileAndFiltersThem)
{
    AddFile("file", "abc");
    const std::string strLog = m_clsFolder.GetPath("log");
    EXPECT_THAT(Hash({{"ZEL_LOG_FILE", strLog}}).m_strErr, Not(HasSubstr("UnInit")));
    EXPECT_THAT(ReadFile(strLog), HasSubstr("----- TaskPool UnInit begin -----"));
    fs::remove(strLog);
    EXPECT_EQ(0, Hash({{"ZEL_LOG_FILE", strLog}, {"ZEL_LOG_LEVEL", "3"}}).m_iExit);
    EXPECT_EQ("", ReadFile(strLog));
}
} // namespace
