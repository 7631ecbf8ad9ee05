#include "QuenHost/CLS_PoolLibrary.h"
#include "QuenHost/CLS_PoolScope.h"
#include "tests/kit/StandIn.h"
#include "tests/support/TempFolder.h"

#include <fstream>
#include <regex>
#include <type_traits>

namespace
{
static_assert(!std::is_copy_constructible_v<CLS_PoolLibrary> && !std::is_copy_assignable_v<CLS_PoolLibrary>);
static_assert(std::is_nothrow_move_constructible_v<CLS_PoolLibrary> &&
              std::is_nothrow_move_assignable_v<CLS_PoolLibrary>);

/// Returns the loader's reason for not opening the file.
std::string GetLoaderReason(const std::string& _strPath)
{
    EXPECT_EQ(nullptr, dlopen(_strPath.c_str(), RTLD_NOW | RTLD_LOCAL));
    const char* const szReason = dlerror();
    return szReason == nullptr ? "" : szReason;
}

/// Returns the loader's reason for not finding the function.
std::string GetLoaderReason(const std::string& _strPath, const char* _szFunction)
{
    void* const pLibrary = dlopen(_strPath.c_str(), RTLD_NOW | RTLD_LOCAL);
    EXPECT_EQ(nullptr, dlsym(pLibrary, _szFunction));
    const char* const szReason = dlerror();
    const std::string strReason = szReason == nullptr ? "" : szReason;
    dlclose(pLibrary);
    return strReason;
}

/// Replaces each address in the text. A library's address may differ each time that it is opened.
std::string HideAddresses(const std::string& _strText)
{
    return std::regex_replace(_strText, std::regex("0x[0-9a-f]+"), "0x*");
}

void ExpectRefused(const std::string& _strPath, const std::string& _strReason)
{
    std::string strError;
    EXPECT_FALSE(CLS_PoolLibrary::Open(_strPath, strError).has_value());
    EXPECT_EQ(HideAddresses(_strReason), HideAddresses(strError));
    try
    {
        const CLS_PoolLibrary clsLibrary(_strPath);
        ADD_FAILURE() << "opened";
    }
    catch (const std::runtime_error& error)
    {
        EXPECT_EQ(HideAddresses(_strReason), HideAddresses(error.what()));
    }
}

bool HasAll(const ST_PoolFunctions& _stFunctions)
{
    return _stFunctions.m_funAddTmpTask != nullptr && _stFunctions.m_funRemoveTmpTask != nullptr &&
           _stFunctions.m_funAddLoopTask != nullptr && _stFunctions.m_funRemoveTask != nullptr &&
           _stFunctions.m_funKillTask != nullptr && _stFunctions.m_funKillTaskAll != nullptr &&
           _stFunctions.m_funUnInit != nullptr;
}

bool HasNone(const ST_PoolFunctions& _stFunctions)
{
    return _stFunctions.m_funAddTmpTask == nullptr && _stFunctions.m_funRemoveTmpTask == nullptr &&
           _stFunctions.m_funAddLoopTask == nullptr && _stFunctions.m_funRemoveTask == nullptr &&
           _stFunctions.m_funKillTask == nullptr && _stFunctions.m_funKillTaskAll == nullptr &&
           _stFunctions.m_funUnInit == nullptr;
}

TEST(PoolLibraryTest, OpensTheLibraryAndClearsTheError)
{
    std::string strError = "from before";
    std::optional<CLS_PoolLibrary> clsLibrary = CLS_PoolLibrary::Open(POOL_LIBRARY, strError);
    ASSERT_TRUE(clsLibrary.has_value());
    const CLS_PoolScope clsPool(std::move(*clsLibrary));
    EXPECT_EQ("", strError);
    EXPECT_TRUE(HasAll(clsPool.GetFunctions()));
}

TEST(PoolLibraryTest, EachFunctionIsTheOneOfItsName)
{
    const CLS_StandIn clsStandIn(STAND_IN);
    const CLS_PoolLibrary clsLibrary(STAND_IN);
    CLS_StandIn::GetCalls().clear();
    const ST_PoolFunctions& stFunctions = clsLibrary.GetFunctions();
    std::string strTaskId;
    stFunctions.m_funAddTmpTask([] {}, nullptr, "1");
    stFunctions.m_funRemoveTmpTask(&strTaskId, "2");
    stFunctions.m_funAddLoopTask([] {}, 0, strTaskId, "3");
    stFunctions.m_funRemoveTask("", "4");
    stFunctions.m_funKillTask("", "5");
    stFunctions.m_funKillTaskAll();
    stFunctions.m_funUnInit();
    EXPECT_EQ((std::vector<std::string>{"AddTmpTask 1", "RemoveTmpTask 2", "AddLoopTask 3", "RemoveTask 4",
                                        "KillTask 5", "KillTaskAll", "UnInit"}),
              CLS_StandIn::GetCalls());
}

TEST(PoolLibraryTest, OpeningMakesThePoolsFirstCall)
{
    const CLS_StandIn clsStandIn(STAND_IN);
    const CLS_PoolLibrary clsLibrary(STAND_IN);
    EXPECT_EQ(std::vector<std::string>{"RemoveTmpTask without an owner, first use"}, CLS_StandIn::GetCalls());
}

TEST(PoolLibraryTest, AMissingFileIsNamedWithTheLoadersReason)
{
    const std::string strPath = "/nowhere/libPool.so";
    ExpectRefused(strPath, "cannot open the pool library " + strPath + ": " + GetLoaderReason(strPath));
}

TEST(PoolLibraryTest, AFileThatIsNoLibraryIsNamedWithTheLoadersReason)
{
    const CLS_TempFolder clsFolder;
    const std::string strPath = clsFolder.GetPath("text.so");
    std::ofstream(strPath) << std::string(5000, 'x');
    ExpectRefused(strPath, "cannot open the pool library " + strPath + ": " + GetLoaderReason(strPath));
}

TEST(PoolLibraryTest, AMissingFunctionIsNamedAndTheLibraryClosed)
{
    const std::string strPath = STAND_IN_WITHOUT_UN_INIT;
    ExpectRefused(strPath, "the pool library " + strPath +
                               " lacks the function UnInit: " + GetLoaderReason(strPath, "UnInit"));
    EXPECT_FALSE(CLS_StandIn::IsLoaded(strPath));
}

TEST(PoolLibraryTest, APoolThatCannotBeStartedIsAnErrorAndTheLibraryClosed)
{
    const std::string strPath = STAND_IN_UNSTARTABLE;
    ExpectRefused(strPath, "the pool library " + strPath + " cannot start its pool: no thread available");
    EXPECT_FALSE(CLS_StandIn::IsLoaded(strPath));
}

TEST(PoolLibraryTest, MovingTakesTheFunctionsAlong)
{
    CLS_PoolLibrary clsFirst(STAND_IN);
    CLS_PoolLibrary clsSecond(std::move(clsFirst));
    EXPECT_TRUE(HasNone(clsFirst.GetFunctions())); // NOLINT(bugprone-use-after-move)
    EXPECT_TRUE(HasAll(clsSecond.GetFunctions()));
    clsFirst = std::move(clsSecond);
    EXPECT_TRUE(HasAll(clsFirst.GetFunctions()));
    EXPECT_TRUE(HasNone(clsSecond.GetFunctions())); // NOLINT(bugprone-use-after-move)
}

TEST(PoolLibraryTest, TheLibraryStaysLoadedWhenTheObjectIsDestroyed)
{
    CLS_PoolLibrary(STAND_IN_UNENDABLE); // NOLINT(bugprone-unused-raii)
    EXPECT_TRUE(CLS_StandIn::IsLoaded(STAND_IN_UNENDABLE));
}

TEST(PoolLibraryTest, TheDefaultNameIsThatOfTheBuiltLibrary)
{
    const std::string strPath = POOL_LIBRARY;
    EXPECT_EQ(strPath.substr(strPath.rfind('/') + 1), CLS_PoolLibrary::GetUsualName());
}
} // namespace
