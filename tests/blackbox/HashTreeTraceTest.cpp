#include "tests/blackbox/HashTreeFixture.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Waiting.h"

#include <algorithm>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <vector>

namespace
{
namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using Json = nlohmann::json;

/// A begin event and its end event.
struct ST_Span
{
    std::string m_strName;
    std::string m_strCategory;
    int m_iLane = 0;
    std::uint64_t m_uiTask = 0; ///< 0 for none
    double m_dBegin = 0;
    double m_dEnd = 0; ///< 0 until the span ends
};

/// The contents of a trace.
struct ST_Trace
{
    std::map<int, std::string> m_mapLanes;
    std::vector<ST_Span> m_vecSpans;
    std::map<std::uint64_t, double> m_mapCancelled; ///< task to time

    /// The spans of the category, by task.
    std::map<std::uint64_t, ST_Span> GetTasks(const std::string& _strCategory) const
    {
        std::map<std::uint64_t, ST_Span> mapTasks;
        for (const ST_Span& stSpan : m_vecSpans)
        {
            if (stSpan.m_strCategory == _strCategory)
            {
                EXPECT_TRUE(mapTasks.emplace(stSpan.m_uiTask, stSpan).second) << stSpan.m_strName;
            }
        }
        return mapTasks;
    }
};

/// Reads the events in the order of the file. The events of each lane must be in the order of their times.
class CLS_TraceReader
{
public:
    ST_Trace Read(const std::string& _strText)
    {
        for (const Json& clsEvent : Json::parse(_strText))
        {
            const int iLane = clsEvent.at("tid");
            if (clsEvent.at("ph") == "M")
            {
                TakeName(iLane, clsEvent);
                continue;
            }
            EXPECT_EQ(1U, m_stTrace.m_mapLanes.count(iLane))
                << "an event before the lane's name: " << clsEvent;
            EXPECT_LE(m_mapTimes[iLane], clsEvent.at("ts"));
            m_mapTimes[iLane] = clsEvent.at("ts");
            TakeEvent(iLane, clsEvent);
        }
        for (const auto& [iLane, vecOpen] : m_mapOpen)
        {
            EXPECT_THAT(vecOpen, IsEmpty()) << "lane " << iLane;
        }
        return m_stTrace;
    }

private:
    void TakeName(int _iLane, const Json& _clsEvent)
    {
        if (_clsEvent.at("name") == "thread_name")
        {
            EXPECT_TRUE(
                m_stTrace.m_mapLanes.emplace(_iLane, _clsEvent.at("args").at("name").get<std::string>())
                    .second);
        }
    }

    void TakeEvent(int _iLane, const Json& _clsEvent)
    {
        std::vector<std::size_t>& vecOpen = m_mapOpen[_iLane];
        const std::string strPhase = _clsEvent.at("ph");
        const std::string strCategory = _clsEvent.at("cat");
        if (strPhase == "B")
        {
            EXPECT_THAT(vecOpen, IsEmpty()) << "two open spans in a lane: " << _clsEvent;
            vecOpen.push_back(m_stTrace.m_vecSpans.size());
            m_stTrace.m_vecSpans.push_back(
                {_clsEvent.at("name"), strCategory, _iLane, GetTask(_clsEvent), _clsEvent.at("ts"), 0});
        }
        else if (strPhase == "E")
        {
            ASSERT_EQ(1U, vecOpen.size()) << _clsEvent;
            ST_Span& stSpan = m_stTrace.m_vecSpans[vecOpen.back()];
            EXPECT_EQ(stSpan.m_strCategory, strCategory);
            stSpan.m_dEnd = _clsEvent.at("ts");
            vecOpen.pop_back();
        }
        else if (strCategory == "cancel")
        {
            EXPECT_TRUE(m_stTrace.m_mapCancelled.emplace(GetTask(_clsEvent), _clsEvent.at("ts")).second);
        }
    }

    static std::uint64_t GetTask(const Json& _clsEvent)
    {
        return _clsEvent.value(Json::json_pointer("/args/task"), std::uint64_t{0});
    }

    ST_Trace m_stTrace;
    std::map<int, double> m_mapTimes;
    std::map<int, std::vector<std::size_t>> m_mapOpen; ///< lane to the numbers of its open spans
};

/// Checks that each task was submitted and then either ran or was cancelled. Returns how many ran.
std::size_t CheckTasks(const ST_Trace& _stTrace)
{
    const std::map<std::uint64_t, ST_Span> mapSubmissions = _stTrace.GetTasks("submit");
    const std::map<std::uint64_t, ST_Span> mapRuns = _stTrace.GetTasks("run");
    for (const auto& [uiTask, stRun] : mapRuns)
    {
        EXPECT_EQ(1U, mapSubmissions.count(uiTask));
        EXPECT_EQ(0U, _stTrace.m_mapCancelled.count(uiTask));
        EXPECT_EQ(mapSubmissions.at(uiTask).m_strName, stRun.m_strName);
        EXPECT_LE(mapSubmissions.at(uiTask).m_dBegin, stRun.m_dBegin);
        EXPECT_LE(stRun.m_dBegin, stRun.m_dEnd);
        EXPECT_THAT(_stTrace.m_mapLanes.at(stRun.m_iLane), MatchesRegex("zel-worker-[0-9]+"));
    }
    for (const auto& [uiTask, dTime] : _stTrace.m_mapCancelled)
    {
        EXPECT_EQ(1U, mapSubmissions.count(uiTask));
        EXPECT_LE(mapSubmissions.at(uiTask).m_dEnd, dTime);
    }
    EXPECT_EQ(mapSubmissions.size(), mapRuns.size() + _stTrace.m_mapCancelled.size());
    return mapRuns.size();
}

class HashTreeTraceTest : public CLS_HashTreeFixture
{
protected:
    ST_ChildResult HashWithTrace() const
    {
        return RunChild(HASH_TREE, {m_strTree, "--output", m_strSums, "--trace", m_strTrace});
    }

    ST_Trace ReadTrace() const { return CLS_TraceReader().Read(ReadFile(m_strTrace)); }

    std::string m_strTrace = m_clsFolder.GetPath("trace.json");
};

TEST_F(HashTreeTraceTest, EveryTaskIsSubmittedThenStartsAndEnds)
{
    std::set<std::string> setExpected;
    for (int i = 0; i < 500; ++i)
    {
        const std::string strName = "d" + std::to_string(i % 20) + "/f" + std::to_string(i);
        AddFile(strName, std::to_string(i));
        setExpected.insert("hash_tree " + m_strTree + "/" + strName);
    }
    const ST_ChildResult stResult = HashWithTrace();
    EXPECT_EQ(0, stResult.m_iExit) << ::testing::PrintToString(stResult);
    const ST_Trace stTrace = ReadTrace();
    EXPECT_EQ(500U, CheckTasks(stTrace));
    std::set<std::string> setNames;
    for (const auto& [uiTask, stRun] : stTrace.GetTasks("run"))
    {
        setNames.insert(stRun.m_strName);
    }
    EXPECT_EQ(setExpected, setNames);
}

TEST_F(HashTreeTraceTest, RunsOfTheProgressAreTracedToo)
{
    AddFile("file", "abc");
    HashWithTrace();
    const std::vector<ST_Span> vecSpans = ReadTrace().m_vecSpans;
    EXPECT_TRUE(std::any_of(vecSpans.begin(), vecSpans.end(),
                            [](const ST_Span& _stSpan) {
                                return _stSpan.m_strCategory == "loop" &&
                                       _stSpan.m_strName == "hash_tree progress";
                            }));
}

TEST_F(HashTreeTraceTest, ACancelledRunIsTracedToItsEnd)
{
    AddFile("a/quick", "abc");
    for (int i = 0; i < 20; ++i)
    {
        AddHugeFile("d" + std::to_string(i) + "/huge");
    }
    CLS_ChildProcess clsChild(
        HASH_TREE, {m_strTree, "--output", m_strSums, "--trace", m_strTrace, "--progress-interval", "10"});
    ASSERT_TRUE(WaitUntil([&] { return clsChild.GetErr().find("1/21 files") != std::string::npos; }));
    clsChild.SendSignal(SIGINT);
    const ST_ChildResult stResult = clsChild.Wait();
    EXPECT_EQ(128 + SIGINT, stResult.m_iExit) << ::testing::PrintToString(stResult);
    EXPECT_GE(CheckTasks(ReadTrace()), 2U);
}

TEST_F(HashTreeTraceTest, TasksThatWereRemovedBeforeTheyRanAreCancelled)
{
    const ST_ChildResult stResult = RunChild(TRACE_SCENES, {"cancel", m_strTrace, "--library", POOL_LIBRARY});
    EXPECT_EQ(0, stResult.m_iExit) << ::testing::PrintToString(stResult);
    const ST_Trace stTrace = ReadTrace();
    CheckTasks(stTrace);
    EXPECT_FALSE(stTrace.m_mapCancelled.empty());
    const std::map<std::uint64_t, ST_Span> mapSubmissions = stTrace.GetTasks("submit");
    for (const auto& [uiTask, dTime] : stTrace.m_mapCancelled)
    {
        EXPECT_EQ("removed", mapSubmissions.at(uiTask).m_strName);
    }
}

TEST_F(HashTreeTraceTest, FileNamesMayContainAnyByte)
{
    AddFile("quote\" back\\slash new\nline", "abc");
#ifndef __APPLE__ // its file system refuses such names
    AddFile("no \xff UTF-8", "abc");
#endif
    HashWithTrace();
    const ST_Trace stTrace = ReadTrace();
    std::set<std::string> setNames;
    for (const ST_Span& stSpan : stTrace.m_vecSpans)
    {
        setNames.insert(stSpan.m_strName);
    }
    EXPECT_EQ(1U, setNames.count("hash_tree " + m_strTree + "/quote\" back\\slash new\nline"));
#ifndef __APPLE__
    EXPECT_EQ(1U, setNames.count("hash_tree " + m_strTree + "/no \xef\xbf\xbd UTF-8"));
#endif
}

TEST_F(HashTreeTraceTest, ATraceWithinTheTreeIsLeftOut)
{
    AddFile("file", "abc");
    m_strTrace = m_strTree + "/trace";
    EXPECT_EQ(0, HashWithTrace().m_iExit);
    EXPECT_EQ("ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad  " + m_strTree + "/file\n",
              ReadSums());
}

TEST_F(HashTreeTraceTest, ATraceThatCannotBeCreatedIsAnErrorBeforeTheWork)
{
    m_strTrace = m_clsFolder.GetPath("none/trace");
    const ST_ChildResult stResult = HashWithTrace();
    EXPECT_EQ(1, stResult.m_iExit);
    EXPECT_THAT(stResult.m_strErr, HasSubstr("hash_tree: cannot write the trace " + m_strTrace +
                                             ": No such file or directory\n"));
    EXPECT_FALSE(fs::exists(m_strSums));
}

TEST_F(HashTreeTraceTest, ATraceOnAFullDiskIsReportedAndTheSumsAreWritten)
{
    m_strTrace = "/dev/full";
    if (!fs::exists(m_strTrace))
    {
        GTEST_SKIP() << "only Linux has " << m_strTrace << ", a device on which each write fails";
    }
    AddFile("file", "abc");
    const ST_ChildResult stResult = HashWithTrace();
    EXPECT_EQ(1, stResult.m_iExit);
    EXPECT_THAT(stResult.m_strErr, HasSubstr("cannot write the trace /dev/full: No space left on device\n"));
    EXPECT_EQ("ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad  " + m_strTree + "/file\n",
              ReadSums());
}
} // namespace
