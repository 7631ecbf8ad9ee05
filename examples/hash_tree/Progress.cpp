#include "examples/hash_tree/Progress.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <unistd.h>

namespace
{
constexpr char CLEAR_LINE[] = "\r\x1b[K";

template <typename... T_Values>
std::string Format(const char* _pFormat, T_Values... _values)
{
    std::array<char, 64> arrText = {};
    std::snprintf(arrText.data(), arrText.size(), _pFormat, _values...);
    return arrText.data();
}

/// Such as "1:02:03" or "0:07"; at most 99 hours.
std::string FormatDuration(double _dSeconds)
{
    const int iSeconds = static_cast<int>(std::min(_dSeconds + 0.5, 99.0 * 3600));
    const int iMinutes = iSeconds / 60;
    return iMinutes < 60 ? Format("%d:%02d", iMinutes, iSeconds % 60)
                         : Format("%d:%02d:%02d", iMinutes / 60, iMinutes % 60, iSeconds % 60);
}
} // namespace

std::string FormatBytes(double _dBytes)
{
    static constexpr std::array<const char*, 5> UNITS = {"B", "KiB", "MiB", "GiB", "TiB"};
    std::size_t iUnit = 0;
    while (_dBytes >= 1024 && iUnit + 1 < UNITS.size())
    {
        _dBytes /= 1024;
        ++iUnit;
    }
    return Format(iUnit == 0 ? "%.0f %s" : "%.1f %s", _dBytes, UNITS[iUnit]);
}

CLS_Progress::CLS_Progress()
    : m_bTerminal(isatty(STDERR_FILENO) == 1), m_tpStart(std::chrono::steady_clock::now())
{
}

int CLS_Progress::GetUsualInterval() const
{
    return m_bTerminal ? 200 : 1000;
}

void CLS_Progress::Draw()
{
    Write(m_bTerminal ? CLEAR_LINE + ComposeLine() : ComposeLine() + "\n");
}

void CLS_Progress::DrawLast()
{
    Write((m_bTerminal ? CLEAR_LINE : "") + ComposeLine() + "\n");
}

void CLS_Progress::Report(const std::string& _strMessage)
{
    WriteLine("hash_tree: " + _strMessage);
}

void CLS_Progress::WriteLine(std::string _strLine)
{
    std::replace_if(
        _strLine.begin(), _strLine.end(),
        [](char _chText) { return static_cast<unsigned char>(_chText) < ' ' || _chText == '\x7f'; }, '?');
    Write((m_bTerminal ? CLEAR_LINE : "") + _strLine + "\n");
}

double CLS_Progress::GetSeconds() const
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - m_tpStart).count();
}

std::string CLS_Progress::ComposeLine() const
{
    const auto dBytes = static_cast<double>(m_stCounters.m_iBytesDone.load());
    const double dSpeed = dBytes / std::max(GetSeconds(), 0.001);
    return std::to_string(m_stCounters.m_iFilesDone) + "/" + std::to_string(m_stCounters.m_iFilesFound) +
           " files, " + FormatBytes(dBytes) + ", " + FormatBytes(dSpeed) + "/s, " + ComposeRemainder(dSpeed);
}

std::string CLS_Progress::ComposeRemainder(double _dBytesPerSecond) const
{
    if (m_stCounters.m_bWalking)
    {
        return "walking";
    }
    const auto dLeft = static_cast<double>(m_stCounters.m_iBytesFound.load()) -
                       static_cast<double>(m_stCounters.m_iBytesDone.load());
    if (dLeft > 0 && _dBytesPerSecond < 1)
    {
        return "-:-- left";
    }
    // Files that grow while they are read make the rest negative.
    return FormatDuration(std::max(dLeft, 0.0) / std::max(_dBytesPerSecond, 1.0)) + " left";
}

void CLS_Progress::Write(const std::string& _strText)
{
    const std::lock_guard<std::mutex> lock(m_mtxOutput);
    std::fwrite(_strText.data(), 1, _strText.size(), stderr);
}
