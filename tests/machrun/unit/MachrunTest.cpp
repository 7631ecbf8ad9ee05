// The loader as a program: its messages about files that it cannot run.

#include "tests/machrun/unit/LibraryImage.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/TempFolder.h"

#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace
{
constexpr int WRONG_CALL = 64;
constexpr int NOT_LOADED = 127;

class MachrunTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        std::filesystem::create_directories(m_strRoot + "/usr/lib/system");
        Write(CLS_LibraryImage(), "root/usr/lib/system/libunwind.dylib");
        m_clsProgram.MakeProgram(7);
    }

    std::string Write(const CLS_LibraryImage& _clsImage, const std::string& _strName)
    {
        std::string strPath = m_strFolder + "/" + _strName;
        const CLS_LibraryImage::Bytes vecFile = _clsImage.Make();
        std::ofstream(strPath, std::ios::binary)
            .write(reinterpret_cast<const char*>(vecFile.data()),
                   static_cast<std::streamsize>(vecFile.size()));
        return strPath;
    }

    ST_ChildResult Run(const std::string& _strProgram,
                       const std::map<std::string, std::string>& _mapEnvironment = {})
    {
        return RunChild(MACHRUN, {"--root", m_strRoot, _strProgram}, _mapEnvironment);
    }

    /// Runs the program, expects that it cannot be loaded, and returns the reason.
    std::string GetReason()
    {
        const ST_ChildResult stResult = Run(Write(m_clsProgram, "program"));
        EXPECT_EQ(NOT_LOADED, stResult.m_iExit);
        EXPECT_EQ("", stResult.m_strOut);
        return stResult.m_strErr;
    }

    const CLS_TempFolder m_clsFolder;
    const std::string m_strFolder = std::filesystem::canonical(m_clsFolder.GetPath()).string();
    const std::string m_strRoot = m_strFolder + "/root";
    const std::string m_strProgram = m_strFolder + "/program";
    CLS_LibraryImage m_clsProgram;
};

TEST_F(MachrunTest, RunsAProgramAndExitsWithItsStatus)
{
    const ST_ChildResult stResult = Run(Write(m_clsProgram, "program"));
    EXPECT_EQ("", stResult.m_strErr);
    EXPECT_EQ(7, stResult.m_iExit);
}

TEST_F(MachrunTest, PrintsItsUsage)
{
    for (const std::vector<std::string>& vecArguments :
         {std::vector<std::string>{}, {"program"}, {"--root", m_strRoot}, {"--other", m_strRoot, "program"}})
    {
        const ST_ChildResult stResult = RunChild(MACHRUN, vecArguments);
        EXPECT_EQ(WRONG_CALL, stResult.m_iExit);
        EXPECT_EQ("usage: machrun --root FOLDER PROGRAM [ARGUMENT...]\n", stResult.m_strErr);
    }
}

TEST_F(MachrunTest, NamesAMissingFileOrFolder)
{
    const ST_ChildResult stProgram = Run("/nowhere/program");
    EXPECT_EQ(NOT_LOADED, stProgram.m_iExit);
    EXPECT_EQ("machrun: '/nowhere/program' cannot be opened: No such file or directory\n",
              stProgram.m_strErr);
    const ST_ChildResult stRoot = RunChild(MACHRUN, {"--root", "/nowhere", Write(m_clsProgram, "program")});
    EXPECT_EQ(NOT_LOADED, stRoot.m_iExit);
    EXPECT_EQ("machrun: '/nowhere' cannot be opened: No such file or directory\n", stRoot.m_strErr);
}

TEST_F(MachrunTest, NamesAMissingLibraryOfTheRuntime)
{
    const std::string strUnwinder = m_strRoot + "/usr/lib/system/libunwind.dylib";
    std::filesystem::remove(strUnwinder);
    EXPECT_EQ("machrun: '" + strUnwinder + "' cannot be opened: No such file or directory\n", GetReason());
}

TEST_F(MachrunTest, RefusesAFileThatIsNoProgram)
{
    m_clsProgram = CLS_LibraryImage();
    EXPECT_EQ("machrun: '" + m_strProgram + "' is not a program\n", GetReason());
    m_clsProgram.m_stHeader.m_uiMagic = 0;
    EXPECT_EQ("machrun: '" + m_strProgram + "' cannot be loaded: it is not a 64-bit Mach-O file\n",
              GetReason());
}

TEST_F(MachrunTest, NamesAMissingLibraryItsUserAndWhereItWasLookedFor)
{
    m_clsProgram.m_strLibrary = "@loader_path/libNone.dylib";
    EXPECT_EQ("machrun: library not loaded: @loader_path/libNone.dylib, which '" + m_strProgram +
                  "' needs; tried: '" + m_strFolder + "/libNone.dylib' (no such file)\n",
              GetReason());
    m_clsProgram.m_strLibrary = "@rpath/libNone.dylib";
    EXPECT_EQ("machrun: library not loaded: @rpath/libNone.dylib, which '" + m_strProgram +
                  "' needs; tried: no run path\n",
              GetReason());
}

TEST_F(MachrunTest, NamesAMissingSymbolAndTheLibraryThatShouldHaveIt)
{
    m_clsProgram.m_strLibrary = "@executable_path/libOther.dylib";
    const std::string strLibrary = Write(CLS_LibraryImage(), "libOther.dylib");
    EXPECT_EQ("machrun: '" + m_strProgram + "' cannot be bound: symbol not found: _malloc, expected in " +
                  strLibrary + "\n",
              GetReason());
    m_clsProgram.m_vecBinds[0] = 0x3e; // anywhere
    m_clsProgram.m_vecBinds[4] = 'M';
    EXPECT_EQ("machrun: '" + m_strProgram +
                  "' cannot be bound: symbol not found: _Malloc, expected in any image\n",
              GetReason());
}

TEST_F(MachrunTest, CyclicReexportsAreNotFound)
{
    m_clsProgram.m_strLibrary = "@executable_path/libOther.dylib";
    m_clsProgram.m_vecBinds =
        CLS_LibraryImage::ToBytes(std::string("\x11\x51\x40_answer\0\x70\x88\x1e\x90\0", 16));
    CLS_LibraryImage clsCircle;
    clsCircle.m_strLibrary = "@loader_path/libOther.dylib";
    clsCircle.m_vecBinds = {0};
    // "_answer" refers to "_answer" of library 1, which is the library itself.
    clsCircle.m_vecExports = CLS_LibraryImage::ToBytes(std::string("\0\1_answer\0\x0b\3\x08\1\0\0", 16));
    const std::string strReason = "machrun: '" + m_strProgram +
                                  "' cannot be bound: symbol not found: _answer, expected in " +
                                  Write(clsCircle, "libOther.dylib") + "\n";
    EXPECT_EQ(strReason, GetReason());
    clsCircle.m_vecExports.clear();
    clsCircle.m_bReexported = true;
    Write(clsCircle, "libOther.dylib");
    EXPECT_EQ(strReason, GetReason());
}

TEST_F(MachrunTest, BindsANameOfAnotherLibrary)
{
    m_clsProgram.m_strLibrary = "@executable_path/libOther.dylib";
    Write(CLS_LibraryImage(), "libOther.dylib");
    m_clsProgram.m_vecBinds =
        CLS_LibraryImage::ToBytes(std::string("\x11\x51\x40_answer\0\x70\x88\x1e\x90\0", 16));
    EXPECT_EQ(7, Run(Write(m_clsProgram, "program")).m_iExit);
}

TEST_F(MachrunTest, RefusesABindOfALibraryThatDoesNotExist)
{
    m_clsProgram.m_vecBinds[0] = 0x12;
    EXPECT_EQ("machrun: '" + m_strProgram +
                  "' cannot be bound: a name refers to library 2, which does not exist\n",
              GetReason());
}

TEST_F(MachrunTest, FindsLibrariesInTheFoldersOfTheEnvironment)
{
    m_clsProgram.m_strLibrary = "/usr/lib/libOther.dylib";
    m_clsProgram.m_vecBinds = {0};
    std::filesystem::create_directory(m_strFolder + "/libraries");
    Write(CLS_LibraryImage(), "libraries/libOther.dylib");
    const std::string strProgram = Write(m_clsProgram, "program");
    EXPECT_EQ(NOT_LOADED, Run(strProgram).m_iExit);
    EXPECT_EQ(7, Run(strProgram, {{"DYLD_LIBRARY_PATH", "/nowhere::" + m_strFolder + "/libraries"}}).m_iExit);
}

TEST_F(MachrunTest, NamesAMissingSystemFunctionWhenItIsCalled)
{
    m_clsProgram.m_vecBinds[4] = 'M';
    EXPECT_EQ(7, Run(Write(m_clsProgram, "program")).m_iExit) << "the missing function is not called";
    // push rax; call *pointer
    m_clsProgram.m_vecCode = {0x50, 0xff, 0x15, 0x01, 0x07, 0x00, 0x00};
    const ST_ChildResult stResult = Run(Write(m_clsProgram, "program"));
    EXPECT_EQ("machrun: the program called _Malloc, which machrun does not provide\n", stResult.m_strErr);
    EXPECT_EQ(SIGABRT, stResult.m_iSignal);
}

TEST_F(MachrunTest, ReportsAFaultWithTheFunctionsBeingCalled)
{
    m_clsProgram.m_vecCode = {0x0f, 0x0b}; // an instruction that does not exist
    const ST_ChildResult stResult = Run(Write(m_clsProgram, "program"));
    EXPECT_THAT(stResult.m_strErr, ::testing::StartsWith("machrun: signal 4 at address "));
    EXPECT_THAT(stResult.m_strErr, ::testing::HasSubstr(" in " + m_strProgram + "\n"));
    EXPECT_EQ(SIGILL, stResult.m_iSignal);
}
} // namespace
