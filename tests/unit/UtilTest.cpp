#include "QuenInclude/Util.h"

#include "tests/support/ChildProcess.h"
#include "tests/support/GroupingLocale.h"
#include "tests/support/RandomKind.h"
#include "tests/support/TempFolder.h"
#include "tests/support/Waiting.h"

#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <gmock/gmock.h>
#include <pthread.h>
#include <set>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

namespace
{
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;

constexpr int COUNTER_END = 65535;
constexpr const char* ID_PATTERN = "[0-9a-f]{8}-[0-9a-f]{4}[0-9a-f]*-[0-9a-f]{8}[0-9a-f]*-[0-9a-f]{4}";

std::vector<std::string> GetFields(const std::string& _strId)
{
    std::vector<std::string> vecFields(1);
    for (const char cLetter : _strId)
    {
        if (cLetter == '-')
        {
            vecFields.emplace_back();
        }
        else
        {
            vecFields.back() += cLetter;
        }
    }
    return vecFields;
}

unsigned long long GetNumber(const std::string& _strId, std::size_t _uiField)
{
    return std::stoull(GetFields(_strId).at(_uiField), nullptr, 16);
}

std::string ToHexadecimal(unsigned long long _uiNumber, std::size_t _uiWidth)
{
    std::ostringstream ossText;
    ossText << std::hex << _uiNumber;
    const std::string strText = ossText.str();
    return std::string(_uiWidth - std::min(_uiWidth, strText.size()), '0') + strText;
}

unsigned long long GetSteadyNanoseconds()
{
    return static_cast<unsigned long long>(
        std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count());
}

/// The descriptor of the next file that this process opens.
int GetNextFileNumber()
{
    const int iFile = open("/dev/null", O_RDONLY);
    close(iFile);
    return iFile;
}

TEST(UtilTest, SplitsAtRunsOfSeparators)
{
    EXPECT_THAT(Util::SplitStdString("a  b", " "), ElementsAre("a", "b"));
    EXPECT_THAT(Util::SplitStdString("  a b  ", " "), ElementsAre("a", "b"));
    EXPECT_THAT(Util::SplitStdString("alone", " "), ElementsAre("alone"));
}

TEST(UtilTest, SplitsAtEachCharacterOfTheSeparators)
{
    EXPECT_THAT(Util::SplitStdString("ns::Cls", "::"), ElementsAre("ns", "Cls"));
    EXPECT_THAT(Util::SplitStdString("a:b", "::"), ElementsAre("a", "b"));
    EXPECT_THAT(Util::SplitStdString(";a,b;;,c,", ",;"), ElementsAre("a", "b", "c"));
}

TEST(UtilTest, SplitsAnEmptyTextIntoNoPieces)
{
    EXPECT_THAT(Util::SplitStdString("", ","), IsEmpty());
    EXPECT_THAT(Util::SplitStdString(",,,", ","), IsEmpty());
    EXPECT_THAT(Util::SplitStdString("", ""), IsEmpty());
}

TEST(UtilTest, DoesNotSplitWithoutSeparators)
{
    EXPECT_THAT(Util::SplitStdString("a b,c", ""), ElementsAre("a b,c"));
}

TEST(UtilTest, SplittingLeavesTheArgumentsAlone)
{
    const std::string strText = "a,b,c";
    const std::string strSeparators = ",";
    Util::SplitStdString(strText, strSeparators);
    EXPECT_EQ("a,b,c", strText);
    EXPECT_EQ(",", strSeparators);
}

TEST(UtilTest, SplittingIsReentrant)
{
    std::vector<std::thread> vecThreads;
    for (int i = 0; i < 4; ++i)
    {
        vecThreads.emplace_back(
            []
            {
                for (int j = 0; j < 1000; ++j)
                {
                    ASSERT_THAT(Util::SplitStdString("a,b,c", ","), ElementsAre("a", "b", "c"));
                }
            });
    }
    for (std::thread& thSplit : vecThreads)
    {
        thSplit.join();
    }
}

TEST(UtilTest, IdsHaveFourHexadecimalFields)
{
    for (int i = 0; i < 100; ++i)
    {
        EXPECT_THAT(Util::GetUuid(), MatchesRegex(ID_PATTERN));
    }
}

TEST(UtilTest, FirstFieldOfAnIdIsRandom)
{
    std::set<unsigned long long> setNumbers;
    for (int i = 0; i < 16; ++i)
    {
        setNumbers.insert(GetNumber(Util::GetUuid(), 0));
    }
    EXPECT_GT(setNumbers.size(), 8U);
    // The numbers are not all small either: the whole word is random.
    EXPECT_GT(*setNumbers.rbegin(), 0xFFFFFFU);
}

TEST(UtilTest, SecondFieldOfAnIdIsTheCallingThread)
{
    const auto funCheck = []
    {
        const auto uiThread = static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(pthread_self()));
        EXPECT_EQ(ToHexadecimal(uiThread, 4), GetFields(Util::GetUuid())[1]);
    };
    funCheck();
    std::thread(funCheck).join();
}

TEST(UtilTest, ThirdFieldOfAnIdIsTheSteadyClock)
{
    const unsigned long long uiBefore = GetSteadyNanoseconds();
    const std::string strId = Util::GetUuid();
    const unsigned long long uiAfter = GetSteadyNanoseconds();
    const unsigned long long uiTime = GetNumber(strId, 2);
    EXPECT_LE(uiBefore, uiTime);
    EXPECT_GE(uiAfter, uiTime);
    EXPECT_EQ(ToHexadecimal(uiTime, 8), GetFields(strId)[2]);
}

TEST(UtilTest, LastFieldOfAnIdCountsTo65534AndStartsAgain)
{
    auto uiExpected = GetNumber(Util::GetUuid(), 3);
    bool bWrapped = false;
    for (int i = 0; i < COUNTER_END + 1; ++i)
    {
        uiExpected = (uiExpected + 1) % COUNTER_END;
        const std::string strField = GetFields(Util::GetUuid())[3];
        ASSERT_EQ(ToHexadecimal(uiExpected, 4), strField);
        bWrapped = bWrapped || strField == "0000";
    }
    EXPECT_TRUE(bWrapped);
}

TEST(UtilTest, TheFirst65535IdsOfAProcessCountFrom0000ToFffe)
{
    const ST_ChildResult stResult = RunChild(FOUNDATION_HOST, {"uuids", "65536"});
    EXPECT_EQ("0000 fffe 0000\n", stResult.m_strOut);
    EXPECT_EQ("", stResult.m_strErr);
    EXPECT_EQ(0, stResult.m_iExit);
}

TEST(UtilTest, EachIdOpensTheRandomDeviceAndPassesTheErrorOn)
{
    if (!OpensRandomDevice())
    {
        GTEST_SKIP() << "an id needs no file with this C++ library";
    }
    const ST_ChildResult stResult = RunChild(FOUNDATION_HOST, {"uuids", "2", "uuid-no-files", "uuids", "2"});
    EXPECT_EQ("0000 0000 0001\n3 exceptions\n0002 0002 0003\n", stResult.m_strOut);
    EXPECT_EQ("", stResult.m_strErr);
    EXPECT_EQ(0, stResult.m_iExit);
}

TEST(UtilTest, IdsOfThreadsThatAskAtOnceDiffer)
{
    constexpr int ROUNDS = 2000;
    std::vector<std::string> vecIds[2];
    CLS_Gate clsGate;
    std::vector<std::thread> vecThreads;
    for (std::vector<std::string>& vecOwn : vecIds)
    {
        vecThreads.emplace_back(
            [&clsGate, &vecOwn]
            {
                EXPECT_TRUE(clsGate.Wait());
                for (int i = 0; i < ROUNDS; ++i)
                {
                    vecOwn.push_back(Util::GetUuid());
                }
            });
    }
    clsGate.Open();
    std::set<std::string> setIds;
    for (std::size_t i = 0; i < vecThreads.size(); ++i)
    {
        vecThreads[i].join();
        for (const std::string& strId : vecIds[i])
        {
            EXPECT_THAT(strId, MatchesRegex(ID_PATTERN));
            EXPECT_LT(GetNumber(strId, 3), static_cast<unsigned long long>(COUNTER_END));
            setIds.insert(strId);
        }
    }
    EXPECT_EQ(2U * ROUNDS, setIds.size());
}

TEST(UtilTest, IdsDoNotDependOnTheHostsLocale)
{
    const CLS_GroupingLocale clsLocale;
    EXPECT_THAT(Util::GetUuid(), MatchesRegex(ID_PATTERN));
}

TEST(UtilTest, MapsPrintEachEntryInKeyOrder)
{
    EXPECT_EQ("[a] : [1]\n[b] : [x]\n", Util::MapToString({{"b", "x"}, {"a", 1}}));
    EXPECT_EQ("", Util::MapToString({}));
}

TEST(UtilTest, MapsPrintTheirValuesAsVariantsDo)
{
    using Variants = std::vector<CLS_CVariant>;
    using VariantMap = std::map<std::string, CLS_CVariant>;
    const VariantMap mapParam{{"", CLS_CVariant()},
                              {"flag", true},
                              {"list", Variants{"", 1, "x"}},
                              {"map", VariantMap{{"a", 1}}},
                              {"null", static_cast<void*>(nullptr)},
                              {"real", 0.5}};
    EXPECT_EQ("[] : []\n[flag] : [1]\n[list] : [1|x]\n[map] : []\n[null] : [0x0]\n[real] : [0.5]\n",
              Util::MapToString(mapParam));
}

TEST(UtilTest, MapsPrintTheSameInEveryLocale)
{
    const CLS_GroupingLocale clsLocale;
    EXPECT_EQ("[a] : [1234567]\n[b] : [0.5]\n", Util::MapToString({{"a", 1234567}, {"b", 0.5}}));
}

TEST(UtilTest, AFileThatCanBeReadExists)
{
    const CLS_TempFolder clsFolder;
    const std::string strPath = clsFolder.GetPath("file");
    EXPECT_FALSE(Util::FileExists(strPath));
    EXPECT_FALSE(Util::FileExists(strPath)) << "the first call created the file";
    std::ofstream(strPath).put('x');
    EXPECT_TRUE(Util::FileExists(strPath));
    EXPECT_EQ(1U, std::filesystem::file_size(strPath));
}

TEST(UtilTest, AnEmptyPathDoesNotExist)
{
    EXPECT_FALSE(Util::FileExists(""));
}

TEST(UtilTest, AFileThatCannotBeOpenedDoesNotExist)
{
    const CLS_TempFolder clsFolder;
    // A socket cannot be opened as a file, even with all rights.
    sockaddr_un stAddress{};
    stAddress.sun_family = AF_UNIX;
    const std::string strPath = clsFolder.GetPath("socket");
    ASSERT_LT(strPath.size(), sizeof(stAddress.sun_path));
    std::strncpy(stAddress.sun_path, strPath.c_str(), sizeof(stAddress.sun_path) - 1);
    const int iSocket = socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_EQ(0, bind(iSocket, reinterpret_cast<const sockaddr*>(&stAddress), sizeof(stAddress)));
    EXPECT_TRUE(std::filesystem::exists(strPath));
    EXPECT_FALSE(Util::FileExists(strPath));
    close(iSocket);
}

TEST(UtilTest, TheTestedFileIsClosedAgain)
{
    const CLS_TempFolder clsFolder;
    const std::string strPath = clsFolder.GetPath("file");
    std::ofstream(strPath).put('x');
    const int iNextBefore = GetNextFileNumber();
    EXPECT_TRUE(Util::FileExists(strPath));
    EXPECT_EQ(iNextBefore, GetNextFileNumber());
}

TEST(UtilTest, ElapsedTimeIsInWholeMillisecondsAndNeverNegative)
{
    const auto tpNow = std::chrono::steady_clock::now();
    EXPECT_GE(Util::GetElapsedMilliseconds(tpNow - std::chrono::microseconds(5999)), 5);
    EXPECT_LT(Util::GetElapsedMilliseconds(tpNow - std::chrono::microseconds(5999)), 60000);
    EXPECT_GT(Util::GetElapsedMilliseconds(tpNow + std::chrono::hours(1)), 3500000);
    EXPECT_LE(Util::GetElapsedMilliseconds(tpNow + std::chrono::hours(1)), 3600000);
}
} // namespace
