#pragma once

#include <array>
#include <charconv>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

/// Makes the texts of a trace file.
namespace TraceText
{
/// Appends a number in decimal.
inline void AppendNumber(std::string& _strOut, std::uint64_t _uiNumber)
{
    std::array<char, 20> arrDigits; // as many as 64 bits have
    const auto stEnd = std::to_chars(arrDigits.data(), arrDigits.data() + arrDigits.size(), _uiNumber);
    _strOut.append(arrDigits.data(), stEnd.ptr);
}

/// Appends microseconds, the unit of the format, with three decimals.
inline void AppendTime(std::string& _strOut, std::chrono::nanoseconds _nsTime)
{
    AppendNumber(_strOut, static_cast<std::uint64_t>(_nsTime.count() / 1000));
    const std::string strDecimals = std::to_string(1000 + _nsTime.count() % 1000);
    _strOut.append(".").append(strDecimals, 1, 3);
}

/// The length of the UTF-8 sequence at _uiAt, which is not ASCII; 0 if it is not valid.
inline std::size_t GetSequenceLength(const std::string& _strText, std::size_t _uiAt)
{
    const auto funByte = [&](std::size_t _uiIndex)
    { return _uiIndex < _strText.size() ? static_cast<unsigned char>(_strText[_uiIndex]) : 0U; };
    const unsigned uiFirst = funByte(_uiAt);
    const unsigned uiSecond = funByte(_uiAt + 1);
    const std::size_t uiLength = uiFirst >= 0xF0 ? 4 : uiFirst >= 0xE0 ? 3 : 2;
    const bool bOverlong = (uiFirst == 0xE0 && uiSecond < 0xA0) || (uiFirst == 0xF0 && uiSecond < 0x90);
    const bool bBeyond = (uiFirst == 0xED && uiSecond > 0x9F) || (uiFirst == 0xF4 && uiSecond > 0x8F);
    if (uiFirst < 0xC2 || uiFirst > 0xF4 || bOverlong || bBeyond)
    {
        return 0;
    }
    for (std::size_t uiNext = 1; uiNext < uiLength; ++uiNext)
    {
        if ((funByte(_uiAt + uiNext) & 0xC0U) != 0x80U)
        {
            return 0;
        }
    }
    return uiLength;
}

/// Appends an ASCII character, escaped for JSON.
inline void AppendAscii(std::string& _strOut, char _chText)
{
    static constexpr char DIGITS[] = "0123456789abcdef";
    const auto uiText = static_cast<unsigned char>(_chText);
    if (_chText == '"' || _chText == '\\')
    {
        _strOut.append(1, '\\').append(1, _chText);
    }
    else if (uiText < ' ' || uiText == 0x7F)
    {
        _strOut.append("\\u00").append(1, DIGITS[uiText >> 4U]).append(1, DIGITS[uiText & 15U]);
    }
    else
    {
        _strOut.append(1, _chText);
    }
}

/// Appends the text in quotes. Replaces bytes that are not UTF-8, which occur in file names.
inline void AppendQuoted(std::string& _strOut, const std::string& _strText)
{
    _strOut.append("\"");
    for (std::size_t uiAt = 0; uiAt < _strText.size();)
    {
        const bool bAscii = static_cast<unsigned char>(_strText[uiAt]) < 0x80;
        const std::size_t uiLength = bAscii ? 1 : GetSequenceLength(_strText, uiAt);
        if (bAscii)
        {
            AppendAscii(_strOut, _strText[uiAt]);
        }
        else
        {
            uiLength > 0 ? _strOut.append(_strText, uiAt, uiLength) : _strOut.append("\xEF\xBF\xBD");
        }
        uiAt += uiLength > 0 ? uiLength : 1;
    }
    _strOut.append("\"");
}
} // namespace TraceText
