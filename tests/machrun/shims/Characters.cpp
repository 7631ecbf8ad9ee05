// The classes of characters. Mach-O code looks most of them up in a table.

#include "tests/machrun/shims/Tables.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <cwctype>

namespace
{
/// Darwin's bits.
enum n_CharacterKind : std::uint32_t
{
    KIND_ALPHA = 0x100,
    KIND_CONTROL = 0x200,
    KIND_DIGIT = 0x400,
    KIND_GRAPH = 0x800,
    KIND_LOWER = 0x1000,
    KIND_PUNCTUATION = 0x2000,
    KIND_SPACE = 0x4000,
    KIND_UPPER = 0x8000,
    KIND_HEX_DIGIT = 0x10000,
    KIND_BLANK = 0x20000,
    KIND_PRINT = 0x40000,
};

constexpr int TABLE_SIZE = 256;

/// The table's layout. Programs use only the arrays.
struct ST_Table
{
    std::array<char, 8> m_arrMagic;
    std::array<char, 32> m_arrEncoding;
    std::array<void*, 2> m_arrFunctions;
    std::int32_t m_iInvalid;
    std::array<std::uint32_t, TABLE_SIZE> m_arrKinds;
    std::array<std::int32_t, TABLE_SIZE> m_arrLower;
    std::array<std::int32_t, TABLE_SIZE> m_arrUpper;
    std::array<std::uint64_t, 9> m_arrRest;
};
static_assert(sizeof(ST_Table) == 3208 && offsetof(ST_Table, m_arrKinds) == 60);

/// The classes of Linux's C locale, for characters that fit into the table.
std::uint32_t GetKind(std::wint_t _uiCharacter)
{
    struct ST_Test
    {
        int (*m_funIs)(std::wint_t);
        std::uint32_t m_uiKind;
    };
    static const std::array<ST_Test, 11> s_arrTests{{{&std::iswalpha, KIND_ALPHA},
                                                     {&std::iswcntrl, KIND_CONTROL},
                                                     {&std::iswdigit, KIND_DIGIT},
                                                     {&std::iswgraph, KIND_GRAPH},
                                                     {&std::iswlower, KIND_LOWER},
                                                     {&std::iswpunct, KIND_PUNCTUATION},
                                                     {&std::iswspace, KIND_SPACE},
                                                     {&std::iswupper, KIND_UPPER},
                                                     {&std::iswxdigit, KIND_HEX_DIGIT},
                                                     {&std::iswblank, KIND_BLANK},
                                                     {&std::iswprint, KIND_PRINT}}};
    std::uint32_t uiKind = 0;
    for (const ST_Test& stTest : s_arrTests)
    {
        uiKind |= stTest.m_funIs(_uiCharacter) != 0 ? stTest.m_uiKind : 0;
    }
    return uiKind;
}

ST_Table MakeTable()
{
    ST_Table stTable{};
    std::memcpy(stTable.m_arrMagic.data(), "RuneMagA", stTable.m_arrMagic.size());
    std::memcpy(stTable.m_arrEncoding.data(), "NONE", sizeof("NONE"));
    for (std::uint32_t i = 0; i < TABLE_SIZE; ++i)
    {
        stTable.m_arrKinds[i] = i < 128 ? GetKind(i) : 0;
        stTable.m_arrLower[i] = static_cast<std::int32_t>(i < 128 ? std::towlower(i) : i);
        stTable.m_arrUpper[i] = static_cast<std::int32_t>(i < 128 ? std::towupper(i) : i);
    }
    return stTable;
}

ST_Table g_stTable = MakeTable(); // made before the program sets its locale

bool IsInTable(int _iCharacter)
{
    return _iCharacter >= 0 && _iCharacter < TABLE_SIZE;
}

int TestKind(int _iCharacter, std::uint64_t _uiKinds)
{
    const std::uint32_t uiKind = IsInTable(_iCharacter)
                                     ? g_stTable.m_arrKinds[static_cast<std::size_t>(_iCharacter)]
                                     : GetKind(static_cast<std::wint_t>(_iCharacter));
    return static_cast<int>(uiKind & _uiKinds);
}

int TestKindInLocale(int _iCharacter, std::uint64_t _uiKinds, void* /*_pLocale*/)
{
    return TestKind(_iCharacter, _uiKinds);
}

int ToLower(int _iCharacter)
{
    return IsInTable(_iCharacter) ? g_stTable.m_arrLower[static_cast<std::size_t>(_iCharacter)]
                                  : static_cast<int>(std::towlower(static_cast<std::wint_t>(_iCharacter)));
}

int ToUpper(int _iCharacter)
{
    return IsInTable(_iCharacter) ? g_stTable.m_arrUpper[static_cast<std::size_t>(_iCharacter)]
                                  : static_cast<int>(std::towupper(static_cast<std::wint_t>(_iCharacter)));
}
} // namespace

namespace Tables
{
const Shims& GetCharacters()
{
    static const Shims s_vecShims{
        {"__DefaultRuneLocale", &g_stTable},
        {"___maskrune", &TestKind},
        {"___maskrune_l", &TestKindInLocale},
        {"___tolower", &ToLower},
        {"___toupper", &ToUpper},
    };
    return s_vecShims;
}
} // namespace Tables
