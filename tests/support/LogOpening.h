#pragma once

#include "QuenInclude/CLS_LogBinding.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/Waiting.h"

#include <algorithm>
#include <functional>
#include <gmock/gmock.h>
#include <string>
#include <thread>
#include <utility>
#include <vector>

extern "C" void PrintLog(int _iLevel, const char* _szModule, const char* _szFile, int _iLine,
                         const char* _szFunction, const std::string& _strMessage);

/// A binding whose library is opened by functions of the test.
class CLS_LogOpeningFixture : public ::testing::Test
{
protected:
    using Functions = CLS_LogBinding::Functions;

    void SetUp() override { Reset(); }
    void TearDown() override { Reset(); }

    /// The library that a successful opening finds.
    static Functions GetLibrary() { return {{"PrintLog", reinterpret_cast<void*>(&PrintLog)}}; }

    void Say(const std::string& _strText)
    {
        m_clsBinding.Emit({2, "Module", "File", 7, "Function", _strText});
    }

    void SayOnAnotherThread(const std::string& _strText)
    {
        std::thread([&] { Say(_strText); }).join();
    }

    static std::vector<std::string> TakeTexts()
    {
        std::vector<std::string> vecTexts;
        for (const LogRecorder::ST_Record& stRecord : LogRecorder::Take())
        {
            vecTexts.push_back(stRecord.m_strMessage);
        }
        return vecTexts;
    }

    /// Calls a function when the log record with this text is first in "PrintLog".
    static void AtRecord(const std::string& _strText, const std::function<void()>& _funCall)
    {
        LogRecorder::SetHook(
            [_strText, _funCall](const LogRecorder::ST_Record& _stRecord)
            {
                if (_stRecord.m_strMessage == _strText)
                {
                    LogRecorder::SetHook({});
                    _funCall();
                }
            });
    }

    /// An opening that calls a function and then succeeds.
    static std::function<Functions()> OpenAfter(const std::function<void()>& _funBefore)
    {
        return [_funBefore]
        {
            _funBefore();
            return GetLibrary();
        };
    }

    /// Logs "first" on a thread of its own, which opens the library and stays in the opening until End.
    class CLS_HeldOpening
    {
    public:
        /// Returns when the opening has begun.
        explicit CLS_HeldOpening(CLS_LogOpeningFixture& _clsTest)
        {
            _clsTest.m_vecOpenings = {OpenAfter(
                [this]
                {
                    m_clsBegun.Open();
                    EXPECT_TRUE(m_clsMayEnd.Wait());
                })};
            m_thOpening = std::thread([&_clsTest] { _clsTest.Say("first"); });
            EXPECT_TRUE(m_clsBegun.Wait());
        }
        ~CLS_HeldOpening()
        {
            if (m_thOpening.joinable())
            {
                End();
            }
        }
        CLS_HeldOpening(const CLS_HeldOpening&) = delete;
        CLS_HeldOpening& operator=(const CLS_HeldOpening&) = delete;

        /// Lets the opening end, and waits for the thread.
        void End()
        {
            m_clsMayEnd.Open();
            m_thOpening.join();
        }

    private:
        CLS_Gate m_clsBegun;
        CLS_Gate m_clsMayEnd;
        std::thread m_thOpening;
    };

    /// The functions of the next openings, in order. The last one serves all further openings.
    std::vector<std::function<Functions()>> m_vecOpenings{&CLS_LogOpeningFixture::GetLibrary};
    std::size_t m_uiOpenings = 0; ///< how often the library was opened
    CLS_LogBinding m_clsBinding{[this](const std::string&) {
        return m_vecOpenings[std::min(m_uiOpenings++, m_vecOpenings.size() - 1)]();
    }};

private:
    static void Reset()
    {
        LogRecorder::SetHook({});
        LogRecorder::Clear();
    }
};
