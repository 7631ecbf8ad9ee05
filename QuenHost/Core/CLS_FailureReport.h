#pragma once

#include "QuenHost/PoolCall.h"
#include "QuenHost/ST_TaskFailure.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <map>
#include <mutex>
#include <string>

/// Writes failures without a handler to standard error.
///
/// It writes the first failure of each call information at once, and the number of repetitions at the end.
/// After a hundred different ones, it only counts.
///
/// Threads: any.
///
/// Fails: without memory, a line may lack its text.
class CLS_FailureReport
{
public:
    CLS_FailureReport() = default;
    CLS_FailureReport(const CLS_FailureReport&) = delete;
    CLS_FailureReport& operator=(const CLS_FailureReport&) = delete;

    /// Writes the failure, or counts it.
    void Report(const ST_TaskFailure& _stFailure) noexcept
    {
        const auto funReport = [&]
        {
            if (IsFirst(_stFailure.m_strCallInfo))
            {
                Write(Describe(_stFailure));
            }
        };
        if (PoolCall::Catch(funReport))
        {
            ReportWithoutText();
        }
    }

    /// Writes that a task failed, if there is no memory to say which.
    static void ReportWithoutText() noexcept
    {
        std::fputs("host kit: a task failed, and there is no memory to say which\n", stderr);
    }

    /// Writes how often failures were repeated since the last call.
    void ReportRepeats() noexcept
    {
        PoolCall::Catch([this] { WriteRepeats(); });
    }

    /// The failure as a line for the user.
    static std::string Describe(const ST_TaskFailure& _stFailure)
    {
        const std::string strTask =
            "host kit: task \"" + _stFailure.m_strCallInfo + "\" of \"" + _stFailure.m_strOwner + "\" ";
        if (_stFailure.m_enKind == n_FailureKind::Outlasted)
        {
            return strTask + "still runs 9 seconds after its end was asked for";
        }
        if (_stFailure.m_enKind == n_FailureKind::Threw)
        {
            return strTask + "threw: " + PoolCall::Describe(_stFailure.m_pException);
        }
        return strTask + "was not delivered: " +
               (_stFailure.m_pException ? PoolCall::Describe(_stFailure.m_pException)
                                        : "the host dropped what was posted to its thread");
    }

private:
    static constexpr std::size_t MOST_LISTED = 100;

    /// Whether to write the failure. If not, counts it.
    bool IsFirst(const std::string& _strCallInfo)
    {
        const std::lock_guard<std::mutex> lock(m_mtxRepeats);
        const auto itRepeats = m_mapRepeats.find(_strCallInfo);
        if (itRepeats != m_mapRepeats.end())
        {
            ++itRepeats->second;
            return false;
        }
        if (m_mapRepeats.size() == MOST_LISTED)
        {
            ++m_uiUnlisted;
            return false;
        }
        m_mapRepeats.emplace(_strCallInfo, 0);
        return true;
    }

    /// Writes and resets the counts.
    void WriteRepeats()
    {
        const std::lock_guard<std::mutex> lock(m_mtxRepeats);
        for (auto& [strCallInfo, uiRepeats] : m_mapRepeats)
        {
            if (uiRepeats > 0)
            {
                Write("host kit: task \"" + strCallInfo + "\" failed " + std::to_string(uiRepeats) +
                      " more times");
            }
            uiRepeats = 0;
        }
        if (m_uiUnlisted > 0)
        {
            Write("host kit: other tasks failed " + std::to_string(m_uiUnlisted) + " times");
        }
        m_uiUnlisted = 0;
    }

    /// Writes a line.
    static void Write(const std::string& _strLine) { std::fputs((_strLine + "\n").c_str(), stderr); }

    std::mutex m_mtxRepeats;                           ///< guards what follows
    std::map<std::string, std::uint64_t> m_mapRepeats; ///< repetitions, by call information
    std::uint64_t m_uiUnlisted = 0;                    ///< failures with any other call information
};
