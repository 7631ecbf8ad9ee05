#include "QuenInclude/CLS_LoadTurn.h"
#include "QuenInclude/Util.h"
#include "tests/support/TempFolder.h"

#include <functional>
#include <gmock/gmock.h>
#include <mutex>

namespace
{
using ::testing::ElementsAre;
using ::testing::UnorderedElementsAre;

/// What a library's initialiser does while the library is being opened.
struct ST_AtLoad
{
    std::mutex m_mtxAtLoad; ///< guards everything below
    std::function<void(const std::string&)> m_funAtLoad;
};

ST_AtLoad& GetAtLoad()
{
    static ST_AtLoad& s_stAtLoad = *new ST_AtLoad;
    return s_stAtLoad;
}

void SetAtLoad(const std::function<void(const std::string&)>& _funAtLoad)
{
    const std::lock_guard<std::mutex> lock(GetAtLoad().m_mtxAtLoad);
    GetAtLoad().m_funAtLoad = _funAtLoad;
}
} // namespace

/// The initialiser of a probe library calls this, with the name of its thread.
extern "C" void ZelTestAtLoad(const char* _szThread)
{
    std::function<void(const std::string&)> funAtLoad;
    {
        const std::lock_guard<std::mutex> lock(GetAtLoad().m_mtxAtLoad);
        funAtLoad = GetAtLoad().m_funAtLoad;
    }
    if (funAtLoad)
    {
        funAtLoad(_szThread);
    }
}

namespace
{
class LoaderInitialiserTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        std::filesystem::copy_file(PROBE_LIBRARY, m_clsFolder.GetPath("plain"));
        std::filesystem::copy_file(PROBE_INITIALISER, m_clsFolder.GetPath("initialiser"));
    }
    void TearDown() override { SetAtLoad({}); }

    CLS_TempFolder m_clsFolder;
};

TEST_F(LoaderInitialiserTest, AnInitialiserThatAsksTheLoaderIsTurnedAwayWithoutADeadlock)
{
    const std::string strPlain = m_clsFolder.GetPath("plain");
    const std::string strInitialiser = m_clsFolder.GetPath("initialiser");
    std::mutex mtxResults;
    std::map<std::string, std::size_t> mapResults;
    std::map<std::string, std::chrono::steady_clock::duration> mapWaits;
    SetAtLoad(
        [&](const std::string& _strThread)
        {
            const auto tpStart = std::chrono::steady_clock::now();
            const std::size_t uiFound = Util::GetDllFunction(strPlain, {"ProbeOne"}).size() +
                                        Util::GetDllFunction(strInitialiser, {"ProbeOne"}).size();
            const std::lock_guard<std::mutex> lock(mtxResults);
            mapResults[_strThread] = uiFound;
            mapWaits[_strThread] = std::chrono::steady_clock::now() - tpStart;
        });
    ::testing::internal::CaptureStdout();
    ::testing::internal::CaptureStderr();
    std::map<std::string, void*> mapFuns = Util::GetDllFunction(strInitialiser, {"ProbeOne"});
    EXPECT_EQ("", ::testing::internal::GetCapturedStderr());
    EXPECT_EQ("load dll - " + strInitialiser + "\nload dll [" + strInitialiser + ": ProbeOne] sucess\n",
              ::testing::internal::GetCapturedStdout());
    EXPECT_NE(nullptr, mapFuns["ProbeOne"]);
    EXPECT_THAT(mapResults,
                UnorderedElementsAre(std::pair("opening thread", 0U), std::pair("other thread", 0U)));
    EXPECT_GE(mapWaits["other thread"], CLS_LoadTurn::WAIT_LIMIT);
}

TEST_F(LoaderInitialiserTest, APathThatWasTurnedAwayIsOpenedLater)
{
    const std::string strPlain = m_clsFolder.GetPath("plain");
    std::vector<std::size_t> vecFound;
    SetAtLoad(
        [&](const std::string& _strThread)
        {
            if (_strThread == "opening thread")
            {
                vecFound.push_back(Util::GetDllFunction(strPlain, {"ProbeOne"}).size());
            }
        });
    ::testing::internal::CaptureStdout();
    Util::GetDllFunction(m_clsFolder.GetPath("initialiser"), {});
    ::testing::internal::GetCapturedStdout();
    EXPECT_THAT(vecFound, ElementsAre(0U));
    ::testing::internal::CaptureStdout();
    EXPECT_NE(nullptr, Util::GetDllFunction(strPlain, {"ProbeOne"})["ProbeOne"]);
    EXPECT_EQ("load dll - " + strPlain + "\nload dll [" + strPlain + ": ProbeOne] sucess\n",
              ::testing::internal::GetCapturedStdout());
}
} // namespace
