#pragma once

#include <locale>
#include <string>

/// During its life, the process's C++ locale groups digits by threes and writes decimals with a semicolon, as
/// a host may set it. Only one may exist at a time.
class CLS_GroupingLocale
{
public:
    CLS_GroupingLocale()
        : m_locBefore(std::locale::global(std::locale(std::locale::classic(), new CLS_Punctuation)))
    {
    }
    ~CLS_GroupingLocale() { std::locale::global(m_locBefore); }
    CLS_GroupingLocale(const CLS_GroupingLocale&) = delete;
    CLS_GroupingLocale& operator=(const CLS_GroupingLocale&) = delete;

private:
    class CLS_Punctuation : public std::numpunct<char>
    {
    protected:
        char do_decimal_point() const override { return ';'; }
        char do_thousands_sep() const override { return '.'; }
        std::string do_grouping() const override { return "\3"; }
    };

    std::locale m_locBefore;
};
