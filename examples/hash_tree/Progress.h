#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>

/// Counts the progress of a run.
///
/// Threads: any.
struct ST_Counters
{
    std::atomic<std::uint64_t> m_iFilesFound{0};
    std::atomic<std::uint64_t> m_iFilesDone{0};
    std::atomic<std::uint64_t> m_iBytesFound{0};
    std::atomic<std::uint64_t> m_iBytesDone{0};
    std::atomic<bool> m_bWalking{true};
};

/// Formats a number of bytes for people, such as "12.3 MiB".
std::string FormatBytes(double _dBytes);

/// Prints progress and messages to standard error. At a terminal, it redraws one line of progress.
///
/// Threads: any.
/// Waits: while another thread writes.
class CLS_Progress
{
public:
    CLS_Progress();

    /// Returns a suitable number of milliseconds between two drawings.
    int GetUsualInterval() const;

    /// Draws the counters.
    void Draw();

    /// Draws the counters for the last time.
    void DrawLast();

    /// Prints a message after the program's name.
    void Report(const std::string& _strMessage);

    /// Prints a line. Control characters, which may come from file names, become "?".
    void WriteLine(std::string _strLine);

    /// Returns the time since this object was constructed.
    double GetSeconds() const;

    /// The run's counters.
    ST_Counters m_stCounters;

private:
    std::string ComposeLine() const;
    std::string ComposeRemainder(double _dBytesPerSecond) const;
    void Write(const std::string& _strText);

    const bool m_bTerminal;
    const std::chrono::steady_clock::time_point m_tpStart;
    std::mutex m_mtxOutput;
};
