#include "examples/hash_tree/StatusWatch.h"
#include "tests/blackbox/HashTreeFixture.h"
#include "tests/support/Waiting.h"

#include <atomic>
#include <csignal>
#include <gmock/gmock.h>
#include <unistd.h>

namespace
{
using ::testing::HasSubstr;
using HashTreeStatusTest = CLS_HashTreeFixture;

TEST_F(HashTreeStatusTest, ASignalShowsWhatThePoolIsDoing)
{
    AddHugeFile("huge");
    CLS_ChildProcess clsChild(HASH_TREE, {m_strTree, "--output", m_strSums, "--progress-interval", "10"});
    ASSERT_TRUE(WaitUntil([&] { return clsChild.GetErr().find("0/1 files") != std::string::npos; }));
    // The first snapshot may be taken before a worker has the file.
    const std::string strRunning = "running: \"hash_tree " + m_strTree + "/huge\" of \"hash_tree\" for ";
    ASSERT_TRUE(WaitUntil(
        [&]
        {
            clsChild.SendSignal(SIGUSR1);
            const std::string strSoFar = clsChild.GetErr();
            const std::size_t uiRunning = strSoFar.find(strRunning);
            return uiRunning != std::string::npos &&
                   strSoFar.find("left out: ", uiRunning) != std::string::npos;
        }));
    const std::string strErr = clsChild.GetErr();
    EXPECT_THAT(strErr, HasSubstr("queue: 0 tasks, the oldest waits for 0.000 s\nrunning: "));
    EXPECT_THAT(strErr, HasSubstr("loop task: \"hash_tree progress\" every 10 ms, "));
    EXPECT_THAT(strErr, HasSubstr("since the start: 1 submitted, 0 run, 0 cancelled, 0 failed, "));
    clsChild.SendSignal(SIGINT);
    EXPECT_EQ(128 + SIGINT, clsChild.Wait().m_iExit);
}

TEST_F(HashTreeStatusTest, TheHelpNamesTheSignal)
{
    EXPECT_THAT(RunChild(HASH_TREE, {"--help"}).m_strOut, HasSubstr("SIGUSR1"));
}

TEST(StatusWatchTest, ReportsOnceWhenNothingMoves)
{
    std::atomic<std::uint64_t> uiCount{0};
    CLS_Counter clsReports;
    CLS_Counter clsLooks;
    const CLS_StatusWatch clsWatch([&] { clsReports.Add(); },
                                   [&]
                                   {
                                       clsLooks.Add();
                                       return uiCount.load();
                                   },
                                   std::chrono::milliseconds(1));
    ASSERT_TRUE(clsReports.Wait(1));
    ASSERT_TRUE(clsLooks.Wait(clsLooks.Get() + 3));
    EXPECT_EQ(1, clsReports.Get());
    ++uiCount;
    EXPECT_TRUE(clsReports.Wait(2));
}

TEST(StatusWatchTest, ReportsWhenASignalAsksForIt)
{
    CLS_Counter clsReports;
    const CLS_StatusWatch clsWatch([&] { clsReports.Add(); }, [] { return 0; });
    kill(getpid(), SIGUSR1);
    EXPECT_TRUE(clsReports.Wait(1));
    kill(getpid(), SIGUSR1);
    EXPECT_TRUE(clsReports.Wait(2));
}
} // namespace
