// Error texts, and numbers in texts.

#include "tests/machrun/shims/Tables.h"

#include <array>
#include <cstdlib>
#include <cstring>
#include <cwchar>

namespace
{
/// The text is Linux's.
const char* GetErrorText(int _iError, std::array<char, 128>& _arrText)
{
    return strerror_r(Errno::FromDarwin(_iError), _arrText.data(), _arrText.size());
}

char* DescribeError(int _iError)
{
    thread_local std::array<char, 128> t_arrText{};
    return const_cast<char*>(GetErrorText(_iError, t_arrText));
}

int DescribeErrorInto(int _iError, char* _pText, std::size_t _uiSize)
{
    std::array<char, 128> arrText{};
    const std::string strText = GetErrorText(_iError, arrText);
    if (_uiSize > 0)
    {
        _pText[strText.copy(_pText, _uiSize - 1)] = '\0';
    }
    return strText.size() < _uiSize ? 0 : ERANGE;
}
} // namespace

namespace Tables
{
const Shims& GetTexts()
{
    static const Shims s_vecShims{
        {"_strerror", &DescribeError},          {"_strerror_r", &DescribeErrorInto},
        {"_strtod", WITH_ERRNO<&::strtod>},     {"_strtof", WITH_ERRNO<&::strtof>},
        {"_strtold", WITH_ERRNO<&::strtold>},   {"_strtol", WITH_ERRNO<&::strtol>},
        {"_strtoll", WITH_ERRNO<&::strtoll>},   {"_strtoul", WITH_ERRNO<&::strtoul>},
        {"_strtoull", WITH_ERRNO<&::strtoull>},
    };
    return s_vecShims;
}
} // namespace Tables
