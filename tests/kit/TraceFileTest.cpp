#include "QuenHost/CLS_LoopTask.h"
#include "QuenHost/CLS_TraceFile.h"
#include "QuenHost/SubmitForResult.h"
#include "tests/kit/PoolTest.h"
#include "tests/support/TempFolder.h"

#include <fstream>
#include <gmock/gmock.h>
#include <optional>
#include <sstream>

namespace
{
using ::testing::ContainsRegex;
using ::testing::HasSubstr;

class TraceFileTest : public ::testing::Test
{
protected:
    std::string Read() const
    {
        std::ostringstream ossText;
        ossText << std::ifstream(m_strPath).rdbuf();
        return ossText.str();
    }

    CLS_TempFolder m_clsFolder;
    const std::string m_strPath = m_clsFolder.GetPath("trace.json");
};

TEST_F(TraceFileTest, ASpanMayBeNamedByALiteralWhichItCopies)
{
    const auto pTrace = CLS_TraceFile::Create(m_strPath, "test");
    {
        // The string that is made of the literal is destroyed before the span ends.
        const CLS_TraceSpan clsSpan(pTrace, "category",
                                    "a name that is too long to be kept in the string itself");
    }
    pTrace->Close();
    const std::string strEnd =
        "\"cat\":\"category\",\"name\":\"a name that is too long to be kept in the string itself\"";
    EXPECT_THAT(Read(), ContainsRegex("\"ph\":\"E\"[^\n]*"));
    EXPECT_THAT(Read(), HasSubstr(strEnd + "}\n]\n"));
}

TEST_F(TraceFileTest, LanesHaveTheSystemsThreadNumbers)
{
    const auto pTrace = CLS_TraceFile::Create(m_strPath, "test");
    pTrace->Add('i', "category", "main");
    std::uint64_t uiOther = 0;
    std::thread thOther(
        [&]
        {
            uiOther = ThreadInfo::GetId();
            pTrace->Add('i', "category", "other");
        });
    thOther.join();
    pTrace->Close();
    EXPECT_NE(ThreadInfo::GetId(), uiOther);
    EXPECT_THAT(Read(), HasSubstr("\"tid\":" + std::to_string(ThreadInfo::GetId()) +
                                  ",\"cat\":\"category\",\"name\":\"main\""));
    EXPECT_THAT(Read(),
                HasSubstr("\"tid\":" + std::to_string(uiOther) + ",\"cat\":\"category\",\"name\":\"other\""));
    EXPECT_THAT(Read(), HasSubstr("end of the thread"));
}

TEST_F(TraceFileTest, AThreadThatWritesToTwoTracesInTurnHasOneLaneInEach)
{
    const std::string strOther = m_clsFolder.GetPath("other.json");
    const auto pTrace = CLS_TraceFile::Create(m_strPath, "test");
    const auto pOther = CLS_TraceFile::Create(strOther, "test");
    for (int i = 0; i < 3; ++i)
    {
        pTrace->Add('i', "category", "event");
        pOther->Add('i', "category", "event");
    }
    pTrace->Close();
    pOther->Close();
    const std::string strText = Read();
    const std::size_t uiFirst = strText.find("thread_name");
    ASSERT_NE(std::string::npos, uiFirst);
    EXPECT_EQ(std::string::npos, strText.find("thread_name", uiFirst + 1));
}

TEST_F(TraceFileTest, ASpanWithoutATraceDoesNothing)
{
    const CLS_TraceSpan clsSpan(nullptr, "category", "name");
}

TEST_F(TraceFileTest, AFileThatCannotBeCreatedIsAnErrorWithAReason)
{
    const std::string strPath = m_clsFolder.GetPath("none/trace");
    const std::string strReason = "cannot write the trace " + strPath + ": No such file or directory";
    std::string strError;
    EXPECT_EQ(nullptr, CLS_TraceFile::Create(strPath, "test", strError));
    EXPECT_EQ(strReason, strError);
    try
    {
        CLS_TraceFile::Create(strPath, "test");
        FAIL() << "created";
    }
    catch (const CLS_TraceError& error)
    {
        EXPECT_EQ(strReason, error.what());
    }
}

TEST_F(TraceFileTest, AScopeWithATraceRecordsOwnersLoopTasksAndResultTasks)
{
    const auto pTrace = CLS_TraceFile::Create(m_strPath, "test");
    {
        const CLS_PoolScope clsPool{CLS_PoolLibrary(POOL_LIBRARY), ST_ScopeOptions{{}, pTrace}};
        CLS_Counter clsRuns;
        CLS_TaskOwner clsOwner(clsPool, "owner");
        ASSERT_TRUE(clsOwner.Submit([&] { clsRuns.Add(); }, "plain"));
        const CLS_LoopTask clsLoop(
            clsPool, [&] { clsRuns.Add(); }, 5, "loop");
        EXPECT_EQ(1, SubmitForResult(
                         clsOwner, [] { return 1; }, "result")
                         .get());
        ASSERT_TRUE(clsRuns.Wait(3));
    }
    pTrace->Close();
    const std::string strText = Read();
    for (const char* const szName : {"plain", "result"})
    {
        EXPECT_THAT(strText, HasSubstr(std::string(R"("cat":"submit","name":")") + szName + "\""));
        EXPECT_THAT(strText, HasSubstr(std::string(R"("cat":"run","name":")") + szName + "\""));
    }
    EXPECT_THAT(strText, HasSubstr(R"("cat":"loop","name":"loop","args":{"interval_ms":5})"));
    EXPECT_THAT(strText, HasSubstr(R"("cat":"remove","name":"owner")"));
    EXPECT_THAT(strText, HasSubstr(R"("args":{"name":"zel-worker-)"));
}

TEST_F(TraceFileTest, TryCloseReturnsNothingWhenAllIsWritten)
{
    const auto pTrace = CLS_TraceFile::Create(m_strPath, "test");
    EXPECT_EQ(std::nullopt, pTrace->TryClose());
    EXPECT_THAT(Read(), HasSubstr("\n]\n"));
}

#ifndef __APPLE__
TEST_F(TraceFileTest, TryCloseReturnsTheErrorOfTheFirstLostEvent)
{
    const auto pTrace = CLS_TraceFile::Create("/dev/full", "test");
    pTrace->Add('i', "category", "lost");
    EXPECT_EQ("cannot write the trace /dev/full: No space left on device", pTrace->TryClose());
}
#endif

TEST_F(TraceFileTest, ATaskThatNeverRanIsCancelled)
{
    const auto pTrace = CLS_TraceFile::Create(m_strPath, "test");
    {
        const CLS_PoolScope clsPool{CLS_PoolLibrary(POOL_LIBRARY), ST_ScopeOptions{{}, pTrace}};
        CLS_Counter clsStarted;
        CLS_Gate clsMayEnd;
        CLS_TaskOwner clsOwner(clsPool, "owner");
        for (int i = 0; i < CLS_PoolHub::MOST_CARRIERS; ++i)
        {
            ASSERT_TRUE(clsOwner.Submit(
                [&]
                {
                    clsStarted.Add();
                    EXPECT_TRUE(clsMayEnd.Wait());
                },
                "fill"));
        }
        ASSERT_TRUE(clsStarted.Wait(CLS_PoolHub::MOST_CARRIERS));
        CLS_TaskOwner clsRemoved(clsPool, "removed");
        ASSERT_TRUE(clsRemoved.Submit([] {}, "never"));
        clsRemoved.RemoveTasks();
        clsMayEnd.Open();
    }
    pTrace->Close();
    EXPECT_THAT(Read(), HasSubstr(R"("cat":"cancel","name":"never","s":"t","args":{"task":)"));
}

TEST(TraceTextTest, WritesAnyTextAsJson)
{
    const auto funQuote = [](const std::string& _strText)
    {
        std::string strQuoted;
        TraceText::AppendQuoted(strQuoted, _strText);
        return strQuoted;
    };
    EXPECT_EQ(R"("plain")", funQuote("plain"));
    EXPECT_EQ(R"("\"\\\u000a\u001f\u007f")", funQuote("\"\\\n\x1f\x7f"));
    EXPECT_EQ("\"\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\"", funQuote("\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"));
    const std::string strBad = "\xEF\xBF\xBD";
    EXPECT_EQ("\"" + strBad + "a\"", funQuote("\xFF"
                                              "a"));
    EXPECT_EQ("\"" + strBad + strBad + "\"", funQuote("\xC0\xAF")) << "an overlong form";
    EXPECT_EQ("\"" + strBad + strBad + strBad + "\"", funQuote("\xED\xA0\x80")) << "half of a surrogate pair";
    EXPECT_EQ("\"" + strBad + "\"", funQuote("\xC3")) << "cut off";
    EXPECT_EQ("\"" + strBad + strBad + strBad + strBad + "\"", funQuote("\xF4\x90\x80\x80"))
        << "beyond Unicode";
}
} // namespace
