// Whole hosts that are made with the kit, and the page that shows one.

#include "tests/support/ChildProcess.h"

#include <fstream>
#include <gmock/gmock.h>
#include <sstream>

namespace
{
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

std::string ReadFile(const std::string& _strPath)
{
    std::ostringstream ossText;
    ossText << std::ifstream(_strPath).rdbuf();
    return ossText.str();
}

TEST(KitHostsTest, AHostWithoutExceptionsUsesThePool)
{
    const ST_ChildResult stResult = RunChild(NO_EXCEPTIONS_HOST, {POOL_LIBRARY});
    EXPECT_EQ(0, stResult.m_iExit) << ::testing::PrintToString(stResult);
    // The pool's end makes the first record, and looks for a logging library then.
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

#ifdef EXAMPLE_HOST
TEST(KitHostsTest, TheExampleComputesItsSum)
{
    const ST_ChildResult stResult = RunChild(EXAMPLE_HOST, {POOL_LIBRARY});
    EXPECT_EQ(0, stResult.m_iExit) << ::testing::PrintToString(stResult);
    EXPECT_THAT(stResult.m_strOut, HasSubstr("sum: 499500\n"));
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

TEST(KitHostsTest, ThePageShowsTheExampleAsItIs)
{
    const std::string strExample = ReadFile(EXAMPLE_SOURCE);
    EXPECT_THAT(strExample, EndsWith("}\n"));
    EXPECT_THAT(ReadFile(KIT_PAGE), HasSubstr("```cpp\n" + strExample + "```\n"));
}
} // namespace
