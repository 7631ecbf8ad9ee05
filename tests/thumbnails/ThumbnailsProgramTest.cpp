#include "tests/support/ChildProcess.h"
#include "tests/support/TempFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace
{
using ::testing::HasSubstr;
using ::testing::StartsWith;

ST_ChildResult RunThumbnails(const std::vector<std::string>& _vecArguments)
{
    const CLS_TempFolder clsFolder;
    return RunChild(THUMBNAILS, _vecArguments,
                    {{"QT_QPA_PLATFORM", "offscreen"}, {"XDG_RUNTIME_DIR", clsFolder.GetPath()}});
}

TEST(ThumbnailsProgramTest, SaysThatThePoolLibraryCannotBeOpened)
{
    const ST_ChildResult stResult = RunThumbnails({"--library", "/missing/library", "/"});
    EXPECT_EQ(1, stResult.m_iExit);
    EXPECT_THAT(stResult.m_strErr,
                StartsWith("thumbnails: cannot open the pool library /missing/library: /missing/library: "));
}

TEST(ThumbnailsProgramTest, RefusesAnOptionThatDoesNotExist)
{
    const ST_ChildResult stResult = RunThumbnails({"--fast"});
    EXPECT_EQ(1, stResult.m_iExit);
    EXPECT_THAT(stResult.m_strErr, HasSubstr("Unknown option 'fast'."));
}

TEST(ThumbnailsProgramTest, DescribesItsArguments)
{
    const ST_ChildResult stResult = RunThumbnails({"--help"});
    EXPECT_EQ(0, stResult.m_iExit);
    EXPECT_THAT(stResult.m_strOut, HasSubstr("[options] [folder...]"));
}
} // namespace
