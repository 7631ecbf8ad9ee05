// Regular expressions. GoogleTest matches the output of processes against them.

#include "tests/machrun/shims/Tables.h"

#include <array>
#include <cstdint>
#include <regex.h>

namespace
{
/// Darwin's structure. The flags that GoogleTest passes mean the same on both systems.
struct ST_Pattern
{
    int m_iMagic;
    std::size_t m_uiGroups;
    const char* m_szEnd;
    regex_t* m_pLinux;
};

struct ST_Match
{
    std::int64_t m_iStart;
    std::int64_t m_iEnd;
};

constexpr std::size_t MOST_MATCHES = 16;

int Compile(ST_Pattern* _pPattern, const char* _szText, int _iFlags)
{
    _pPattern->m_pLinux = new regex_t;
    const int iResult = regcomp(_pPattern->m_pLinux, _szText, _iFlags);
    _pPattern->m_uiGroups = _pPattern->m_pLinux->re_nsub;
    if (iResult != 0)
    {
        delete _pPattern->m_pLinux;
    }
    return iResult;
}

int Execute(const ST_Pattern* _pPattern, const char* _szText, std::size_t _uiCount, ST_Match* _pMatches,
            int _iFlags)
{
    std::array<regmatch_t, MOST_MATCHES> arrMatches{};
    if (_uiCount > arrMatches.size())
    {
        return REG_ESPACE;
    }
    const int iResult = regexec(_pPattern->m_pLinux, _szText, _uiCount, arrMatches.data(), _iFlags);
    for (std::size_t i = 0; iResult == 0 && i < _uiCount; ++i)
    {
        _pMatches[i] = {arrMatches[i].rm_so, arrMatches[i].rm_eo};
    }
    return iResult;
}

void Free(ST_Pattern* _pPattern)
{
    regfree(_pPattern->m_pLinux);
    delete _pPattern->m_pLinux;
}
} // namespace

namespace Tables
{
const Shims& GetPatterns()
{
    static const Shims s_vecShims{{"_regcomp", &Compile}, {"_regexec", &Execute}, {"_regfree", &Free}};
    return s_vecShims;
}
} // namespace Tables
