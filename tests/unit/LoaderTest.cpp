#include "QuenInclude/Util.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/TempFolder.h"
#include "tests/support/Waiting.h"

#include <dlfcn.h>
#include <fstream>
#include <gmock/gmock.h>
#include <thread>

namespace
{
using ::testing::IsEmpty;

using Functions = std::map<std::string, void*>;

int Call(void* _pFunction)
{
    return reinterpret_cast<int (*)()>(_pFunction)();
}

/// A copy of a library under a path that is new to the loader.
class LoaderTest : public ::testing::Test
{
protected:
    std::string MakeCopy(const std::string& _strLibrary, const std::string& _strName = "probe") const
    {
        std::filesystem::copy_file(_strLibrary, m_clsFolder.GetPath(_strName));
        return m_clsFolder.GetPath(_strName);
    }

    /// Calls the loader and keeps what it writes.
    Functions Load(const std::string& _strPath, const std::vector<std::string>& _vecNames)
    {
        ::testing::internal::CaptureStdout();
        ::testing::internal::CaptureStderr();
        Functions mapFuns = Util::GetDllFunction(_strPath, _vecNames);
        m_strErr = ::testing::internal::GetCapturedStderr();
        m_strOut = ::testing::internal::GetCapturedStdout();
        return mapFuns;
    }

    /// Why the dynamic loader itself cannot open a library.
    static std::string GetReason(const std::string& _strPath)
    {
        EXPECT_EQ(nullptr, dlopen(_strPath.c_str(), RTLD_NOW));
        const char* const szReason = dlerror();
        return szReason == nullptr ? "(none)" : szReason;
    }

    CLS_TempFolder m_clsFolder;
    std::string m_strOut; ///< of the last Load
    std::string m_strErr; ///< of the last Load
};

TEST_F(LoaderTest, FirstRequestOpensTheLibraryAndNamesItInEachLine)
{
    const std::string strPath = MakeCopy(PROBE_LIBRARY);
    Functions mapFuns = Load(strPath, {"ProbeTwo", "ProbeOne"});
    EXPECT_EQ("load dll - " + strPath + "\nload dll [" + strPath + ": ProbeTwo] sucess\nload dll [" +
                  strPath + ": ProbeOne] sucess\n",
              m_strOut);
    EXPECT_EQ("", m_strErr);
    ASSERT_EQ(2U, mapFuns.size());
    EXPECT_EQ(1, Call(mapFuns["ProbeOne"]));
    EXPECT_EQ(2, Call(mapFuns["ProbeTwo"]));
}

TEST_F(LoaderTest, SecondRequestOpensNothingAndShowsAnEmptyPath)
{
    const std::string strPath = MakeCopy(PROBE_LIBRARY);
    Functions mapFirst = Load(strPath, {"ProbeOne"});
    Functions mapSecond = Load(strPath, {"ProbeOne", "ProbeTwo"});
    EXPECT_EQ("load dll [: ProbeOne] sucess\nload dll [: ProbeTwo] sucess\n", m_strOut);
    EXPECT_EQ("", m_strErr);
    ASSERT_EQ(2U, mapSecond.size());
    EXPECT_EQ(mapFirst["ProbeOne"], mapSecond["ProbeOne"]);
    EXPECT_EQ(2, Call(mapSecond["ProbeTwo"]));
}

TEST_F(LoaderTest, AnOpenLibraryIsAnsweredFromTheTableEvenWhenItsFileIsGone)
{
    const std::string strPath = MakeCopy(PROBE_LIBRARY);
    Load(strPath, {"ProbeOne"});
    std::filesystem::remove(strPath);
    Functions mapFuns = Load(strPath, {"ProbeOne"});
    EXPECT_EQ("load dll [: ProbeOne] sucess\n", m_strOut);
    EXPECT_EQ(1, Call(mapFuns["ProbeOne"]));
}

// Pins docs/limits.md, "Odd texts".
TEST_F(LoaderTest, AMissingSymbolIsNullButHasItsLine)
{
    const std::string strPath = MakeCopy(PROBE_LIBRARY);
    Functions mapFuns = Load(strPath, {"ProbeNone", "ProbeOne"});
    EXPECT_EQ("load dll - " + strPath + "\nload dll [" + strPath + ": ProbeNone] sucess\nload dll [" +
                  strPath + ": ProbeOne] sucess\n",
              m_strOut);
    EXPECT_EQ("", m_strErr);
    ASSERT_EQ(2U, mapFuns.size());
    ASSERT_EQ(1U, mapFuns.count("ProbeNone"));
    EXPECT_EQ(nullptr, mapFuns["ProbeNone"]);
    EXPECT_NE(nullptr, mapFuns["ProbeOne"]);
}

TEST_F(LoaderTest, ARepeatedNameIsLookedUpEachTime)
{
    const std::string strPath = MakeCopy(PROBE_LIBRARY);
    Load(strPath, {});
    Functions mapFuns = Load(strPath, {"ProbeOne", "ProbeOne"});
    EXPECT_EQ("load dll [: ProbeOne] sucess\nload dll [: ProbeOne] sucess\n", m_strOut);
    ASSERT_EQ(1U, mapFuns.size());
    EXPECT_EQ(1, Call(mapFuns["ProbeOne"]));
}

TEST_F(LoaderTest, WithoutNamesTheLibraryIsStillOpened)
{
    const std::string strPath = MakeCopy(PROBE_LIBRARY);
    EXPECT_THAT(Load(strPath, {}), IsEmpty());
    EXPECT_EQ("load dll - " + strPath + "\n", m_strOut);
    EXPECT_EQ("", m_strErr);
    EXPECT_THAT(Load(strPath, {}), IsEmpty());
    EXPECT_EQ("", m_strOut);
}

TEST_F(LoaderTest, LibrariesAreKeyedByTheirPathExactlyAsGiven)
{
    const std::string strPath = MakeCopy(PROBE_LIBRARY);
    const std::string strOther = m_clsFolder.GetPath("./probe");
    Load(strPath, {});
    Load(strOther, {"ProbeOne"});
    EXPECT_EQ("load dll - " + strOther + "\nload dll [" + strOther + ": ProbeOne] sucess\n", m_strOut);
}

TEST_F(LoaderTest, AMissingFileGivesOneLineWithTheReason)
{
    const std::string strPath = m_clsFolder.GetPath("missing");
    EXPECT_THAT(Load(strPath, {"ProbeOne"}), IsEmpty());
    EXPECT_EQ("load dll - " + strPath + "\n", m_strOut);
    EXPECT_EQ("load dll [" + strPath + "] fail !!! " + GetReason(strPath) + "\n", m_strErr);
}

TEST_F(LoaderTest, AFileThatIsNoLibraryGivesOneLineWithTheReason)
{
    const std::string strPath = m_clsFolder.GetPath("text");
    std::ofstream(strPath) << std::string(5000, 'x');
    EXPECT_THAT(Load(strPath, {"ProbeOne"}), IsEmpty());
    EXPECT_EQ("load dll - " + strPath + "\n", m_strOut);
    EXPECT_EQ("load dll [" + strPath + "] fail !!! " + GetReason(strPath) + "\n", m_strErr);
}

TEST_F(LoaderTest, AFailedOpenIsNotTriedAgain)
{
    const std::string strPath = m_clsFolder.GetPath("late");
    Load(strPath, {"ProbeOne"});
    MakeCopy(PROBE_LIBRARY, "late");
    EXPECT_THAT(Load(strPath, {"ProbeOne"}), IsEmpty());
    EXPECT_EQ("", m_strOut);
    EXPECT_EQ("", m_strErr);
}

TEST_F(LoaderTest, APathThatFailedReportsAPendingReason)
{
    const std::string strPath = m_clsFolder.GetPath("missing");
    Load(strPath, {"ProbeOne"});
    const std::string strReason = GetReason(m_clsFolder.GetPath("another"));
    EXPECT_EQ(nullptr, dlopen(m_clsFolder.GetPath("another").c_str(), RTLD_NOW));
    EXPECT_THAT(Load(strPath, {"ProbeOne"}), IsEmpty());
    EXPECT_EQ("", m_strOut);
    EXPECT_EQ("load dll [] fail !!! " + strReason + "\n", m_strErr);
}

TEST_F(LoaderTest, AllSymbolsAreBoundWhenTheLibraryIsOpened)
{
    const std::string strPath = MakeCopy(PROBE_UNRESOLVED);
    EXPECT_THAT(Load(strPath, {"ProbeOne"}), IsEmpty());
    EXPECT_EQ("load dll - " + strPath + "\n", m_strOut);
    EXPECT_EQ("load dll [" + strPath + "] fail !!! " + GetReason(strPath) + "\n", m_strErr);
}

TEST_F(LoaderTest, SymbolsHaveThePlatformsDefaultVisibility)
{
    const std::string strPath = MakeCopy(PROBE_LIBRARY);
    ASSERT_NE(nullptr, Load(strPath, {"ProbeOne"})["ProbeOne"]);
#ifdef __APPLE__
    EXPECT_NE(nullptr, dlsym(RTLD_DEFAULT, "ProbeOne"));
#else
    EXPECT_EQ(nullptr, dlsym(RTLD_DEFAULT, "ProbeOne"));
#endif
}

TEST_F(LoaderTest, LibrariesStayOpen)
{
    const std::string strPath = MakeCopy(PROBE_LIBRARY);
    EXPECT_EQ(nullptr, dlopen(strPath.c_str(), RTLD_NOW | RTLD_NOLOAD));
    Load(strPath, {"ProbeOne"});
    void* const pHandle = dlopen(strPath.c_str(), RTLD_NOW | RTLD_NOLOAD);
    EXPECT_NE(nullptr, pHandle);
    dlclose(pHandle);
}

TEST_F(LoaderTest, ThreadsThatAskFirstAtOnceOpenTheLibraryOnce)
{
    constexpr int THREADS = 8;
    const std::string strPath = MakeCopy(PROBE_LIBRARY);
    std::vector<int> vecResults(THREADS);
    std::vector<std::thread> vecThreads;
    CLS_Gate clsGate;
    ::testing::internal::CaptureStdout();
    for (int& iResult : vecResults)
    {
        vecThreads.emplace_back(
            [&clsGate, &iResult, &strPath]
            {
                EXPECT_TRUE(clsGate.Wait());
                iResult = Call(Util::GetDllFunction(strPath, {"ProbeTwo"})["ProbeTwo"]);
            });
    }
    clsGate.Open();
    for (std::thread& thLoad : vecThreads)
    {
        thLoad.join();
    }
    std::string strExpected = "load dll - " + strPath + "\nload dll [" + strPath + ": ProbeTwo] sucess\n";
    for (int i = 1; i < THREADS; ++i)
    {
        strExpected += "load dll [: ProbeTwo] sucess\n";
    }
    EXPECT_EQ(strExpected, ::testing::internal::GetCapturedStdout());
    EXPECT_THAT(vecResults, ::testing::Each(2));
}

TEST_F(LoaderTest, APathWithoutAFolderIsLeftToTheLoadersSearch)
{
    MakeCopy(PROBE_LIBRARY, "libSearched.probe");
    const ST_ChildResult stResult = RunChild(FOUNDATION_HOST, {"dll", "libSearched.probe", "ProbeOne"},
                                             {{GetLibraryPathName(), m_clsFolder.GetPath()}});
    EXPECT_EQ("load dll - libSearched.probe\nload dll [libSearched.probe: ProbeOne] sucess\ndll 1: found\n",
              stResult.m_strOut);
    EXPECT_EQ("", stResult.m_strErr);
    EXPECT_EQ(0, stResult.m_iExit);
}

TEST_F(LoaderTest, EachLineIsFlushed)
{
    const std::string strPath = MakeCopy(PROBE_LIBRARY);
    const ST_ChildResult stResult =
        RunChild(FOUNDATION_HOST, {"fun", "PrintLog", strPath, "dll", strPath, "ProbeOne", "dll", strPath,
                                   "ProbeOne", "leave", "7"});
    const std::string strLog = strPath + "/" + LOG_LIBRARY_NAME;
    // The host's own last line stays in its buffer. The loader flushed each of its lines.
    EXPECT_EQ("load dll - " + strLog + "\nfun PrintLog: null\nload dll - " + strPath + "\nload dll [" +
                  strPath + ": ProbeOne] sucess\ndll 1: found\nload dll [: ProbeOne] sucess\n",
              stResult.m_strOut);
    EXPECT_EQ("load dll [" + strLog + "] fail !!! " + GetReason(strLog) + "\n", stResult.m_strErr);
    EXPECT_EQ(7, stResult.m_iExit);
}

TEST_F(LoaderTest, TheFirstLineIsFlushedBeforeTheLibraryIsOpened)
{
    const std::string strPath = MakeCopy(PROBE_INITIALISER);
    const ST_ChildResult stResult =
        RunChild(FOUNDATION_HOST, {"leave-at-load", "9", "dll", strPath, "ProbeOne"});
    EXPECT_EQ("load dll - " + strPath + "\n", stResult.m_strOut);
    EXPECT_EQ("", stResult.m_strErr);
    EXPECT_EQ(9, stResult.m_iExit);
}
} // namespace
