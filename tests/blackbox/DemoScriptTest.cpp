#include "tests/support/ChildProcess.h"
#include "tests/support/TempFolder.h"

#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <string>

namespace
{
namespace fs = std::filesystem;
using ::testing::HasSubstr;

/// scripts/demo.sh among sources that cannot be built.
class DemoScriptTest : public ::testing::Test
{
protected:
    DemoScriptTest()
    {
        fs::create_directories(m_clsFolder.GetPath("scripts/checks"));
        for (const char* const szScript : {"demo.sh", "checks/common.sh"})
        {
            fs::copy(fs::path(SCRIPTS) / szScript, m_clsFolder.GetPath("scripts") / fs::path(szScript));
        }
        std::ofstream(m_clsFolder.GetPath("scripts/install.sh")) << "#!/bin/sh\necho installing\nexit 9\n";
        fs::permissions(m_clsFolder.GetPath("scripts/install.sh"), fs::perms::owner_all);
    }

    std::string GetScript() const { return m_clsFolder.GetPath("scripts/demo.sh"); }

    ST_ChildResult RunScript(const std::vector<std::string>& _vecArguments) const
    {
        return RunChild(GetScript(), _vecArguments);
    }

    CLS_TempFolder m_clsFolder;
};

TEST_F(DemoScriptTest, HelpBuildsNothing)
{
    for (const char* const szHelp : {"--help", "-h"})
    {
        const ST_ChildResult stResult = RunScript({szHelp});
        EXPECT_EQ(0, stResult.m_iExit) << ::testing::PrintToString(stResult);
        EXPECT_THAT(stResult.m_strOut, HasSubstr("Usage: scripts/demo.sh "));
        EXPECT_EQ("", stResult.m_strErr);
    }
}

TEST_F(DemoScriptTest, HelpIncludesThatOfABuiltProgram)
{
    const std::string strProgram = m_clsFolder.GetPath("build/release/bin/hash_tree");
    fs::create_directories(fs::path(strProgram).parent_path());
    std::ofstream(strProgram) << "#!/bin/sh\necho \"help of the program $*\"\n";
    fs::permissions(strProgram, fs::perms::owner_all);
    const ST_ChildResult stResult = RunScript({"--help"});
    EXPECT_EQ(0, stResult.m_iExit);
    EXPECT_THAT(stResult.m_strOut, HasSubstr("help of the program --help\n"));
}

TEST_F(DemoScriptTest, WithoutHelpItInstallsAndBuilds)
{
    const ST_ChildResult stResult = RunScript({"/somewhere"});
    EXPECT_EQ(9, stResult.m_iExit);
    EXPECT_EQ("installing\n", stResult.m_strErr);
    EXPECT_EQ("", stResult.m_strOut);
}
} // namespace
