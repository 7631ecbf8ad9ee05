#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>

/// How far a run is. Any thread may read and write it.
struct ST_Counters
{
    std::atomic<std::uint64_t> m_iFilesFound{0};
    std::atomic<std::uint64_t> m_iFilesDone{0};
    std::atomic<std::uint64_t> m_iBytesFound{0};
    std::atomic<std::uint64_t> m_iBytesDone{0};
    std::atomic<bool> m_bWalking{true};
};

/// A number of bytes as people read it, such as "12.3 MiB".
std::string FormatBytes(double _dBytes);

/// Shows how far a run is, and what goes wrong, on standard error: one line that is drawn over and over at a
/// terminal, a line each time otherwise. Any thread may call it; a call blocks for as long as another one
/// writes.
class CLS_Progress
{
public:
    CLS_Progress();

    /// The milliseconds between two drawings that suit the output.
    int GetUsualInterval() const;

    /// Shows the counters.
    void Draw();

    /// Shows the counters for the last time.
    void DrawLast();

    /// Writes a message, after the program's name.
    void Report(const std::string& _strMessage);

    /// Writes a line of its own. Control characters, which may come from file names, are shown as "?".
    void WriteLine(std::string _strLine);

    /// Since the progress was made.
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
