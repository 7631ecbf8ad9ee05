// machrun: ctype tables, locales, wide characters and regular expressions.
#include "darwin.h"
#include "loader.h"

#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <cwctype>
#include <langinfo.h>
#include <locale.h>
#include <mutex>
#include <new>
#include <regex.h>
#include <time.h>

namespace machrun
{
namespace
{

// ---- character classes ----------------------------------------------------------

enum : uint32_t
{
    ALPHA = 0x100,
    CONTROL = 0x200,
    DIGIT = 0x400,
    GRAPH = 0x800,
    LOWER = 0x1000,
    PUNCT = 0x2000,
    SPACE = 0x4000,
    UPPER = 0x8000,
    XDIGIT = 0x10000,
    BLANK = 0x20000,
    PRINT = 0x40000,
    WIDTH1 = 0x40000000,
};

struct RuneLocale
{ // the layout of <runetype.h>, 3208 bytes
    char magic[8];
    char encoding[32];
    void* sgetrune;
    void* sputrune;
    int32_t invalid;
    uint32_t type[256];
    int32_t lower[256];
    int32_t upper[256];
    struct
    {
        int32_t count;
        void* ranges;
    } extra[3];
    void* variable;
    int32_t variableLength, classCount;
    void* classes;
};
static_assert(sizeof(RuneLocale) == 3208 && offsetof(RuneLocale, type) == 60 &&
                  offsetof(RuneLocale, extra) == 3136,
              "");

RuneLocale makeRunes()
{
    RuneLocale r;
    std::memset(&r, 0, sizeof r);
    std::memcpy(r.magic, "RuneMagA", 8);
    std::strcpy(r.encoding, "NONE");
    r.invalid = 0xfffd;
    for (int c = 0; c < 256; ++c)
    {
        r.lower[c] = r.upper[c] = c;
        if (c > 127)
            continue;
        bool up = c >= 'A' && c <= 'Z', low = c >= 'a' && c <= 'z', digit = c >= '0' && c <= '9';
        uint32_t t = 0;
        if (up || low)
            t |= ALPHA | (up ? UPPER : LOWER);
        if (c < 32 || c == 127)
            t |= CONTROL;
        else
            t |= PRINT | WIDTH1;
        if (c > 32 && c < 127)
            t |= GRAPH;
        if (digit)
            t |= DIGIT | XDIGIT | static_cast<uint32_t>(c - '0');
        if ((c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'))
            t |= XDIGIT | static_cast<uint32_t>((c | 32) - 'a' + 10);
        if ((t & GRAPH) && !up && !low && !digit)
            t |= PUNCT;
        if (c == ' ' || (c >= 9 && c <= 13))
            t |= SPACE;
        if (c == ' ' || c == '\t')
            t |= BLANK;
        r.type[c] = t;
        if (up)
            r.lower[c] = c + 32;
        if (low)
            r.upper[c] = c - 32;
    }
    return r;
}
RuneLocale g_runes = makeRunes();

uint32_t typeOf(int c)
{
    if (c >= 0 && c < 256)
        return g_runes.type[c];
    auto w = static_cast<wint_t>(c);
    uint32_t t = 0;
    if (iswalpha(w))
        t |= ALPHA;
    if (iswcntrl(w))
        t |= CONTROL;
    if (iswgraph(w))
        t |= GRAPH;
    if (iswlower(w))
        t |= LOWER;
    if (iswpunct(w))
        t |= PUNCT;
    if (iswspace(w))
        t |= SPACE;
    if (iswupper(w))
        t |= UPPER;
    if (iswblank(w))
        t |= BLANK;
    if (iswprint(w))
        t |= PRINT | WIDTH1;
    return t;
}
unsigned long d___runetype(int c)
{
    return typeOf(c);
}
int d___maskrune(int c, unsigned long mask)
{
    return static_cast<int>(typeOf(c) & mask);
}
int d___istype(int c, unsigned long mask)
{
    return (typeOf(c) & mask) != 0;
}
int d___isctype(int c, unsigned long mask)
{
    return c >= 0 && c < 256 && (g_runes.type[c] & mask) != 0;
}
int d___toupper(int c)
{
    return c >= 0 && c < 256 ? g_runes.upper[c] : static_cast<int>(towupper(static_cast<wint_t>(c)));
}
int d___tolower(int c)
{
    return c >= 0 && c < 256 ? g_runes.lower[c] : static_cast<int>(towlower(static_cast<wint_t>(c)));
}
unsigned long d___runetype_l(int c, void*)
{
    return typeOf(c);
}
int d___maskrune_l(int c, unsigned long mask, void*)
{
    return d___maskrune(c, mask);
}
int d___toupper_l(int c, void*)
{
    return d___toupper(c);
}
int d___tolower_l(int c, void*)
{
    return d___tolower(c);
}
template <uint32_t Mask>
int classTest(int c)
{
    return (typeOf(c) & Mask) != 0;
}
int d_isalnum(int c)
{
    return (typeOf(c) & (ALPHA | DIGIT)) != 0;
}
int d_isascii(int c)
{
    return c >= 0 && c < 128;
}
int d_digittoint(int c)
{
    return c >= 0 && c < 256 ? static_cast<int>(g_runes.type[c] & 0xf) : 0;
}

// ---- locales ------------------------------------------------------------------------

locale_t cLocale()
{
    static locale_t c = newlocale(LC_ALL_MASK, "C", nullptr);
    return c;
}
locale_t fromDarwin(locale_t l)
{
    if (!l) // Darwin's LC_C_LOCALE
        return cLocale();
    return l; // (locale_t)-1 is the global locale on both sides
}

class Using
{
public:
    explicit Using(locale_t l) : m_old(uselocale(fromDarwin(l))) {}
    ~Using() { uselocale(m_old); }

private:
    locale_t m_old;
};

int categoryFromDarwin(int c)
{
    switch (c)
    {
    case 0:
        return LC_ALL;
    case 1:
        return LC_COLLATE;
    case 2:
        return LC_CTYPE;
    case 3:
        return LC_MONETARY;
    case 4:
        return LC_NUMERIC;
    case 5:
        return LC_TIME;
    case 6:
        return LC_MESSAGES;
    default:
        return -1;
    }
}
char* d_setlocale(int category, const char* name)
{
    return setlocale(categoryFromDarwin(category), name);
}
locale_t d_newlocale(int mask, const char* name, locale_t base)
{
    static const int masks[] = {LC_COLLATE_MASK,  LC_CTYPE_MASK,   LC_MESSAGES_MASK,
                                LC_MONETARY_MASK, LC_NUMERIC_MASK, LC_TIME_MASK};
    int m = 0;
    for (int i = 0; i < 6; ++i)
        if (mask & (1 << i))
            m |= masks[i];
    if ((mask & 0x3f) == 0x3f)
        m = LC_ALL_MASK;
    ErrnoScope scope;
    return newlocale(m, name ? name : "C", base);
}
int d_freelocale(locale_t l)
{
    if (l && l != LC_GLOBAL_LOCALE && l != cLocale())
        freelocale(l);
    return 0;
}
locale_t d_duplocale(locale_t l)
{
    return duplocale(fromDarwin(l));
}
locale_t d_uselocale(locale_t l)
{
    return l ? uselocale(l) : uselocale(nullptr);
}

struct DLconv
{
    char *decimal_point, *thousands_sep, *grouping, *int_curr_symbol, *currency_symbol, *mon_decimal_point,
        *mon_thousands_sep, *mon_grouping, *positive_sign, *negative_sign;
    char int_frac_digits, frac_digits, p_cs_precedes, p_sep_by_space, n_cs_precedes, n_sep_by_space,
        p_sign_posn, n_sign_posn, int_p_cs_precedes, int_n_cs_precedes, int_p_sep_by_space,
        int_n_sep_by_space, int_p_sign_posn, int_n_sign_posn;
};
static_assert(sizeof(DLconv) == 96, "");
DLconv* d_localeconv()
{
    static thread_local DLconv result;
    const lconv* l = localeconv();
    result = DLconv{l->decimal_point,      l->thousands_sep,      l->grouping,          l->int_curr_symbol,
                    l->currency_symbol,    l->mon_decimal_point,  l->mon_thousands_sep, l->mon_grouping,
                    l->positive_sign,      l->negative_sign,      l->int_frac_digits,   l->frac_digits,
                    l->p_cs_precedes,      l->p_sep_by_space,     l->n_cs_precedes,     l->n_sep_by_space,
                    l->p_sign_posn,        l->n_sign_posn,        l->int_p_cs_precedes, l->int_n_cs_precedes,
                    l->int_p_sep_by_space, l->int_n_sep_by_space, l->int_p_sign_posn,   l->int_n_sign_posn};
    return &result;
}
DLconv* d_localeconv_l(locale_t l)
{
    Using use(l);
    return d_localeconv();
}
int d____mb_cur_max()
{
    return static_cast<int>(MB_CUR_MAX);
}
int d____mb_cur_max_l(locale_t l)
{
    Using use(l);
    return static_cast<int>(MB_CUR_MAX);
}
char* d_nl_langinfo(int item)
{
    if (item == 0)
        return nl_langinfo(CODESET);
    if (item == 50)
        return nl_langinfo(RADIXCHAR);
    if (item == 51)
        return nl_langinfo(THOUSEP);
    return const_cast<char*>("");
}

// One wrapper for all functions that only take a locale more (as last argument).
template <class T, T F>
struct InLocaleOf;
template <class R, class... A, bool N, R (*F)(A...) noexcept(N)>
struct InLocaleOf<R (*)(A...) noexcept(N), F>
{
    static R call(A... a, locale_t l)
    {
        Using use(l);
        ErrnoScope scope;
        return F(a...);
    }
};
template <auto F>
using InLocale = InLocaleOf<decltype(F), F>;
#define SHIM_L(name)                                                                                         \
    {                                                                                                        \
        "_" #name "_l", reinterpret_cast<void*>(&InLocale<&::name>::call)                                    \
    }

int d_snprintf_l(char* s, size_t n, locale_t l, const char* format, ...)
{
    Using use(l);
    va_list args;
    va_start(args, format);
    int result = vsnprintf(s, n, format, args);
    va_end(args);
    return result;
}
int d_vsnprintf_l(char* s, size_t n, locale_t l, const char* format, va_list args)
{
    Using use(l);
    return vsnprintf(s, n, format, args);
}
int d_asprintf_l(char** s, locale_t l, const char* format, ...)
{
    Using use(l);
    va_list args;
    va_start(args, format);
    int result = vasprintf(s, format, args);
    va_end(args);
    return result;
}
int d_vasprintf_l(char** s, locale_t l, const char* format, va_list args)
{
    Using use(l);
    return vasprintf(s, format, args);
}
int d_sscanf_l(const char* s, locale_t l, const char* format, ...)
{
    Using use(l);
    va_list args;
    va_start(args, format);
    int result = vsscanf(s, format, args);
    va_end(args);
    return result;
}
int d_vsscanf_l(const char* s, locale_t l, const char* format, va_list args)
{
    Using use(l);
    return vsscanf(s, format, args);
}
int d_printf_l(locale_t l, const char* format, ...)
{
    Using use(l);
    va_list args;
    va_start(args, format);
    int result = vprintf(format, args);
    va_end(args);
    return result;
}
int d_fprintf_l(FILE* f, locale_t l, const char* format, ...)
{
    Using use(l);
    va_list args;
    va_start(args, format);
    int result = vfprintf(f, format, args);
    va_end(args);
    return result;
}
size_t mbrlenIn(const char* s, size_t n, mbstate_t* p)
{
    return mbrlen(s, n, p);
}
int mbtowcIn(wchar_t* w, const char* s, size_t n)
{
    return mbtowc(w, s, n);
}
int wctobIn(wint_t c)
{
    return wctob(c);
}
wint_t btowcIn(int c)
{
    return btowc(c);
}
int iswctypeIn(wint_t c, wctype_t t)
{
    return iswctype(c, t);
}

// ---- regular expressions --------------------------------------------------------------

struct DRegex
{
    int magic;
    size_t nsub;
    const char* end;
    regex_t* inner;
};
struct DMatch
{
    int64_t so, eo;
};
int d_regcomp(DRegex* r, const char* pattern, int flags)
{
    int f = 0;
    if (flags & 1)
        f |= REG_EXTENDED;
    if (flags & 2)
        f |= REG_ICASE;
    if (flags & 4)
        f |= REG_NOSUB;
    if (flags & 8)
        f |= REG_NEWLINE;
    r->magic = 0xf265;
    r->inner = new regex_t;
    int result = regcomp(r->inner, pattern, f);
    r->nsub = r->inner->re_nsub;
    if (result)
    {
        delete r->inner;
        r->inner = nullptr;
    }
    return result; // the error numbers agree up to 13
}
int d_regexec(const DRegex* r, const char* text, size_t count, DMatch* matches, int flags)
{
    regmatch_t local[16];
    size_t n = count < 16 ? count : 16;
    int f = 0;
    if (flags & 1)
        f |= REG_NOTBOL;
    if (flags & 2)
        f |= REG_NOTEOL;
    int result = regexec(r->inner, text, n, local, f);
    if (result == 0 && matches)
        for (size_t i = 0; i < count; ++i)
            matches[i] = i < n ? DMatch{local[i].rm_so, local[i].rm_eo} : DMatch{-1, -1};
    return result;
}
void d_regfree(DRegex* r)
{
    if (r->inner)
    {
        regfree(r->inner);
        delete r->inner;
        r->inner = nullptr;
    }
}
size_t d_regerror(int code, const DRegex* r, char* buffer, size_t size)
{
    return regerror(code, r ? r->inner : nullptr, buffer, size);
}

const ShimEntry entries[] = {
    SHIM_DATA("__DefaultRuneLocale", g_runes),
    SHIM(__maskrune),
    SHIM(__runetype),
    SHIM_AS("____runetype", d___runetype),
    SHIM_AS("____runetype_l", d___runetype_l),
    SHIM(__maskrune_l),
    SHIM(__istype),
    SHIM(__isctype),
    SHIM(__toupper),
    SHIM(__tolower),
    SHIM_AS("____toupper", d___toupper),
    SHIM_AS("____tolower", d___tolower),
    SHIM_AS("____toupper_l", d___toupper_l),
    SHIM_AS("____tolower_l", d___tolower_l),
    SHIM_AS("_toupper", d___toupper),
    SHIM_AS("_tolower", d___tolower),
    SHIM_AS("_isalpha", classTest<ALPHA>),
    SHIM_AS("_iscntrl", classTest<CONTROL>),
    SHIM_AS("_isdigit", classTest<DIGIT>),
    SHIM_AS("_isgraph", classTest<GRAPH>),
    SHIM_AS("_islower", classTest<LOWER>),
    SHIM_AS("_ispunct", classTest<PUNCT>),
    SHIM_AS("_isspace", classTest<SPACE>),
    SHIM_AS("_isupper", classTest<UPPER>),
    SHIM_AS("_isxdigit", classTest<XDIGIT>),
    SHIM_AS("_isblank", classTest<BLANK>),
    SHIM_AS("_isprint", classTest<PRINT>),
    SHIM(isalnum),
    SHIM(isascii),
    SHIM(digittoint),
    SHIM(setlocale),
    SHIM(newlocale),
    SHIM(freelocale),
    SHIM(duplocale),
    SHIM(uselocale),
    SHIM(localeconv),
    SHIM(localeconv_l),
    SHIM(___mb_cur_max),
    SHIM(___mb_cur_max_l),
    SHIM(nl_langinfo),
    SHIM(snprintf_l),
    SHIM(vsnprintf_l),
    SHIM(asprintf_l),
    SHIM(vasprintf_l),
    SHIM(sscanf_l),
    SHIM(vsscanf_l),
    SHIM(printf_l),
    SHIM(fprintf_l),
    SHIM_L(strtod),
    SHIM_L(strtof),
    SHIM_L(strtold),
    SHIM_L(strtol),
    SHIM_L(strtoll),
    SHIM_L(strtoul),
    SHIM_L(strtoull),
    SHIM_L(strcoll),
    SHIM_L(strxfrm),
    SHIM_L(strftime),
    SHIM_L(wcscoll),
    SHIM_L(wcsxfrm),
    SHIM_L(mbrtowc),
    SHIM_L(wcrtomb),
    SHIM_L(mbsrtowcs),
    SHIM_L(mbsnrtowcs),
    SHIM_L(wcsnrtombs),
    SHIM_L(wcsrtombs),
    SHIM_AS("_mbrlen_l", InLocale<&mbrlenIn>::call),
    SHIM_AS("_mbtowc_l", InLocale<&mbtowcIn>::call),
    SHIM_AS("_wctob_l", InLocale<&wctobIn>::call),
    SHIM_AS("_btowc_l", InLocale<&btowcIn>::call),
    SHIM_AS("_iswctype_l", InLocale<&iswctypeIn>::call),
    SHIM(regcomp),
    SHIM(regexec),
    SHIM(regfree),
    SHIM(regerror),
};

} // namespace

ShimTable localeShims()
{
    return {entries, sizeof entries / sizeof *entries};
}

} // namespace machrun
