#include "tests/support/FailingMemory.h"
#include "tests/support/LogBindingView.h"
#include "tests/support/LogOpening.h"
#include "tests/support/Waiting.h"

#include <condition_variable>
#include <gmock/gmock.h>
#include <mutex>

namespace
{
using ::testing::ElementsAre;

/// A thread that makes two log records during the opening, and a third on request.
class LogHandOverTest : public CLS_LogOpeningFixture
{
protected:
    void SetUp() override
    {
        CLS_LogOpeningFixture::SetUp();
        m_vecOpenings = {OpenAfter(
            [this]
            {
                m_thSpeaker = std::thread([this] { Speak(); });
                EXPECT_TRUE(m_clsKept.Wait());
            })};
    }
    void TearDown() override
    {
        m_clsMayGoOn.Open();
        m_thSpeaker.join();
        CLS_LogOpeningFixture::TearDown();
    }

    /// Lets the thread make its third log record, and waits until it has.
    void LetGoOn()
    {
        m_clsMayGoOn.Open();
        EXPECT_TRUE(m_clsDone.Wait());
    }

    CLS_Gate m_clsMayGoOn; ///< for the third record
    CLS_Gate m_clsDone;    ///< opened after the third record

private:
    void Speak()
    {
        Say("one");
        Say("two");
        m_clsKept.Open();
        if (m_clsMayGoOn.Wait())
        {
            Say("three");
        }
        m_clsDone.Open();
    }

    CLS_Gate m_clsKept;
    std::thread m_thSpeaker;
};

TEST_F(LogHandOverTest, ALaterRecordDoesNotOvertakeTheKeptOnesOfItsThread)
{
    AtRecord("first", [this] { LetGoOn(); });
    Say("first");
    EXPECT_THAT(TakeTexts(), ElementsAre("first", "one", "two", "three"));
    EXPECT_EQ(3U, LogBindingView::CountHandedOver(m_clsBinding));
}

TEST_F(LogHandOverTest, ALaterRecordIsKeptWhileAnEarlierOneOfItsThreadIsInPrintLog)
{
    // The thread does not wait: it returns while "PrintLog" handles its first log record.
    AtRecord("one", [this] { LetGoOn(); });
    Say("first");
    EXPECT_THAT(TakeTexts(), ElementsAre("first", "one", "two", "three"));
}

TEST_F(LogHandOverTest, ARecordGoesStraightToPrintLogOnceTheKeptOnesOfItsThreadArePrinted)
{
    Say("first");
    LetGoOn();
    EXPECT_THAT(TakeTexts(), ElementsAre("first", "one", "two", "three"));
}

TEST_F(LogHandOverTest, ARecordOfAThreadWithoutKeptOnesGoesStraightToPrintLog)
{
    AtRecord("first", [this] { SayOnAnotherThread("at once"); });
    Say("first");
    EXPECT_THAT(TakeTexts(), ElementsAre("first", "at once", "one", "two"));
}

TEST_F(LogHandOverTest, PrintLogMayMakeRecordsItself)
{
    AtRecord("one", [this] { Say("within"); });
    Say("first");
    EXPECT_THAT(TakeTexts(), ElementsAre("first", "one", "within", "two"));
}

TEST_F(LogHandOverTest, RecordsThatPrintLogMakesFollowTheKeptOnesOfTheOpeningThread)
{
    m_vecOpenings = {[this, funOpen = m_vecOpenings.front()]
                     {
                         const Functions mapFuns = funOpen();
                         Say("at load");
                         return mapFuns;
                     }};
    AtRecord("first", [this] { Say("within"); });
    Say("first");
    EXPECT_THAT(TakeTexts(), ElementsAre("first", "at load", "within", "one", "two"));
}

TEST_F(LogHandOverTest, RecordsThatPrintLogMakesFollowThoseThatTheirThreadHandsOver)
{
    CLS_Gate clsOneInPrintLog;
    CLS_Gate clsHandedOver;
    const auto funAtOne = [&]
    {
        clsOneInPrintLog.Open();
        EXPECT_TRUE(clsHandedOver.Wait());
        Say("within");
    };
    AtRecord("first",
             [&]
             {
                 AtRecord("one", funAtOne);
                 m_clsMayGoOn.Open();
                 EXPECT_TRUE(clsOneInPrintLog.Wait());
             });
    Say("first");
    EXPECT_EQ(std::thread::id(), LogBindingView::GetHandOverThread(m_clsBinding));
    clsHandedOver.Open();
    EXPECT_TRUE(m_clsDone.Wait());
    EXPECT_THAT(TakeTexts(), ElementsAre("first", "one", "two", "within", "three"));
}

TEST_F(LogHandOverTest, AnotherOpeningDoesNotDisturbTheHandOver)
{
    m_vecOpenings.push_back(&LogHandOverTest::GetLibrary);
    AtRecord("first", [this] { EXPECT_EQ(nullptr, m_clsBinding.GetFunction("Foo", "")); });
    Say("first");
    EXPECT_THAT(TakeTexts(), ElementsAre("first", "one", "two"));
    EXPECT_EQ(2U, m_uiOpenings);
}

TEST_F(LogHandOverTest, AnOpeningThatFailsDuringTheHandOverDropsNothing)
{
    m_vecOpenings.push_back([] { return Functions(); });
    AtRecord("first",
             [this]
             {
                 m_clsBinding.GetFunction("Foo", "");
                 SayOnAnotherThread("late");
             });
    Say("first");
    EXPECT_THAT(TakeTexts(), ElementsAre("first", "one", "two", "late"));
}

TEST_F(LogHandOverTest, RecordsGoStraightToPrintLogAfterTheHandOver)
{
    Say("first");
    LetGoOn();
    EXPECT_THAT(TakeTexts(), ElementsAre("first", "one", "two", "three"));
    EXPECT_EQ(std::thread::id(), LogBindingView::GetHandOverThread(m_clsBinding));
    EXPECT_EQ(0U, LogBindingView::CountKept(m_clsBinding));
}

/// A thread that makes two log records during the opening, and one more on each request.
class LogHandOverSpeakerTest : public CLS_LogOpeningFixture
{
protected:
    void SetUp() override
    {
        CLS_LogOpeningFixture::SetUp();
        m_vecOpenings = {OpenAfter(
            [this]
            {
                SayAsTheSpeaker("one");
                SayAsTheSpeaker("two");
            })};
    }
    void TearDown() override
    {
        Tell([this] { m_bEnd = true; });
        m_thSpeaker.join();
        CLS_LogOpeningFixture::TearDown();
    }

    /// Returns once the log record is made.
    void SayAsTheSpeaker(const std::string& _strText)
    {
        Tell([&] { Say(_strText); });
    }

    void Tell(const std::function<void()>& _funOrder)
    {
        std::unique_lock<std::mutex> lock(m_mtxOrder);
        m_funOrder = _funOrder;
        m_cvOrder.notify_all();
        EXPECT_TRUE(m_cvOrder.wait_for(lock, WAIT_LIMIT, [this] { return !m_funOrder; }));
    }

private:
    void Obey()
    {
        std::unique_lock<std::mutex> lock(m_mtxOrder);
        while (!m_bEnd)
        {
            m_cvOrder.wait(lock, [this] { return static_cast<bool>(m_funOrder); });
            m_funOrder();
            m_funOrder = nullptr;
            m_cvOrder.notify_all();
        }
    }

    std::mutex m_mtxOrder; ///< guards the order, and is held while the thread carries it out
    std::condition_variable m_cvOrder;
    std::function<void()> m_funOrder;
    bool m_bEnd = false;

protected:
    std::thread m_thSpeaker{[this] { Obey(); }};
};

TEST_F(LogHandOverSpeakerTest, RecordsThatAThreadMakesFasterThanPrintLogPrintsAreNotLost)
{
    constexpr std::size_t LATE = 2 * CLS_LogBinding::MOST_KEPT + 5;
    AtRecord("one",
             [this]
             {
                 for (std::size_t i = 0; i < LATE; ++i)
                 {
                     SayAsTheSpeaker(std::to_string(i));
                 }
             });
    Say("first");
    std::vector<std::string> vecExpected{"first", "one", "two"};
    for (std::size_t i = 0; i < LATE; ++i)
    {
        vecExpected.push_back(std::to_string(i));
    }
    EXPECT_EQ(vecExpected, TakeTexts());
}

TEST_F(LogHandOverSpeakerTest, AThreadThatGoesOnRecordingDoesNotKeepTheHandOverBusyForEver)
{
    constexpr std::size_t LIMIT = 3 * CLS_LogBinding::MOST_KEPT;
    const std::thread::id idSelf = std::this_thread::get_id();
    std::size_t uiHandedOver = 0;
    LogRecorder::SetHook(
        [&, idSelf](const LogRecorder::ST_Record& _stRecord)
        {
            // Each hand-over of one of its log records makes the thread write another.
            if (std::this_thread::get_id() == idSelf && _stRecord.m_strMessage != "first" &&
                ++uiHandedOver < LIMIT)
            {
                SayAsTheSpeaker("more");
            }
        });
    Say("first");
    EXPECT_EQ(CLS_LogBinding::MOST_KEPT + 1, uiHandedOver);
}

TEST_F(LogHandOverSpeakerTest, ARecordWithoutMemoryIsNotLostWhileAnEarlierOneIsInPrintLog)
{
    AtRecord("one",
             [this]
             {
                 FailingMemory::FailAt(1, m_thSpeaker.get_id());
                 SayAsTheSpeaker("late");
                 EXPECT_TRUE(FailingMemory::Stop());
             });
    Say("first");
    EXPECT_THAT(TakeTexts(), ElementsAre("first", "one", "two", "late"));
}
} // namespace
