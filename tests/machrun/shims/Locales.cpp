// Locales, and functions that take one as their last argument.

#include "tests/machrun/shims/Tables.h"

#include <array>
#include <clocale>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <cwchar>
#include <locale.h>

namespace
{
/// Darwin's numbers of categories.
constexpr std::array<int, 7> CATEGORIES{LC_ALL,     LC_COLLATE, LC_CTYPE,   LC_MONETARY,
                                        LC_NUMERIC, LC_TIME,    LC_MESSAGES};

/// During its life, the calling thread uses a locale. Null stands for the C locale, as on Darwin.
class CLS_LocaleScope
{
public:
    explicit CLS_LocaleScope(locale_t _pLocale)
        : m_pBefore(uselocale(_pLocale == nullptr ? GetC() : _pLocale))
    {
    }
    ~CLS_LocaleScope() { uselocale(m_pBefore); }
    CLS_LocaleScope(const CLS_LocaleScope&) = delete;
    CLS_LocaleScope& operator=(const CLS_LocaleScope&) = delete;

private:
    static locale_t GetC()
    {
        static const locale_t s_pC = newlocale(LC_ALL_MASK, "C", nullptr);
        return s_pC;
    }

    const locale_t m_pBefore;
};

char* SetLocale(int _iCategory, const char* _szName)
{
    if (_iCategory < 0 || _iCategory >= static_cast<int>(CATEGORIES.size()))
    {
        return nullptr;
    }
    return std::setlocale( // NOLINT(concurrency-mt-unsafe): the program's own call
        CATEGORIES[static_cast<std::size_t>(_iCategory)], _szName);
}

int FreeLocale(locale_t _pLocale)
{
    freelocale(_pLocale);
    return 0;
}

/// The structure of localeconv on Darwin. Its last members have another order.
struct ST_Conventions
{
    std::array<char*, 10> m_arrTexts;
    std::array<char, 14> m_arrNumbers;
};
static_assert(sizeof(ST_Conventions) == 96);

ST_Conventions* GetConventions()
{
    thread_local ST_Conventions t_stConventions;
    const lconv* const pLinux = std::localeconv(); // NOLINT(concurrency-mt-unsafe): the program's own call
    t_stConventions = {
        {pLinux->decimal_point, pLinux->thousands_sep, pLinux->grouping, pLinux->int_curr_symbol,
         pLinux->currency_symbol, pLinux->mon_decimal_point, pLinux->mon_thousands_sep, pLinux->mon_grouping,
         pLinux->positive_sign, pLinux->negative_sign},
        {pLinux->int_frac_digits, pLinux->frac_digits, pLinux->p_cs_precedes, pLinux->p_sep_by_space,
         pLinux->n_cs_precedes, pLinux->n_sep_by_space, pLinux->p_sign_posn, pLinux->n_sign_posn,
         pLinux->int_p_cs_precedes, pLinux->int_n_cs_precedes, pLinux->int_p_sep_by_space,
         pLinux->int_n_sep_by_space, pLinux->int_p_sign_posn, pLinux->int_n_sign_posn}};
    return &t_stConventions;
}

int GetLongestCharacter(locale_t _pLocale)
{
    const CLS_LocaleScope clsLocale(_pLocale);
    return static_cast<int>(MB_CUR_MAX);
}

/// A Linux function with a locale as an additional argument: &CLS_InLocale<&::strtod>::Call.
template <auto FUN, typename T_Type = decltype(FUN)>
struct CLS_InLocale;

template <auto FUN, typename T_Result, typename... T_Arguments, bool NOEXCEPT>
struct CLS_InLocale<FUN, T_Result (*)(T_Arguments...) noexcept(NOEXCEPT)>
{
    static T_Result Call(T_Arguments... _arguments, locale_t _pLocale)
    {
        const CLS_LocaleScope clsLocale(_pLocale);
        const CLS_ErrnoScope clsErrno;
        return FUN(_arguments...); // NOLINT(concurrency-mt-unsafe): the program's own call
    }
};

template <auto FUN>
constexpr auto IN_LOCALE = &CLS_InLocale<FUN>::Call;

int PrintInLocale(char* _pText, std::size_t _uiSize, locale_t _pLocale, const char* _szFormat, ...)
{
    const CLS_LocaleScope clsLocale(_pLocale);
    va_list vaRest;
    va_start(vaRest, _szFormat);
    // The analyser overlooks va_start.
    const int iLength =
        std::vsnprintf(_pText, _uiSize, _szFormat, vaRest); // NOLINT(clang-analyzer-valist.Uninitialized)
    va_end(vaRest);
    return iLength;
}

int PrintNewInLocale(char** _ppText, locale_t _pLocale, const char* _szFormat, ...)
{
    const CLS_LocaleScope clsLocale(_pLocale);
    va_list vaRest;
    va_start(vaRest, _szFormat);
    const int iLength = vasprintf(_ppText, _szFormat, vaRest);
    va_end(vaRest);
    return iLength;
}

int ScanInLocale(const char* _szText, locale_t _pLocale, const char* _szFormat, ...)
{
    const CLS_LocaleScope clsLocale(_pLocale);
    va_list vaRest;
    va_start(vaRest, _szFormat);
    // The analyser overlooks va_start.
    const int iCount =
        std::vsscanf(_szText, _szFormat, vaRest); // NOLINT(clang-analyzer-valist.Uninitialized)
    va_end(vaRest);
    return iCount;
}
} // namespace

namespace Tables
{
const Shims& GetLocales()
{
    static const Shims s_vecShims{
        {"_setlocale", &SetLocale},
        {"_freelocale", &FreeLocale},
        {"_localeconv", &GetConventions},
        {"____mb_cur_max_l", &GetLongestCharacter},
        {"_snprintf_l", &PrintInLocale},
        {"_asprintf_l", &PrintNewInLocale},
        {"_sscanf_l", &ScanInLocale},
        {"_strtod_l", IN_LOCALE<&::strtod>},
        {"_strtof_l", IN_LOCALE<&::strtof>},
        {"_strtold_l", IN_LOCALE<&::strtold>},
        {"_strtoll_l", IN_LOCALE<&::strtoll>},
        {"_strtoull_l", IN_LOCALE<&::strtoull>},
        {"_strftime_l", IN_LOCALE<&::strftime>},
        {"_mbtowc_l", IN_LOCALE<&::mbtowc>},
        {"_mbrlen_l", IN_LOCALE<&::mbrlen>},
        {"_mbrtowc_l", IN_LOCALE<&::mbrtowc>},
        {"_mbsrtowcs_l", IN_LOCALE<&::mbsrtowcs>},
        {"_mbsnrtowcs_l", IN_LOCALE<&::mbsnrtowcs>},
        {"_wcrtomb_l", IN_LOCALE<&::wcrtomb>},
        {"_wcsnrtombs_l", IN_LOCALE<&::wcsnrtombs>},
    };
    return s_vecShims;
}
} // namespace Tables
