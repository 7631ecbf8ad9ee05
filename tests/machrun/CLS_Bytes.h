#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string_view>

/// Reads bytes of a file from front to back, and never past their end.
///
/// Threads: one at a time.
///
/// Fails: an operation that needs more bytes throws std::runtime_error. The code that catches it adds the
/// file's path.
///
/// Owns: nothing. The caller keeps the bytes.
class CLS_Bytes
{
public:
    CLS_Bytes() = default;
    CLS_Bytes(const std::uint8_t* _pData, std::size_t _uiSize) : m_pData(_pData), m_uiSize(_uiSize) {}

    std::size_t GetSize() const { return m_uiSize; }
    const std::uint8_t* GetData() const { return m_pData; }
    bool IsAtEnd() const { return m_uiNext == m_uiSize; }

    /// Moves to an offset from the first byte. The end is a valid offset.
    void GoTo(std::uint64_t _uiOffset)
    {
        if (_uiOffset > m_uiSize)
        {
            throw std::runtime_error("an offset leads past the end");
        }
        m_uiNext = static_cast<std::size_t>(_uiOffset);
    }

    /// Skips the next bytes.
    void Skip(std::uint64_t _uiSize)
    {
        if (_uiSize > m_uiSize - m_uiNext)
        {
            throw std::runtime_error("an offset leads past the end");
        }
        m_uiNext += static_cast<std::size_t>(_uiSize);
    }

    /// A part of these bytes. The current offset does not matter.
    CLS_Bytes GetPart(std::uint64_t _uiOffset, std::uint64_t _uiSize) const
    {
        if (_uiOffset > m_uiSize || _uiSize > m_uiSize - _uiOffset)
        {
            throw std::runtime_error("a part runs past the end");
        }
        return {m_pData + _uiOffset, static_cast<std::size_t>(_uiSize)};
    }

    /// The next bytes as a number or a structure, in the byte order of this machine.
    template <typename T_Value>
    T_Value Read()
    {
        if (sizeof(T_Value) > m_uiSize - m_uiNext)
        {
            throw std::runtime_error("it ends in the middle of a value");
        }
        T_Value stValue;
        std::memcpy(&stValue, m_pData + m_uiNext, sizeof(T_Value));
        m_uiNext += sizeof(T_Value);
        return stValue;
    }

    /// The next number in LEB128, which stores seven bits in a byte.
    std::uint64_t ReadNumber()
    {
        int iBits = 0;
        return ReadBits(iBits);
    }

    /// The same for a signed number. The upper bit of the last byte is the sign.
    std::int64_t ReadSignedNumber()
    {
        int iBits = 0;
        const std::uint64_t uiValue = ReadBits(iBits);
        const bool bNegative = iBits < 64 && (uiValue >> (iBits - 1) & 1) != 0;
        return static_cast<std::int64_t>(bNegative ? uiValue | ~std::uint64_t{0} << iBits : uiValue);
    }

    /// The next text. Also reads the zero that terminates it.
    std::string_view ReadText()
    {
        const char* const szText = reinterpret_cast<const char*>(m_pData + m_uiNext);
        const std::size_t uiLength = strnlen(szText, m_uiSize - m_uiNext);
        if (uiLength == m_uiSize - m_uiNext)
        {
            throw std::runtime_error("a text is not terminated");
        }
        m_uiNext += uiLength + 1;
        return {szText, uiLength};
    }

private:
    std::uint64_t ReadBits(int& _iBits)
    {
        std::uint64_t uiValue = 0;
        std::uint8_t uiByte = 0x80;
        while ((uiByte & 0x80) != 0)
        {
            if (_iBits >= 64)
            {
                throw std::runtime_error("a number has more than 64 bits");
            }
            uiByte = Read<std::uint8_t>();
            uiValue |= static_cast<std::uint64_t>(uiByte & 0x7f) << _iBits;
            _iBits += 7;
        }
        return uiValue;
    }

    const std::uint8_t* m_pData = nullptr;
    std::size_t m_uiSize = 0;
    std::size_t m_uiNext = 0;
};
