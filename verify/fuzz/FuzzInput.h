#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>

/// Ends the process if the condition does not hold. The fuzzer then keeps the input.
inline void Require(bool _bHolds, const char* _szWhat)
{
    if (!_bHolds)
    {
        std::cerr << "Broken: " << _szWhat << std::endl;
        std::abort();
    }
}

/// Ends the process if a rule is broken. Null stands for none.
inline void RequireUnbroken(const char* _szBroken)
{
    Require(_szBroken == nullptr, _szBroken);
}

/// Reads the fuzzer's bytes from front to back. After the last byte, it reads zeros and empty texts.
class CLS_FuzzInput
{
public:
    CLS_FuzzInput(const std::uint8_t* _pData, std::size_t _iSize) : m_pData(_pData), m_iLeft(_iSize) {}

    bool IsAtEnd() const { return m_iLeft == 0; }

    /// A number below _iLimit, which is at most 256.
    std::size_t TakeBelow(std::size_t _iLimit) { return TakeNumber<std::uint8_t>() % _iLimit; }

    template <typename T_Number>
    T_Number TakeNumber()
    {
        T_Number tNumber{};
        const std::size_t iSize = m_iLeft < sizeof tNumber ? m_iLeft : sizeof tNumber;
        if (iSize > 0)
        {
            std::memcpy(&tNumber, m_pData, iSize);
            Skip(iSize);
        }
        return tNumber;
    }

    /// A text of fewer than _iLimit characters, which may be zeros. _iLimit is at most 256.
    std::string TakeText(std::size_t _iLimit)
    {
        const std::size_t iAsked = TakeBelow(_iLimit);
        return TakeCharacters(iAsked);
    }

    std::string TakeRest() { return TakeCharacters(m_iLeft); }

private:
    std::string TakeCharacters(std::size_t _iAsked)
    {
        const std::size_t iSize = _iAsked < m_iLeft ? _iAsked : m_iLeft;
        std::string strText(reinterpret_cast<const char*>(m_pData), iSize);
        Skip(iSize);
        return strText;
    }

    void Skip(std::size_t _iSize)
    {
        m_pData += _iSize;
        m_iLeft -= _iSize;
    }

    const std::uint8_t* m_pData;
    std::size_t m_iLeft;
};
