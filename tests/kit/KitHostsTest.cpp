// Complete hosts that are built with the kit.

#include "tests/support/ChildProcess.h"

#include <gmock/gmock.h>

namespace
{
using ::testing::StartsWith;

TEST(KitHostsTest, AHostWithoutExceptionsUsesThePool)
{
    const ST_ChildResult stResult = RunChild(NO_EXCEPTIONS_HOST, {POOL_LIBRARY});
    EXPECT_EQ(0, stResult.m_iExit) << ::testing::PrintToString(stResult);
    // The shutdown makes the first log record, so the pool searches for a logging library only then.
    EXPECT_EQ("taken: yes\ntmp task ran: yes\nloop task ran: yes\nload dll - " LOG_LIBRARY_NAME "\n",
              stResult.m_strOut);
}

TEST(KitHostsTest, AHostWithoutExceptionsIsToldWhatIsMissing)
{
    const ST_ChildResult stMissing = RunChild(NO_EXCEPTIONS_HOST, {"/nowhere/libPool.so"});
    EXPECT_EQ(1, stMissing.m_iExit);
    EXPECT_THAT(stMissing.m_strOut, StartsWith("cannot open the pool library /nowhere/libPool.so: "));
    const ST_ChildResult stLacking = RunChild(NO_EXCEPTIONS_HOST, {STAND_IN_WITHOUT_UN_INIT});
    EXPECT_EQ(1, stLacking.m_iExit);
    EXPECT_THAT(stLacking.m_strOut,
                StartsWith("the pool library " STAND_IN_WITHOUT_UN_INIT " lacks the function UnInit: "));
}

TEST(KitHostsTest, AHostThatLinksTheLibraryUsesThePool)
{
    const ST_ChildResult stResult = RunChild(LINKED_HOST, {});
    EXPECT_EQ(0, stResult.m_iExit) << ::testing::PrintToString(stResult);
    EXPECT_THAT(stResult.m_strOut, StartsWith("result: 42\nworkers of the pool: not told\n"));
}

#ifdef STANDARD_TOKEN_HOST
TEST(KitHostsTest, TasksOfAHostInANewerLanguageTakeTheStandardsToken)
{
    const ST_ChildResult stResult = RunChild(STANDARD_TOKEN_HOST, {POOL_LIBRARY});
    EXPECT_EQ(0, stResult.m_iExit) << ::testing::PrintToString(stResult);
    EXPECT_THAT(stResult.m_strOut, StartsWith("taken: 1, started: 1, stopped: 1, removed: 1, result: 1\n"));
}
#endif

TEST(KitHostsTest, CoroutinesMoveBetweenWorkersAndTheHostsThreadAndEndWithTheirOwner)
{
    const ST_ChildResult stResult = RunChild(ROUTINE_HOST, {POOL_LIBRARY});
    EXPECT_EQ(0, stResult.m_iExit) << ::testing::PrintToString(stResult);
    EXPECT_THAT(stResult.m_strOut,
                ::testing::AnyOf("no coroutines\n",
                                 StartsWith("starts on the caller's thread: yes\n"
                                            "moves to a worker: yes\n"
                                            "moves back and ends there: yes\n"
                                            "is destroyed by a removal while it waits: yes\n"
                                            "does not go on after a removal: yes\n"
                                            "runs: yes\n"
                                            "has a stop token: yes\n"
                                            "is destroyed at its next wait: yes\n"
                                            "knows its thread on a worker: yes\n"
                                            "removes its own owner's tasks on a worker: yes\n"
                                            "knows its thread on the host's: yes\n"
                                            "removes its own owner's tasks on the host's thread: yes\n"
                                            "what it throws is a failure: yes\n"
                                            "what it throws at first reaches the caller: yes\n"
                                            "end\n")));
}

#ifdef EXAMPLE_HOST
TEST(KitHostsTest, TheExampleWaitsForItsSumAndItsTicksAndNotForItsDrawings)
{
    const ST_ChildResult stResult = RunChild(EXAMPLE_HOST, {POOL_LIBRARY});
    EXPECT_EQ(0, stResult.m_iExit) << ::testing::PrintToString(stResult);
    EXPECT_EQ("sum: 42\nthree ticks\nload dll - " LOG_LIBRARY_NAME "\n", stResult.m_strOut);
}

TEST(KitHostsTest, TheExampleNamesALibraryThatItCannotOpen)
{
    const ST_ChildResult stResult = RunChild(EXAMPLE_HOST, {"/nowhere/libPool.so"});
    EXPECT_EQ(1, stResult.m_iExit);
    EXPECT_EQ("", stResult.m_strOut);
    EXPECT_THAT(stResult.m_strErr,
                StartsWith("host_kit: cannot open the pool library /nowhere/libPool.so: "));
}
#endif
} // namespace
